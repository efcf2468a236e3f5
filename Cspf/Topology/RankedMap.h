#pragma once

#include "platform/Lum/Assert.h"
#include "platform/Lum/Blocks.h"

#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <utility>

namespace Cspf {

/// A rank strictly between two others, or 0 when there is none left. Takes ranks below `end`, 0 for
/// no predecessor, `end` for no successor; at either edge it stays near its neighbour, so that keys
/// which arrive in order leave room for more.
constexpr std::uint64_t
rankBetween( std::uint64_t before, std::uint64_t after, std::uint64_t end, std::uint64_t step ) {
   const std::uint64_t half = ( after - before ) / 2;
   if ( before == 0 || after == end ) {
      const std::uint64_t near = half < step || ( before == 0 && after == end ) ? half : step;
      return near == 0 ? 0 : after == end ? before + near : after - near;
   }
   return half == 0 ? 0 : before + half;
}

/// An ordered map whose entries carry a number that rises in key order: comparing two ranks
/// compares their keys. A new key takes a rank in the gap between its neighbours; where there is
/// none, the entries around it are spread out again, as few of them as the density allows, which
/// costs O(log n) moved entries for each insertion on average. (Itai, Konheim, Rodeh, ICALP 1981.)
/// Entries do not move in memory. Ranks are above 0 and below 2^bits.
template< class Key, class Value, unsigned bits >
class RankedMap {
 public:
   struct Ranked {
      std::uint64_t rank = 0;
      Value value;
   };
   using Map = std::map< Key, Ranked, std::less< Key >,
                         Lum::BlockAllocator< std::pair< const Key, Ranked > > >;
   using Entry = typename Map::value_type;

   RankedMap() = default;
   RankedMap( const RankedMap & ) = delete;
   RankedMap & operator=( const RankedMap & ) = delete;

   const Map & map() const noexcept { return map_; }
   Entry * find( const Key & key ) {
      const auto at = map_.find( key );
      return at == map_.end() ? nullptr : &*at;
   }
   const Entry * find( const Key & key ) const {
      return const_cast< RankedMap * >( this )->find( key );
   }
   /// The entry of the key, made where there is none. `moved( entry )` is told of each other entry
   /// whose rank changes.
   template< class Moved >
   Entry & insert( const Key & key, Moved && moved ) {
      return *tryInsert( key, moved ).first;
   }
   /// The same, and whether it was made. Keys that arrive in order cost no search.
   template< class Moved >
   std::pair< Entry *, bool > tryInsert( const Key & key, Moved && moved ) {
      const std::size_t before = map_.size();
      const Iterator at = map_.try_emplace( next_, key );
      const bool fresh = map_.size() > before;
      next_ = std::next( at );
      if ( fresh && !fit( at ) ) {
         spread( at, moved );
      }
      return { &*at, fresh };
   }
   void erase( const Key & key ) {
      if ( const Iterator at = map_.find( key ); at != map_.end() ) {
         next_ = map_.erase( at );
      }
   }
   auto begin() { return map_.begin(); }
   auto end() { return map_.end(); }
   /// Calls `visit( entry )` for the entries from `first` on, in order, until it gives false. The
   /// entry that is being visited may be erased.
   template< class Visit >
   void visitFrom( const Key & first, Visit && visit ) {
      for ( auto at = map_.lower_bound( first ); at != map_.end() && visit( *at++ ); ) {
      }
   }

 private:
   using Iterator = typename Map::iterator;
   static constexpr std::uint64_t endRank = std::uint64_t( 1 ) << bits;
   static constexpr std::uint64_t step = std::uint64_t( 1 ) << bits / 2;

   std::uint64_t before( Iterator at ) {
      return at == map_.begin() ? 0 : std::prev( at )->second.rank;
   }
   std::uint64_t after( Iterator at ) {
      return std::next( at ) == map_.end() ? endRank : std::next( at )->second.rank;
   }
   bool fit( Iterator at ) {
      at->second.rank = rankBetween( before( at ), after( at ), endRank, step );
      return at->second.rank != 0;
   }
   /// Finds the narrowest window of ranks around the new entry that is sparse enough, and spreads
   /// the window's entries evenly.
   template< class Moved >
   void spread( Iterator at, Moved & moved ) {
      const std::uint64_t anchor = at == map_.begin() ? 0 : std::prev( at )->second.rank;
      Iterator first = at, last = std::next( at );
      std::uint64_t count = 1;
      double allowed = 1;
      for ( unsigned width = 1;; ++width ) {
         LUM_ASSERT( width <= bits );
         allowed *= 4.0 / 3;
         const std::uint64_t size = std::uint64_t( 1 ) << width;
         const std::uint64_t low = anchor & ~( size - 1 );
         for ( ; first != map_.begin() && std::prev( first )->second.rank >= low; ++count ) {
            --first;
         }
         for ( ; last != map_.end() && last->second.rank - low < size; ++count ) {
            ++last;
         }
         if ( static_cast< double >( count ) <= allowed && size / ( count + 1 ) > 1 ) {
            assign( first, last, at, low, size / ( count + 1 ), moved );
            return;
         }
      }
   }
   template< class Moved >
   void assign( Iterator first, Iterator last, Iterator fresh, std::uint64_t low, std::uint64_t gap,
                Moved & moved ) {
      for ( Iterator i = first; i != last; ++i ) {
         low += gap;
         const bool changes = i->second.rank != low;
         i->second.rank = low;
         if ( changes && i != fresh ) {
            moved( *i );
         }
      }
   }

   Map map_;
   Iterator next_ = map_.end();  // behind the last key that was looked at
};

}
