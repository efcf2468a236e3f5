// State in the words of a lab.

#include "tools/lab/LabOfState.h"

#include "platform/Lum/Dir.h"
#include "platform/Toggle/Toggle.h"
#include "tools/lab/LabPathsOfState.h"
#include "tools/lab/LabRecords.h"
#include "tools/lab/LabTopologyOfState.h"

#include <algorithm>

namespace Lab {

namespace {

using Cspf::IgpRouterId;
using Routing::Topology::ExportPath;
using Routing::Topology::TopoDb;

class StateWords {
 public:
   StateWords( const Corvdb::StateStore & state, const Zorch::TableStore & tables,
               const LabNames & names, Shown shown )
      : state_( state ),
        tables_( tables ),
        names_( names ),
        shown_( shown ) {}

   LabDocument words() {
      readConfiguration();
      readSystemIds();
      nameSelf();
      readTopologies();
      readInterfaces();
      readAdjacencies();
      readClients();
      readPaths( tables_, names_, document_ );
      return std::move( document_ );
   }

 private:
   template< class T >
   Lum::Ptr< T > entity( const std::string & path ) const {
      return Lum::cast< T >( state_.entity( path ) );
   }
   /// Calls `visit( name, entry )` for each entry of that type.
   template< class T, class Visit >
   void each( const std::string & directory, Visit && visit ) const {
      if ( const auto dir = entity< Lum::Dir >( directory ) ) {
         for ( const auto & [ name, entry ] : dir->entityColl() ) {
            if ( const auto one = Lum::cast< T >( entry ) ) {
               visit( name, *one );
            }
         }
      }
   }

   void readConfiguration();
   void readSystemIds();
   void nameSelf();
   Lum::Ptr< Routing::Isis::Hostnames > hostnames( const Vrf & vrf ) const;
   std::string hostnameOfSelf() const;
   static std::optional< LabTopology > isisTopology( const std::string & path );
   void readTopologies();
   void readTopology( const std::string & name, LabTopology topology );
   IgpRouterId selfIn( const LabTopology & topology, const TopoDb & table ) const;
   void readInterfaces();
   void readAdjacencies();
   void readClients();
   std::string freeName( std::string name ) const {
      while ( document_.topologies.contains( name ) ) {
         name += "'";
      }
      return name;
   }

   const Corvdb::StateStore & state_;
   const Zorch::TableStore & tables_;
   const LabNames & names_;
   const Shown shown_;
   LabDocument document_;
};

void
StateWords::readConfiguration() {
   if ( const auto te = entity< TrafficEngineering::Config >( "te/config" ) ) {
      document_.te = { te->enabled(), te->routerId() };
   }
   if ( const auto general =
           entity< Routing::General::Config >( "routing/general/config/global" ) ) {
      document_.routerIdV4 = general->routerIdV4();
   }
   document_.toggles.ospfTopoDbExport =
      Toggle::getToggleState( "OspfTopoDbExport", "gated.json", true );
   const auto set = entity< Cspf::CspfCliConfig >( "te/cspf/cliConfig" );
   const auto throttle = set ? set : Lum::make< Cspf::CspfCliConfig >();
   document_.throttle = { throttle->initialInt(), throttle->holdInt(), throttle->maxInt() };
}

void
StateWords::readSystemIds() {
   each< Mpls::SegmentRouting::Status >(
      "segmentrouting/isis", [ & ]( const auto & name, const auto & status ) {
         if ( status.systemId() && Vrf::isName( std::string( name ) ) ) {
            document_.segmentRouting.emplace( Vrf( std::string( name ) ), status.systemId() );
         }
      } );
}

void
StateWords::nameSelf() {
   const auto id = document_.te.routerId ? document_.te.routerId : document_.routerIdV4;
   const auto named = names_.find( "self" );
   const std::string hostname = named == names_.end() ? hostnameOfSelf() : named->second;
   document_.router = !hostname.empty() ? hostname : id ? id.stringValue() : "self";
}

Lum::Ptr< Routing::Isis::Hostnames >
StateWords::hostnames( const Vrf & vrf ) const {
   return Lum::cast< Routing::Isis::Hostnames >(
      tables_.table( "routing/isis/hostname/" + vrf.stringValue() ) );
}

/// What IS-IS calls the agent's own router; "" where it does not.
std::string
StateWords::hostnameOfSelf() const {
   for ( const std::string & path : tables_.list( "routing/isis/topodb" ) ) {
      const auto topology = isisTopology( path );
      const auto table = Lum::cast< TopoDb >( tables_.table( path ) );
      const auto names = topology ? hostnames( topology->vrf ) : nullptr;
      const IgpRouterId self = names && table ? selfIn( *topology, *table ) : IgpRouterId();
      if ( self && !names->hostname( self.isisSystemId() ).empty() ) {
         return names->hostname( self.isisSystemId() );
      }
   }
   return {};
}

/// The router's own table of an IS-IS level at that path; nothing where it is none.
std::optional< LabTopology >
StateWords::isisTopology( const std::string & path ) {
   const auto words = Corvdb::pathComponents( path );
   if ( words.size() != 6 || ( words[ 4 ] != "1" && words[ 4 ] != "2" ) ) {
      return std::nullopt;
   }
   LabTopology topology;
   topology.vrf = words[ 5 ];
   topology.af = words[ 3 ] == "ip6" ? Af::ipv6 : Af::ipv4;
   topology.id = words[ 4 ] == "1" ? Cspf::TopoId::isisL1() : Cspf::TopoId::isisL2();
   return topology;
}

/// The agent's own router there.
IgpRouterId
StateWords::selfIn( const LabTopology & topology, const TopoDb & table ) const {
   const auto identity = document_.segmentRouting.find( topology.vrf );
   if ( topology.id.igpSource() == Cspf::IgpSource::isis
        && identity != document_.segmentRouting.end()
        && table.routerColl().contains( IgpRouterId( identity->second ) ) ) {
      return IgpRouterId( identity->second );
   }
   const Kivnet::IpAddr own = document_.te.routerId ? document_.te.routerId : document_.routerIdV4;
   for ( const auto & id : Lum::sortedKeys( table.routerColl() ) ) {
      const auto & te = table.routerFind( id )->teRouterId();
      if ( own && te.af() == Af::ipv4 && te.v4() == own ) {
         return id;
      }
   }
   return {};
}

void
StateWords::readTopology( const std::string & name, LabTopology topology ) {
   const std::string path = tablePath( topology );
   const auto table = Lum::cast< TopoDb >( tables_.table( path ) );
   // A reader makes a table, and nobody may ever write it.
   if ( table && ( topology.exported || table->routers() > 0 || table->networks() > 0 ) ) {
      const auto igp = hostnames( topology.vrf );
      addTable(
         *table,
         { names_, path, selfIn( topology, *table ), document_.router, igp ? &*igp : nullptr },
         shown_, topology );
      document_.topologies.emplace( freeName( name ), std::move( topology ) );
   }
}

/// What is announced first: a table of the router's own that is announced as well is a second one
/// of the same id, of which a lab has one.
void
StateWords::readTopologies() {
   each< ExportPath >( "routing/topoDbExport", [ & ]( const auto & name, const auto & one ) {
      LabTopology topology;
      topology.vrf = one.vrfName();
      topology.af = one.af();
      topology.id = { one.igpSource(), one.number1(), one.number2() };
      topology.exported = true;
      topology.exportReady = one.initialized();
      readTopology( name, topology );
   } );
   for ( const std::string & path : tables_.list( "routing/isis/topodb" ) ) {
      const auto topology = isisTopology( path );
      const auto isThat = [ & ]( const auto & entry ) {
         return entry.second.vrf == topology->vrf && entry.second.af == topology->af
                && entry.second.id == topology->id;
      };
      if ( !topology || std::ranges::any_of( document_.topologies, isThat ) ) {
         continue;
      }
      const auto named = names_.find( "topology " + path );
      readTopology( named != names_.end()
                       ? named->second
                       : "isis-" + std::to_string( topology->id.number1() ) + "-"
                            + Kivnet::text( topology->af ) + "-" + topology->vrf.stringValue(),
                    *topology );
   }
}

void
StateWords::readInterfaces() {
   const auto te = entity< TrafficEngineering::Config >( "te/config" );
   const auto ports =
      entity< ::Interface::AllEthPhyIntfStatusDir >( "interface/status/eth/phy/all" );
   const auto aggregates = entity< ::Interface::EthLagIntfStatusDir >( "interface/status/eth/lag" );
   const auto add = [ & ]( const std::string & router, const Kivnet::IntfId & intf ) {
      if ( router != document_.router || !intf ) {
         return;
      }
      Srlgs & srlgs = document_.interfaces[ intf ];
      if ( te ) {
         const auto set = te->intfSrlg( intf.stringValue() );
         srlgs.assign( set.begin(), set.end() );
      }
      for ( const auto bandwidth : { ports ? ports->bandwidth( intf ) : 0,
                                     aggregates ? aggregates->bandwidth( intf ) : 0 } ) {
         if ( bandwidth > 0 && !document_.interfaceBandwidths.contains( intf ) ) {
            document_.interfaceBandwidths[ intf ] = { bandwidth,
                                                      !ports || ports->bandwidth( intf ) == 0 };
         }
      }
   };
   for ( const auto & [ name, topology ] : document_.topologies ) {
      for ( const auto & [ linkName, link ] : topology.links ) {
         add( link.a.router, link.a.intf );
         add( link.b.router, link.b.intf );
      }
      for ( const auto & [ lanName, lan ] : topology.lans ) {
         for ( const auto & [ router, member ] : lan.members ) {
            add( router, member.intf );
         }
      }
   }
}

/// The neighbours' ends as the adjacencies have them, where that is not what their addresses say.
class Nexthops {
 public:
   Nexthops( const LabAdjacencies & usual, const IsisExportImpl::IsisAdjacencyInfo * live )
      : usual_( usual ),
        live_( live ) {}

   void read( const Kivnet::IntfId & intf, const LabRouter & neighbor,
              LabNexthop & nexthop ) const {
      const IsisExportImpl::AdjacencyKey key{ intf, neighbor.id.isisSystemId() };
      const auto usual = usual_.find( key );
      if ( usual == usual_.end() ) {
         return;
      }
      const auto * live = live_ ? live_->adjacencyFind( key ) : nullptr;
      nexthop.adjacent = live != nullptr;
      if ( live && *live != usual->second ) {
         nexthop.given = Addresses();
         for ( const auto & address : { live->nexthopV4(), live->nexthopV6() } ) {
            if ( address ) {
               nexthop.given->push_back( address );
            }
         }
      }
   }

 private:
   const LabAdjacencies & usual_;
   const IsisExportImpl::IsisAdjacencyInfo * const live_;
};

void
readNexthops( const Nexthops & nexthops, const std::string & self, LabTopology & topology ) {
   for ( auto & [ name, link ] : topology.links ) {
      if ( link.a.router == self ) {
         nexthops.read( link.a.intf, topology.routers.at( link.b.router ), link.b.nexthop );
      }
      if ( link.b.router == self ) {
         nexthops.read( link.b.intf, topology.routers.at( link.a.router ), link.a.nexthop );
      }
   }
   for ( auto & [ name, lan ] : topology.lans ) {
      const auto own = lan.members.find( self );
      for ( auto & [ router, member ] : lan.members ) {
         if ( own != lan.members.end() && router != self ) {
            nexthops.read( own->second.intf, topology.routers.at( router ), member.nexthop );
         }
      }
   }
}

void
StateWords::readAdjacencies() {
   const auto usual = adjacenciesOf( document_ );
   for ( auto & [ name, topology ] : document_.topologies ) {
      if ( topology.id.igpSource() == Cspf::IgpSource::isis ) {
         const auto live = Lum::cast< IsisExportImpl::IsisAdjacencyInfo >(
            tables_.table( "routing/isis/adjacency/" + topology.vrf.stringValue() ) );
         readNexthops( { usual.at( topology.vrf ), live ? &*live : nullptr }, document_.router,
                       topology );
      }
   }
}

void
StateWords::readClients() {
   each< Cspf::Client >( "te/cspf/client", [ & ]( const auto & name, const auto & client ) {
      LabClient & words = document_.clients[ name ];
      for ( const auto & [ vrf, on ] : client.vrfColl() ) {
         words.vrf[ vrf ] = on;
      }
      for ( const auto & [ af, on ] : client.addressFamilyColl() ) {
         words.addressFamily[ af ] = on;
      }
      words.bwmRequired = client.bwmRequired();
   } );
}

}

LabDocument
documentOf( const Corvdb::StateStore & state, const Zorch::TableStore & tables,
            const LabNames & names, Shown shown ) {
   return StateWords( state, tables, names, shown ).words();
}

LabNames
namesOf( const LabDocument & document ) {
   LabNames names{ { "self", document.router } };
   for ( const auto & [ name, topology ] : document.topologies ) {
      const std::string table = tablePath( topology );
      names[ "topology " + table ] = name;
      for ( const auto & [ routerName, router ] : topology.routers ) {
         names[ routerNameKey( table, router.id ) ] = routerName;
      }
      for ( const auto & [ linkName, link ] : topology.links ) {
         const auto & a = topology.routers.at( link.a.router ).id;
         const auto & b = topology.routers.at( link.b.router ).id;
         names[ linkNameKey( table, a, b, link.a.addrs ) ] = linkName;
         names[ linkNameKey( table, b, a, link.b.addrs ) ] = linkName;
      }
      for ( const auto & [ lanName, lan ] : topology.lans ) {
         const auto & owner = topology.routers.at( lan.dr ).id;
         names[ lanNameKey( table, IgpRouterId( owner.pseudonode( lan.pseudonode ) ) ) ] = lanName;
      }
   }
   for ( const auto & [ table, asked ] : configsOf( document ) ) {
      for ( const auto & [ name, path ] : document.paths.at( table.client ) ) {
         if ( path.vrf == table.vrf && path.af == table.af ) {
            names[ pathNameKey( table.configPath(), { path.dst, path.id } ) ] = name;
         }
      }
   }
   return names;
}

}
