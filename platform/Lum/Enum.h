#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// Applies `macro( context, argument )` to each further argument.
#define LUM_EXPAND_( ... )                                                                         \
   LUM_EXPAND1_( LUM_EXPAND1_( LUM_EXPAND1_( LUM_EXPAND1_( __VA_ARGS__ ) ) ) )
#define LUM_EXPAND1_( ... )                                                                        \
   LUM_EXPAND2_( LUM_EXPAND2_( LUM_EXPAND2_( LUM_EXPAND2_( __VA_ARGS__ ) ) ) )
#define LUM_EXPAND2_( ... ) __VA_ARGS__
#define LUM_PARENS_ ()
#define LUM_FOR_EACH_( macro, context, ... )                                                       \
   __VA_OPT__( LUM_EXPAND_( LUM_FOR_EACH_STEP_( macro, context, __VA_ARGS__ ) ) )
#define LUM_FOR_EACH_STEP_( macro, context, first, ... )                                           \
   macro( context, first )                                                                         \
      __VA_OPT__( LUM_FOR_EACH_AGAIN_ LUM_PARENS_( macro, context, __VA_ARGS__ ) )
#define LUM_FOR_EACH_AGAIN_() LUM_FOR_EACH_STEP_

#define LUM_ENUM_MEMBER_( name, member ) member,
#define LUM_ENUM_TEXT_( name, member ) #member,
#define LUM_ENUM_FUNCTION_( name, member )                                                         \
   constexpr name member() {                                                                       \
      return name::member;                                                                         \
   }

/// An enumeration with codes from 0 in the order of its members (at most 16), the text of each
/// member and the parser of that text, and for each member a function of its name.
#define LUM_ENUM( name_, Code, ... )                                                               \
   enum class name_ : Code { LUM_FOR_EACH_( LUM_ENUM_MEMBER_, name_, __VA_ARGS__ ) };              \
   constexpr auto lumEnumTexts( name_ ) {                                                          \
      return std::to_array< const char * >(                                                        \
         { LUM_FOR_EACH_( LUM_ENUM_TEXT_, name_, __VA_ARGS__ ) } );                                \
   }                                                                                               \
   LUM_FOR_EACH_( LUM_ENUM_FUNCTION_, name_, __VA_ARGS__ )                                         \
   static_assert( true )

namespace Lum {

template< class E >
concept NamedEnum = requires( E e ) {
   lumEnumTexts( e );
};

/// The text of the member, or nothing where it has none.
template< class E >
std::optional< std::string_view >
enumText( E e ) {
   if constexpr ( NamedEnum< E > ) {
      constexpr auto texts = lumEnumTexts( E() );
      const auto code = static_cast< std::size_t >( e );
      if ( code < texts.size() ) {
         return texts[ code ];
      }
   }
   return std::nullopt;
}

/// The text of the member, or its code where it has none.
template< class E >
std::string
enumName( E e ) {
   const auto text = enumText( e );
   return text ? std::string( *text ) : std::to_string( static_cast< std::size_t >( e ) );
}

/// The member of that text, or nothing.
template< NamedEnum E >
std::optional< E >
enumParse( std::string_view text ) {
   constexpr auto texts = lumEnumTexts( E() );
   for ( std::size_t code = 0; code < texts.size(); ++code ) {
      if ( text == texts[ code ] ) {
         return static_cast< E >( code );
      }
   }
   return std::nullopt;
}

}
