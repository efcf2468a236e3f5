#include "tools/text/Nearest.h"

#include <algorithm>
#include <utility>

namespace Text {

namespace {

/// Letters to leave out, add or change, and neighbours to swap, that make one word of the other.
std::size_t
distance( std::string_view one, std::string_view other ) {
   std::vector< std::size_t > before, last, row( other.size() + 1 );
   for ( std::size_t j = 0; j <= other.size(); ++j ) {
      row[ j ] = j;
   }
   for ( std::size_t i = 1; i <= one.size(); ++i ) {
      before = std::exchange( last, row );
      row[ 0 ] = i;
      for ( std::size_t j = 1; j <= other.size(); ++j ) {
         const bool same = one[ i - 1 ] == other[ j - 1 ];
         row[ j ] = std::min( { last[ j ] + 1, row[ j - 1 ] + 1, last[ j - 1 ] + !same } );
         if ( i > 1 && j > 1 && one[ i - 1 ] == other[ j - 2 ] && one[ i - 2 ] == other[ j - 1 ] ) {
            row[ j ] = std::min( row[ j ], before[ j - 2 ] + 1 );
         }
      }
   }
   return row.back();
}

}

std::string
nearest( std::string_view word, const std::vector< std::string > & candidates ) {
   std::size_t least = std::max< std::size_t >( 1, word.size() / 3 ) + 1;
   std::string found;
   for ( const std::string & candidate : candidates ) {
      const bool begun = word.size() > 1 && candidate.starts_with( word );
      const std::size_t far = begun ? 1 : distance( word, candidate );
      if ( far < least ) {
         least = far;
         found = candidate;
      } else if ( far == least ) {
         found.clear();
      }
   }
   return found;
}

std::string
didYouMean( std::string_view word, const std::vector< std::string > & candidates ) {
   const std::string meant = nearest( word, candidates );
   return meant.empty() ? "" : "; did you mean \"" + meant + "\"?";
}

}
