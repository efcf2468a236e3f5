// State by path, as JSON. Entities and tables live in two stores, and here in one name space; their
// paths do not meet.

#include "tools/service/StateView.h"

#include <array>
#include <string_view>

namespace Service {

namespace {

struct TableKind {
   std::string_view prefix;
   const char * typeName;
};

/// Tables that processes other than the agent write. A path of another kind is not made by a patch.
constexpr std::array tableKinds = {
   TableKind{ "te/cspf/config/vrf/", "Cspf::Config" },
   TableKind{ "routing/isis/topodb/", "Routing::Topology::TopoDb" },
   TableKind{ "routing/ospf/topodb/", "Routing::Topology::TopoDb" },
   TableKind{ "routing/isis/adjacency/", "IsisExportImpl::IsisAdjacencyInfo" },
   TableKind{ "te/bwm/client/input/vrf/", "TrafficEngineering::BandwidthClientUsage" },
};

/// What the agent publishes; nobody else writes there.
constexpr std::array< std::string_view, 10 > agentsOwn = {
   "te/cspf/status/",
   "te/cspf/intfIpToRouterId/",
   "te/cspf/constraintStatus/",
   "te/cspf/bwUsage/",
   "te/cspf/agentStatus",
   "te/bwm/activeStatus",
   "te/bwm/client/status/",
   "te/bwm/status/",
   "routing/export/topodb/client",
   "routing6/export/topodb/client",
};

Json
typed( const Lum::Entity & entity ) {
   return { { "type", entity.typeName() }, { "value", State::toJson( entity ) } };
}

}

Lum::Ptr< Lum::Entity >
StateView::find( const std::string & path ) const {
   const auto table = tables_.table( path );
   return table ? table : state_.entity( path );
}

Json
StateView::get( const std::string & path ) const {
   if ( const auto entity = find( path ) ) {
      if ( !path.empty() ) {
         return typed( *entity );
      }
   }
   Json below = Json::object();
   for ( const std::string & table : tables_.list( path ) ) {
      below[ table ] = typed( *tables_.table( table ) );
   }
   if ( path.empty() ) {
      below[ "/" ] = typed( *state_.root() );
   }
   if ( below.empty() ) {
      throw RequestError( "nothing at \"" + path + "\"" );
   }
   return below;
}

Lum::Ptr< Lum::Entity >
StateView::findOrMake( const std::string & path ) {
   if ( auto entity = find( path ) ) {
      return entity;
   }
   for ( const TableKind & kind : tableKinds ) {
      if ( path.starts_with( kind.prefix ) ) {
         return tables_.alwaysIs( path, kind.typeName );
      }
   }
   throw RequestError( "nothing at \"" + path
                       + "\", and no kind of table that is made there; an entry "
                         "of a directory is made by a patch of the directory" );
}

void
StateView::patch( const std::string & path, const Json & patch ) {
   for ( const std::string_view own : agentsOwn ) {
      if ( path.starts_with( own ) ) {
         throw RequestError( "\"" + path + "\" is written by the agent alone" );
      }
   }
   State::merge( *findOrMake( path ), patch );
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
