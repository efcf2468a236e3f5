#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Kivnet {

/// An IPv4 address. Tests false when it is 0.0.0.0. Ordered as a number.
class IpAddr {
 public:
   constexpr IpAddr() noexcept = default;
   /// Takes the address in host order: 10.0.0.1 is 0x0a000001.
   constexpr explicit IpAddr( std::uint32_t value ) noexcept : value_( value ) {}
   /// Takes the first four bytes, in network order.
   static constexpr IpAddr fromBytes( const std::uint8_t * b ) noexcept {
      return IpAddr( static_cast< std::uint32_t >( b[ 0 ] << 24 | b[ 1 ] << 16 | b[ 2 ] << 8 )
                     | b[ 3 ] );
   }

   /// Takes four decimal numbers without leading zeros, "10.0.0.1". Gives nothing for any other
   /// text.
   static std::optional< IpAddr > parse( std::string_view text );
   std::string stringValue() const;
   constexpr std::uint32_t value() const noexcept { return value_; }
   std::size_t hash() const noexcept {
      const std::uint64_t product = value_ * 0x9e3779b97f4a7c15u;
      return product ^ product >> 32;
   }
   constexpr explicit operator bool() const noexcept { return value_ != 0; }
   bool operator==( const IpAddr & ) const = default;
   auto operator<=>( const IpAddr & ) const = default;

 private:
   std::uint32_t value_ = 0;
};

/// An IPv6 address. Tests false when it is ::. Ordered by its bytes.
class Ip6Addr {
 public:
   using Bytes = std::array< std::uint8_t, 16 >;

   constexpr Ip6Addr() noexcept = default;
   constexpr explicit Ip6Addr( const Bytes & bytes ) noexcept : bytes_( bytes ) {}

   /// Takes every text form of RFC 4291, section 2.2, without a zone.
   static std::optional< Ip6Addr > parse( std::string_view text );
   /// The canonical form of RFC 5952.
   std::string stringValue() const;
   constexpr const Bytes & bytes() const noexcept { return bytes_; }
   std::size_t hash() const noexcept;
   explicit operator bool() const noexcept { return bytes_ != Bytes(); }
   bool operator==( const Ip6Addr & ) const = default;
   auto operator<=>( const Ip6Addr & ) const = default;

 private:
   Bytes bytes_{};
};

}
