// What the views tell of the topology: the graph and the constraint as runs take them, and
// routers, LANs and links by key for everybody else. The tests of single links stand in
// CspfLinkTests.cc.
//
// Neither view keeps a copy of anything. The constraint is turned into numbers anew for each run,
// since numbers change with the topology; what it names is looked up, never searched for.

#include "Cspf/Views/View.h"

#include "Cspf/Bandwidth/BwUsageManager.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

namespace Igp = Routing::Topology;

namespace {

bool
reaches( const CspfGraph & graph, CspfVertex from, CspfVertex to ) {
   return std::ranges::any_of( graph.out( from ), [ & ]( std::uint32_t edge ) {
      return graph.to( CspfEdge{ edge } ) == to;
   } );
}

}

CspfLinkConstraint
AllTopoDbView::linkConstraint( const NodeId & root ) const {
   TopoGraph & topology = topoGraph();
   topology.settle( vertex( root ) );
   const InternalPathConstraint & c = constraint();
   CspfLinkConstraint numbers;
   numbers.root = topology.vertex( root );
   numbers.ownSource = topology.vertex( getOurSourceId() );
   numbers.overloadRule = overloadRule();
   if ( c.topoId() ) {
      numbers.topology = topology.topologyNumber( c.topoId() ).value_or( TopoGraph::noTopology );
   }
   excludeInterface( numbers );
   numbers.excludedVertices = excludedVertices();
   numbers.excludedSrlgs = { c.excludeSrlgDerivedSet().begin(), c.excludeSrlgDerivedSet().end() };
   numbers.includedSrlgs = { c.includeSrlgDerivedSet().begin(), c.includeSrlgDerivedSet().end() };
   numbers.srlgStrict = c.excludeSrlg() && c.srlgStrictMode();
   numbers.srlgOnlyLocal = c.srlgExcludeOnlyLocalLinks();
   numbers.includeAllAdminGroup = c.includeAllAdminGroup();
   numbers.includeAnyAdminGroup = c.includeAnyAdminGroup();
   numbers.excludeAdminGroup = c.excludeAdminGroup();
   excludeEdges( numbers );
   numbers.bandwidth = c.bandwidth();
   if ( numbers.bandwidth > 0 ) {
      numbers.setupPriority = BwPriority( c.bwSetupPriority() ).value();
      numbers.ownReservations = ownReservations().held;
   }
   return numbers;
}

/// Of a LAN with a named neighbour only that neighbour's place on it, for everybody. The interface
/// may be in several topologies.
void
AllTopoDbView::excludeInterface( CspfLinkConstraint & numbers ) const {
   const InternalPathConstraint & c = constraint();
   if ( !c.excludeIntf() ) {
      return;
   }
   const std::uint32_t interface = c.excludeIntf().number();
   if ( c.pathComputationType() == PathComputationType::tilfa && numbers.ownSource != noVertex ) {
      for ( const std::uint32_t e : graph().out( numbers.ownSource ) ) {
         const CspfEdge link{ e };
         const bool isSeen = numbers.topology == CspfGraph::anyTopology
                             || graph().columns().topology[ index( link ) ] == numbers.topology;
         const CspfEdge step =
            isSeen && graph().interface( link ) == interface ? stepToNeighbor( link ) : noEdge;
         if ( step != noEdge ) {
            numbers.excludedEdges.push_back( step );
            numbers.excludedEdges.push_back( graph().reverse( step ) );
         }
      }
   }
   if ( numbers.excludedEdges.empty() ) {
      numbers.excludedInterfaces = { interface };
   }
}

CspfEdge
AllTopoDbView::stepToNeighbor( CspfEdge linkToLan ) const {
   const InternalPathConstraint & c = constraint();
   const TopoGraph & topology = topoGraph();
   const TopoId topoId = topology.neighborKey( linkToLan ).topoId();
   if ( graph().kind( linkToLan ) != CspfEdgeKind::routerToNetwork ) {
      return noEdge;
   }
   const auto * routerIds = allTopoDbStatus_->routerIdMapFind( topoId );
   const NodeId named = c.neighborSystemId() ? NodeId( c.neighborSystemId() )
                        : routerIds          ? NodeId( ( *routerIds )->igpRouterId( c.neighbor() ) )
                                             : NodeId();
   const CspfVertex router = named ? topology.vertex( named ) : noVertex;
   for ( const std::uint32_t e : graph().out( graph().to( linkToLan ) ) ) {
      if ( graph().to( CspfEdge{ e } ) == router && graph().twoWay( CspfEdge{ e } ) ) {
         return CspfEdge{ e };
      }
   }
   return noEdge;
}

CspfVertex
AllTopoDbView::vertex( const NodeId & node ) const {
   CspfVertex vertex = topoGraph().vertex( node );
   for ( const auto & [ topoId, table ] : allTopoDb_->topoDbColl() ) {
      const bool isSeen = !constraint().topoId() || topoId == constraint().topoId();
      if ( vertex == noVertex && isSeen ) {
         vertex = topoGraph().vertex( AllTopoNetworkId{ topoId, { IgpRouterId( node ) } } );
      }
   }
   return vertex;
}

/// Edges that the constraint excludes by address, and those of partly overloaded routers.
void
AllTopoDbView::excludeEdges( CspfLinkConstraint & numbers ) const {
   const TopoGraph & topology = topoGraph();
   const CspfGraph & graph = topology.graph();
   for ( const auto & address : constraint().excludeLinkWithIpList() ) {
      const auto & links = allTopoDbStatus_->intfIpToNeighborTable()->intfIpToNeighbor( address );
      for ( const AllTopoNeighborKey & link : links.neighborSet() ) {
         const CspfEdge edge = topology.edge( link );
         if ( edge == noEdge ) {
            continue;
         }
         numbers.excludedEdges.push_back( edge );
         if ( !link.isLan() && graph.reverse( edge ) != noEdge ) {
            numbers.excludedEdges.push_back( graph.reverse( edge ) );
         }
      }
   }
   const bool leaving = numbers.overloadRule == CspfOverloadRule::mayEnd;
   for ( const CspfEdge edge : topology.edgesOfPartlyOverloaded( leaving ) ) {
      if ( !leaving || graph.from( edge ) != numbers.root ) {
         numbers.overloadedEdges.push_back( edge );
      }
   }
}

AllTopoDbView::OwnReservations
AllTopoDbView::ownReservations() const {
   OwnReservations own;
   if ( constraint().bandwidth() == 0 ) {
      return own;
   }
   LUM_ASSERT( bwUsageManager() );
   const TopoGraph & topology = topoGraph();
   const auto add = [ & ]( const AllTopoNeighborKey & link, std::uint64_t bandwidth ) {
      const CspfEdge edge = topology.edge( link );
      if ( edge != noEdge && topology.neighborKey( edge ) == link ) {
         own.held.emplace_back( edge, bandwidth );
      } else {
         own.someAway = true;
      }
   };
   bwUsageManager()->forEachOwnReservation( constraint().bwUsageId(),
                                            BwPriority( constraint().bwSetupPriority() ), add );
   return own;
}

/// Routers that are excluded by TE router id or by their identity in an IGP.
std::vector< CspfVertex >
AllTopoDbView::excludedVertices() const {
   const NodeId & excluded = constraint().excludeNode().nodeId();
   std::vector< CspfVertex > vertices;
   if ( !excluded ) {
      return vertices;
   }
   for ( const auto & [ topoId, map ] : allTopoDbStatus_->routerIdMapColl() ) {
      const IgpRouterId router = excluded.type() == VertexType::ipAddress
                                    ? map->igpRouterId( excluded.ipAddress() )
                                    : IgpRouterId( excluded );
      const CspfVertex vertex = topoGraph().router( topoId, router );
      if ( vertex != noVertex && std::ranges::find( vertices, vertex ) == vertices.end() ) {
         vertices.push_back( vertex );
      }
   }
   return vertices;
}

std::vector< CspfVertex >
AllTopoDbView::verticesWithTep( const Kivnet::IpGenAddr & tep ) const {
   std::vector< CspfVertex > vertices;
   for ( const auto & [ topoId, router ] : allTopoDbStatus_->routersWithTep( tep ) ) {
      const CspfVertex vertex = topoGraph().router( topoId, router );
      if ( vertex != noVertex && std::ranges::find( vertices, vertex ) == vertices.end() ) {
         vertices.push_back( vertex );
      }
   }
   return vertices;
}

// The topology, by key.

bool
AllTopoDbView::spfRootOverloaded() const {
   LUM_ASSERT( 0 && "Not implemented" );
   return false;
}

bool
AllTopoDbView::rootOverloaded() const {
   const CspfVertex root = topoGraph().vertex( spfRoot() );
   return root != noVertex && graph().overloaded( root );
}

AllTopoRouter
AllTopoDbView::router( const NodeId & nodeId ) const {
   const TopoGraph & topology = topoGraph();
   const CspfVertex vertex = topology.vertex( nodeId );
   AllTopoRouter router;
   if ( vertex == noVertex ) {
      return router;
   }
   router.nodeIdIs( nodeId );
   for ( const std::uint32_t e : graph().out( vertex ) ) {
      router.neighborIs( topology.neighborKey( CspfEdge{ e } ) );
   }
   for ( const auto & [ topoId, table ] : allTopoDb_->topoDbColl() ) {
      addTeps( router, *table, getIgpId( topoId, nodeId ) );
   }
   return router;
}

/// The tunnel end points of one router of one topology.
void
AllTopoDbView::addTeps( AllTopoRouter & router, const Igp::TopoDb & table,
                        const IgpRouterId & id ) {
   const Igp::Router & record = table.router( id );
   if ( record.teRouterId() ) {
      router.tepIs( record.teRouterId() );
   }
   for ( const Igp::NeighborKey & key : record.neighborSet() ) {
      for ( const auto & address : table.neighbor( key ).interfaceAddrList() ) {
         if ( address ) {
            router.tepIs( address );
         }
      }
   }
   for ( const Igp::PrefixMetric & entry : table.reachability( id ).prefixSet() ) {
      if ( entry.prefix().isHost() ) {
         router.tepIs( entry.prefix().address() );
      }
   }
}

AllTopoNetwork
AllTopoDbView::network( const AllTopoNetworkId & networkId ) const {
   const TopoGraph & topology = topoGraph();
   const CspfVertex vertex = topology.vertex( networkId );
   const Igp::Network * record = allTopoDb_->network( networkId );
   AllTopoNetwork network;
   if ( vertex == noVertex || !record ) {
      return network;
   }
   network.allTopoNetworkIdIs( networkId );
   for ( const IgpRouterId & id : record->routerSet() ) {
      const CspfVertex router = topology.router( networkId.topoId(), id );
      if ( router != noVertex && reaches( graph(), vertex, router ) ) {
         network.routerIs( topology.nodeId( router ) );
      }
   }
   return network;
}

IgpRouterId
AllTopoDbView::getIgpId( const TopoId & topoId, const NodeId & nodeId ) const {
   const CspfVertex vertex = topoGraph().vertex( nodeId );
   return vertex == noVertex ? IgpRouterId() : topoGraph().igpRouterId( topoId, vertex );
}

AllTopoNeighborKey
AllTopoDbView::getReverseNeighborKeyP2P( const AllTopoNeighborKey & link ) const {
   const CspfEdge edge = link.isLan() ? noEdge : topoGraph().edge( link );
   const CspfEdge reverse = edge == noEdge ? noEdge : graph().reverse( edge );
   if ( reverse == noEdge ) {
      TRACE9( "Peer neighbor for " << link << " not found," );
      return {};
   }
   return topoGraph().neighborKey( reverse );
}

std::uint32_t
AllTopoDbView::getReverseLinkMetric( const AllTopoNeighborKey & link, bool useTeMetric ) const {
   const Igp::Neighbor * reverse =
      link.isLan() ? nullptr : neighbor( getReverseNeighborKeyP2P( link ) );
   return !reverse      ? 0
          : useTeMetric ? reverse->teMetric().value_or( reverse->metric() )
                        : reverse->metric();
}

Kivnet::IpGenAddr
AllTopoDbView::nexthopOnP2pLink( const AllTopoNeighborKey & link ) const {
   const CspfEdge edge = link.isLan() ? noEdge : topoGraph().edge( link );
   return edge == noEdge ? Kivnet::IpGenAddr() : topoGraph().nextHop( edge );
}

Kivnet::IpGenAddr
AllTopoDbView::nexthopOnLanLink( const AllTopoNeighborKey & link, const NodeId & router ) const {
   const CspfEdge step = stepFromLan( link, router );
   return step == noEdge ? Kivnet::IpGenAddr() : topoGraph().nextHop( step );
}

CspfEdge
AllTopoDbView::stepFromLan( const AllTopoNeighborKey & link, const NodeId & router ) const {
   const CspfVertex network = topoGraph().vertex( link.allTopoNetworkId() );
   const CspfVertex to = topoGraph().vertex( ownNode( link.topoId(), router ) );
   CspfEdge first = noEdge;
   if ( network != noVertex && to != noVertex ) {
      for ( const std::uint32_t e : graph().in( to ) ) {
         const CspfEdge edge{ e };
         if ( graph().from( edge ) == network
              && ( first == noEdge
                   || topoGraph().neighborKey( edge ) < topoGraph().neighborKey( first ) ) ) {
            first = edge;
         }
      }
   }
   return first;
}

Kivnet::IpGenAddr
AllTopoDbView::teRouterIdOfNodeWithTep( const Kivnet::IpGenAddr & tep ) const {
   const auto ids = allTopoDbStatus_->teRouterIdsOfTep( tep );
   return ids.empty() ? Kivnet::IpGenAddr() : ids.front();
}

bool
AllTopoDbView::hasTep( const Kivnet::IpGenAddr & teRouterId, const Kivnet::IpGenAddr & tep ) const {
   if ( tep == teRouterId ) {
      return true;
   }
   const auto ids = allTopoDbStatus_->teRouterIdsOfTep( tep );
   return std::ranges::find( ids, teRouterId ) != ids.end();
}

NodeId
AllTopoDbView::getOurSourceId() const {
   return allTopoDbStatus_->sourceId( constraint().pathComputationType() );
}

// The TE view.

NodeId
AllTopoTeDbView::spfRoot() const {
   switch ( constraint().sourceType() ) {
   case CspfSourceType::plr: return getOurSourceId();
   case CspfSourceType::neighborOnLink:
      return NodeId( teRouterIdOfNodeWithTep( constraint().neighbor() ) );
   case CspfSourceType::pathSegmentSource:
      return NodeId( teRouterIdOfNodeWithTep( constraint().pathSegmentSourceNodeAddr() ) );
   }
   return {};
}

IgpRouterId
AllTopoTeDbView::p2pNeighborOnLink( const Kivnet::IntfId &, const TopoId & ) const {
   LUM_ASSERT( 0 && "Not implemented" );
   return {};
}

// The LFA view.

AllTopoNetwork
AllTopoTeDbView::network( const AllTopoNetworkId & networkId ) const {
   AllTopoNetwork network = AllTopoDbView::network( networkId );
   const Igp::Network * record = allTopoDb()->network( networkId );
   for ( const IgpRouterId & id : record ? record->routerSet() : Lum::Set< IgpRouterId >() ) {
      const CspfVertex router = topoGraph().router( networkId.topoId(), id );
      if ( router == noVertex ) {
         TRACE9( " No TE router id for " << id << " in network " << networkId.networkId()
                                         << " from topoId " << networkId.topoId() );
      } else if ( !network.routerHas( topoGraph().nodeId( router ) ) ) {
         TRACE9( " No neighbor object found for " << id << ", skipping this router" );
      }
   }
   return network;
}

IgpRouterId
AllTopoLfaDbView::p2pNeighborOnLink( const Kivnet::IntfId & intfId, const TopoId & topoId ) const {
   const CspfVertex source = graph_->vertex( getOurSourceId() );
   if ( source == noVertex ) {
      TRACE9( "src router: " << getOurSourceId() << " not present" );
      return {};
   }
   AllTopoNeighborKey first;
   for ( const std::uint32_t e : graph().out( source ) ) {
      const AllTopoNeighborKey key = graph_->neighborKey( CspfEdge{ e } );
      if ( !key.isLan() && ( !topoId || key.topoId() == topoId )
           && graph_->neighbor( CspfEdge{ e } ).intfId() == intfId && ( !first || key < first ) ) {
         first = key;
      }
   }
   if ( !first ) {
      TRACE9( "neighbor not present, key: " << intfId << " src router: " << getOurSourceId() );
   }
   return first.neighborKey().neighborId();
}

}
