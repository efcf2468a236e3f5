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
   auto operator<=>( const CspfSrlgKey & ) const = default;
};

/// The highest bit in which two keys differ, counted from 1; 0 for equal keys.
inline size_t
highestDifference( CspfMetricKey a, CspfMetricKey b ) {
   return std::bit_width( a ^ b );
}
inline size_t
highestDifference( CspfSrlgKey a, CspfSrlgKey b ) {
   return a.counts == b.counts ? highestDifference( a.metric, b.metric )
                               : 32 + std::bit_width( a.counts ^ b.counts );
}

/// A monotone queue of vertices with one bucket for each key modulo their number. Buckets are
/// lists in one pool that has an entry for each push; a bucket is taken whole.
/// (R. B. Dial, Algorithm 360, CACM 12(11), 1969.)
///
/// Keys popped never fall; keys pushed lie within `largestStep` of the last key popped. The queue
/// is empty between runs, so nothing needs clearing.
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
      }
      if ( entries_.size() < pushes ) {
         entries_.resize( pushes );
      }
      mask_ = buckets - 1;
      now_ = pushed_ = popped_ = 0;
   }

   void push( CspfMetricKey key, CspfVertex vertex ) {
      const uint32_t bucket = key & mask_;
      entries_[ pushed_ ] = { vertex, heads_[ bucket ] };
      heads_[ bucket ] = pushed_++;
      used_[ bucket / 64 ] |= uint64_t{ 1 } << ( bucket % 64 );
   }

   /// Calls `visit( key, vertex )` for each entry by rising key, those that it pushes included, and
   /// before a visit `expect( vertex )` for the vertex that may be visited next.
   template< typename Visit, typename Expect >
   void drain( Visit && visit, Expect && expect ) {
      while ( popped_ != pushed_ ) {
         uint32_t entry = takeBucket();
         do {
            const auto [ vertex, next ] = entries_[ entry ];
            if ( next != empty ) {
               expect( entries_[ next ].vertex );
            }
            visit( now_, vertex );
            entry = next;
            ++popped_;
         } while ( entry != empty );
      }
   }

 private:
   static constexpr uint32_t empty = 0xFFFFFFFF;
   struct Entry {
      CspfVertex vertex;
      uint32_t next;
   };

   /// Moves on to the least key and takes the entries of its bucket.
   uint32_t takeBucket() {
      const uint32_t bucket = nextBucket();
      now_ += ( bucket - now_ ) & mask_;
      used_[ bucket / 64 ] &= ~( uint64_t{ 1 } << ( bucket % 64 ) );
      return std::exchange( heads_[ bucket ], empty );
   }

   uint32_t nextBucket() const {
      const uint32_t first = now_ & mask_;
      uint32_t word = first / 64;
      uint64_t bits = used_[ word ] & ( ~uint64_t{ 0 } << ( first % 64 ) );
      while ( !bits ) {
         word = ( word + 1 ) & ( mask_ / 64 );
         bits = used_[ word ];
      }
      return word * 64 + static_cast< uint32_t >( std::countr_zero( bits ) );
   }

   std::vector< uint32_t > heads_;
   std::vector< uint64_t > used_;  // one bit a bucket
   std::vector< Entry > entries_;
   uint32_t mask_ = 0;
   uint32_t pushed_ = 0, popped_ = 0;  // since `begin`
   CspfMetricKey now_ = 0;             // the last key popped
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

   void push( Key key, CspfVertex vertex ) {
      buckets_[ highestDifference( key, now_ ) ].push_back( { key, vertex } );
      ++size_;
   }

   /// As that of buckets; expects nothing.
   template< typename Visit, typename Expect >
   void drain( Visit && visit, Expect && ) {
      for ( ; size_; --size_ ) {
         if ( buckets_[ 0 ].empty() ) {
            spread();
         }
         const CspfVertex vertex = buckets_[ 0 ].back().vertex;
         buckets_[ 0 ].pop_back();
         visit( now_, vertex );
      }
   }

 private:
   struct Entry {
      Key key;
      CspfVertex vertex;
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
class CspfSrlgQueue {
 public:
   /// As those of the queues that it is made of.
   void begin( uint32_t largestStep, size_t pushes ) {
      isNarrow_ = largestStep <= CspfBucketQueue::largestStepAllowed;
      if ( isNarrow_ ) {
         buckets_.begin( largestStep, pushes );
      } else {
         uncounted_.begin();
      }
      counted_.begin();
   }

   void push( CspfSrlgKey key, CspfVertex vertex ) {
      if ( key.counts > 0 ) {
         counted_.push( key, vertex );
      } else if ( isNarrow_ ) {
         buckets_.push( key.metric, vertex );
      } else {
         uncounted_.push( key.metric, vertex );
      }
   }

   template< typename Visit, typename Expect >
   void drain( Visit && visit, Expect && expect ) {
      const auto uncounted = [ & ]( CspfMetricKey metric, CspfVertex vertex ) {
         visit( CspfSrlgKey{ 0, metric }, vertex );
      };
      if ( isNarrow_ ) {
         buckets_.drain( uncounted, expect );
      } else {
         uncounted_.drain( uncounted, expect );
      }
      counted_.drain( visit, expect );
   }

 private:
   bool isNarrow_ = true;
   CspfBucketQueue buckets_;
   CspfRadixHeap< CspfMetricKey > uncounted_;
   CspfRadixHeap< CspfSrlgKey > counted_;
};

}
