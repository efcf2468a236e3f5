// A table is written row by row: those of `standing_` that differ. Patches are kept to pieces that
// one frame of the control socket carries, however large the network.

#include "tools/igpfeed/FeedState.h"

#include "tools/igp/TopologyTable.h"
#include "tools/state/JsonText.h"
#include "tools/state/StateTypes.h"

#include <algorithm>

namespace IgpFeed {

namespace {

using namespace Routing::Topology;
using Cspf::IgpRouterId;
using Kivnet::AddressFamily;

constexpr const char * announcements = "routing/topoDbExport";
constexpr const char * systemIdentities = "segmentrouting/isis";
constexpr std::size_t rowsInPatch = 500;

std::string
adjacencyPath( const Vrf & vrf ) {
   return "routing/isis/adjacency/" + vrf.stringValue();
}

std::string
hostnamePath( const Vrf & vrf ) {
   return "routing/isis/hostname/" + vrf.stringValue();
}

/// Patches of one table, each of a limited number of rows.
class TablePatches {
 public:
   /// Rows of `after` that `before` has not, and the keys of those that are gone.
   template< class Rows, class Set >
   void add( const char * collection, const Rows & before, const Rows & after, Set set ) {
      for ( const auto & [ key, row ] : before ) {
         if ( !after.contains( key ) ) {
            gone_[ collection ][ State::toText( key ) ] = nullptr;
            count();
         }
      }
      for ( const auto & [ key, row ] : after ) {
         const auto at = before.find( key );
         if ( at == before.end() || at->second != row ) {
            set( *rows_, key, row );
            count();
         }
      }
   }
   std::vector< Json > take() {
      flush();
      return std::move( patches_ );
   }

 private:
   void count() {
      if ( ++rowCount_ == rowsInPatch ) {
         flush();
      }
   }
   void flush() {
      if ( rowCount_ == 0 ) {
         return;
      }
      Json patch = State::toJson( *rows_ );
      for ( const auto & [ collection, keys ] : gone_.items() ) {
         patch[ collection ].update( keys );
      }
      patches_.push_back( std::move( patch ) );
      rows_ = Lum::make< TopoDb >();
      gone_ = Json::object();
      rowCount_ = 0;
   }

   Lum::Ptr< TopoDb > rows_ = Lum::make< TopoDb >();
   Json gone_ = Json::object();
   std::size_t rowCount_ = 0;
   std::vector< Json > patches_;
};

std::vector< Json >
patchesOf( const Lab::LabTable & before, const Lab::LabTable & after ) {
   TablePatches patches;
   patches.add(
      "router", before.router, after.router,
      []( TopoDb & rows, const auto & key, const auto & row ) { rows.routerIs( key, row ); } );
   patches.add(
      "neighbor", before.neighbor, after.neighbor,
      []( TopoDb & rows, const auto & key, const auto & row ) { rows.neighborIs( key, row ); } );
   patches.add(
      "network", before.network, after.network,
      []( TopoDb & rows, const auto & key, const auto & row ) { rows.networkIs( key, row ); } );
   patches.add( "reachability", before.reachability, after.reachability,
                []( TopoDb & rows, const auto & key, const auto & row ) {
                   rows.reachabilityIs( key, row );
                } );
   return patches.take();
}

template< class T >
Lum::Ptr< T >
entityOf( const Json & fields ) {
   auto entity = Lum::make< T >();
   State::merge( *entity, fields );
   return entity;
}

/// Own links to LANs that list the router.
std::size_t
lansOf( const Lab::LabTable & table, const IgpRouterId & self ) {
   return static_cast< std::size_t >(
      std::ranges::count_if( table.neighbor, [ & ]( const auto & entry ) {
         const NeighborKey & key = entry.first;
         const auto network = table.network.find( { key.neighborId() } );
         return key.routerId() == self && key.neighborType() == lan()
                && network != table.network.end() && network->second.routerHas( self );
      } ) );
}

bool
tableComesUpTo( const Lab::LabTable & after, const Lab::LabTable & before,
                const IgpRouterId & self ) {
   const bool allRouters = std::ranges::all_of(
      before.router, [ & ]( const auto & entry ) { return after.router.contains( entry.first ); } );
   const bool ownLinks = std::ranges::all_of( before.neighbor, [ & ]( const auto & entry ) {
      const NeighborKey & key = entry.first;
      const bool own =
         key.neighborType() == p2p() && ( key.routerId() == self || key.neighborId() == self );
      return !own || after.neighbor.contains( key );
   } );
   return allRouters && ownLinks && lansOf( after, self ) >= lansOf( before, self );
}

/// Whether each table of `before` is there and `holds( it, as it was, the daemon's own router )`.
template< class Holds >
bool
everyTable( const FeedContent & after, const FeedContent & before, const Selves & selves,
            Holds holds ) {
   return std::ranges::all_of( before.tables, [ & ]( const auto & entry ) {
      const auto there = after.tables.find( entry.first );
      const auto self = selves.find( entry.first );
      return there != after.tables.end()
             && holds( there->second, entry.second,
                       self == selves.end() ? IgpRouterId() : self->second );
   } );
}

}

std::string
TableId::path() const {
   return "routing/" + Lum::enumName( topoId.igpSource() ) + "/topodb/"
          + ( af == AddressFamily::ipv4 ? "ip/" : "ip6/" ) + std::to_string( topoId.number1() )
          + "/" + std::to_string( topoId.number2() ) + "/" + vrf.stringValue();
}

std::string
TableId::name() const {
   return "igpfeed-" + Lum::enumName( topoId.igpSource() ) + "-"
          + std::to_string( topoId.number1() ) + "-" + std::to_string( topoId.number2() ) + "-"
          + Kivnet::text( af ) + "-" + vrf.stringValue();
}

FeedContent
FeedContent::of( const Reading & reading ) {
   FeedContent content;
   for ( const Igp::Topology & topology : reading.topologies ) {
      content.tables[ { topology.id, topology.af, topology.vrf } ] = Igp::tableOf( topology );
   }
   content.adjacencies = reading.adjacencies;
   content.systemIds = reading.systemIds;
   content.hostnames = reading.hostnames;
   return content;
}

bool
comesUpTo( const FeedContent & after, const FeedContent & before, const Selves & selves ) {
   return everyTable( after, before, selves, tableComesUpTo );
}

bool
isConnected( const FeedContent & after, const FeedContent & before, const Selves & selves ) {
   return everyTable( after, before, selves, []( const auto & table, const auto &, auto & self ) {
      return lansOf( table, self ) > 0
             || std::ranges::any_of( table.neighbor, [ & ]( const auto & entry ) {
                   const NeighborKey & key = entry.first;
                   const auto back =
                      table.neighbor.lower_bound( { key.neighborId(), p2p(), key.routerId(), 0 } );
                   return key.routerId() == self && back != table.neighbor.end()
                          && back->first.routerId() == key.neighborId()
                          && back->first.neighborId() == self;
                } );
   } );
}

FeedState::FeedState( StateAccess & access, Cspf::IgpSource igp ) : access_( access ), igp_( igp ) {
   const std::string prefix = "igpfeed-" + Lum::enumName( igp ) + "-";
   const Json entries = access_.entity( announcements ).at( "entity" );
   for ( const auto & [ name, entry ] : entries.items() ) {
      if ( !name.starts_with( prefix ) ) {
         continue;
      }
      const auto announced = entityOf< ExportPath >( entry.at( "value" ) );
      const TableId id{ { announced->igpSource(), announced->number1(), announced->number2() },
                        announced->af(),
                        announced->vrfName() };
      if ( id.name() == name ) {
         takeOver( id );
      }
   }
}

void
FeedState::takeOver( const TableId & id ) {
   standing_.tables[ id ] = Lab::LabTable::of( *entityOf< TopoDb >( access_.table( id.path() ) ) );
   takeOverIsis( id.vrf );
}

void
FeedState::takeOverIsis( const Vrf & vrf ) {
   if ( igp_ != Cspf::IgpSource::isis || standing_.adjacencies.contains( vrf ) ) {
      return;
   }
   const auto info =
      entityOf< IsisExportImpl::IsisAdjacencyInfo >( access_.table( adjacencyPath( vrf ) ) );
   auto & adjacencies = standing_.adjacencies[ vrf ];
   for ( const auto & [ key, adjacency ] : info->adjacencyColl() ) {
      adjacencies[ key ] = adjacency;
   }
   const auto named = entityOf< Routing::Isis::Hostnames >( access_.table( hostnamePath( vrf ) ) );
   for ( const auto & [ id, name ] : named->hostnameColl() ) {
      standing_.hostnames[ vrf ][ id ] = name;
   }
   const Json identities = access_.entity( systemIdentities ).at( "entity" );
   if ( const auto at = identities.find( vrf.stringValue() ); at != identities.end() ) {
      standing_.systemIds[ vrf ] =
         entityOf< Mpls::SegmentRouting::Status >( at->at( "value" ) )->systemId();
   }
}

/// Adjacencies and identities go before the topology they are of where it goes, and come before
/// it, so that no run sees the one without the other.
void
FeedState::write( const FeedContent & wanted ) {
   const auto standing = standing_;
   for ( const auto & [ id, table ] : standing.tables ) {
      if ( !wanted.tables.contains( id ) ) {
         announce( id, false );
         writeTable( id, {} );
         standing_.tables.erase( id );
      }
   }
   for ( const auto & [ vrf, adjacencies ] : standing.adjacencies ) {
      if ( !wanted.adjacencies.contains( vrf ) ) {
         writeAdjacencies( vrf, {} );
         writeSystemId( vrf, {} );
         writeHostnames( vrf, {} );
         standing_.adjacencies.erase( vrf );
      }
   }
   for ( const auto & [ vrf, adjacencies ] : wanted.adjacencies ) {
      takeOverIsis( vrf );
      const auto id = wanted.systemIds.find( vrf );
      writeSystemId( vrf, id == wanted.systemIds.end() ? Routing::Isis::SystemId() : id->second );
      writeAdjacencies( vrf, adjacencies );
      const auto names = wanted.hostnames.find( vrf );
      writeHostnames( vrf, names == wanted.hostnames.end() ? Hostnames() : names->second );
   }
   for ( const auto & [ id, table ] : wanted.tables ) {
      const bool fresh = !standing_.tables.contains( id );
      if ( fresh ) {
         takeOver( id );
      }
      writeTable( id, table );
      if ( fresh ) {
         announce( id, true );
      }
   }
}

void
FeedState::writeTable( const TableId & id, const Lab::LabTable & wanted ) {
   Lab::LabTable & standing = standing_.tables[ id ];
   for ( const Json & patch : patchesOf( standing, wanted ) ) {
      access_.patch( id.path(), patch );
   }
   standing = wanted;
}

void
FeedState::announce( const TableId & id, bool announced ) {
   Json entry;
   if ( announced ) {
      entry = { { "igpSource", Lum::enumName( id.topoId.igpSource() ) },
                { "number1", id.topoId.number1() },
                { "number2", id.topoId.number2() },
                { "vrfName", id.vrf.stringValue() },
                { "af", Kivnet::text( id.af ) },
                { "initialized", true } };
      entry = { { "type", ExportPath::lumTypeName }, { "value", std::move( entry ) } };
   }
   access_.patch( announcements, { { "entity", { { id.name(), std::move( entry ) } } } } );
}

void
FeedState::writeAdjacencies( const Vrf & vrf, const Igp::IsisAdjacencies & wanted ) {
   auto & standing = standing_.adjacencies[ vrf ];
   if ( standing == wanted ) {
      return;
   }
   const auto info = Lum::make< IsisExportImpl::IsisAdjacencyInfo >();
   for ( const auto & [ key, adjacency ] : wanted ) {
      info->adjacencyIs( key, adjacency );
   }
   access_.patch( adjacencyPath( vrf ), State::toJson( *info ) );
   standing = wanted;
}

void
FeedState::writeHostnames( const Vrf & vrf, const Hostnames & wanted ) {
   const auto standing = standing_.hostnames.find( vrf );
   Json patch = Json::object();
   if ( standing != standing_.hostnames.end() ) {
      for ( const auto & [ id, name ] : standing->second ) {
         patch[ id.stringValue() ] = nullptr;
      }
   }
   for ( const auto & [ id, name ] : wanted ) {
      patch[ id.stringValue() ] = name;
   }
   if ( ( standing == standing_.hostnames.end() ? Hostnames() : standing->second ) != wanted ) {
      access_.patch( hostnamePath( vrf ), { { "hostname", std::move( patch ) } } );
   }
   standing_.hostnames.erase( vrf );
   if ( !wanted.empty() ) {
      standing_.hostnames[ vrf ] = wanted;
   }
}

void
FeedState::writeSystemId( const Vrf & vrf, const Routing::Isis::SystemId & wanted ) {
   const auto at = standing_.systemIds.find( vrf );
   if ( ( at == standing_.systemIds.end() ? Routing::Isis::SystemId() : at->second ) == wanted ) {
      return;
   }
   Json entry;
   if ( wanted ) {
      entry = { { "type", Mpls::SegmentRouting::Status::lumTypeName },
                { "value", { { "systemId", wanted.stringValue() } } } };
   }
   access_.patch( systemIdentities,
                  { { "entity", { { vrf.stringValue(), std::move( entry ) } } } } );
   standing_.systemIds[ vrf ] = wanted;
}

}
