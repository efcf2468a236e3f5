#pragma once

#include "tools/state/JsonCodec.h"
#include "tools/state/StateFields.h"

/// The codec that the description of a type instantiates; `StateFields.h` is its door.
namespace State {

// ---- Texts of values ----

void appendQuoted( std::string & out, std::string_view text );

/// As `valueToJson( value ).dump()`, with fields in the order of their description and at a small
/// part of the cost.
template< class T >
void
appendValue( std::string & out, const T & value ) {
   if constexpr ( std::same_as< T, bool > ) {
      out += value ? "true" : "false";
   } else if constexpr ( std::is_arithmetic_v< T > ) {
      char digits[ 32 ];
      const bool finite = !std::is_floating_point_v< T > || std::isfinite( double( value ) );
      out.append( finite ? digits : "null",
                  finite ? std::to_chars( digits, digits + sizeof digits, value ).ptr - digits
                         : 4 );
   } else if constexpr ( Bounded< T > ) {
      appendValue( out, value.value() );
   } else if constexpr ( Textual< T > ) {
      appendQuoted( out, toText( value ) );
   } else if constexpr ( isOptional< T > ) {
      if ( value ) {
         appendValue( out, *value );
      } else {
         out += "null";
      }
   } else {
      constexpr bool described = Lum::Described< T >;
      out += described ? '{' : '[';
      const std::size_t first = out.size();
      const auto separate = [ & ] { out.append( out.size() == first ? 0 : 1, ',' ); };
      if constexpr ( described ) {
         Lum::forEachField( value, [ & ]( auto & field, const auto & v ) {
            separate();
            out.append( 1, '"' ).append( field.name ).append( "\":" );
            appendValue( out, v );
         } );
      } else {
         for ( const auto & element : value ) {
            separate();
            appendValue( out, element );
         }
      }
      out += described ? '}' : ']';
   }
}

/// Places of fields stand in it.
inline const Place document;

Json parseText( std::string_view text, const Place & place );

// ---- Names of fields ----

struct FieldName {
   std::string_view attribute;
   std::optional< std::string > key;
   std::string_view rest;  ///< of the child's own field, behind the dot
};

/// Throws Error where the name has no such shape.
FieldName parseFieldName( std::string_view name );
void appendEscapedKey( std::string & out, std::string_view key );

template< class Key >
std::string
entryName( const char * field, const Key & key ) {
   std::string text;
   if constexpr ( Textual< Key > ) {
      text = toText( key );
   } else {
      appendValue( text, key );
   }
   std::string name( field );
   name += '[';
   appendEscapedKey( name, text );
   name += ']';
   return name;
}

template< class Key >
Key
entryKey( const std::string & text, const Place & place ) {
   if constexpr ( Textual< Key > ) {
      const auto key = keyFromText< Key >( text );
      return key ? *key : throw Error( place, "as key, " + textExpected< Key >() );
   } else {
      Key key{};
      mergeValue( key, parseText( text, place ), place );
      return key;
   }
}

// ---- Fields of entities ----

bool appendChildText( const Lum::Entity & child, std::string_view rest, std::string & out );

/// Calls `visit( field, value )` for the one field of that name. Throws Error where there is none.
template< class E, class Visit >
void
visitField( E & entity, std::string_view attribute, const Place & place, Visit visit ) {
   if ( !visitNamed( entity, attribute, visit ) ) {
      throw Error( place, std::string( "a field of " ) + entity.typeName() );
   }
}

template< class F >
inline constexpr bool isCollection = std::remove_cvref_t< F >::kind == Lum::FieldKind::collection;

inline void
checkShape( const FieldName & name, bool collection, bool children, const Place & place ) {
   if ( name.key.has_value() != collection || ( !name.rest.empty() && !children ) ) {
      throw Error( place, collection ? "NAME[KEY], as of an entry" : "a name without a key" );
   }
}

template< class E >
bool
appendTextOf( const E & entity, std::string_view whole, std::string & out ) {
   const FieldName name = parseFieldName( whole );
   const Place place( document, std::string( whole ) );
   bool there = true;
   visitField( entity, name.attribute, place, [ & ]( auto & field, const auto & value ) {
      if constexpr ( isCollection< decltype( field ) > ) {
         using Coll = std::remove_cvref_t< decltype( value ) >;
         constexpr bool children = Lum::isPtr< typename Coll::mapped_type >;
         checkShape( name, true, children, place );
         const auto at = value.find( entryKey< typename Coll::key_type >( *name.key, place ) );
         there = at != value.end();
         if ( !there ) {
            return;
         }
         if constexpr ( children ) {
            there = appendChildText( *at->second, name.rest, out );
         } else {
            appendValue( out, at->second );
         }
      } else {
         checkShape( name, false, false, place );
         appendValue( out, value );
      }
   } );
   return there;
}

void childFieldIs( Lum::Entity & child, std::string_view rest,
                   const std::optional< std::string_view > & text );

template< class E, class F, class Coll, class Key >
void
childIs( E & entity, const F & field, const Coll & coll, const Key & key, std::string_view rest,
         const std::optional< std::string_view > & text ) {
   using T = typename Coll::mapped_type;
   const auto at = coll.find( key );
   if ( rest.empty() && !text ) {
      field.del( entity, key );
   } else if ( at != coll.end() ) {
      childFieldIs( *at->second, rest, text );
   } else if ( text ) {
      T child( new std::remove_reference_t< decltype( *T() ) > );
      childFieldIs( *child, rest, text );
      field.is( entity, key, child );
   }
}

template< class E, class F, class Coll >
void
entryIs( E & entity, const F & field, const Coll & coll, const FieldName & name,
         const std::optional< std::string_view > & text, const Place & place ) {
   using Key = typename Coll::key_type;
   using T = typename Coll::mapped_type;
   const Key key = entryKey< Key >( *name.key, place );
   if constexpr ( Lum::isPtr< T > ) {
      childIs( entity, field, coll, key, name.rest, text );
   } else if ( text ) {
      const Json json = parseText( *text, place );
      if ( Lum::Described< T > && !Textual< T > && !json.is_object() ) {
         throw Error( place, "an object" );
      }
      T value = newEntry< T >( key );
      mergeValue( value, json, place );
      checkOwnKey( value, key, place );
      field.is( entity, key, std::move( value ) );
   } else {
      field.del( entity, key );
   }
}

template< class E >
void
setField( E & entity, std::string_view whole, const std::optional< std::string_view > & text ) {
   const FieldName name = parseFieldName( whole );
   const Place place( document, std::string( whole ) );
   visitField( entity, name.attribute, place, [ & ]( auto & field, auto & present ) {
      if constexpr ( isCollection< decltype( field ) > ) {
         using T = typename std::remove_cvref_t< decltype( present ) >::mapped_type;
         checkShape( name, true, Lum::isPtr< T >, place );
         entryIs( entity, field, present, name, text, place );
      } else {
         checkShape( name, false, false, place );
         auto value = E().*( field.member );
         if ( text ) {
            mergeValue( value, parseText( *text, place ), place );
         }
         field.is( entity, std::move( value ) );
      }
   } );
}

template< class E >
void
appendPlace( const E & entity, std::string_view whole, std::vector< std::size_t > & place ) {
   const FieldName name = parseFieldName( whole );
   visitNamed( entity, name.attribute, [ & ]( auto & field, const auto & value ) {
      place.push_back( field.line );
      if constexpr ( isCollection< decltype( field ) > ) {
         using T = typename std::remove_cvref_t< decltype( value ) >::mapped_type;
         if constexpr ( Lum::isPtr< T > ) {
            if ( !name.rest.empty() ) {
               appendPlace( std::remove_reference_t< decltype( *T() ) >(), name.rest, place );
            }
         }
      }
   } );
}

void forEachNameBelow( const Lum::Entity & child, const std::string & above,
                       const std::function< void( const std::string & ) > & visit );

template< class E >
void
forEachNameOf( const E & entity, const std::function< void( const std::string & ) > & visit ) {
   Lum::forEachField( entity, [ & ]( auto & field, const auto & value ) {
      if constexpr ( isCollection< decltype( field ) > ) {
         for ( const auto & [ key, entry ] : value ) {
            const std::string name = entryName( field.name, key );
            visit( name );
            if constexpr ( Lum::isPtr< std::remove_cvref_t< decltype( entry ) > > ) {
               forEachNameBelow( *entry, name + ".", visit );
            }
         }
      } else {
         visit( field.name );
      }
   } );
}

template< class E >
FieldChange
fieldOfChange( const E & entity, const Lum::AnyChange & what ) {
   FieldChange change;
   visitNamed( entity, what.name(), [ & ]( auto & field, const auto & value ) {
      if constexpr ( isCollection< decltype( field ) > ) {
         using Coll = std::remove_cvref_t< decltype( value ) >;
         const auto & key = *static_cast< const typename Coll::key_type * >( what.key );
         change.name = entryName( field.name, key );
         if constexpr ( Lum::isPtr< typename Coll::mapped_type > ) {
            const auto at = value.find( key );
            change.isChild = true;
            change.child = at == value.end() ? nullptr : Lum::Ptr< Lum::Entity >( at->second );
         }
      } else {
         change.name = field.name;
      }
   } );
   return change;
}

}
