// The state types by name, so that tools read and write any entity of which they know the type
// only at run time. Each type's functions are instances of the one codec; this file is the only
// one that instantiates it for all types.

#include "tools/state/StateTypes.h"
#include "schema/EntityTypes.h"

#include "tools/state/JsonCodec.h"

#include <map>

namespace State {

namespace {

struct Type {
   Lum::Ptr< Lum::Entity > ( *make )();
   Json ( *toJson )( const Lum::Entity & );
   void ( *writeText )( const Lum::Entity &, TextSink & );
   void ( *merge )( Lum::Entity &, const Json &, const Place &, Walk );
   Change ( *change )( const Lum::Entity &, const Lum::AnyChange & );
   void ( *children )(
      const Lum::Entity &,
      const std::function< void( const std::string &, const Lum::Ptr< Lum::Entity > & ) > & );
};

template< class E >
Type
typeOf() {
   return { [] { return Lum::Ptr< Lum::Entity >( new E ); },
            []( const Lum::Entity & entity ) {
               return entityToJson( static_cast< const E & >( entity ) );
            },
            []( const Lum::Entity & entity, TextSink & sink ) {
               entityToText( static_cast< const E & >( entity ), sink );
            },
            []( Lum::Entity & entity, const Json & patch, const Place & place, Walk walk ) {
               mergeFields( static_cast< E & >( entity ), patch, place, walk );
            },
            []( const Lum::Entity & entity, const Lum::AnyChange & change ) {
               return fieldChange( static_cast< const E & >( entity ), change );
            },
            []( const Lum::Entity & entity, const auto & visit ) {
               visitChildren( static_cast< const E & >( entity ),
                              [ & ]( const char * field, const auto & key, const auto & child ) {
                                 visit( childName( field, key ), child );
                              } );
            } };
}

const std::map< std::string, Type, std::less<> > &
types() {
   static const auto all = [] {
      std::map< std::string, Type, std::less<> > map;
      Schema::forEachEntityType(
         [ & ]< class E >( Schema::Is< E > ) { map.emplace( E::lumTypeName, typeOf< E >() ); } );
      return map;
   }();
   return all;
}

struct VertexKind {
   Cspf::VertexType type;
   std::string_view name;
};

constexpr VertexKind vertexKinds[] = { { Cspf::VertexType::isisRouter, "isisRouter" },
                                       { Cspf::VertexType::ospfRouter, "ospfRouter" },
                                       { Cspf::VertexType::ipAddress, "ipAddress" },
                                       { Cspf::VertexType::ipPrefix, "ipPrefix" } };

std::optional< Cspf::VertexIdentifierBase >
parseVertexOf( Cspf::VertexType type, std::string_view text ) {
   if ( const Cspf::VertexIdentifierBase vertex( type, text ); vertex ) {
      return vertex;
   }
   const bool router = type == Cspf::VertexType::isisRouter || type == Cspf::VertexType::ospfRouter;
   if ( !router || text.size() < 4 || text[ text.size() - 3 ] != '.' ) {
      return std::nullopt;
   }
   const Cspf::VertexIdentifierBase owner( type, text.substr( 0, text.size() - 3 ) );
   std::uint8_t number = 0;
   const auto [ end, error ] = std::from_chars( text.end() - 2, text.end(), number, 16 );
   return owner && error == std::errc() && end == text.end()
             ? std::optional( owner.pseudonode( number ) )
             : std::nullopt;
}

}

std::string
Place::pointer() const {
   if ( !parent_ ) {
      return {};
   }
   std::string escaped;
   for ( const char c : token_ ) {
      escaped += c == '~' ? "~0" : c == '/' ? "~1" : std::string( 1, c );
   }
   return parent_->pointer() + "/" + escaped;
}

Error::Error( const Place & place, const std::string & expected )
   : std::runtime_error( ( place.pointer().empty() ? "" : place.pointer() + ": " ) + "expected "
                         + expected ),
     pointer_( place.pointer() ),
     expected_( expected ) {}

/// Bare where the reader of such an id takes it for this vertex, else after the kind's name.
std::string
vertexText( const Cspf::VertexIdentifierBase & vertex, bool igpRouter ) {
   using enum Cspf::VertexType;
   const Cspf::VertexType type = vertex.type();
   std::string text = vertex.stringValue();
   const bool isBare = type == isisRouter || type == ( igpRouter ? ospfRouter : ipAddress );
   if ( isBare || parseVertex( text, igpRouter ) == vertex ) {
      return text;
   }
   for ( const auto & kind : vertexKinds ) {
      if ( kind.type == vertex.type() ) {
         return std::string( kind.name ) + ":" + text;
      }
   }
   return text;
}

std::optional< Cspf::VertexIdentifierBase >
parseVertex( std::string_view text, bool igpRouter ) {
   if ( text.empty() ) {
      return Cspf::VertexIdentifierBase();
   }
   for ( const auto & kind : vertexKinds ) {
      if ( text.starts_with( kind.name ) && text.substr( kind.name.size() ).starts_with( ':' ) ) {
         return parseVertexOf( kind.type, text.substr( kind.name.size() + 1 ) );
      }
   }
   for ( const auto & kind : vertexKinds ) {
      if ( kind.type == Cspf::VertexType::ospfRouter && !igpRouter ) {
         continue;
      }
      if ( auto vertex = parseVertexOf( kind.type, text ) ) {
         return vertex;
      }
   }
   return std::nullopt;
}

namespace {

/// Parses the text as the parts, each of which ends where the next one's separator begins.
template< class Part, class... Rest >
bool
parseParts( std::string_view text, Part & part, Rest &... rest ) {
   const auto end = sizeof...( rest ) == 0   ? text.size()
                    : sizeof...( rest ) == 1 ? text.rfind( '#' )
                                             : text.find( ' ' );
   const auto parsed = end == text.npos ? std::nullopt : fromText< Part >( text.substr( 0, end ) );
   if ( !parsed ) {
      return false;
   }
   part = *parsed;
   if constexpr ( sizeof...( rest ) > 0 ) {
      return parseParts( text.substr( end + 1 ), rest... );
   } else {
      return true;
   }
}

}

std::string
compositeText( const Cspf::PathKey & key ) {
   std::string text = toText( key.dst() );
   text.append( 1, '#' ).append( std::to_string( key.id() ) );
   return text;
}

std::string
compositeText( const Routing::Topology::NeighborKey & key ) {
   std::string text;
   text.reserve( 48 );
   text.append( toText( key.routerId() ) ).append( 1, ' ' );
   text.append( toText( key.neighborType() ) ).append( 1, ' ' );
   text.append( toText( key.neighborId() ) ).append( 1, '#' );
   text.append( std::to_string( key.linkId() ) );
   return text;
}

bool
parseComposite( std::string_view text, Cspf::PathKey & key ) {
   return parseParts( text, key.dst_, key.id_ );
}

bool
parseComposite( std::string_view text, Routing::Topology::NeighborKey & key ) {
   return parseParts( text, key.routerId_, key.neighborType_, key.neighborId_, key.linkId_ );
}

Json
toJson( const Lum::Entity & entity ) {
   const auto at = types().find( entity.typeName() );
   return at == types().end() ? Json() : at->second.toJson( entity );
}

void
writeText( const Lum::Entity & entity, TextSink & sink ) {
   const auto at = types().find( entity.typeName() );
   if ( at == types().end() ) {
      sink.text( "null" );
   } else {
      at->second.writeText( entity, sink );
   }
}

void
writeTyped( const Lum::Entity & entity, TextSink & sink ) {
   sink.text( R"({"type":)" + text( entity.typeName() ) + R"(,"value":)" );
   writeText( entity, sink );
   sink.text( "}" );
}

std::string
text( const Json & json ) {
   return json.dump( -1, ' ', false, Json::error_handler_t::replace );
}

Change
changeToJson( const Lum::Entity & entity, const Lum::AnyChange & change ) {
   return types().at( entity.typeName() ).change( entity, change );
}

void
forEachChild(
   const Lum::Entity & entity,
   const std::function< void( const std::string &, const Lum::Ptr< Lum::Entity > & ) > & visit ) {
   const auto at = types().find( entity.typeName() );
   if ( at != types().end() ) {
      at->second.children( entity, visit );
   }
}

Lum::Ptr< Lum::Entity >
makeEntity( std::string_view typeName ) {
   const auto at = types().find( typeName );
   return at == types().end() ? nullptr : at->second.make();
}

void
checkTyped( const Json & patch, const Place & place ) {
   if ( !patch.is_object() ) {
      throw Error( place, "an object with \"type\" and \"value\"" );
   }
   for ( const auto & [ name, part ] : patch.items() ) {
      if ( name != "type" && name != "value" ) {
         throw Error( Place( place, name ),
                      "\"type\" or \"value\", as in {\"type\": \"Cspf::Client\", \"value\": {}}" );
      }
   }
}

void
mergeEntity( Lum::Entity & entity, const Json & patch, const Place & place, Walk walk ) {
   const auto at = types().find( entity.typeName() );
   if ( at == types().end() ) {
      throw Error( place, std::string( "an entity of a state type, not " ) + entity.typeName() );
   }
   at->second.merge( entity, patch, place, walk );
}

void
merge( Lum::Entity & entity, const Json & patch, const Place & place ) {
   mergeEntity( entity, patch, place, Walk::check );
   mergeEntity( entity, patch, place, Walk::apply );
}

}
