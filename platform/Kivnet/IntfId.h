#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace Kivnet {

/// A local interface, by name. Names are kept once in the process, so an id is one pointer, equal
/// ids are equal pointers, and copies are free. Tests false when it names none. Ordered by name.
class IntfId {
 public:
   constexpr IntfId() noexcept = default;
   IntfId( std::string_view name );

   const std::string & stringValue() const noexcept { return *name_; }
   std::size_t hash() const noexcept { return std::hash< std::string >()( *name_ ); }
   explicit operator bool() const noexcept { return !name_->empty(); }
   bool operator==( const IntfId & other ) const noexcept { return name_ == other.name_; }
   auto operator<=>( const IntfId & other ) const noexcept { return *name_ <=> *other.name_; }

 private:
   static const std::string noName;

   const std::string * name_ = &noName;
};

}
