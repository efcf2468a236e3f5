// Identifiers of routers, LANs, addresses and prefixes in one fixed-size form, so that keys made
// of them compare and hash as flat bytes.

#include "schema/VertexId.h"

#include "platform/Lum/Assert.h"
#include "platform/Trace/Message.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace Routing::Isis {

std::optional< SystemId >
SystemId::parse( std::string_view text ) {
   SystemId id;
   if ( text.size() != 14 || text[ 4 ] != '.' || text[ 9 ] != '.' ) {
      return std::nullopt;
   }
   std::size_t digit = 0;
   for ( std::size_t i = 0; i < text.size(); ++i ) {
      if ( i == 4 || i == 9 ) {
         continue;
      }
      const char c = text[ i ];
      const int value = c >= '0' && c <= '9'   ? c - '0'
                        : c >= 'a' && c <= 'f' ? c - 'a' + 10
                        : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                               : -1;
      if ( value < 0 ) {
         return std::nullopt;
      }
      auto & byte = id.bytes[ digit++ / 2 ];
      byte = static_cast< std::uint8_t >( byte << 4 | value );
   }
   return id;
}

std::string
SystemId::stringValue() const {
   constexpr const char * digits = "0123456789abcdef";
   std::string text( 14, '.' );
   for ( std::size_t i = 0; i < bytes.size(); ++i ) {
      const std::size_t at = 2 * i + i / 2;
      text[ at ] = digits[ bytes[ i ] >> 4 ];
      text[ at + 1 ] = digits[ bytes[ i ] & 15 ];
   }
   return text;
}

std::size_t
SystemId::hash() const noexcept {
   std::uint64_t value = 0;
   std::memcpy( &value, bytes.data(), bytes.size() );
   return Lum::hashMix( 0, value );
}

}

namespace Cspf {

namespace {

constexpr std::size_t systemIdLength = 6;
constexpr std::size_t ospfIdLength = 4;

}

VertexIdentifierBase::VertexIdentifierBase( VertexType type, std::string_view text ) {
   switch ( type ) {
   case VertexType::isisRouter:
      if ( auto id = Routing::Isis::SystemId::parse( text ) ) {
         *this = VertexIdentifierBase( *id );
      }
      break;
   case VertexType::ospfRouter:
      if ( auto id = Kivnet::IpAddr::parse( text ) ) {
         *this = VertexIdentifierBase( Kivnet::IpGenAddr( *id ) );
         type_ = VertexType::ospfRouter;
      }
      break;
   case VertexType::ipAddress:
      if ( auto address = Kivnet::IpGenAddr::parse( text ) ) {
         *this = VertexIdentifierBase( *address );
      }
      break;
   case VertexType::ipPrefix:
      if ( auto prefix = Kivnet::IpGenPrefix::parse( text ) ) {
         *this = VertexIdentifierBase( *prefix );
      }
      break;
   case VertexType::none: break;
   }
}

VertexIdentifierBase::VertexIdentifierBase( const Kivnet::IpGenAddr & address ) {
   if ( address.af() == Kivnet::AddressFamily::ipv4 ) {
      type_ = VertexType::ipAddress;
      length_ = 4;
      const std::uint32_t value = address.v4().value();
      for ( int i = 0; i < 4; ++i ) {
         bytes_[ i ] = static_cast< std::uint8_t >( value >> ( 24 - 8 * i ) );
      }
   } else if ( address.af() == Kivnet::AddressFamily::ipv6 ) {
      type_ = VertexType::ipAddress;
      length_ = 16;
      const auto bytes = address.v6().bytes();
      std::copy( bytes.begin(), bytes.end(), bytes_.begin() );
   }
}

VertexIdentifierBase::VertexIdentifierBase( const Kivnet::IpGenPrefix & prefix )
   : VertexIdentifierBase( prefix.address() ) {
   if ( type_ != VertexType::none ) {
      type_ = VertexType::ipPrefix;
      bytes_[ length_++ ] = prefix.length();
   }
}

VertexIdentifierBase::VertexIdentifierBase( const Routing::Isis::SystemId & id )
   : type_( VertexType::isisRouter ),
     length_( systemIdLength ) {
   std::copy( id.bytes.begin(), id.bytes.end(), bytes_.begin() );
}

VertexIdentifierBase
VertexIdentifierBase::pseudonode( std::uint8_t number ) const {
   LUM_ASSERT( type_ == VertexType::isisRouter || type_ == VertexType::ospfRouter );
   VertexIdentifierBase network = *this;
   network.bytes_[ network.length_++ ] = number;
   return network;
}

Routing::Isis::SystemId
VertexIdentifierBase::isisSystemId() const noexcept {
   Routing::Isis::SystemId id;
   if ( type_ == VertexType::isisRouter ) {
      std::copy_n( bytes_.begin(), systemIdLength, id.bytes.begin() );
   }
   return id;
}

Kivnet::IpGenAddr
VertexIdentifierBase::ipAddress() const noexcept {
   if ( type_ == VertexType::none || type_ == VertexType::isisRouter ) {
      return {};
   }
   if ( length_ < 16 ) {
      return Kivnet::IpAddr::fromBytes( bytes_.data() );
   }
   std::array< std::uint8_t, 16 > bytes;
   std::copy_n( bytes_.begin(), 16, bytes.begin() );
   return Kivnet::Ip6Addr( bytes );
}

Kivnet::IpGenPrefix
VertexIdentifierBase::ipPrefix() const noexcept {
   if ( type_ != VertexType::ipPrefix ) {
      return {};
   }
   return { ipAddress(), bytes_[ length_ - 1 ] };
}

std::string
VertexIdentifierBase::stringValue() const {
   const auto numbered = [ & ]( std::string router, std::size_t routerLength ) {
      if ( length_ > routerLength ) {
         char text[ 4 ];
         std::snprintf( text, sizeof text, ".%02x", bytes_[ routerLength ] );
         router += text;
      }
      return router;
   };
   switch ( type_ ) {
   case VertexType::isisRouter: return numbered( isisSystemId().stringValue(), systemIdLength );
   case VertexType::ospfRouter: return numbered( ipAddress().stringValue(), ospfIdLength );
   case VertexType::ipAddress: return ipAddress().stringValue();
   case VertexType::ipPrefix: return ipPrefix().stringValue();
   case VertexType::none: break;
   }
   return {};
}

void
VertexIdentifierBase::traceTo( Trace::Message & out ) const {
   if ( type_ == VertexType::ipAddress && length_ == 4 ) {
      out << Kivnet::IpAddr::fromBytes( bytes_.data() );
   } else if ( type_ == VertexType::ipAddress || type_ == VertexType::none ) {
      out << ipAddress();
   } else {
      out << stringValue();
   }
}

std::size_t
VertexIdentifierBase::hash() const noexcept {
   std::uint64_t words[ 3 ] = {};
   std::memcpy( words, bytes_.data(), maxLength );
   words[ 2 ] |= std::uint64_t( type_ ) << 56 | std::uint64_t( length_ ) << 48;
   return Lum::hashMix( Lum::hashMix( words[ 0 ], words[ 1 ] ), words[ 2 ] );
}

std::string
TopoId::stringValue() const {
   if ( !*this ) {
      return {};
   }
   return Lum::enumName( igpSource_ ) + "/" + std::to_string( number1_ ) + "/"
          + std::to_string( number2_ );
}

std::optional< TopoId >
TopoId::parse( std::string_view text ) {
   if ( text.empty() ) {
      return TopoId();
   }
   const auto first = text.find( '/' );
   const auto source = Lum::enumParse< IgpSource >( text.substr( 0, first ) );
   if ( !source || first == text.npos ) {
      return std::nullopt;
   }
   TopoId id{ *source, 0, 0 };
   const char * const end = text.data() + text.size();
   const auto one = std::from_chars( text.data() + first + 1, end, id.number1_ );
   if ( one.ec != std::errc() || one.ptr == end || *one.ptr != '/' ) {
      return std::nullopt;
   }
   const auto two = std::from_chars( one.ptr + 1, end, id.number2_ );
   return two.ec == std::errc() && two.ptr == end ? std::optional( id ) : std::nullopt;
}

}
