#include "tools/text/Bandwidth.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace Text {

namespace {

constexpr std::string_view letters = "kMGT";
constexpr int digitsShown = 6;

}

std::string
bandwidthText( std::uint64_t bytesPerSecond ) {
   constexpr std::uint64_t most = std::numeric_limits< std::uint64_t >::max() / 8;
   std::uint64_t value = bytesPerSecond * 8;
   int zeros = 0;
   for ( ; value > 0 && value % 10 == 0; value /= 10 ) {
      ++zeros;
   }
   std::string digits = std::to_string( value );
   const int size = static_cast< int >( digits.size() );
   const int group = std::min( ( size + zeros - 1 ) / 3, static_cast< int >( letters.size() ) );
   if ( bytesPerSecond == 0 || bytesPerSecond > most || group == 0 || size > digitsShown ) {
      return std::to_string( bytesPerSecond );
   }
   const int behind = 3 * group - zeros;  // digits behind the point
   if ( behind > 0 ) {
      digits.insert( digits.begin() + ( size - behind ), '.' );
   } else {
      digits.append( static_cast< std::size_t >( -behind ), '0' );
   }
   return digits + letters[ static_cast< std::size_t >( group - 1 ) ];
}

std::optional< std::uint64_t >
parseBandwidth( std::string_view text ) {
   const auto letter = text.empty() ? letters.npos : letters.find( text.back() );
   int exponent = 0;
   if ( letter != letters.npos ) {
      text.remove_suffix( 1 );
      exponent = 3 * ( static_cast< int >( letter ) + 1 );
   }
   std::string digits( text );
   if ( const auto point = digits.find( '.' ); exponent > 0 && point != digits.npos ) {
      exponent -= static_cast< int >( digits.size() - point - 1 );
      digits.erase( point, 1 );
   }
   std::uint64_t value = 0;
   const char * const end = digits.data() + digits.size();
   const auto [ stop, error ] = std::from_chars( digits.data(), end, value );
   if ( digits.empty() || error != std::errc() || stop != end || exponent < 0 ) {
      return std::nullopt;
   }
   for ( ; exponent > 0; --exponent ) {
      if ( value > std::numeric_limits< std::uint64_t >::max() / 10 ) {
         return std::nullopt;
      }
      value *= 10;
   }
   if ( letter == letters.npos ) {
      return value;
   }
   return value % 8 == 0 ? std::optional( value / 8 ) : std::nullopt;
}

}
