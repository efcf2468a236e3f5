#pragma once

#include "Cspf/Graph/Graph.h"

#include <algorithm>
#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <utility>
#include <vector>

namespace Cspf {

/// What runs compare: the metric alone, or SRLG counts (excludes above, includes below, 32 bits
/// each) and then the metric.
using CspfMetricKey = uint32_t;
struct CspfSrlgKey {
   uint64_t counts;
   CspfMetricKey metric;
   static CspfSrlgKey ofMetric( CspfMetricKey metric ) { return { 0, metric }; }
   bool isCounted() const { return counts > 0; }
   CspfMetricKey metricPart() const { return metric; }
   auto operator<=>( const CspfSrlgKey & ) const = default;
};
/// The same where counts fit 32 bits: these above, the metric below.
struct CspfPackedKey {
   uint64_t value;
   static CspfPackedKey ofMetric( CspfMetricKey metric ) { return { metric }; }
   bool isCounted() const { return value >> 32; }
   CspfMetricKey metricPart() const { return static_cast< CspfMetricKey >( value ); }
   auto operator<=>( const CspfPackedKey & ) const = default;
};

/// The highest bit in which two keys differ, counted from 1; 0 for equal keys.
inline size_t
highestDifference( CspfMetricKey a, CspfMetricKey b ) {
   return std::bit_width( a ^ b );
}
inline size_t
highestDifference( CspfPackedKey a, CspfPackedKey b ) {
   return std::bit_width( a.value ^ b.value );
}
inline size_t
highestDifference( CspfSrlgKey a, CspfSrlgKey b ) {
   return a.counts == b.counts ? highestDifference( a.metric, b.metric )
                               : 32 + std::bit_width( a.counts ^ b.counts );
}

/// An entry as it is taken: `number` is that which it was pushed with.
template< typename Key >
struct CspfTaken {
   Key key;
   CspfVertex vertex;
   uint32_t number;
};

/// A monotone queue of vertices with one bucket for each key modulo their number. Buckets are
/// lists in one pool that has an entry for each push; a bucket is taken whole. `sparse`: entries
/// may be few among the buckets.
/// (R. B. Dial, Algorithm 360, CACM 12(11), 1969.)
///
/// Keys popped never fall; keys pushed lie within `largestStep` of the last key popped. The queue
/// is empty between runs, so nothing needs clearing.
template< bool sparse = false >
class CspfBucketQueue {
 public:
   static constexpr uint32_t largestStepAllowed = 0xFFFF;

   /// `pushes`: how many there will be at most until the next `begin`. REQUIRES: the queue is
   /// empty; `largestStep` is at most largestStepAllowed.
   void begin( uint32_t largestStep, size_t pushes ) {
      const uint32_t buckets = std::bit_ceil( std::max( largestStep + 1, 64U ) );
      if ( heads_.size() < buckets ) {
         heads_.resize( buckets, empty );
         used_.resize( buckets / 64 );
         usedWords_.resize( buckets / 4096 + 1 );
      }
      if ( entries_.size() < pushes ) {
         entries_.resize( pushes );
      }
      mask_ = buckets - 1;
      now_ = pushed_ = popped_ = 0;
   }
   /// No key is below `key` any more. REQUIRES: the queue is empty.
   void restartAt( CspfMetricKey key ) { now_ = key; }

   /// `number`: another one for each push, below `pushes`; who takes the entry is told it.
   void push( CspfMetricKey key, CspfVertex vertex, uint32_t number ) {
      const uint32_t bucket = key & mask_;
      entries_[ number ] = { vertex, heads_[ bucket ] };
      heads_[ bucket ] = number;
      used_[ bucket / 64 ] |= bit( bucket );
      if constexpr ( sparse ) {
         usedWords_[ bucket / 4096 ] |= bit( bucket / 64 );
      }
      ++pushed_;
   }

   bool isEmpty() const { return popped_ == pushed_; }

   /// Takes an entry of the least key. REQUIRES: the queue is not empty.
   CspfTaken< CspfMetricKey > pop() {
      const uint32_t number = next_ == empty ? takeBucket() : next_;
      next_ = entries_[ number ].next;
      ++popped_;
      return { now_, entries_[ number ].vertex, number };
   }
   /// The vertex that may be taken next; noVertex where that is not known.
   CspfVertex expected() const { return next_ == empty ? noVertex : entries_[ next_ ].vertex; }

 private:
   static constexpr uint32_t empty = 0xFFFFFFFF;
   struct Entry {
      CspfVertex vertex;
      uint32_t next;
   };

   static uint64_t bit( uint32_t number ) { return uint64_t{ 1 } << ( number % 64 ); }
   /// The numbers that are not below this one.
   static uint64_t bitsFrom( uint32_t number ) { return ~uint64_t{ 0 } << ( number % 64 ); }
   static uint32_t lowest( uint64_t bits ) {
      return static_cast< uint32_t >( std::countr_zero( bits ) );
   }

   /// Moves on to the least key; its first entry.
   uint32_t takeBucket() {
      const uint32_t bucket = nextBucket();
      now_ += ( bucket - now_ ) & mask_;
      used_[ bucket / 64 ] &= ~bit( bucket );
      if constexpr ( sparse ) {
         if ( !used_[ bucket / 64 ] ) {
            usedWords_[ bucket / 4096 ] &= ~bit( bucket / 64 );
         }
      }
      return std::exchange( heads_[ bucket ], empty );
   }

   uint32_t nextBucket() const {
      const uint32_t first = now_ & mask_;
      uint32_t word = first / 64;
      uint64_t bits = used_[ word ] & bitsFrom( first );
      while ( !bits ) {
         word = ( word + 1 ) & ( mask_ / 64 );
         if constexpr ( sparse ) {
            word = nextWord( word );
         }
         bits = used_[ word ];
      }
      return word * 64 + lowest( bits );
   }
   uint32_t nextWord( uint32_t first ) const {
      uint32_t many = first / 64;
      uint64_t words = usedWords_[ many ] & bitsFrom( first );
      while ( !words ) {
         many = ( many + 1 ) & ( mask_ / 4096 );
         words = usedWords_[ many ];
      }
      return many * 64 + lowest( words );
   }

   std::vector< uint32_t > heads_;
   std::vector< uint64_t > used_;       // one bit a bucket
   std::vector< uint64_t > usedWords_;  // if sparse, one bit a word of these
   std::vector< Entry > entries_;
   uint32_t mask_ = 0;
   uint32_t next_ = empty;             // of the bucket that is being taken
   uint32_t pushed_ = 0, popped_ = 0;  // since `begin`
   CspfMetricKey now_ = 0;             // the last key popped
};

/// A monotone queue of vertices for steps of any size: one bucket for each key among those that
/// agree with the last one popped in their upper half, and one for each other upper half. An entry
/// moves at most once.
class CspfWideBucketQueue {
 public:
   /// REQUIRES: the queue is empty.
   void begin( size_t pushes ) {
      near_.begin( Buckets::largestStepAllowed, pushes );
      far_.begin( Buckets::largestStepAllowed, pushes );
      farKeys_.resize( std::max( farKeys_.size(), pushes ) );
      upper_ = 0;
   }

   void push( CspfMetricKey key, CspfVertex vertex, uint32_t number ) {
      if ( key >> halfBits == upper_ ) {
         near_.push( key, vertex, number );
      } else {
         farKeys_[ number ] = key;
         far_.push( key >> halfBits, vertex, number );
      }
   }

   /// As those of buckets.
   bool isEmpty() const { return near_.isEmpty() && far_.isEmpty(); }
   CspfTaken< CspfMetricKey > pop() {
      if ( near_.isEmpty() ) {
         moveOn();
      }
      return near_.pop();
   }
   CspfVertex expected() const { return near_.expected(); }

 private:
   using Buckets = CspfBucketQueue< true >;
   static constexpr int halfBits = 16;

   /// Deals the entries of the next upper half out to the buckets of its keys.
   void moveOn() {
      CspfTaken< CspfMetricKey > taken = far_.pop();
      upper_ = taken.key;
      near_.restartAt( upper_ << halfBits );
      near_.push( farKeys_[ taken.number ], taken.vertex, taken.number );
      while ( far_.expected() != noVertex ) {
         taken = far_.pop();
         near_.push( farKeys_[ taken.number ], taken.vertex, taken.number );
      }
   }

   Buckets near_, far_;  // the latter by upper halves
   std::vector< CspfMetricKey > farKeys_;
   CspfMetricKey upper_ = 0;
};

/// A monotone queue for keys of any spread: an entry waits in the bucket of the highest bit in
/// which its key differs from the last key popped, and moves down at most once a bit.
/// (Ahuja, Mehlhorn, Orlin, Tarjan: Faster algorithms for the shortest path problem, JACM 37(2),
/// 1990.)
template< typename Key >
class CspfRadixHeap {
 public:
   /// REQUIRES: the heap is empty.
   void begin() {
      now_ = {};
      size_ = 0;
   }

   void push( Key key, CspfVertex vertex, uint32_t number ) {
      buckets_[ highestDifference( key, now_ ) ].push_back( { key, vertex, number } );
      ++size_;
   }

   /// As those of buckets; expects nothing.
   bool isEmpty() const { return size_ == 0; }
   CspfTaken< Key > pop() {
      if ( buckets_[ 0 ].empty() ) {
         spread();
      }
      const Entry entry = buckets_[ 0 ].back();
      buckets_[ 0 ].pop_back();
      --size_;
      return { now_, entry.vertex, entry.number };
   }
   static CspfVertex expected() { return noVertex; }

 private:
   struct Entry {
      Key key;
      CspfVertex vertex;
      uint32_t number;
   };

   /// Moves on to the least key and deals the entries of its bucket out to the lower ones.
   void spread() {
      auto lowest = buckets_.begin();
      while ( lowest->empty() ) {
         ++lowest;
      }
      now_ = std::ranges::min( *lowest, {}, &Entry::key ).key;
      for ( const Entry & entry : *lowest ) {
         buckets_[ highestDifference( entry.key, now_ ) ].push_back( entry );
      }
      lowest->clear();
   }

   std::array< std::vector< Entry >, 97 > buckets_;
   size_t size_ = 0;
   Key now_{};  // the last key popped
};

/// A monotone queue for keys of which most count no SRLGs: these come first, by metric alone.
template< typename Key >
class CspfSrlgQueue {
 public:
   /// As those of the queues that it is made of.
   void begin( uint32_t largestStep, size_t pushes ) {
      isNarrow_ = largestStep <= CspfBucketQueue<>::largestStepAllowed;
      if ( isNarrow_ ) {
         buckets_.begin( largestStep, pushes );
      } else {
         uncounted_.begin();
      }
      counted_.begin();
   }

   void push( Key key, CspfVertex vertex, uint32_t number ) {
      if ( key.isCounted() ) {
         counted_.push( key, vertex, number );
      } else if ( isNarrow_ ) {
         buckets_.push( key.metricPart(), vertex, number );
      } else {
         uncounted_.push( key.metricPart(), vertex, number );
      }
   }

   bool isEmpty() const { return buckets_.isEmpty() && uncounted_.isEmpty() && counted_.isEmpty(); }
   CspfTaken< Key > pop() {
      if ( !buckets_.isEmpty() ) {
         const auto [ metric, vertex, number ] = buckets_.pop();
         return { Key::ofMetric( metric ), vertex, number };
      }
      if ( !uncounted_.isEmpty() ) {
         const auto [ metric, vertex, number ] = uncounted_.pop();
         return { Key::ofMetric( metric ), vertex, number };
      }
      return counted_.pop();
   }
   CspfVertex expected() const { return buckets_.expected(); }

 private:
   bool isNarrow_ = true;
   CspfBucketQueue<> buckets_;
   CspfRadixHeap< CspfMetricKey > uncounted_;
   CspfRadixHeap< Key > counted_;
};

}
