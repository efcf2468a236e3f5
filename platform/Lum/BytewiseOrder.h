#pragma once

#include <bit>
#include <compare>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Lum {

/// The lexicographic order of the bytes of two values of 16 to 24 bytes: that of their members,
/// where all of these are unsigned bytes. Keys of that size are compared so often that the call of
/// `memcmp` shows.
template< class T >
std::strong_ordering
bytewiseOrder( const T & a, const T & b ) noexcept {
   static_assert( std::has_unique_object_representations_v< T > && sizeof( T ) >= 16
                  && sizeof( T ) <= 24 );
   const auto word = []( const T & value, std::size_t at ) {
      std::uint64_t bits;
      std::memcpy( &bits, reinterpret_cast< const char * >( &value ) + at, sizeof bits );
      return std::endian::native == std::endian::little ? __builtin_bswap64( bits ) : bits;
   };
   for ( const std::size_t at : { std::size_t( 0 ), std::size_t( 8 ), sizeof( T ) - 8 } ) {
      if ( const auto order = word( a, at ) <=> word( b, at ); order != 0 ) {
         return order;
      }
   }
   return std::strong_ordering::equal;
}

}
