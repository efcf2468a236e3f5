// Storage under the graph: rows of edges with room to grow, and the pool of SRLG lists.
//
// Both belong to one graph, which drives them edge by edge. Rows are as wide as powers of two, so
// that a row which one vertex outgrew fits the next vertex that grows to its width: the arena
// never needs to be packed, and its waste is bounded. Few links carry SRLGs and those that do carry
// the same few lists, which is why a list is a number into a pool: a constraint judges each list
// once instead of each link.

#include "Cspf/Graph/GraphStorage.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace Cspf {

void
CspfRowPool::reserve( Row & row, uint32_t capacity ) {
   if ( capacity <= row.capacity ) {
      return;
   }
   capacity = std::bit_ceil( capacity );
   std::vector< uint32_t > & begins = freeBegins_[ std::countr_zero( capacity ) ];
   uint32_t begin = static_cast< uint32_t >( cells_.size() );
   if ( begins.empty() ) {
      const size_t wanted = cells_.size() + capacity;
      if ( wanted > cells_.capacity() ) {
         cells_.reserve( wanted + wanted / 4 );  // not twice as much: it is one arena for all rows
      }
      cells_.resize( wanted );
   } else {
      begin = begins.back();
      begins.pop_back();
   }
   std::copy_n( cells_.begin() + row.begin, row.count, cells_.begin() + begin );
   const uint32_t count = row.count;
   release( row );
   row = { begin, count, capacity };
}

void
CspfRowPool::append( Row & row, uint32_t value ) {
   reserve( row, row.count + 1 );
   cells_[ row.begin + row.count++ ] = value;
}

void
CspfRowPool::erase( Row & row, uint32_t value ) {
   const auto begin = cells_.begin() + row.begin;
   const auto found = std::find( begin, begin + row.count, value );
   LUM_ASSERT( found != begin + row.count );
   *found = begin[ --row.count ];
}

void
CspfRowPool::release( Row & row ) {
   if ( row.capacity ) {
      freeBegins_[ std::countr_zero( row.capacity ) ].push_back( row.begin );
   }
   row = {};
}

CspfSrlgPool::CspfSrlgPool() : lists_( 1 ) {}

uint32_t
CspfSrlgPool::acquire( std::span< const uint32_t > srlgs ) {
   if ( srlgs.empty() ) {
      return 0;
   }
   const auto [ entry, fresh ] = numbers_.try_emplace( { srlgs.begin(), srlgs.end() } );
   if ( fresh ) {
      if ( freeLists_.empty() ) {
         freeLists_.push_back( lists() );
         lists_.emplace_back();
      }
      entry->second = freeLists_.back();
      freeLists_.pop_back();
      lists_[ entry->second ].srlgs = &entry->first;
      for ( uint32_t srlg : srlgs ) {
         listsWith_[ srlg ].push_back( entry->second );
      }
   }
   lists_[ entry->second ].users++;
   return entry->second;
}

void
CspfSrlgPool::release( uint32_t list ) {
   if ( list == 0 || --lists_[ list ].users ) {
      return;
   }
   for ( uint32_t srlg : srlgs( list ) ) {
      const auto with = listsWith_.find( srlg );
      if ( with != listsWith_.end()
           && ( std::erase( with->second, list ), with->second.empty() ) ) {
         listsWith_.erase( with );
      }
   }
   numbers_.erase( numbers_.find( *std::exchange( lists_[ list ].srlgs, nullptr ) ) );
   freeLists_.push_back( list );
}

std::span< const uint32_t >
CspfSrlgPool::listsWith( uint32_t srlg ) const {
   const auto with = listsWith_.find( srlg );
   return with == listsWith_.end() ? std::span< const uint32_t >() : with->second;
}

}
