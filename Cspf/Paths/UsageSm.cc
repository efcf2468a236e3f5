// Reservations of one path. What a path reserves follows from three things: the hops that its
// client reads, the links that these hops are, and the user, priority and amount of its constraint.
// Whenever one of them may have changed, the whole set is worked out again and compared; equal
// reservations are the same handle, so nothing moves unless something did.
//
// Several links may have the address of one hop, so which link it is is not looked up: it is told
// by the run or the stitching that chose it, later by the check that found the path valid. Of a
// path that an earlier run of the agent has published the addresses are all that is known. The IGP
// may call a link by another name at any time. All paths follow such names before they are judged;
// to another link they move only after they were judged there, lest they are granted what nobody
// asked that link for.
//
// When a client asks anew, what it will get is not known yet. Until the answer is published the
// path goes on holding what was granted last: more would be had without asking whether there is
// room. What an earlier run of the agent granted is not known. A path that it left holds what is
// asked for now, lest its own reservation stand in its way, but for one that stands beside an
// error: its request was refused, and must not be granted for having been restarted. An error
// about an explicit hop that is away for a while is no such refusal.

#include "Cspf/Paths/UsageSm.h"

#include "Cspf/Hops/PathValidator.h"
#include "Cspf/Views/View.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <utility>

namespace Cspf {

namespace {

/// Whose the reservations are; all of a path are of one user.
BwUsageId
userOf( const Lum::Ptr< const PathBwUsage > & pathBwUsage ) {
   return pathBwUsage ? pathBwUsage->bwUsageColl().begin()->second->bwUsageKey().bwUsageId()
                      : BwUsageId();
}

}

void
PathUsageSm::handleInitialized() {
   LUM_WATCH( pathConfigInfo_, usageChangeCount, doUpdatePathBwUsage );
   LUM_WATCH( pathStatusInfo_, constraintChangeCount, handleConstraintChange );
   handleConstraintChange();
}

/// A request that gets its first explicit hop, or loses its last one, is followed under another
/// key. What was reserved under the old one is held on, for the path that is still published.
void
PathUsageSm::takeOver( const PathUsageSm & replaced ) {
   account_.own() = *replaced.account_;
   if ( replaced.known() ) {
      account_.own().known = std::make_shared< KnownHops >( *replaced.known() );
      known()->noted = context_.byRouter.set( 0, *this, known()->routers.inOrder() );
   }
   awaitsResult_ = true;
}

void
PathUsageSm::doPrepareToDie() {
   unwatchAll();
   handleDestruction();
}

void
PathUsageSm::handleDestruction() {
   TRACE7( "for path " << pathStatusInfo_->pathInfoKey().traceString() );
   ++updates_;
   pathBwUsageIs( nullptr );
   linksAre( {}, nullptr );
}

void
PathUsageSm::handleConstraintChange() {
   const auto & constraint = pathStatusInfo_->constraint();
   if ( !constraint ) {
      TRACE8( "path constraint not set yet" );
      return;
   }
   awaitsResult_ = awaitsResult_ || pathStatusInfo_->constraintChangeCount() > 1 || wasRefused();
   const BwUsageId & bwUsageId = constraint->pathConstraint().bwUsageId();
   if ( bwUsageId == oldBwUsageId() ) {
      TRACE8( "same bwUsageId: sharedBwGroupId " << bwUsageId.sharedBwGroupId() << " localId "
                                                 << bwUsageId.localId() << "for path "
                                                 << pathStatusInfo_->pathInfoKey().traceString() );
   } else {
      oldBwUsageIdIs( bwUsageId );
   }
   doUpdatePathBwUsage();
}

void
PathUsageSm::oldBwUsageIdIs( const BwUsageId & id ) {
   if ( id != oldBwUsageId() ) {
      account_.own().user = id;
   }
}

void
PathUsageSm::grantedIs( const Granted & granted ) {
   if ( granted != account_->granted ) {
      account_.own().granted = granted;
   }
}

bool
PathUsageSm::wasRefused() const {
   const auto & hops = pathStatusInfo_->constraint()->pathConstraint().includeHopList();
   const auto isAway = [ & ]( const IncludeHop & hop ) {
      return topology().allTopoDbStatus->teRouterIdsOfTep( hop.addr() ).empty();
   };
   return pathStatusInfo_->cspfStatus()->pathErrorHas( pathStatusInfo_->pathInfoKey().pathKey() )
          && std::ranges::none_of( hops, isAway );
}

void
PathUsageSm::doUpdatePathBwUsage() {
   if ( isRetired() ) {
      return;
   }
   const auto & constraint = pathStatusInfo_->constraint();
   if ( !constraint ) {
      TRACE8( "path constraint not set yet" );
      grantedIs( {} );
      pathBwUsageIs( nullptr );
      return;
   }
   const InternalPathConstraint & asked = constraint->pathConstraint();
   if ( !asked.bwUsageId() ) {
      TRACE8( "bwUsageId not set" );
      grantedIs( {} );
   } else if ( !awaitsResult_ ) {
      grantedIs( { BwPriority( asked.bwSetupPriority() ), asked.bandwidth() } );
   }
   if ( !pathBwUsage() ) {
      TRACE8( "No pathUsage found" );
   }
   // Whoever reads what is reserved may change what it is for: then that has been accounted by now.
   const auto alive = keptAlive();
   const std::uint32_t update = ++updates_;
   const auto usage =
      account_->granted.bandwidth > 0 ? currentPathBwUsage( __PRETTY_FUNCTION__ ) : nullptr;
   if ( update == updates_ ) {
      pathBwUsageIs( usage );
   }
}

void
PathUsageSm::handleResult( const PathStatusCache & result ) {
   awaitsResult_ = false;
   linksAre( result.path() ? result.path()->path() : PathArray::Hops(),
             result.pathAsTopoDbLinks() );
}

void
PathUsageSm::handleValid( const TopoGraph & topoGraph, std::span< const CspfPathHop > links ) {
   const PathKey & key = pathStatusInfo_->pathInfoKey().pathKey();
   const PathArray::Hops & hops = pathStatusInfo_->cspfStatus()->pathStatus( key ).pathList();
   const auto found = pathAsTopoDbLinks( topoGraph, links );
   if ( linksKnown( hops ) && known()->links->pathColl() == found->pathColl() ) {
      known()->links = found;
      if ( !watchRouters() ) {
         return;
      }
   } else {
      linksAre( hops, found );
   }
   doUpdatePathBwUsage();
}

void
PathUsageSm::linksAre( const PathArray::Hops & hops,
                       const Lum::Ptr< const PathAsTopoDbLinks > & links ) {
   if ( links && !isRetired() ) {
      const KnownHops before = known() ? *known() : KnownHops();
      account_.own().known = std::make_shared< KnownHops >(
         KnownHops{ hops, links, {}, before.routers, before.noted } );
      known()->nearAddresses.resize( hops.size() );
      watchRouters();
   } else if ( known() ) {
      context_.byRouter.del( known()->noted );
      account_.own().known = nullptr;
   }
}

void
PathUsageSm::handleTopoChanged() {
   if ( isRetired() || !known() ) {
      return;
   }
   if ( !pathStatusInfo_->constraint() ) {
      routersAre( {} );  // to be told again
   } else if ( !known()->routers.unchanged( topology().allTopoDbStatus->teGraph().graph(),
                                            context_.memory.hopAddresses() ) ) {
      if ( followLinks() ) {
         doUpdatePathBwUsage();
      }
   }
}

/// Finds the links of the hops again where they are not there under their names. A link that is
/// away keeps its name: a path that moves gives nothing back before it has the new links. Whether
/// a link, its name or its near address is another one now.
bool
PathUsageSm::followLinks() {
   const TopoGraph & topoGraph = topology().allTopoDbStatus->teGraph();
   const auto before = known()->links;
   const std::size_t hops = known()->hops.size();
   const auto isThere = [ & ]( const PathAsTopoDbLinks & some, std::size_t hop ) {
      const AllTopoNeighborKey * link = some.pathFind( HopIndex( hop ) );
      return link && isLink( *link, known()->nearAddresses[ hop ] );
   };
   std::size_t there = 0;
   while ( there < hops && isThere( *before, there ) ) {
      ++there;
   }
   const auto now = there == hops ? before : mapped( known()->hops, before.ptr() );
   const auto links = Lum::make< PathAsTopoDbLinks >();
   for ( std::size_t i = 0; i < hops; ++i ) {
      const HopIndex hop( i );
      const PathAsTopoDbLinks & found =
         i < there || isThere( *before, i ) || !isThere( *now, i ) ? *before : *now;
      if ( const AllTopoNeighborKey * link = found.pathFind( hop ) ) {
         const CspfEdge edge = topoGraph.edge( *link );
         links->pathIs( hop, edge == noEdge ? *link : topoGraph.neighborKey( edge ) );
      }
   }
   const bool moved = links->pathColl() != before->pathColl();
   if ( moved ) {
      known()->links = links;
   }
   return watchRouters() || moved;
}

/// Notes the near ends of the links that are there. Whether one has another address now.
bool
PathUsageSm::watchRouters() {
   const TopoGraph & topoGraph = topology().allTopoDbStatus->teGraph();
   std::vector< CspfVertex > routers;
   bool moved = false;
   const std::size_t hops = known()->hops.size();
   for ( std::size_t i = 0; i < hops; ++i ) {
      const AllTopoNeighborKey * link = known()->links->pathFind( HopIndex( i ) );
      const CspfEdge edge = link ? topoGraph.edge( *link ) : noEdge;
      if ( edge != noEdge ) {
         routers.push_back( topoGraph.graph().from( edge ) );
         const Kivnet::IpGenAddr near = nearAddress( topoGraph.neighbor( edge ) );
         moved |= std::exchange( known()->nearAddresses[ i ], near ) != near;
      }
   }
   if ( routers.size() < hops ) {
      routers.clear();
   }
   routersAre( std::move( routers ) );
   return moved;
}

/// Any change may concern the path where there are none.
void
PathUsageSm::routersAre( std::vector< CspfVertex > routers ) {
   if ( known()->noted == 0 || !std::ranges::equal( routers, known()->routers.inOrder() ) ) {
      known()->noted = context_.byRouter.set( known()->noted, *this, routers );
   }
   known()->routers = routers.empty()
                         ? PathRouters()
                         : PathRouters( topology().allTopoDbStatus->teGraph().graph(),
                                        context_.memory.hopAddresses(), std::move( routers ) );
}

/// What was granted, on the links of the published hops.
Lum::Ptr< const PathBwUsage >
PathUsageSm::currentPathBwUsage( const char * operation ) {
   const PathInfoKey & key = pathStatusInfo_->pathInfoKey();
   const PathStatus * published =
      key.internal() ? nullptr : pathStatusInfo_->cspfStatus()->pathStatusFind( key.pathKey() );
   if ( !published || published->paths() == 0 ) {
      return nullptr;
   }
   if ( !linksKnown( published->pathList() ) ) {
      linksAre( published->pathList(), mapped( published->pathList(), nullptr ) );
   }
   const auto usage = Lum::make< PathBwUsage >();
   const auto links = known()->links;
   const std::size_t hops = known()->hops.size();
   const std::uint32_t update = updates_;
   for ( std::size_t i = 0; update == updates_ && i < hops; ++i ) {
      if ( const AllTopoNeighborKey * link = links->pathFind( HopIndex( i ) ) ) {
         hold( *usage, i, reserved( *link ) );
      } else {
         TRACE8_FOR( operation, "Hop " << i << " not present in pathAsTopoDbLinks for path "
                                       << key.traceString() );
      }
   }
   return usage->bwUsages() > 0 ? usage : nullptr;
}

/// Enters a hop's reservation under the hop's address, or, where that stands for another link
/// already (a path may come to a router several times), under the near one.
void
PathUsageSm::hold( PathBwUsage & usage, std::size_t hop,
                   const Lum::Ptr< const BwUsageDeduped > & reservation ) const {
   if ( !known() || hop >= known()->hops.size() ) {
      return;  // the path is another one since that was reserved
   }
   for ( const Kivnet::IpGenAddr & address :
         { known()->hops[ hop ], known()->nearAddresses[ hop ] } ) {
      if ( address
           && ( !usage.bwUsageHas( address ) || usage.bwUsage( address ) == reservation ) ) {
         usage.bwUsageIs( address, reservation );
         return;
      }
   }
   usage.furtherBwUsages.push_back( reservation );
}

/// Which links the hops are, by their addresses; `known` ones where there are several.
Lum::Ptr< const PathAsTopoDbLinks >
PathUsageSm::mapped( const PathArray::Hops & hops, const PathAsTopoDbLinks * known ) {
   const AllTopoTeDbView view( topology(), pathStatusInfo_->constraint()->sharedPathConstraint() );
   const NodeId source = view.spfRoot();
   if ( !view.hasRouter( source ) ) {
      return Lum::make< PathAsTopoDbLinks >();
   }
   const CspfLinkFilter & filter = context_.memory.filter( view, source );
   HopToTopoDbLinkMapper( view, context_.memory.hopAddresses(), filter, known )
      .handleNew( view.topoGraph().vertex( source ), hops, context_.memory.links() );
   return pathAsTopoDbLinks( view.topoGraph(), context_.memory.links() );
}

/// Whether a link of that name is there, and has the address.
bool
PathUsageSm::isLink( const AllTopoNeighborKey & link, const Kivnet::IpGenAddr & address ) const {
   const TopoGraph & topoGraph = topology().allTopoDbStatus->teGraph();
   const CspfEdge edge = topoGraph.edge( link );
   return edge != noEdge
          && ( !address || neighborHasInterfaceAddr( topoGraph.neighbor( edge ), address ) );
}

Kivnet::IpGenAddr
PathUsageSm::nearAddress( const Routing::Topology::Neighbor & neighbor ) {
   return neighbor.interfaceAddrs() > 0 ? neighbor.interfaceAddrList()[ 0 ] : Kivnet::IpGenAddr();
}

Lum::Ptr< const BwUsageDeduped >
PathUsageSm::reserved( const AllTopoNeighborKey & link ) const {
   return topology().bwUsageManager->updateReservedBandwidth(
      { link, oldBwUsageId() }, account_->granted.priority, account_->granted.bandwidth );
}

void
PathUsageSm::pathBwUsageIs( const Lum::Ptr< const PathBwUsage > & pathBwUsage ) {
   const auto & held = account_->held;
   const bool same = pathBwUsage && held
                        ? pathBwUsage->bwUsageColl() == held->bwUsageColl()
                             && pathBwUsage->furtherBwUsages == held->furtherBwUsages
                        : pathBwUsage == held;
   if ( same ) {
      return;
   }
   const BwUsageId before = userOf( held ), now = userOf( pathBwUsage );
   account_.own().held =
      pathBwUsage;  // the old reservations end here, after the new ones were made
   if ( before != now && topology().allTopoDbStatus->bwUsageChangedAtHas( before ) ) {
      userChangedIs( before );  // its other paths
   }
   if ( now ) {
      handlePathBwUsage();
   }
}

void
PathUsageSm::handlePathBwUsage() {
   if ( const BwUsageId user = userOf( account_->held ) ) {
      userChangedIs( user );
   }
}

void
PathUsageSm::userChangedIs( const BwUsageId & bwUsageId ) {
   const auto & status = topology().allTopoDbStatus;
   status->bwUsageChangedAtIs( bwUsageId, status->changeStamp() );
}

}
