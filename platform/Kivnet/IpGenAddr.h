#pragma once

#include "platform/Kivnet/AddressFamily.h"
#include "platform/Kivnet/IpAddr.h"
#include "platform/Lum/BytewiseOrder.h"

namespace Kivnet {

/// An address of either family, or none. Order: none, then IPv4, then IPv6. Tests false when it is
/// none or the zero address of its family.
class IpGenAddr {
 public:
   constexpr IpGenAddr() noexcept = default;
   IpGenAddr( const IpAddr & address ) noexcept;
   IpGenAddr( const Ip6Addr & address ) noexcept
      : af_( AddressFamily::ipv6 ),
        bytes_( address.bytes() ) {}

   static std::optional< IpGenAddr > parse( std::string_view text );
   AddressFamily af() const noexcept { return af_; }
   /// REQUIRES for a meaningful answer: the address is of that family.
   IpAddr v4() const noexcept;
   Ip6Addr v6() const noexcept { return Ip6Addr( bytes_ ); }
   /// "" for none.
   std::string stringValue() const;
   std::size_t hash() const noexcept;
   explicit operator bool() const noexcept { return bytes_ != Ip6Addr::Bytes(); }
   bool operator==( const IpGenAddr & ) const = default;
   std::strong_ordering operator<=>( const IpGenAddr & other ) const noexcept {
      return Lum::bytewiseOrder( *this, other );
   }

 private:
   AddressFamily af_ = AddressFamily::unspecified;
   Ip6Addr::Bytes bytes_{};  // an IPv4 address stands in the first four
};

}
