// All state of a process, path by path.

#include "tools/state/StateWalk.h"

#include "platform/Lum/Dir.h"

#include <algorithm>

namespace State {

namespace {

bool
isTable( const PathKind & kind ) {
   return std::ranges::any_of(
      tablePaths(), [ & ]( const PathKind & one ) { return one.pattern == kind.pattern; } );
}

void
visitDirectory( const Lum::Dir & dir, const std::string & prefix, const StateVisit & visit ) {
   for ( const auto & name : Lum::sortedKeys( dir.entityColl() ) ) {
      const std::string path = prefix + name;
      const auto entry = dir.entity( name );
      if ( const auto below = Lum::cast< Lum::Dir >( entry ) ) {
         visitDirectory( *below, path + "/", visit );
      } else if ( const PathKind * kind = entry ? pathKind( entityPaths(), path ) : nullptr;
                  kind && std::string_view( kind->typeName ) == entry->typeName() ) {
         visit( path, *kind, *entry );
      }
   }
}

/// A new one is complete before others see it.
void
entityIs( Corvdb::StateStore & state, const std::string & path, const PathKind & kind,
          const Json & value ) {
   if ( const auto present = state.entity( path ) ) {
      merge( *present, patchBetween( toJson( *present ), value ) );
      return;
   }
   const auto made = makeEntity( kind.typeName );
   merge( *made, value );
   const auto slash = path.rfind( '/' );
   const auto dir = Lum::cast< Lum::Dir >(
      slash == path.npos ? state.root() : state.entityIs( path.substr( 0, slash ), "Lum::Dir" ) );
   dir->entityIs( path.substr( slash + 1 ), made );
}

}

void
forEachState( const Corvdb::StateStore & state, const Zorch::TableStore & tables,
              const StateVisit & visit ) {
   visitDirectory( *state.root(), "", visit );
   for ( const std::string & path : tables.list( "" ) ) {
      const auto table = tables.table( path );
      const PathKind * kind = pathKind( tablePaths(), path );
      if ( kind && std::string_view( kind->typeName ) == table->typeName() ) {
         visit( path, *kind, *table );
      }
   }
}

bool
saysNothing( const Lum::Entity & entity ) {
   return toJson( entity ) == toJson( *makeEntity( entity.typeName() ) );
}

Json
patchBetween( const Json & from, const Json & to ) {
   if ( !from.is_object() || !to.is_object() ) {
      return to;
   }
   Json patch = Json::object();
   for ( const auto & [ name, value ] : from.items() ) {
      if ( !to.contains( name ) ) {
         patch[ name ] = nullptr;
      } else if ( to[ name ] != value ) {
         patch[ name ] = patchBetween( value, to[ name ] );
      }
   }
   for ( const auto & [ name, value ] : to.items() ) {
      if ( !from.contains( name ) ) {
         patch[ name ] = value;
      }
   }
   return patch;
}

void
stateIs( Corvdb::StateStore & state, Zorch::TableStore & tables, const std::string & path,
         const PathKind & kind, const Json & value ) {
   if ( !isTable( kind ) ) {
      entityIs( state, path, kind, value );
      return;
   }
   const auto table = tables.alwaysIs( path, kind.typeName );
   merge( *table, patchBetween( toJson( *table ), value ) );
}

void
stateDel( Corvdb::StateStore & state, Zorch::TableStore & tables, const std::string & path,
          const PathKind & kind ) {
   if ( tables.table( path ) || kind.isOne ) {
      stateIs( state, tables, path, kind, toJson( *makeEntity( kind.typeName ) ) );
   } else {
      state.entityDel( path );
   }
}

const PathKind *
anyKind( std::string_view path ) {
   const PathKind * kind = pathKind( entityPaths(), path );
   return kind ? kind : pathKind( tablePaths(), path );
}

}
