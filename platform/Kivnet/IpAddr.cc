// Text forms of IP addresses: a text names one address or none. Those of IPv4 stand in every row,
// so they are made here, at a small part of the C library's cost; it does IPv6, to which is added
// what the canonical form of RFC 5952 needs.

#include "platform/Kivnet/IpAddr.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace Kivnet {

namespace {

/// inet_pton for a text that need not end in a zero byte.
bool
parseIp6( std::string_view text, void * bytes ) {
   char terminated[ INET6_ADDRSTRLEN ];
   if ( text.size() >= sizeof terminated || text.find( '\0' ) != text.npos ) {
      return false;
   }
   text.copy( terminated, text.size() );  // of an empty text, too, which may have no place
   terminated[ text.size() ] = '\0';
   return inet_pton( AF_INET6, terminated, bytes ) == 1;
}

}

std::optional< IpAddr >
IpAddr::parse( std::string_view text ) {
   std::array< std::uint8_t, 4 > b;
   const char * at = text.data();
   const char * const end = at + text.size();
   for ( std::size_t i = 0; i < b.size(); ++i ) {
      if ( i > 0 && ( at == end || *at++ != '.' ) ) {
         return std::nullopt;
      }
      const auto [ next, error ] = std::from_chars( at, end, b[ i ] );
      if ( error != std::errc() || ( *at == '0' && next != at + 1 ) ) {
         return std::nullopt;
      }
      at = next;
   }
   return at == end ? std::optional( fromBytes( b.data() ) ) : std::nullopt;
}

std::string
IpAddr::stringValue() const {
   char text[ INET_ADDRSTRLEN ];
   char * at = text;
   for ( int shift = 24; shift >= 0; shift -= 8 ) {
      at = std::to_chars( at, text + sizeof text, value_ >> shift & 0xFF ).ptr;
      *at++ = '.';
   }
   return { text, at - 1 };
}

std::optional< Ip6Addr >
Ip6Addr::parse( std::string_view text ) {
   Bytes bytes;
   if ( !parseIp6( text, bytes.data() ) ) {
      return std::nullopt;
   }
   return Ip6Addr( bytes );
}

std::string
Ip6Addr::stringValue() const {
   char text[ INET6_ADDRSTRLEN ];
   inet_ntop( AF_INET6, bytes_.data(), text, sizeof text );
   // The C library writes the obsolete IPv4-compatible addresses, ::/96, with dots as well, where
   // no prefix tells that an IPv4 address is in it.
   if ( std::strchr( text, '.' ) && !std::strstr( text, "ffff:" ) ) {
      const unsigned high = static_cast< unsigned >( bytes_[ 12 ] << 8 | bytes_[ 13 ] );
      const unsigned low = static_cast< unsigned >( bytes_[ 14 ] << 8 | bytes_[ 15 ] );
      std::snprintf( text, sizeof text, "::%x:%x", high, low );
   }
   return text;
}

std::size_t
Ip6Addr::hash() const noexcept {
   std::uint64_t high;
   std::uint64_t low;
   std::memcpy( &high, bytes_.data(), 8 );
   std::memcpy( &low, bytes_.data() + 8, 8 );
   // Neighbouring addresses differ in the words' upper bits: fold these down, for tables that use
   // the lower ones.
   std::uint64_t mixed = ( high * 0x9e3779b97f4a7c15u ) ^ ( low * 0xd6e8feb86659fd93u );
   mixed = ( mixed ^ mixed >> 32 ) * 0xd6e8feb86659fd93u;
   return mixed ^ mixed >> 32;
}

}
