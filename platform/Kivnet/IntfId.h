#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace Kivnet {

/// A local interface, by name. Names are kept once in the process, so an id is one pointer, equal
/// ids are equal pointers, and copies are free. Tests false when it names none. Ordered by name.
class IntfId {
 public:
   constexpr IntfId() noexcept = default;
   IntfId( std::string_view name );

   /// The interface of that number in this process. REQUIRES: `number()` gave it.
   static IntfId fromNumber( std::uint32_t number );

   const std::string & stringValue() const noexcept { return name_->first; }
   /// Stands for the name while the process lives; 0 for none.
   std::uint32_t number() const noexcept { return name_->second; }
   std::size_t hash() const noexcept { return std::hash< std::string >()( name_->first ); }
   explicit operator bool() const noexcept { return name_->second != 0; }
   bool operator==( const IntfId & other ) const noexcept { return name_ == other.name_; }
   auto operator<=>( const IntfId & other ) const noexcept {
      return name_->first <=> other.name_->first;
   }

 private:
   using Name = std::pair< const std::string, std::uint32_t >;
   static const Name noName;

   const Name * name_ = &noName;
};

}
