// State by path, as JSON. Entities and tables live in two stores, and here in one name space; their
// paths do not meet. What is patched must be what its readers take it for: an entry of another type
// or a table at a path that nobody mounts is refused.

#include "tools/service/StateView.h"

#include "platform/Kivnet/VrfName.h"
#include "platform/Lum/Dir.h"
#include "tools/state/Announcement.h"
#include "tools/state/JsonText.h"
#include "tools/state/StatePaths.h"

#include <algorithm>
#include <set>
#include <string_view>

namespace Service {

namespace {

/// Refuses a patch of a directory that does not make, change or remove entries of its one type.
void
checkEntries( const std::string & path, const Json & patch ) {
   const State::PathKind * const kind = State::entryKind( path );
   if ( !kind ) {
      throw RequestError( "the entries of the directory \"" + path
                          + "\" stay: name the path of the entry to be changed" );
   }
   const auto entries = patch.is_object() ? patch.find( "entity" ) : patch.end();
   if ( !patch.is_object() || entries == patch.end() || !entries->is_object() ) {
      return;
   }
   for ( const auto & [ name, entry ] : entries->items() ) {
      if ( !L3::VrfName::isName( name ) ) {
         throw RequestError( "/entity/" + name + ": expected as key, "
                             + State::textExpected< L3::VrfName >() );
      }
      if ( entry.is_object() && entry.value( "type", Json( kind->typeName ) ) != kind->typeName ) {
         throw RequestError( "/entity/" + name + "/type: expected \"" + kind->typeName + "\"" );
      }
   }
}

/// Refuses a patch that would leave a finished announcement of a topology without its family.
void
checkAnnouncements( const Lum::Entity & entity, const Json & patch ) {
   const auto patched = State::makeEntity( entity.typeName() );
   State::merge( *patched, State::toJson( entity ) );
   State::merge( *patched, patch );
   const auto check = []( const Lum::Ptr< Lum::Entity > & one ) {
      const auto announcement = Lum::cast< Routing::Topology::ExportPath >( one );
      if ( const auto fault = announcement ? State::faultOf( *announcement ) : std::nullopt ) {
         throw RequestError( fault->what() );
      }
   };
   check( patched );
   State::forEachChild( *patched,
                        [ & ]( const std::string &, const auto & entry ) { check( entry ); } );
}

}

bool
isAtOrBelow( const std::string & path, std::string_view top ) {
   return path.starts_with( top ) && ( path.size() == top.size() || path[ top.size() ] == '/' );
}

Lum::Ptr< Lum::Entity >
StateView::find( const std::string & path ) const {
   const auto table = tables_.table( path );
   return table ? table : state_.entity( path );
}

Json
StateView::typed( const std::string & path ) const {
   const auto entity = find( path );
   return { { "type", entity->typeName() }, { "value", State::toJson( *entity ) } };
}

void
StateView::states( const std::vector< std::string > & paths, State::TextSink & sink ) const {
   std::string before( "{" );
   for ( const std::string & path : paths ) {
      sink.text( before + State::text( path ) + ":" );
      State::writeTyped( *find( path ), sink );
      before = ",";
   }
   sink.text( paths.empty() ? "{}" : "}" );
}

void
StateView::get( const std::string & asked, State::TextSink & sink ) const {
   const std::string path = Corvdb::canonicalPath( asked );
   if ( !path.empty() && find( path ) ) {
      State::writeTyped( *find( path ), sink );
      return;
   }
   std::vector< std::string > below = tables_.list( path );
   if ( path.empty() ) {
      below.insert( below.begin(), "/" );
   }
   if ( below.empty() && !State::isAboveTables( path ) ) {
      throw RequestError( "nothing at \"" + path + "\"" );
   }
   states( below, sink );
}

std::vector< std::string >
StateView::list( const std::string & asked ) const {
   std::set< std::string > all;
   for ( const State::PathKind & kind : State::entityPaths() ) {
      const std::string pattern( kind.pattern );
      const std::string directory = pattern.substr( 0, pattern.rfind( "/NAME" ) );
      const std::string below = directory + "/";
      const auto entity = state_.entity( directory );
      if ( kind.isOne && entity ) {
         all.insert( pattern );
      } else if ( const auto entries = Lum::cast< Lum::Dir >( entity ) ) {
         for ( const auto & [ name, entry ] : entries->entityColl() ) {
            all.insert( std::string( below ).append( name ) );
         }
      }
   }
   const std::vector< std::string > tables = tables_.list( "" );
   all.insert( tables.begin(), tables.end() );
   const std::string path = Corvdb::canonicalPath( asked );
   std::vector< std::string > found;
   std::ranges::copy_if( all, std::back_inserter( found ), [ & ]( const std::string & one ) {
      return path.empty() || isAtOrBelow( one, path );
   } );
   return found;
}

StateView::Watched
StateView::watched( const std::string & asked ) const {
   const std::string path = Corvdb::canonicalPath( asked );
   if ( state_.entity( path ) ) {
      return { path, { path }, false };
   }
   if ( !State::isAboveTables( path ) && !State::pathKind( State::tablePaths(), path ) ) {
      throw RequestError( "nothing at \"" + path + "\"" );
   }
   return { path, tables_.list( path ), true };
}

Lum::Ptr< Lum::Entity >
StateView::findOrMake( const std::string & path, const Json & patch ) {
   if ( auto entity = find( path ) ) {
      return entity;
   }
   if ( const State::PathKind * const kind = State::pathKind( State::tablePaths(), path ) ) {
      State::merge( *State::makeEntity( kind->typeName ), patch );  // a bad one makes no table
      return tables_.alwaysIs( path, kind->typeName );
   }
   throw RequestError( "nothing at \"" + path
                       + "\", and no kind of table that is made there; an entry "
                         "of a directory is made by a patch of the directory" );
}

void
StateView::patch( const std::string & asked, const Json & patch ) {
   const std::string path = Corvdb::canonicalPath( asked );
   if ( std::ranges::any_of( State::agentsPaths(), [ & ]( std::string_view own ) {
           return isAtOrBelow( path, own );
        } ) ) {
      throw RequestError( "\"" + path + "\" is written by the agent alone" );
   }
   const auto entity = findOrMake( path, patch );
   if ( Lum::cast< Lum::Dir >( entity ) ) {
      checkEntries( path, patch );
   }
   if ( isAtOrBelow( path, "routing/topoDbExport" ) ) {
      checkAnnouncements( *entity, patch );
   }
   if ( tables_.table( path ) == entity ) {
      tables_.alwaysIs( path, entity->typeName() );  // what is written stays without a reader
   }
   State::merge( *entity, patch );
}

StateWatch::StateWatch( std::string path, Lum::Ptr< Lum::Entity > entity, Tell tell )
   : path_( std::move( path ) ),
     entity_( std::move( entity ) ),
     tell_( std::move( tell ) ) {}

void
StateWatch::handleInitialized() {
   watchAny< &StateWatch::handleChange >( *entity_, this );
   State::forEachChild(
      *entity_, [ this ]( const std::string & name, const Lum::Ptr< Lum::Entity > & child ) {
         childIs( name, child );
      } );
}

void
StateWatch::childIs( const std::string & name, const Lum::Ptr< Lum::Entity > & child ) {
   if ( child ) {
      children_[ name ] = Lum::make< StateWatch >( path_ + "/" + name, child, tell_ );
   } else {
      children_.erase( name );
   }
}

void
StateWatch::handleChange( const Lum::AnyChange & change ) {
   State::Change told = State::changeToJson( *entity_, change );
   if ( told.isChild ) {
      childIs( told.childName, told.child );
   }
   told.json[ "path" ] = path_;
   tell_( told.json );
}

}
