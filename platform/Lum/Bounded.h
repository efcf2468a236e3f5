#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

/// A bounded index type: an integer in [min_, max_]. Making one out of a number outside of that
/// range throws std::range_error, whose message names the type.
#define LUM_BOUNDED( name_, Rep, min_, max_ )                                                      \
   class name_ {                                                                                   \
    public:                                                                                        \
      using lumBounded = Rep;                                                                      \
      static constexpr Rep min = min_;                                                             \
      static constexpr Rep max = max_;                                                             \
      constexpr name_() noexcept = default;                                                        \
      template< std::integral Integer >                                                            \
      constexpr name_( Integer value ) : value_( static_cast< Rep >( value ) ) {                   \
         if ( std::cmp_less( value, min ) || std::cmp_greater( value, max ) ) {                    \
            throw std::range_error( #name_ "::value < " #name_ "::min or > " #name_                \
                                           "::max not allowed" );                                  \
         }                                                                                         \
      }                                                                                            \
      constexpr Rep value() const noexcept { return value_; }                                      \
      std::size_t hash() const noexcept { return std::hash< Rep >()( value_ ); }                   \
      std::string stringValue() const { return std::to_string( value_ ); }                         \
      bool operator==( const name_ & ) const = default;                                            \
      auto operator<=>( const name_ & ) const = default;                                           \
                                                                                                   \
    private:                                                                                       \
      Rep value_ = min_;                                                                           \
   }
