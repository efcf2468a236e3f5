// Documents that patch state. The patches are merged into what the other keys say anew each time,
// so that an event which changes either changes what comes of both.

#include "tools/lab/LabPatchedState.h"

#include <algorithm>
#include <array>

namespace Lab {

namespace {

using Routing::Topology::TopoDb;

/// In which order things come.
int
rankOf( const std::string & path ) {
   static const std::array< std::string_view, 4 > late{
      "routing/topoDbExport/", "routing/isis/adjacency/", "te/cspf/client/", "te/cspf/config/" };
   const auto at = std::ranges::find_if(
      late, [ & ]( std::string_view prefix ) { return path.starts_with( prefix ); } );
   return at != late.end() ? static_cast< int >( at - late.begin() ) + 2
                           : path.find( "/topodb/" ) != path.npos;
}

void
goneIs( Corvdb::StateStore & state, Zorch::TableStore & tables, const std::string & path ) {
   if ( const auto topology = Lum::cast< TopoDb >( tables.table( path ) ) ) {
      writeTable( *topology, {} );
   }
   if ( const auto * const kind = State::anyKind( path ) ) {  // else it is one that nobody patches
      State::stateDel( state, tables, path, *kind );
   }
}

/// A table of an IGP is written router by router first; what it holds that no IGP writes follows.
void
broughtIs( Corvdb::StateStore & state, Zorch::TableStore & tables, const std::string & path,
           const State::PathKind & kind, const State::Json & value ) {
   if ( std::string_view( kind.typeName ) == TopoDb::lumTypeName ) {
      const auto wanted = Lum::make< TopoDb >();
      State::merge( *wanted, value );
      const auto live = Lum::cast< TopoDb >( tables.alwaysIs( path, kind.typeName ) );
      const LabTable rows = LabTable::of( *wanted );
      writeTable( *live, rows );
      if ( LabTable::of( *live ) == rows ) {
         return;
      }
   }
   State::stateIs( state, tables, path, kind, value );
}

/// Takes entries out of which the patch gives but a part, and which the words do not have.
void
dropParts( Lum::Entity & entity, const State::Json & words, const State::Json & patch ) {
   const State::Json merged = State::toJson( entity );
   State::Json drop = State::Json::object();
   for ( const auto & [ collection, entries ] : patch.items() ) {
      if ( !entries.is_object() ) {
         continue;
      }
      for ( const auto & [ key, entry ] : entries.items() ) {
         if ( !words[ collection ].contains( key ) && entry.is_object()
              && merged[ collection ].contains( key )
              && entry.size() < merged[ collection ][ key ].size() ) {
            drop[ collection ][ key ] = nullptr;
         }
      }
   }
   State::merge( entity, drop );
}

}

LabPatchedState::LabPatchedState( const Corvdb::TypeRegistry & types,
                                  std::set< std::string > standing )
   : state_( types ),
     tables_( types ),
     standing_( std::move( standing ) ) {}

LabPatchedState::AllWanted
LabPatchedState::wanted( const LabDocument & document ) const {
   AllWanted all;
   State::forEachState( state_, tables_,
                        [ & ]( const auto & path, const auto & kind, const auto & entity ) {
                           all[ path ] = { &kind, State::toJson( entity ) };
                        } );
   patch( document.state, all );
   return all;
}

void
LabPatchedState::patch( const LabStateTexts & patches, AllWanted & all ) {
   for ( const auto & [ path, text ] : patches ) {
      if ( text.type.empty() ) {
         all.erase( path );
         continue;
      }
      const auto entity = State::makeEntity( text.type );
      const auto words = all.find( path );
      const State::Json before =
         words == all.end() ? State::toJson( *entity ) : words->second.value;
      const State::Json patch = State::Json::parse( text.value );
      State::merge( *entity, before );
      State::merge( *entity, patch );
      if ( State::pathKind( State::tablePaths(), path ) ) {
         dropParts( *entity, before, patch );
      }
      all[ path ] = { State::anyKind( path ), State::toJson( *entity ) };
   }
}

void
LabPatchedState::write( const LabDocument & document, Corvdb::StateStore & state,
                        Zorch::TableStore & tables ) {
   words_.writeWords( document );
   AllWanted all = wanted( document );
   std::vector< std::string > gone, come;
   for ( const auto & path : standing_ ) {
      if ( !all.contains( path ) ) {
         gone.push_back( path );
      }
   }
   standing_.clear();
   for ( const auto & [ path, one ] : all ) {
      come.push_back( path );
      standing_.insert( path );
   }
   std::ranges::stable_sort( gone, std::greater(), rankOf );
   std::ranges::stable_sort( come, {}, rankOf );
   for ( const auto & path : gone ) {
      goneIs( state, tables, path );
   }
   for ( const auto & path : come ) {
      broughtIs( state, tables, path, *all.at( path ).kind, all.at( path ).value );
   }
}

}
