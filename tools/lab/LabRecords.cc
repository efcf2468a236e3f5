// From the words of a lab to the records of state. Each IGP, the configuration and each client has
// its part here; names of routers, links and topologies become ids, and a link becomes the two
// entries that its ends advertise.

#include "tools/lab/LabRecords.h"

#include "tools/pace/Job.h"

namespace Lab {

using namespace Routing::Topology;

namespace {

void
attributesIs( Neighbor & neighbor, const LabLinkAttributes & attributes ) {
   neighbor.adminGroupIs( attributes.adminGroup );
   neighbor.metricIs( attributes.metric );
   neighbor.teMetricIs( attributes.teMetric );
   neighbor.maxLinkBandwidthIs( attributes.bandwidth );
   neighbor.unreservedBandwidthIs( attributes.unreserved );
   for ( const auto srlg : attributes.srlg ) {
      neighbor.srlg_.push( srlg );
   }
}

Neighbor
linkOf( const LabTopology & topology, const LabLinkEnd & near, const LabLinkEnd & far,
        const LabLinkAttributes & attributes, std::uint32_t linkId ) {
   Neighbor neighbor;
   neighbor.keyIs( { topology.routers.at( near.router ).id, NeighborType::p2p,
                     topology.routers.at( far.router ).id, linkId } );
   neighbor.intfIdIs( near.intf );
   for ( const auto & address : near.addrs ) {
      neighbor.interfaceAddr_.push( address );
   }
   for ( const auto & address : far.addrs ) {
      neighbor.neighborAddr_.push( address );
   }
   attributesIs( neighbor, attributes );
   return neighbor;
}

void
addLan( LabTable & table, const LabTopology & topology, const LabLan & lan ) {
   Network network;
   network.networkIdIs(
      { Cspf::IgpRouterId( topology.routers.at( lan.dr ).id.pseudonode( lan.pseudonode ) ) } );
   for ( const auto & [ name, member ] : lan.members ) {
      const auto & routerId = topology.routers.at( name ).id;
      Neighbor neighbor;
      neighbor.keyIs( { routerId, NeighborType::lan, network.networkId().id(),
                        member.attributes.id.value_or( 0 ) } );
      neighbor.intfIdIs( member.intf );
      for ( const auto & address : member.addrs ) {
         neighbor.interfaceAddr_.push( address );
      }
      attributesIs( neighbor, member.attributes );
      table.linkIs( neighbor );
      if ( member.attached ) {
         network.routerIs( routerId );
      }
   }
   table.network[ network.networkId() ] = network;
}

std::string
familyWord( Af af ) {
   return af == Af::ipv4 ? "ip" : "ip6";
}

void
adjacencyIs( LabAdjacencies & adjacencies, const Kivnet::IntfId & intf, const LabRouter & neighbor,
             const Addresses & addresses, const LabNexthop & by ) {
   if ( !intf || !by.adjacent ) {
      return;
   }
   auto & adjacency = adjacencies[ { intf, neighbor.id.isisSystemId() } ];
   for ( const auto & address : by.given ? *by.given : addresses ) {
      auto & nexthop = address.af() == Af::ipv4 ? adjacency.nexthopV4_ : adjacency.nexthopV6_;
      if ( !nexthop ) {
         nexthop = address;
      }
   }
}

void
addAdjacencies( LabAdjacencies & adjacencies, const LabTopology & topology,
                const std::string & self ) {
   for ( const auto & [ name, link ] : topology.links ) {
      if ( !link.ab.advertised || !link.ba.advertised ) {
         continue;
      }
      if ( link.a.router == self ) {
         adjacencyIs( adjacencies, link.a.intf, topology.routers.at( link.b.router ), link.b.addrs,
                      link.b.nexthop );
      }
      if ( link.b.router == self ) {
         adjacencyIs( adjacencies, link.b.intf, topology.routers.at( link.a.router ), link.a.addrs,
                      link.a.nexthop );
      }
   }
   for ( const auto & [ name, lan ] : topology.lans ) {
      const auto own = lan.members.find( self );
      if ( own == lan.members.end() || !own->second.attached ) {
         continue;
      }
      for ( const auto & [ router, member ] : lan.members ) {
         if ( router != self && member.attached ) {
            adjacencyIs( adjacencies, own->second.intf, topology.routers.at( router ), member.addrs,
                         member.nexthop );
         }
      }
   }
}

/// The node of that name as the client's computations know it: by TE router id, for repair paths by
/// its IS-IS identity.
Cspf::NodeId
nodeOf( const LabDocument & document, const LabPath & path, const std::string & name, bool tilfa ) {
   Cspf::NodeId node;
   for ( const auto & [ topologyName, topology ] : document.topologies ) {
      const auto router = topology.routers.find( name );
      if ( topology.vrf != path.vrf || topology.af != path.af
           || router == topology.routers.end() ) {
         continue;
      }
      if ( tilfa && topology.id.igpSource() == Cspf::IgpSource::isis ) {
         return Cspf::NodeId( router->second.id );
      }
      if ( !tilfa && router->second.teRouterId ) {
         return Cspf::NodeId( router->second.teRouterId );
      }
      node = Cspf::NodeId( router->second.id );
   }
   return node;
}

/// An end of a point-to-point link of the document's router, and the router at the other one.
struct OwnEnd {
   const LabLinkEnd * near = nullptr;
   const LabRouter * neighbor = nullptr;
};
using OwnEnds = std::map< std::tuple< Vrf, Af, Kivnet::IntfId >, OwnEnd >;

/// Of several with one interface the first, by topology and link name. Advertised or not.
OwnEnds
ownEndsOf( const LabDocument & document ) {
   OwnEnds ends;
   for ( const auto & [ topologyName, topology ] : document.topologies ) {
      const auto add = [ &, &topology = topology ]( const LabLinkEnd & near,
                                                    const LabLinkEnd & far ) {
         if ( near.router == document.router ) {
            ends.try_emplace( { topology.vrf, topology.af, near.intf },
                              OwnEnd{ &near, &topology.routers.at( far.router ) } );
         }
      };
      for ( const auto & [ linkName, link ] : topology.links ) {
         add( link.a, link.b );
         add( link.b, link.a );
      }
   }
   return ends;
}

void
neighborIs( Cspf::PathConstraint & constraint, const OwnEnds & ownEnds, const LabPath & path ) {
   if ( path.constraint.neighborLink && path.constraint.neighbor ) {
      return;
   }
   const Kivnet::IntfId intf =
      constraint.excludeIntf() ? constraint.excludeIntf() : constraint.excludeNode().nexthopIntf();
   const auto at = ownEnds.find( { path.vrf, path.af, intf } );
   if ( at == ownEnds.end() ) {
      return;
   }
   const auto & [ near, neighbor ] = at->second;
   if ( !path.constraint.neighborLink && !near->addrs.empty() ) {
      constraint.neighborLinkIs( near->addrs.front() );
   }
   if ( !path.constraint.neighbor ) {
      constraint.neighborIs( neighbor->teRouterId );
   }
}

Cspf::PathConstraint
constraintOf( const LabDocument & document, const OwnEnds & ownEnds, const LabPath & path,
              bool tilfa ) {
   const LabConstraint & asked = path.constraint;
   Cspf::PathConstraint constraint;
   constraint.excludeIntfIs( asked.excludeIntf );
   if ( asked.excludeNode ) {
      constraint.excludeNodeIs( { nodeOf( document, path, asked.excludeNode->node, tilfa ),
                                  asked.excludeNode->nexthopIntf } );
   }
   constraint.excludeSrlgIs( asked.excludeSrlg );
   constraint.includeAllAdminGroupIs( asked.includeAllAdminGroup );
   constraint.includeAnyAdminGroupIs( asked.includeAnyAdminGroup );
   constraint.excludeAdminGroupIs( asked.excludeAdminGroup );
   if ( asked.topoId ) {
      constraint.topoIdIs( document.topologies.at( *asked.topoId ).id );
   }
   constraint.srlgStrictModeIs( asked.srlgStrictMode );
   constraint.srlgExcludeOnlyLocalLinksIs( asked.srlgExcludeOnlyLocalLinks );
   constraint.bandwidthIs( asked.bandwidth );
   constraint.bwSetupPriorityIs( asked.bwSetupPriority );
   constraint.sharedBwGroupIdIs( asked.sharedBwGroupId );
   for ( const auto & address : asked.excludeLinkWithIp ) {
      constraint.excludeLinkWithIp_.push( address );
   }
   for ( const auto & hop : asked.includeHop ) {
      constraint.includeHop_.push( { hop.addr, hop.loose } );
   }
   constraint.includeHopAllExplicitIs( asked.includeHopAllExplicit );
   constraint.reversePathIs( asked.reversePath );
   constraint.pathComputationTypeIs( asked.pathComputationType.value_or(
      tilfa ? Cspf::PathComputationType::tilfa : Cspf::PathComputationType::cspf ) );
   constraint.sourceTypeIs( asked.sourceType.value_or( Cspf::CspfSourceType::plr ) );
   constraint.neighborLinkIs( asked.neighborLink.value_or( Kivnet::IpGenAddr() ) );
   constraint.neighborIs( asked.neighbor.value_or( Kivnet::IpGenAddr() ) );
   constraint.neighborSystemIdIs( asked.neighborSystemId );
   constraint.maxRepairNodesIs( asked.maxRepairNodes );
   constraint.fallBackToLinkIs( asked.fallBackToLink );
   constraint.noSpfIs( asked.noSpf );
   if ( tilfa ) {
      neighborIs( constraint, ownEnds, path );
   }
   return constraint;
}

}

bool
LabLinkIds::givenBy( const LabTopology & topology ) {
   const std::size_t before = given_.size();
   const auto add = [ & ]( const LabLinkAttributes & attributes ) {
      if ( attributes.id ) {
         given_.insert( *attributes.id );
      }
   };
   for ( const auto & [ name, link ] : topology.links ) {
      add( link.ab.attributes );
      add( link.ba.attributes );
   }
   return given_.size() > before;
}

LabTable
tableOf( const std::string & name, const LabTopology & topology, LabLinkIds & linkIds ) {
   LabTable table;
   for ( const auto & [ routerName, router ] : topology.routers ) {
      Pace::breathe();
      table.router[ router.id ] = { router.id, router.teRouterId, router.overload, {} };
      if ( !router.prefixes.empty() ) {
         auto & reachability = table.reachability[ router.id ];
         reachability.routerIdIs( router.id );
         for ( const auto & [ prefix, metric ] : router.prefixes ) {
            reachability.prefixIs( { prefix, metric } );
         }
      }
   }
   for ( const auto & [ linkName, link ] : topology.links ) {
      Pace::breathe();
      const auto & forth = link.ab.attributes.id;
      const auto & back = link.ba.attributes.id;
      const std::uint32_t id = forth && back ? 0 : linkIds.id( name, linkName );
      if ( link.ab.advertised ) {
         table.linkIs(
            linkOf( topology, link.a, link.b, link.ab.attributes, forth.value_or( id ) ) );
      }
      if ( link.ba.advertised ) {
         table.linkIs(
            linkOf( topology, link.b, link.a, link.ba.attributes, back.value_or( id ) ) );
      }
   }
   for ( const auto & [ lanName, lan ] : topology.lans ) {
      addLan( table, topology, lan );
   }
   return table;
}

std::map< Vrf, LabHostnames >
hostnamesOf( const LabDocument & document ) {
   std::map< Vrf, LabHostnames > hostnames;
   for ( const auto & [ topologyName, topology ] : document.topologies ) {
      if ( topology.id.igpSource() != Cspf::IgpSource::isis ) {
         continue;
      }
      auto & names = hostnames[ topology.vrf ];
      for ( const auto & [ name, router ] : topology.routers ) {
         names.emplace( router.id.isisSystemId(), name );
      }
   }
   return hostnames;
}

std::string
tablePath( const LabTopology & topology ) {
   std::string path = "routing/" + Lum::enumName( topology.id.igpSource() ) + "/topodb/"
                      + familyWord( topology.af ) + "/" + std::to_string( topology.id.number1() );
   if ( topology.exported ) {
      path += "/" + std::to_string( topology.id.number2() );
   }
   return path + "/" + topology.vrf.stringValue();
}

std::map< Vrf, LabAdjacencies >
adjacenciesOf( const LabDocument & document ) {
   std::map< Vrf, LabAdjacencies > all;
   for ( const auto & [ name, topology ] : document.topologies ) {
      if ( topology.id.igpSource() == Cspf::IgpSource::isis ) {
         addAdjacencies( all[ topology.vrf ], topology, document.router );
      }
   }
   return all;
}

LabConfigs
configsOf( const LabDocument & document ) {
   LabConfigs configs;
   const OwnEnds ownEnds =
      document.paths.contains( tilfaClient ) ? ownEndsOf( document ) : OwnEnds();
   for ( const auto & [ client, paths ] : document.paths ) {
      for ( const auto & [ name, path ] : paths ) {
         Pace::breathe();
         const Cspf::PathKey key{ path.dst, path.id };
         configs[ { client, path.vrf, path.af } ][ key ] = {
            key, path.refreshReqSeq, path.autoUpdate,
            constraintOf( document, ownEnds, path, client == tilfaClient ) };
      }
   }
   return configs;
}

}
