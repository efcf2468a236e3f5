#pragma once

#include <algorithm>
#include <compare>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace L3 {

/// The name of a VRF, at most `maxLength` bytes; a longer one throws std::range_error.
class VrfName {
 public:
   static constexpr std::size_t maxLength = 100;

   VrfName() = default;
   VrfName( std::string name ) : value_( std::move( name ) ) {
      if ( value_.size() > maxLength ) {
         throw std::range_error( "VrfName::value::bytes > VrfName::maxLength not allowed" );
      }
   }
   VrfName( const char * name ) : VrfName( std::string( name ) ) {}
   /// Whether a VRF may be called so. Its name is part of paths and of lines on a terminal: 1 to
   /// `maxLength` bytes without "/" and control characters.
   static bool isName( std::string_view text ) {
      return !text.empty() && text.size() <= maxLength
             && std::ranges::none_of(
                text, []( unsigned char c ) { return c == '/' || c < ' ' || c == 0x7F; } );
   }
   /// The VRF that is there without being configured.
   static VrfName defaultVrf() { return "default"; }

   const std::string & stringValue() const noexcept { return value_; }
   std::size_t hash() const noexcept { return std::hash< std::string >()( value_ ); }
   explicit operator bool() const noexcept { return !value_.empty(); }
   bool operator==( const VrfName & ) const = default;
   auto operator<=>( const VrfName & ) const = default;

 private:
   std::string value_;
};

}
