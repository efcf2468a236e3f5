#pragma once

#include "platform/Kivnet/IpGenAddr.h"

namespace Kivnet {

/// An address and a length, of either family, or none. The address has no bits beyond the length.
class IpGenPrefix {
 public:
   constexpr IpGenPrefix() noexcept = default;
   /// Clears the bits beyond `length`. REQUIRES: `length` is at most the family's 32 or 128.
   IpGenPrefix( const IpGenAddr & address, std::uint8_t length );

   /// Takes "10.0.0.0/8". Gives nothing where bits are set beyond the length.
   static std::optional< IpGenPrefix > parse( std::string_view text );
   /// The prefix that holds this address alone.
   static IpGenPrefix host( const IpGenAddr & address );

   const IpGenAddr & address() const noexcept { return address_; }
   std::uint8_t length() const noexcept { return length_; }
   AddressFamily af() const noexcept { return address_.af(); }
   bool isHost() const noexcept;
   bool contains( const IpGenAddr & address ) const;
   /// "10.0.0.0/8"; "" for none.
   std::string stringValue() const;
   std::size_t hash() const noexcept { return address_.hash() * 131 + length_; }
   explicit operator bool() const noexcept { return af() != AddressFamily::unspecified; }
   bool operator==( const IpGenPrefix & ) const = default;
   auto operator<=>( const IpGenPrefix & ) const = default;

 private:
   IpGenAddr address_;
   std::uint8_t length_ = 0;
};

}
