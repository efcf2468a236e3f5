// Text forms of IP addresses. The C library parses and prints; what is added here is strictness
// (a text names one address or none) and the canonical form of RFC 5952.

#include "platform/Kivnet/IpAddr.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

namespace Kivnet {

namespace {

/// inet_pton for a text that need not end in a zero byte.
bool
parseInto( int family, std::string_view text, void * bytes ) {
   char terminated[ INET6_ADDRSTRLEN ];
   if ( text.size() >= sizeof terminated || text.find( '\0' ) != text.npos ) {
      return false;
   }
   text.copy( terminated, text.size() );  // of an empty text, too, which may have no place
   terminated[ text.size() ] = '\0';
   return inet_pton( family, terminated, bytes ) == 1;
}

}

std::optional< IpAddr >
IpAddr::parse( std::string_view text ) {
   std::array< std::uint8_t, 4 > b;
   if ( !parseInto( AF_INET, text, b.data() ) ) {
      return std::nullopt;
   }
   const IpAddr address = fromBytes( b.data() );
   return address.stringValue() == text ? std::optional( address ) : std::nullopt;
}

std::string
IpAddr::stringValue() const {
   const std::uint32_t network = htonl( value_ );
   char text[ INET_ADDRSTRLEN ];
   return inet_ntop( AF_INET, &network, text, sizeof text );
}

std::optional< Ip6Addr >
Ip6Addr::parse( std::string_view text ) {
   Bytes bytes;
   if ( !parseInto( AF_INET6, text, bytes.data() ) ) {
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
