// Fields of any state type by name. Each type's functions are instances of the one codec; a
// directory has no fields, since what is in it stands at paths of its own.

#include "tools/state/StateFields.h"

#include "schema/EntityTypes.h"
#include "tools/state/FieldCodec.h"

#include <algorithm>
#include <unordered_map>

namespace State {

namespace {

using Visit = std::function< void( const std::string & ) >;
using VisitChild = std::function< void( const std::string &, const Lum::Ptr< Lum::Entity > & ) >;

struct FieldType {
   void ( *names )( const Lum::Entity &, const Visit & );
   bool ( *append )( const Lum::Entity &, std::string_view, std::string & );
   void ( *set )( Lum::Entity &, std::string_view, const std::optional< std::string_view > & );
   std::vector< std::size_t > ( *place )( const Lum::Entity &, std::string_view );
   FieldChange ( *change )( const Lum::Entity &, const Lum::AnyChange & );
   void ( *children )( const Lum::Entity &, const VisitChild & );
};

template< class E >
FieldType
fieldTypeOf() {
   return { []( const Lum::Entity & entity, const Visit & visit ) {
              forEachNameOf( static_cast< const E & >( entity ), visit );
           },
            []( const Lum::Entity & entity, std::string_view name, std::string & out ) {
               return appendTextOf( static_cast< const E & >( entity ), name, out );
            },
            []( Lum::Entity & entity, std::string_view name, const auto & text ) {
               setField( static_cast< E & >( entity ), name, text );
            },
            []( const Lum::Entity & entity, std::string_view name ) {
               std::vector< std::size_t > place;
               appendPlace( static_cast< const E & >( entity ), name, place );
               return place;
            },
            []( const Lum::Entity & entity, const Lum::AnyChange & change ) {
               return fieldOfChange( static_cast< const E & >( entity ), change );
            },
            []( const Lum::Entity & entity, const VisitChild & visit ) {
               visitChildren( static_cast< const E & >( entity ),
                              [ & ]( const char * field, const auto & key, const auto & child ) {
                                 visit( entryName( field, key ), child );
                              } );
            } };
}

/// Where from there on the first character stands that a key has escaped; else the end.
std::size_t
plainUntil( std::string_view text, std::size_t from ) {
   while ( from < text.size() && text[ from ] != '\\' && text[ from ] != ']' ) {
      ++from;
   }
   return from;
}

const FieldType &
typeNamed( const char * name ) {
   static const auto all = [] {
      std::unordered_map< std::string_view, FieldType > map;
      Schema::forEachEntityType( [ & ]< class E >( Schema::Is< E > ) {
         if constexpr ( !std::same_as< E, Lum::Dir > ) {
            map.emplace( E::lumTypeName, fieldTypeOf< E >() );
         }
      } );
      return map;
   }();
   const auto at = all.find( name );
   return at != all.end()
             ? at->second
             : throw Error( document, std::string( "an entity of a state type, not " ) + name );
}

}

void
appendQuoted( std::string & out, std::string_view text ) {
   constexpr const char * hex = "0123456789abcdef";
   const auto isPlain = []( char c ) {
      return static_cast< unsigned char >( c ) >= 0x20 && c != '"' && c != '\\';
   };
   out += '"';
   for ( auto at = text.begin(); at != text.end(); ++at ) {
      const auto plain = std::find_if_not( at, text.end(), isPlain );
      out.append( at, plain );
      at = plain;
      if ( at == text.end() ) {
         break;
      }
      if ( *at == '"' || *at == '\\' ) {
         out.append( 1, '\\' ).append( 1, *at );
      } else {
         out.append( "\\u00" ).append( 1, hex[ *at >> 4 ] ).append( 1, hex[ *at & 15 ] );
      }
   }
   out += '"';
}

bool
isUtf8( std::string_view bytes ) {
   const auto isAscii = []( char c ) { return static_cast< unsigned char >( c ) < 0x80; };
   if ( std::ranges::all_of( bytes, isAscii ) ) {
      return true;
   }
   std::string quoted;
   appendQuoted( quoted, bytes );
   return Json::accept( quoted );
}

Json
parseText( std::string_view text, const Place & place ) {
   Json json = Json::parse( text.begin(), text.end(), nullptr, false );
   return json.is_discarded() ? throw Error( place, "JSON" ) : json;
}

FieldName
parseFieldName( std::string_view name ) {
   const auto bracket = name.find( '[' );
   FieldName parsed{ name.substr( 0, bracket ), std::nullopt, {} };
   if ( bracket == name.npos ) {
      return parsed;
   }
   parsed.key.emplace();
   for ( std::size_t i = bracket + 1; i < name.size(); ++i ) {
      const auto plain = plainUntil( name, i );
      parsed.key->append( name, i, plain - i );
      i = plain;
      if ( i < name.size() && name[ i ] == ']' ) {
         const std::string_view rest = name.substr( i + 1 );
         if ( rest.empty() || ( rest.size() > 1 && rest[ 0 ] == '.' ) ) {
            parsed.rest = rest.substr( rest.empty() ? 0 : 1 );
            return parsed;
         }
         break;
      }
      if ( ++i < name.size() ) {
         parsed.key->push_back( name[ i ] );
      }
   }
   throw Error( Place( document, std::string( name ) ), "NAME[KEY], as of an entry" );
}

void
appendEscapedKey( std::string & out, std::string_view key ) {
   if ( plainUntil( key, 0 ) == key.size() ) {
      out += key;
      return;
   }
   for ( const char c : key ) {
      out.append( c == '\\' || c == ']' ? 1 : 0, '\\' ).append( 1, c );
   }
}

bool
appendChildText( const Lum::Entity & child, std::string_view rest, std::string & out ) {
   if ( !rest.empty() ) {
      return appendFieldText( child, rest, out );
   }
   out += "{}";
   return true;
}

void
childFieldIs( Lum::Entity & child, std::string_view rest,
              const std::optional< std::string_view > & text ) {
   if ( !rest.empty() ) {
      fieldIs( child, rest, text );
   }
}

void
forEachNameBelow( const Lum::Entity & child, const std::string & above, const Visit & visit ) {
   forEachFieldName( child, [ & ]( const std::string & name ) { visit( above + name ); } );
}

void
forEachFieldName( const Lum::Entity & entity, const Visit & visit ) {
   typeNamed( entity.typeName() ).names( entity, visit );
}

std::vector< std::string >
fieldNames( const Lum::Entity & entity ) {
   std::vector< std::string > names;
   forEachFieldName( entity, [ & ]( const std::string & name ) { names.push_back( name ); } );
   return names;
}

bool
appendFieldText( const Lum::Entity & entity, std::string_view name, std::string & out ) {
   return typeNamed( entity.typeName() ).append( entity, name, out );
}

void
fieldIs( Lum::Entity & entity, std::string_view name,
         const std::optional< std::string_view > & text ) {
   typeNamed( entity.typeName() ).set( entity, name, text );
}

std::vector< std::size_t >
placeOf( const Lum::Entity & entity, std::string_view name ) {
   try {
      return typeNamed( entity.typeName() ).place( entity, name );
   } catch ( const Error & ) {
      return {};
   }
}

FieldChange
fieldOf( const Lum::Entity & entity, const Lum::AnyChange & change ) {
   return typeNamed( entity.typeName() ).change( entity, change );
}

void
forEachChildField( const Lum::Entity & entity, const VisitChild & visit ) {
   typeNamed( entity.typeName() ).children( entity, visit );
}

}
