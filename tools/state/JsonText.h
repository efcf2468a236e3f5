#pragma once

#include "platform/Kivnet/VrfName.h"
#include "platform/Lum/Value.h"
#include "schema/CspfKeys.h"

#include <charconv>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// The plain texts of values: what stands in JSON as one text, and can be the key of an object.
namespace State {

std::string vertexText( const Cspf::VertexIdentifierBase & vertex, bool igpRouter );
std::optional< Cspf::VertexIdentifierBase > parseVertex( std::string_view text, bool igpRouter );
/// "10.0.0.4#1": destination and id.
std::string compositeText( const Cspf::PathKey & key );
/// "0000.0000.0001 p2p 0000.0000.0002#1": owner, type, neighbour and link id.
std::string compositeText( const Routing::Topology::NeighborKey & key );
/// False, with `key` in an unknown state, where the text is none of its type.
bool parseComposite( std::string_view text, Cspf::PathKey & key );
bool parseComposite( std::string_view text, Routing::Topology::NeighborKey & key );

template< class T >
concept Vertex = std::derived_from< T, Cspf::VertexIdentifierBase >;
template< class T >
concept Bounded = requires {
   typename T::lumBounded;
};
template< class T >
concept Number = std::is_arithmetic_v< T > && !std::same_as< T, bool >;
template< class T >
concept Parsed = requires( const T & value, std::string_view text ) {
   { T::parse( text ) } -> std::convertible_to< std::optional< T > >;
   value.stringValue();
};
/// A key of several parts.
template< class T >
concept Composite = requires( T & key ) {
   parseComposite( std::string_view(), key );
};
/// A name: made from any text, or from one that its bound admits.
template< class T >
concept Named = !Parsed< T > && !Lum::Described< T > && requires( const T & value ) {
   T( std::string() );
   value.stringValue();
};

template< class T >
constexpr bool
hasText() {
   if constexpr ( Composite< T > ) {
      return true;
   } else if constexpr ( Lum::Described< T > && !Parsed< T > ) {
      // A value that is one id under another name has that id's text.
      if constexpr ( std::tuple_size_v< decltype( Lum::fields< T > ) > == 1 ) {
         constexpr auto only = std::get< 0 >( Lum::fields< T > );
         using Only = std::remove_cvref_t< decltype( std::declval< T & >().*( only.member ) ) >;
         return hasText< Only >() && !Number< Only >;
      } else {
         return false;
      }
   } else {
      return Vertex<
                T > || Bounded< T > || std::is_integral_v< T > || Parsed< T > || Named< T > || Lum::NamedEnum< T > || std::same_as< T, std::string >;
   }
}

template< class T >
concept Textual = hasText< T >() && !std::same_as< T, bool >;

template< Textual T >
std::string
toText( const T & value ) {
   if constexpr ( Vertex< T > ) {
      return vertexText( value, std::same_as< T, Cspf::IgpRouterId > );
   } else if constexpr ( Composite< T > ) {
      return compositeText( value );
   } else if constexpr ( Parsed< T > ) {
      const std::string text = value.stringValue();
      return value == T() && T::parse( text ) != std::optional( value ) ? std::string() : text;
   } else if constexpr ( Lum::Described< T > ) {
      return toText( value.*( std::get< 0 >( Lum::fields< T > ).member ) );
   } else {
      return Lum::valueString( value );
   }
}

template< Textual T >
std::optional< T >
fromText( std::string_view text ) {
   if constexpr ( std::same_as< T, std::string > ) {
      return std::string( text );
   } else if constexpr ( Vertex< T > ) {
      const auto vertex = parseVertex( text, std::same_as< T, Cspf::IgpRouterId > );
      return vertex ? std::optional( T( *vertex ) ) : std::nullopt;
   } else if constexpr ( Composite< T > ) {
      T key;
      return parseComposite( text, key ) ? std::optional( key ) : std::nullopt;
   } else if constexpr ( Lum::NamedEnum< T > ) {
      return Lum::enumParse< T >( text );
   } else if constexpr ( Bounded< T > ) {
      const auto number = fromText< typename T::lumBounded >( text );
      return number && *number >= T::min && *number <= T::max ? std::optional( T( *number ) )
                                                              : std::nullopt;
   } else if constexpr ( std::is_integral_v< T > ) {
      T number{};
      const auto [ end, error ] = std::from_chars( text.begin(), text.end(), number );
      return error == std::errc() && end == text.end() ? std::optional( number ) : std::nullopt;
   } else if constexpr ( Parsed< T > ) {
      return text.empty() ? std::optional( T() ) : T::parse( text );
   } else if constexpr ( std::same_as< T, L3::VrfName > ) {
      return text.empty() || T::isName( text ) ? std::optional( T( std::string( text ) ) )
                                               : std::nullopt;
   } else if constexpr ( Named< T > ) {
      try {
         return T( std::string( text ) );
      } catch ( const std::range_error & ) {
         return std::nullopt;
      }
   } else {
      constexpr auto member = std::get< 0 >( Lum::fields< T > ).member;
      T value;
      auto inner = fromText< std::remove_cvref_t< decltype( value.*member ) > >( text );
      if ( !inner ) {
         return std::nullopt;
      }
      value.*member = *inner;
      return value;
   }
}

/// As the key of an entry: a VRF has a name.
template< Textual T >
std::optional< T >
keyFromText( std::string_view text ) {
   return std::same_as< T, L3::VrfName > && text.empty() ? std::nullopt : fromText< T >( text );
}

/// What a text of type `T` must be, for errors.
template< Textual T >
std::string
textExpected() {
   if constexpr ( Lum::NamedEnum< T > ) {
      std::string names;
      for ( const char * name : lumEnumTexts( T() ) ) {
         names.append( names.empty() ? "one of \"" : ", \"" ).append( name ).append( "\"" );
      }
      return names;
   } else if constexpr ( Bounded< T > ) {
      return "a number from " + std::to_string( T::min ) + " to " + std::to_string( T::max );
   } else if constexpr ( Number< T > ) {
      return "a number from " + std::to_string( std::numeric_limits< T >::min() ) + " to "
             + std::to_string( std::numeric_limits< T >::max() );
   } else if constexpr ( Vertex< T > ) {
      return "the text of a router, an address or a prefix";
   } else if constexpr ( std::same_as< T, Cspf::PathKey > ) {
      return "a path such as \"10.0.0.4#1\"";
   } else if constexpr ( std::same_as< T, Routing::Topology::NeighborKey > ) {
      return "a link such as \"0000.0000.0001 p2p 0000.0000.0002#1\"";
   } else if constexpr ( std::same_as< T, Kivnet::IpGenAddr > ) {
      return "an address";
   } else if constexpr ( std::same_as< T, Kivnet::IpAddr > ) {
      return "an IPv4 address";
   } else if constexpr ( std::same_as< T, Routing::Isis::SystemId > ) {
      return "a system id such as \"0000.0000.0001\"";
   } else if constexpr ( std::same_as< T, Cspf::TopoId > ) {
      return "a topology id such as \"isis/2/0\"";
   } else if constexpr ( std::same_as< T, L3::VrfName > ) {
      return "a name of 1 to " + std::to_string( T::maxLength )
             + " bytes without \"/\" and control characters";
   } else {
      return "a name of its type";
   }
}

}
