#pragma once

#include "platform/Lum/Attribute.h"
#include "tools/pace/Job.h"
#include "tools/state/JsonText.h"
#include "tools/state/StateTypes.h"

#include <array>
#include <cmath>

/// The codec that the description of a type instantiates; `StateTypes.h` is its door.
namespace State {

// ---- Values ----

template< class T >
inline constexpr bool isArray = false;
template< class T, std::size_t n >
inline constexpr bool isArray< std::array< T, n > > = true;
template< class T >
inline constexpr bool isOptional = false;
template< class T >
inline constexpr bool isOptional< std::optional< T > > = true;

template< class T >
Json
valueToJson( const T & value ) {
   if constexpr ( std::is_arithmetic_v< T > ) {
      return value;
   } else if constexpr ( Bounded< T > ) {
      return value.value();
   } else if constexpr ( Textual< T > ) {
      return toText( value );
   } else if constexpr ( isOptional< T > ) {
      return value ? valueToJson( *value ) : Json();
   } else if constexpr ( Lum::isPtr< T > ) {
      Json json = value ? toJson( *value ) : Json();
      if constexpr ( std::same_as< T, Lum::Ptr< Lum::Entity > > ) {
         return { { "type", value->typeName() }, { "value", std::move( json ) } };
      }
      return json;
   } else if constexpr ( Lum::Described< T > ) {
      Json json = Json::object();
      Lum::forEachField(
         value, [ & ]( auto & field, const auto & v ) { json[ field.name ] = valueToJson( v ); } );
      return json;
   } else {
      Json json = Json::array();
      for ( const auto & element : value ) {
         json.push_back( valueToJson( element ) );
      }
      return json;
   }
}

template< class T >
T
numberFromJson( const Json & json, const Place & place ) {
   if constexpr ( std::is_floating_point_v< T > ) {
      const double number = json.is_number() ? json.get< double >() : -1;
      if ( !json.is_number() || std::abs( number ) > std::numeric_limits< T >::max() ) {
         throw Error( place, "a number" );
      }
      return static_cast< T >( number );
   } else {
      std::optional< T > number;
      if ( json.is_number_unsigned() && std::in_range< T >( json.get< std::uint64_t >() ) ) {
         number = static_cast< T >( json.get< std::uint64_t >() );
      } else if ( json.is_number_integer() && !json.is_number_unsigned()
                  && std::in_range< T >( json.get< std::int64_t >() ) ) {
         number = static_cast< T >( json.get< std::int64_t >() );
      }
      return number ? *number : throw Error( place, textExpected< T >() );
   }
}

/// Calls `visit( field, value )` for the field of that name; false where there is none.
template< class T, class Visit >
bool
visitNamed( T & described, std::string_view name, Visit visit ) {
   bool known = false;
   Lum::forEachField( described, [ & ]( auto & field, auto & value ) {
      if ( name == field.name ) {
         known = true;
         visit( field, value );
      }
   } );
   return known;
}

template< class T >
void mergeValue( T & value, const Json & patch, const Place & place );

template< class T >
void
elementsFromJson( T & value, const Json & json, const Place & place ) {
   if ( !json.is_array() ) {
      throw Error( place, "an array" );
   }
   if constexpr ( isArray< T > ) {
      if ( json.size() != value.size() ) {
         throw Error( place, "an array of " + std::to_string( value.size() ) );
      }
   } else {
      value.clear();
   }
   for ( std::size_t i = 0; i < json.size(); ++i ) {
      const Place here( place, std::to_string( i ) );
      typename T::value_type element{};
      mergeValue( element, json[ i ], here );
      if constexpr ( isArray< T > ) {
         value[ i ] = element;
      } else if constexpr ( requires { value.insert( element ); } ) {
         value.insert( element );
      } else {
         try {
            value.push( std::move( element ) );
         } catch ( const std::range_error & ) {
            throw Error( here, "an array of at most " + std::to_string( i ) );
         }
      }
   }
}

template< class T >
void
fieldsFromJson( T & value, const Json & patch, const Place & place ) {
   if ( !patch.is_object() ) {
      throw Error( place, "an object" );
   }
   for ( const auto & [ name, part ] : patch.items() ) {
      const Place here( place, name );
      if ( !visitNamed( value, name, [ &, &part = part ]( auto &, auto & v ) {
              mergeValue( v, part, here );
           } ) ) {
         throw Error( here, std::string( "a field of " ) + T::lumTypeName );
      }
   }
}

template< class T >
void
mergeValue( T & value, const Json & patch, const Place & place ) {
   if ( patch.is_null() ) {
      value = T{};
   } else if constexpr ( std::same_as< T, bool > ) {
      value = patch.is_boolean() ? patch.get< bool >() : throw Error( place, "true or false" );
   } else if constexpr ( Number< T > ) {
      value = numberFromJson< T >( patch, place );
   } else if constexpr ( Bounded< T > ) {
      try {
         value = T( numberFromJson< std::int64_t >( patch, place ) );
      } catch ( const std::range_error & ) {
         throw Error( place, textExpected< T >() );
      }
   } else if constexpr ( Textual< T > ) {
      const auto parsed =
         patch.is_string() ? fromText< T >( patch.get_ref< const std::string & >() ) : std::nullopt;
      value = parsed ? *parsed : throw Error( place, textExpected< T >() );
   } else if constexpr ( isOptional< T > ) {
      auto inner = value.value_or( typename T::value_type{} );
      mergeValue( inner, patch, place );
      value = inner;
   } else if constexpr ( Lum::Described< T > ) {
      fieldsFromJson( value, patch, place );
   } else {
      elementsFromJson( value, patch, place );
   }
}

// ---- Entities ----

/// The first walk over a patch checks, the second changes.
enum class Walk { check, apply };

void mergeEntity( Lum::Entity & entity, const Json & patch, const Place & place, Walk walk );
/// Throws where the patch is not {"type": .., "value": ..}, of which either may be missing.
void checkTyped( const Json & patch, const Place & place );

template< class E >
Lum::Ptr< E >
childFromJson( const Lum::Ptr< E > & present, const Json & patch, const Place & place, Walk walk ) {
   if constexpr ( std::same_as< E, Lum::Entity > ) {
      checkTyped( patch, place );
      const auto type = patch.find( "type" );
      const bool typed = type != patch.end();
      const std::string name = typed && type->is_string() ? type->get< std::string >()
                               : present                  ? present->typeName()
                                                          : std::string();
      Lum::Ptr< E > child = present && name == present->typeName() ? present : makeEntity( name );
      if ( !child || ( typed && !type->is_string() ) ) {
         throw Error( Place( place, "type" ), "the name of a state type" );
      }
      mergeEntity( *child, patch.value( "value", Json::object() ), Place( place, "value" ), walk );
      return child;
   } else {
      Lum::Ptr< E > child = present ? present : Lum::Ptr< E >( new E );
      mergeEntity( *child, patch, place, walk );
      return child;
   }
}

template< class T >
T
entryFromJson( T present, const Json & patch, const Place & place, Walk walk ) {
   if constexpr ( Lum::isPtr< T > ) {
      return childFromJson( present, patch, place, walk );
   } else {
      mergeValue( present, patch, place );
      return present;
   }
}

/// A row that holds its own key has it from the start.
template< class T, class Key >
T
newEntry( const Key & key ) {
   T row{};
   if constexpr ( Lum::HasOwnKey< T, Key > ) {
      Lum::firstField( row ) = key;
   }
   return row;
}

/// The patch of a row may name its key, and not change it.
template< class T, class Key >
void
checkOwnKey( [[maybe_unused]] const T & row, [[maybe_unused]] const Key & key,
             [[maybe_unused]] const Place & place ) {
   if constexpr ( Lum::HasOwnKey< T, Key > ) {
      if ( Lum::firstField( row ) != key ) {
         const std::string name = std::get< 0 >( Lum::fields< T > ).name;
         throw Error( Place( place, name ), "the key that the entry stands under" );
      }
   }
}

/// A collection with text keys: the patch names the entries that change.
template< class E, class F, class Coll >
void
mergeEntries( E & entity, const F & field, const Coll & coll, const Json & patch,
              const Place & place, Walk walk ) {
   using Key = typename Coll::key_type;
   if ( patch.is_null() ) {
      for ( const auto & key :
            walk == Walk::apply ? Lum::sortedKeys( coll ) : std::vector< Key >() ) {
         Pace::breathe();
         field.del( entity, key );
      }
      return;
   }
   if ( !patch.is_object() ) {
      throw Error( place, "an object" );
   }
   for ( const auto & [ text, part ] : patch.items() ) {
      Pace::breathe();
      const Place here( place, text );
      const auto key = keyFromText< Key >( text );
      if ( !key ) {
         throw Error( here, "as key, " + textExpected< Key >() );
      }
      if ( part.is_null() ) {
         if ( walk == Walk::apply ) {
            field.del( entity, *key );
         }
         continue;
      }
      const auto at = coll.find( *key );
      using T = typename Coll::mapped_type;
      T value =
         entryFromJson( at == coll.end() ? newEntry< T >( *key ) : at->second, part, here, walk );
      checkOwnKey( value, *key, here );
      if ( walk == Walk::apply ) {
         field.is( entity, *key, std::move( value ) );
      }
   }
}

/// A collection whose keys have no text: the patch is the whole of it.
template< class E, class F, class Coll >
void
replaceEntries( E & entity, const F & field, const Coll & coll, const Json & patch,
                const Place & place, Walk walk ) {
   using Key = typename Coll::key_type;
   using T = typename Coll::mapped_type;
   std::map< Key, T > wanted;
   if ( !patch.is_array() && !patch.is_null() ) {
      throw Error( place, "an array of {\"key\", \"value\"}" );
   }
   for ( std::size_t i = 0; i < patch.size(); ++i ) {
      Pace::breathe();
      const Place here( place, std::to_string( i ) );
      const Json & entry = patch[ i ];
      if ( !entry.is_object() || entry.size() != 2 || !entry.contains( "key" )
           || !entry.contains( "value" ) ) {
         throw Error( here, "an object with \"key\" and \"value\"" );
      }
      Key key{};
      mergeValue( key, entry[ "key" ], Place( here, "key" ) );
      T value = entryFromJson( newEntry< T >( key ), entry[ "value" ], Place( here, "value" ),
                               Walk::apply );
      checkOwnKey( value, key, Place( here, "value" ) );
      const auto at = coll.find( key );
      if ( Lum::isPtr< T > && at != coll.end()
           && valueToJson( at->second ) == valueToJson( value ) ) {
         value = at->second;
      }
      if ( !wanted.emplace( std::move( key ), std::move( value ) ).second ) {
         throw Error( Place( here, "key" ), "a key that is not there yet" );
      }
   }
   if ( walk == Walk::check ) {
      return;
   }
   for ( const Key & key : Lum::sortedKeys( coll ) ) {
      Pace::breathe();
      if ( !wanted.contains( key ) ) {
         field.del( entity, key );
      }
   }
   for ( auto & [ key, value ] : wanted ) {
      Pace::breathe();
      field.is( entity, key, std::move( value ) );
   }
}

template< class E, class F >
void
mergeField( E & entity, const F & field, const Json & patch, const Place & place, Walk walk ) {
   const auto & present = entity.*( field.member );
   if constexpr ( F::kind == Lum::FieldKind::collection ) {
      using Key = typename std::remove_cvref_t< decltype( present ) >::key_type;
      if constexpr ( Textual< Key > ) {
         mergeEntries( entity, field, present, patch, place, walk );
      } else {
         replaceEntries( entity, field, present, patch, place, walk );
      }
   } else {
      auto value = present;
      if ( patch.is_null() ) {
         value = E().*( field.member );
      } else {
         mergeValue( value, patch, place );
      }
      if ( walk == Walk::apply ) {
         field.is( entity, std::move( value ) );
      }
   }
}

template< class Coll >
Json
collectionToJson( const Coll & coll ) {
   constexpr bool textual = Textual< typename Coll::key_type >;
   Json json = textual ? Json::object() : Json::array();
   for ( const auto & key : Lum::sortedKeys( coll ) ) {
      Json value = valueToJson( coll.at( key ) );
      if constexpr ( textual ) {
         json[ toText( key ) ] = std::move( value );
      } else {
         json.push_back( { { "key", valueToJson( key ) }, { "value", std::move( value ) } } );
      }
   }
   return json;
}

template< class E >
Json
entityToJson( const E & entity ) {
   Json json = Json::object();
   Lum::forEachField( entity, [ & ]( auto & field, const auto & value ) {
      if constexpr ( std::remove_cvref_t< decltype( field ) >::kind
                     == Lum::FieldKind::collection ) {
         json[ field.name ] = collectionToJson( value );
      } else {
         json[ field.name ] = valueToJson( value );
      }
   } );
   return json;
}

template< class T >
void
valueToText( const T & value, TextSink & sink ) {
   if constexpr ( std::same_as< T, Lum::Ptr< Lum::Entity > > ) {
      writeTyped( *value, sink );
   } else if constexpr ( Lum::isPtr< T > ) {
      if ( value ) {
         writeText( *value, sink );
      } else {
         sink.text( "null" );
      }
   } else {
      sink.text( text( valueToJson( value ) ) );
   }
}

template< class Coll >
void
collectionToText( const Coll & coll, TextSink & sink ) {
   constexpr bool textual = Textual< typename Coll::key_type >;
   sink.entries( coll.size() );
   std::string before( textual ? "{" : "[" );
   for ( const auto & key : Lum::sortedKeys( coll ) ) {
      if constexpr ( textual ) {
         sink.text( before + text( toText( key ) ) + ":" );
         valueToText( coll.at( key ), sink );
      } else {
         sink.text( before + R"({"key":)" + text( valueToJson( key ) ) + R"(,"value":)" );
         valueToText( coll.at( key ), sink );
         sink.text( "}" );
      }
      before = ",";
   }
   sink.text( coll.empty() ? before : "" );
   sink.text( textual ? "}" : "]" );
}

template< class E >
void
entityToText( const E & entity, TextSink & sink ) {
   std::string before( "{" );
   Lum::forEachField( entity, [ & ]( auto & field, const auto & value ) {
      sink.text( before + text( field.name ) + ":" );
      if constexpr ( std::remove_cvref_t< decltype( field ) >::kind
                     == Lum::FieldKind::collection ) {
         collectionToText( value, sink );
      } else {
         valueToText( value, sink );
      }
      before = ",";
   } );
   sink.text( before == "{" ? "{}" : "}" );
}

/// What is no longer initialized is so first: until then its watchers take the other fields for
/// granted.
template< class E >
void
mergeFields( E & entity, const Json & patch, const Place & place, Walk walk ) {
   if ( !patch.is_object() ) {
      throw Error( place, "an object" );
   }
   if constexpr ( requires { entity.initializedIs( false ); } ) {
      if ( walk == Walk::apply && patch.contains( "initialized" )
           && patch[ "initialized" ] != true ) {
         entity.initializedIs( false );
      }
   }
   for ( const auto & [ name, part ] : patch.items() ) {
      const Place here( place, name );
      if ( !visitNamed( entity, name, [ &, &part = part ]( auto & field, auto & ) {
              mergeField( entity, field, part, here, walk );
           } ) ) {
         throw Error( here, std::string( "a field of " ) + E::lumTypeName );
      }
   }
}

template< class Key >
std::string
childName( const char * field, const Key & key ) {
   if constexpr ( Textual< Key > ) {
      return std::string( field ) + "/" + toText( key );
   } else {
      return std::string( field ) + "/" + valueToJson( key ).dump();
   }
}

template< class Key, class T >
void
entryToChange( const char * field, const Key & key, const T * value, Change & change ) {
   if constexpr ( Textual< Key > ) {
      change.json[ "key" ] = toText( key );
   } else {
      change.json[ "key" ] = valueToJson( key );
   }
   if ( value ) {
      change.json[ "value" ] = valueToJson( *value );
   }
   if constexpr ( Lum::isPtr< T > ) {
      change.isChild = true;
      change.childName = childName( field, key );
      change.child = value ? Lum::Ptr< Lum::Entity >( *value ) : nullptr;
   }
}

template< class E >
Change
fieldChange( const E & entity, const Lum::AnyChange & what ) {
   Change change;
   change.json[ "attribute" ] = what.name();
   visitNamed( entity, what.name(), [ & ]( auto & field, const auto & value ) {
      using F = std::remove_cvref_t< decltype( field ) >;
      if constexpr ( F::kind == Lum::FieldKind::collection ) {
         using Key = typename std::remove_cvref_t< decltype( value ) >::key_type;
         const Key & key = *static_cast< const Key * >( what.key );
         const auto at = value.find( key );
         entryToChange( field.name, key, at == value.end() ? nullptr : &at->second, change );
      } else {
         change.json[ "value" ] = valueToJson( value );
      }
   } );
   return change;
}

/// Calls `visit( field's name, key, child )` for each entry that is an entity.
template< class E, class Visit >
void
visitChildren( const E & entity, Visit visit ) {
   Lum::forEachField( entity, [ & ]( auto & field, const auto & value ) {
      using F = std::remove_cvref_t< decltype( field ) >;
      if constexpr ( F::kind == Lum::FieldKind::collection ) {
         using T = typename std::remove_cvref_t< decltype( value ) >::mapped_type;
         if constexpr ( Lum::isPtr< T > ) {
            for ( const auto & [ key, child ] : value ) {
               visit( field.name, key, Lum::Ptr< Lum::Entity >( child ) );
            }
         }
      }
   } );
}

}
