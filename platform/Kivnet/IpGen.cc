// Addresses and prefixes of either family.

#include "platform/Kivnet/IpGenPrefix.h"

#include "platform/Lum/Assert.h"

#include <charconv>

namespace Kivnet {

namespace {

constexpr unsigned
bits( AddressFamily af ) {
   return af == AddressFamily::ipv4 ? 32 : af == AddressFamily::ipv6 ? 128 : 0;
}

}

IpGenAddr::IpGenAddr( const IpAddr & address ) noexcept : af_( AddressFamily::ipv4 ) {
   for ( int i = 0; i < 4; ++i ) {
      bytes_[ i ] = static_cast< std::uint8_t >( address.value() >> ( 24 - 8 * i ) );
   }
}

std::optional< IpGenAddr >
IpGenAddr::parse( std::string_view text ) {
   if ( auto v4 = IpAddr::parse( text ) ) {
      return *v4;
   }
   if ( auto v6 = Ip6Addr::parse( text ) ) {
      return *v6;
   }
   return std::nullopt;
}

IpAddr
IpGenAddr::v4() const noexcept {
   return IpAddr::fromBytes( bytes_.data() );
}

std::string
IpGenAddr::stringValue() const {
   switch ( af_ ) {
   case AddressFamily::ipv4: return v4().stringValue();
   case AddressFamily::ipv6: return v6().stringValue();
   case AddressFamily::unspecified: break;
   }
   return {};
}

std::size_t
IpGenAddr::hash() const noexcept {
   return v6().hash() ^ static_cast< std::size_t >( af_ );
}

IpGenPrefix::IpGenPrefix( const IpGenAddr & address, std::uint8_t length ) : length_( length ) {
   LUM_ASSERT( length <= bits( address.af() ) );
   if ( address.af() == AddressFamily::unspecified ) {
      return;
   }
   Ip6Addr::Bytes bytes = address.v6().bytes();
   for ( unsigned bit = length; bit < 128; ++bit ) {
      bytes[ bit / 8 ] &= static_cast< std::uint8_t >( ~( 0x80u >> bit % 8 ) );
   }
   address_ = address.af() == AddressFamily::ipv4 ? IpGenAddr( IpAddr::fromBytes( bytes.data() ) )
                                                  : IpGenAddr( Ip6Addr( bytes ) );
}

std::optional< IpGenPrefix >
IpGenPrefix::parse( std::string_view text ) {
   const auto slash = text.find( '/' );
   const auto address = IpGenAddr::parse( text.substr( 0, slash ) );
   if ( slash == text.npos || !address ) {
      return std::nullopt;
   }
   const std::string_view digits = text.substr( slash + 1 );
   unsigned length = 0;
   const auto end = std::from_chars( digits.data(), digits.data() + digits.size(), length );
   if ( end.ec != std::errc() || end.ptr != digits.data() + digits.size()
        || length > bits( address->af() ) || std::to_string( length ) != digits ) {
      return std::nullopt;
   }
   const IpGenPrefix prefix( *address, static_cast< std::uint8_t >( length ) );
   return prefix.address() == *address ? std::optional( prefix ) : std::nullopt;
}

IpGenPrefix
IpGenPrefix::host( const IpGenAddr & address ) {
   return { address, static_cast< std::uint8_t >( bits( address.af() ) ) };
}

bool
IpGenPrefix::isHost() const noexcept {
   return *this && length_ == bits( af() );
}

bool
IpGenPrefix::contains( const IpGenAddr & address ) const {
   return *this && address.af() == af() && IpGenPrefix( address, length_ ) == *this;
}

std::string
IpGenPrefix::stringValue() const {
   return *this ? address_.stringValue() + "/" + std::to_string( length_ ) : std::string();
}

}
