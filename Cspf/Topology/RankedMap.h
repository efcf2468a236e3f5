#pragma once

#include "Cspf/Topology/Ranking.h"
#include "platform/Lum/Blocks.h"

#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <utility>

namespace Cspf {

/// An ordered map whose entries carry a rank in key order (Ranking). Entries do not move in memory.
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
      const auto [ at, fresh ] = map_.try_emplace( key );
      if ( fresh ) {
         Ranking< bits, Sequence >( { &map_ } ).rankIs( at, [ & ]( Iterator entry ) {
            moved( *entry );
         } );
      }
      return *at;
   }
   void erase( const Key & key ) { map_.erase( key ); }

 private:
   using Iterator = typename Map::iterator;
   struct Sequence {
      using Position = Iterator;
      bool previous( Position & at ) const { return at != map->begin() && ( --at, true ); }
      bool next( Position & at ) const { return std::next( at ) != map->end() && ( ++at, true ); }
      std::uint64_t & rank( Position at ) const { return at->second.rank; }
      Map * map;
   };

   Map map_;
};

}
