// The tests of one link under a view's constraint, by key.
//
// Runs do not come here: they have all links judged at once (CspfLinkFilter). These tests serve
// whoever has a single link at hand, a published path that is checked or a trace that is to say
// why, and stop at the first refusal. Both ways give the same answers, which is tested.

#include "Cspf/Bandwidth/BwUsageManager.h"
#include "Cspf/Views/View.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

namespace Igp = Routing::Topology;

namespace {

bool
hasElement( const auto & list, const auto & value ) {
   return std::ranges::find( list, value ) != list.end();
}

std::string
hex( std::uint32_t value ) {
   char digits[ 8 ];
   return { digits, std::to_chars( digits, digits + sizeof digits, value, 16 ).ptr };
}

NeighborAndTepStatus
verdict( bool allowed ) {
   return { allowed, allowed };
}

}

NodeId
AllTopoDbView::ownNode( const TopoId & topoId, const NodeId & nodeId ) const {
   const TopoGraph & topology = topoGraph();
   if ( !nodeId || topology.vertex( nodeId ) != noVertex ) {
      return nodeId;
   }
   const auto * map = allTopoDbStatus_->routerIdMapFind( topoId );
   const IgpRouterId router = nodeId.type() != VertexType::ipAddress ? IgpRouterId( nodeId )
                              : map ? ( *map )->igpRouterId( nodeId.ipAddress() )
                                    : IgpRouterId();
   const CspfVertex vertex = topology.router( topoId, router );
   return vertex == noVertex ? nodeId : topology.nodeId( vertex );
}

NeighborAndTepStatus
AllTopoDbView::neighborAndTepAllowed( const AllTopoNeighborKey & named ) const {
   const AllTopoNeighborKey link = ownKey( named );
   return verdict( allowed( link, link.neighborId(), __PRETTY_FUNCTION__ ) );
}

NeighborAndTepStatus
AllTopoDbView::neighborAndTepAllowedForTe( const AllTopoNeighborKey & named,
                                           const NodeId & router ) const {
   const AllTopoNeighborKey link = ownKey( named );
   const NodeId routerInNetwork = ownNode( link.topoId(), router );
   const NodeId farEnd = link.isLan() ? routerInNetwork : link.neighborId();
   const bool acrossLan = link.isLan() && routerInNetwork;
   const TopoId & topoId = constraint().topoId();
   return verdict( ( !topoId || topoId == link.topoId() ) && twoWayCheckPassed( link )
                   && ( !acrossLan || twoWayCheckLan( link, routerInNetwork ) )
                   && !overloaded( link, farEnd, __PRETTY_FUNCTION__ )
                   && allowed( link, farEnd, __PRETTY_FUNCTION__ ) );
}

bool
AllTopoDbView::overloaded( const AllTopoNeighborKey & link, const NodeId & farEnd,
                           const char * operation ) const {
   if ( overloadRule() != CspfOverloadRule::avoid ) {
      return false;
   }
   const IgpRouterId router =
      link.isLan() ? getIgpId( link.topoId(), farEnd ) : link.neighborKey().neighborId();
   const bool overloaded = topoGraph().overloaded( link.topoId(), router );
   if ( overloaded ) {
      TRACE9_FOR( operation, "Overload bit set for router " << router << ", so ignoring neighbor" );
   }
   return overloaded;
}

bool
AllTopoDbView::allowed( const AllTopoNeighborKey & link, const NodeId & farEnd,
                        const char * operation ) const {
   const InternalPathConstraint & c = constraint();
   if ( c == InternalPathConstraint() ) {
      return true;
   }
   if ( link.neighborOf() == getOurSourceId() && !isInterfaceAllowed( link, c.excludeIntf() ) ) {
      return false;
   }
   if ( c.excludeNode().nodeId() && !link.isLan() ) {
      TRACE9_FOR( operation, " Applying exclude node constraint on a P2P neighbor " << link );
   }
   const bool byAdminGroup =
      c.includeAllAdminGroup() || c.includeAnyAdminGroup() || c.excludeAdminGroup();
   return isNodeAllowed( link, farEnd )
          && ( !c.excludeSrlg() || !c.srlgStrictMode() || isSrlgAllowed( link ) )
          && ( !byAdminGroup
               || isAdminGroupAllowed( link, c.includeAllAdminGroup(), c.includeAnyAdminGroup(),
                                       c.excludeAdminGroup() ) )
          && linkIpsAllowed( link, operation ) && bandwidthCheckPassed( link );
}

bool
AllTopoDbView::twoWayCheckPassed( const AllTopoNeighborKey & link ) const {
   return link.isLan() ? twoWayCheckLan( link ) : twoWayCheckP2P( link );
}

bool
AllTopoDbView::twoWayCheckP2P( const AllTopoNeighborKey & link ) const {
   const AllTopoNeighborKey reverse = getReverseNeighborKeyP2P( link );
   const Igp::Neighbor * there = neighbor( link );
   const Igp::Neighbor * back = reverse ? neighbor( reverse ) : nullptr;
   return there && back && twoWayAddrCheck( *there, *back );
}

bool
AllTopoDbView::twoWayCheckLan( const AllTopoNeighborKey & link ) const {
   const Igp::Router * router = allTopoDb_->router( link.topoId(), link.neighborKey().routerId() );
   const Igp::Network * network = allTopoDb_->network( link.allTopoNetworkId() );
   return router && network && routerHasNeighbor( *router, link.neighborKey() )
          && network->routerHas( link.neighborKey().routerId() );
}

bool
AllTopoDbView::twoWayCheckLan( const AllTopoNeighborKey & link, const NodeId & router ) const {
   const CspfEdge step = stepFromLan( link, router );
   return step != noEdge && graph().twoWay( step );
}

bool
AllTopoDbView::isInterfaceAllowed( const AllTopoNeighborKey & link,
                                   const Kivnet::IntfId & intfId ) const {
   const Igp::Neighbor * entry = neighbor( link );
   if ( !intfId || !entry || entry->intfId() != intfId ) {
      return true;
   }
   TRACE9( " Applying constraint exclude interface : " << intfId );
   return false;
}

bool
AllTopoDbView::isNodeAllowed( const AllTopoNeighborKey & link, const NodeId & nodeId ) const {
   const NodeId & excluded = constraint().excludeNode().nodeId();
   const CspfVertex vertex =
      excluded && nodeId ? topoGraph().vertex( ownNode( link.topoId(), nodeId ) ) : noVertex;
   if ( vertex == noVertex ) {
      return true;
   }
   if ( !hasElement( excludedVertices(), vertex ) ) {
      return true;
   }
   const bool byTeRouterId = excluded.type() == VertexType::ipAddress;
   TRACE9( ( byTeRouterId ? "Matched TE Router ID :" : "Matched IS-IS System ID :" ) << excluded );
   return false;
}

bool
AllTopoDbView::isSrlgAllowed( const AllTopoNeighborKey & link ) const {
   TRACE9( " Applying constraint to exclude SRLGs on neighbor: " << link );
   return srlgExcludeInfo( link ) == 0;
}

bool
AllTopoDbView::isAdminGroupAllowed( const AllTopoNeighborKey & link, std::uint32_t includeAll,
                                    std::uint32_t includeAny, std::uint32_t exclude ) const {
   const Igp::Neighbor * entry = neighbor( link );
   const std::uint32_t groups = entry ? entry->adminGroup() : 0;
   if ( ( groups & includeAll ) != includeAll ) {
      return false;
   }
   if ( includeAny && !( groups & includeAny ) ) {
      TRACE9( "having adminGroup 0x" << hex( groups ) << " is not included for " << link );
      return false;
   }
   if ( groups & exclude ) {
      TRACE9( "having adminGroup 0x" << hex( groups ) << " is not excluded for " << link );
      return false;
   }
   return true;
}

/// The link's own addresses, and those of the link back.
bool
AllTopoDbView::linkIpsAllowed( const AllTopoNeighborKey & link, const char * operation ) const {
   if ( constraint().excludeLinkWithIps() == 0 ) {
      return true;
   }
   TRACE9_FOR( operation, "Applying excludeLinkWithIp constraint on local interfaces" );
   const Igp::Neighbor * entry = neighbor( link );
   if ( entry && !isLinkIpAllowed( *entry ) ) {
      return false;
   }
   if ( link.isLan() ) {
      return true;
   }
   TRACE9_FOR( operation, "Applying excludeLinkWithIp constraint on remote interfaces" );
   const Igp::Neighbor * reverse = neighbor( getReverseNeighborKeyP2P( link ) );
   return !reverse || isLinkIpAllowed( *reverse );
}

bool
AllTopoDbView::isLinkIpAllowed( const Igp::Neighbor & neighbor ) const {
   for ( const auto & address : constraint().excludeLinkWithIpList() ) {
      if ( neighborHasInterfaceAddr( neighbor, address ) ) {
         TRACE9( "Link Ip of NeighborKey " << Lum::valueString( neighbor.key() ) << " is : "
                                           << address << " which is supposed to be excluded" );
         return false;
      }
   }
   return true;
}

bool
AllTopoDbView::bandwidthCheckPassed( const AllTopoNeighborKey & link ) const {
   if ( constraint().bandwidth() == 0 ) {
      return true;
   }
   LUM_ASSERT( bwUsageManager() );
   const BwUsageKey key{ ownKey( link ), constraint().bwUsageId() };
   const bool enough = bwUsageManager()->bandwidthAvailable( key, constraint().bwSetupPriority() )
                       >= constraint().bandwidth();
   if ( !enough ) {
      TRACE9( "Bandwidth check failed for neighbor:" << link );
   }
   return enough;
}

SrlgExcludeInfo
AllTopoDbView::srlgExcludeInfo( const AllTopoNeighborKey & link ) const {
   if ( constraint().srlgExcludeOnlyLocalLinks()
        && ownKey( link ).neighborOf() != getOurSourceId() ) {
      return 0;
   }
   SrlgExcludeInfo count = 0;
   if ( const Igp::Neighbor * entry = neighbor( link ) ) {
      for ( const auto srlg : entry->srlgList() ) {
         if ( constraint().excludeSrlgDerivedHas( srlg ) ) {
            TRACE9( "SRLG " << srlg << " is not excluded for " << link );
            ++count;
         }
      }
   }
   return count;
}

SrlgIncludeInfo
AllTopoDbView::srlgIncludeInfo( const AllTopoNeighborKey & link ) const {
   const Igp::Neighbor * entry = neighbor( link );
   SrlgIncludeInfo count = 0;
   for ( const auto srlg : constraint().includeSrlgDerivedSet() ) {
      if ( !entry || !hasElement( entry->srlgList(), srlg ) ) {
         TRACE9( "SRLG " << srlg << " is not included for " << link );
         ++count;
      }
   }
   return count;
}

}
