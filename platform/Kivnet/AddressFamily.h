#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Kivnet {

enum class AddressFamily : std::uint8_t { unspecified = 0, ipv4 = 1, ipv6 = 2 };

constexpr auto
lumEnumTexts( AddressFamily ) {
   return std::to_array< const char * >( { "", "ipv4", "ipv6" } );
}

/// "ipv4", "ipv6", or "" for no family.
constexpr const char *
text( AddressFamily af ) {
   return lumEnumTexts( af )[ static_cast< std::size_t >( af ) ];
}

constexpr std::optional< AddressFamily >
addressFamilyParse( std::string_view text ) {
   if ( text == "ipv4" ) {
      return AddressFamily::ipv4;
   }
   if ( text == "ipv6" ) {
      return AddressFamily::ipv6;
   }
   return std::nullopt;
}

}
