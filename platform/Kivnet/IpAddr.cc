// Text forms of IP addresses. The C library parses and prints; what is added here is strictness
// (a text names one address or none) and the canonical form of RFC 5952.

#include "platform/Kivnet/IpAddr.h"

#include <arpa/inet.h>
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
   std::memcpy( terminated, text.data(), text.size() );
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
   return inet_ntop( AF_INET6, bytes_.data(), text, sizeof text );
}

std::size_t
Ip6Addr::hash() const noexcept {
   std::uint64_t high;
   std::uint64_t low;
   std::memcpy( &high, bytes_.data(), 8 );
   std::memcpy( &low, bytes_.data() + 8, 8 );
   return ( high * 0x9e3779b97f4a7c15u ) ^ ( low * 0xd6e8feb86659fd93u );
}

}
