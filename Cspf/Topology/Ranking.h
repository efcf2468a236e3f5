#pragma once

#include "platform/Lum/Assert.h"

#include <cstdint>
#include <iterator>

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

/// Numbers above 0 and below 2^bits that rise in the order of a sequence: comparing two ranks
/// compares their elements. A new element takes a rank in the gap between its neighbours; where
/// there is none, the elements around it are spread out again, as few of them as the density
/// allows, which costs O(log n) moved elements for each insertion on average. (Itai, Konheim,
/// Rodeh, ICALP 1981.)
///
/// A sequence has positions of elements, `previous( position )` and `next( position )`, which move
/// to the neighbour or say false where there is none, and `rank( position )`, to be written.
template< unsigned bits, class Sequence >
class Ranking {
 public:
   using Position = typename Sequence::Position;

   explicit Ranking( Sequence sequence ) : sequence_( sequence ) {}

   /// Gives the element that has come to stand at `at` its rank. `moved( position )` is told of
   /// each other element whose rank changes.
   template< class Moved >
   void rankIs( Position at, Moved && moved ) {
      Position previous = at, next = at;
      const std::uint64_t before = sequence_.previous( previous ) ? sequence_.rank( previous ) : 0;
      const std::uint64_t after = sequence_.next( next ) ? sequence_.rank( next ) : endRank;
      sequence_.rank( at ) = rankBetween( before, after, endRank, step );
      if ( sequence_.rank( at ) == 0 ) {
         spread( at, before, moved );
      }
   }

 private:
   static constexpr std::uint64_t endRank = std::uint64_t( 1 ) << bits;
   static constexpr std::uint64_t step = std::uint64_t( 1 ) << bits / 2;

   /// Finds the narrowest window of ranks around the new element that is sparse enough, and spreads
   /// the window's elements evenly.
   template< class Moved >
   void spread( Position at, std::uint64_t anchor, Moved & moved ) {
      Position first = at, last = at;
      std::uint64_t count = 1;
      double allowed = 1;
      for ( unsigned width = 1;; ++width ) {
         LUM_ASSERT( width <= bits );
         allowed *= 4.0 / 3;
         const std::uint64_t size = std::uint64_t( 1 ) << width;
         const std::uint64_t low = anchor & ~( size - 1 );
         for ( Position p = first; sequence_.previous( p ) && sequence_.rank( p ) >= low;
               ++count ) {
            first = p;
         }
         for ( Position p = last; sequence_.next( p ) && sequence_.rank( p ) - low < size;
               ++count ) {
            last = p;
         }
         if ( static_cast< double >( count ) <= allowed && size / ( count + 1 ) > 1 ) {
            assign( first, count, at, low, size / ( count + 1 ), moved );
            return;
         }
      }
   }
   template< class Moved >
   void assign( Position position, std::uint64_t count, Position fresh, std::uint64_t low,
                std::uint64_t gap, Moved & moved ) {
      for ( ; count > 0; --count, sequence_.next( position ) ) {
         low += gap;
         const bool changes = sequence_.rank( position ) != low;
         sequence_.rank( position ) = low;
         if ( changes && position != fresh ) {
            moved( position );
         }
      }
   }

   Sequence sequence_;
};

}
