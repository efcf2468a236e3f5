// What the repair of one path is, and what becomes of it. When it is worked out its protection
// decides. When the protected link goes, which is when routers need the repair, the one that is
// published stays until its request goes or the link is back.
//
// Most requests are looked at only to find that their repair is what it was. So the best repair is
// traced first, and others only where its next hop is not known; and nothing is told to anyone that
// has not changed.

#include "Cspf/Repairs/PqComputeSm.h"

#include "Cspf/Paths/StatusUpdate.h"
#include "Cspf/Runs/KeptCheck.h"
#include "Cspf/Views/View.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <utility>

namespace Cspf::Lfa {

namespace {

constexpr std::size_t allRepairs = ~std::size_t{ 0 };

std::uint32_t
cheapest( const CspfTree & tree, const std::vector< CspfRepairTable::Originator > & originators ) {
   std::uint64_t least = CspfTree::unreachedMetric;
   for ( const auto & originator : originators ) {
      if ( tree.reached( originator.router ) ) {
         least = std::min( least,
                           std::uint64_t( tree.metric( originator.router ) ) + originator.metric );
      }
   }
   return static_cast< std::uint32_t >( least );
}

const PathConstraint &
askedBy( const PathConfigInfo & row ) {
   return row.cspfConfig()->pathConfigFind( row.pathInfoKey().pathKey() )->constraint();
}

}

PqComputeSm::PqComputeSm( const RepairContext & context, const PathInfoKey & pathInfoKey )
   : pathConfigInfo_( context.pathConfigInfoTable->pathConfigInfo( pathInfoKey ) ),
     pathStatusInfo_( context.pathStatusInfoTable->pathStatusInfo( pathInfoKey ) ),
     pathStatusCache_( context.pathStatusCacheTable->pathStatusCache( pathInfoKey ) ),
     protection_( context.protectionTable->protectionIs(
        context, { pathStatusInfo_->constraint(), pathConfigInfo_->treesId() },
        pathInfoKey.clientName(), repairConstraint( askedBy( *pathConfigInfo_ ) ) ) ) {}

void
PqComputeSm::handleInitialized() {
   protection_->requestIs( *this );
   heldBefore_ = protection_->answersHeld();
   adoptPublished();
   pathStatusInfo_->refreshIs( refreshReasonConfigChanged );
   LUM_WATCH( pathStatusInfo_, refreshNeeded, handleRefreshNeeded );
   handleRefreshNeeded();
}

void
PqComputeSm::doPrepareToDie() {
   countHeld();
   protection_->requestDel( *this );
   context().protectionTable->protectionDel( protection_->key() );
}

void
PqComputeSm::handleRefreshNeeded() {
   if ( pathStatusInfo_->refreshNeeded() ) {
      protection_->refreshIs( *this );
   }
}

void
PqComputeSm::hasMovedIs( bool moved ) {
   hasMoved_ = moved;
   if ( moved ) {
      protection_->destinationMoved();
   }
}

void
PqComputeSm::countHeld() {
   const std::uint32_t held = protection_->answersHeld();
   pathStatusCache_->answersHeld += held - std::exchange( heldBefore_, held );
}

/// However often that is said of one time.
void
PqComputeSm::isCountedAlone() {
   if ( heldBefore_ != protection_->answersHeld() ) {
      countHeld();
      --pathStatusCache_->answersHeld;
   }
}

void
PqComputeSm::handleCspfData() {
   isDue_ = true;
   pathStatusCache_->refreshedStage1CountInc();
}

const PathConstraint &
PqComputeSm::asked() const {
   return askedBy( *pathConfigInfo_ );
}

/// An agent that starts takes over what an earlier one has published for the same path. Where the
/// protected link is gone, there is no other way to know it.
void
PqComputeSm::adoptPublished() {
   const auto & status = pathStatusInfo_->cspfStatus();
   const PathStatus * published = status->pathStatusFind( pathInfoKey().pathKey() );
   const PqInfo * repair = published ? status->pqInfoFind( published->repairPathIdx() ) : nullptr;
   if ( !repair || pathStatusCache_->pqInfo() ) {
      return;
   }
   PqPath path;
   Lum::copyFields( *repair, path );
   pathStatusCache_->pqInfoIs( context().dedupPqInfoTable->dedup( path ) );
   pathStatusCache_->achievedIs( published->achieved() );
   pathStatusCache_->repairOfIs( Lum::hashOf( asked() ) );
}

/// A refresh that was asked for meanwhile is answered by what is worked out for it.
void
PqComputeSm::handlePqComputeTask() {
   if ( pathStatusInfo_->constraint() && !pathStatusInfo_->refreshNeeded() ) {
      isDue_ = false;
      doPqCompute();
   }
}

void
PqComputeSm::doPqCompute() {
   TRACE8_FOR( "void Cspf::Lfa::PqComputeSm::handleCspfData()",
               "called for " << pathInfoKey().traceString() );
   reason_ = protection_->settledFor();
   if ( !reason_.empty() ) {
      const bool stays = pathStatusCache_->pqInfo() && protection_->protectedLinkIsGone()
                         && pathStatusCache_->repairOf() == Lum::hashOf( asked() );
      TRACE7( ( stays ? "repair stays for " : "no repair for " )
              << pathInfoKey().traceString() << ": " << reason_ );
      if ( stays ) {
         endStage2();
      } else {
         publish( std::nullopt, RepairKind::none );
      }
      return;
   }
   const Answer answer = this->answer();
   publish( answer.path, answer.achieved );
}

/// Of the link where what is asked for has none; keeps the reason where there is none at all.
PqComputeSm::Answer
PqComputeSm::answer() {
   std::optional< PqPath > path = doPqCompute( false );
   const bool isInstead = !path && protection_->mayFallBack();
   if ( isInstead ) {
      path = doPqCompute( true );
   }
   return { path,
            protection_->isLinkProtection() || isInstead ? RepairKind::link : RepairKind::node };
}

void
PqComputeSm::verifyAnswer() {
   if ( !pathStatusInfo_->constraint() || waitsForRefresh() ) {
      return;
   }
   const std::string before = reason_;
   const Answer answer = this->answer();
   const auto & held = pathStatusCache_->pqInfo();
   const bool same = held ? answer.path && held->pqPath() == *answer.path
                               && pathStatusCache_->achieved() == answer.achieved
                          : !answer.path && pathStatusCache_->achieved() == RepairKind::none;
   const PathStatus * published =
      pathStatusInfo_->cspfStatus()->pathStatusFind( pathInfoKey().pathKey() );
   if ( !same || reason_ != before || !published
        || published->repairPathIdx() != repairPathIdx( *pathStatusCache_ ) ) {
      differFromRun( runs().constrained->view(),
                     "repair of " + pathInfoKey().traceString().stringValue() );
   }
}

std::optional< PqPath >
PqComputeSm::doPqCompute( bool isInstead ) {
   const ProtectionSm::Work work( *protection_, isInstead );
   reason_.clear();
   if ( !validateDestination() ) {
      return std::nullopt;
   }
   TRACE8( "PQ computation with constrained at: " << runs().constrained->ranAt()
                                                  << " fwdSpf at: " << runs().forward->ranAt()
                                                  << " ngbSpf at: " << runs().neighbor->ranAt()
                                                  << " revSpf at: " << runs().reverse->ranAt() );
   for ( const std::size_t most : { std::size_t{ 1 }, allRepairs } ) {
      const AllPqPathWithImmNgb allPqPath = getAllPqPath( most );
      if ( allPqPath.pqPathWithImmNgbs() == 0 ) {
         break;
      }
      if ( auto path = getLoadBalancedPqPath( &allPqPath ) ) {
         return path;
      }
   }
   return std::nullopt;
}

const TopoId &
PqComputeSm::topoId() const {
   return pathStatusInfo_->constraint()->pathConstraint().topoId();
}

std::vector< CspfRepairTable::Originator >
PqComputeSm::getAllDestinationNodes() const {
   const CspfVertex router = topoId() ? topology().router( topoId(), IgpRouterId( destination() ) )
                                      : topology().vertex( NodeId( destination() ) );
   if ( router == noVertex ) {
      return {};
   }
   return { { router, 0 } };
}

std::uint32_t
PqComputeSm::getCostFromProtNodeToDest() const {
   return cheapest( runs().neighbor->tree(), getAllDestinationNodes() );
}

std::uint32_t
PqComputeSm::getPostConvergenceCostFromPlrToDest() const {
   return cheapest( runs().constrained->tree(), getAllDestinationNodes() );
}

bool
PqComputeSm::isDestinationNode( const NodeId & nodeId ) const {
   return nodeId == NodeId( destination() );
}

bool
PqComputeSm::validateDestination() {
   const auto originators = getAllDestinationNodes();
   if ( originators.empty() ) {
      TRACE7( "Ignoring computation as destination is not there: " << destination() );
      reason_ = destination().isisSystemId() ? "destination not found in topology"
                                             : "prefix is not announced";
   } else if ( isDestinationNode( runs().constrained->source() ) ) {
      TRACE7( "Ignoring computation as source is the destination: " << destination() );
      reason_ = "source is the destination";
   } else if ( !runs().isLinkProtection && originators.size() == 1
               && topology().nodeId( originators.front().router ) == runs().neighbor->source() ) {
      TRACE7( "Ignoring computation as destination is the protected node: " << destination() );
      reason_ = "destination is the protected node";
   } else if ( getPostConvergenceCostFromPlrToDest() == CspfTree::unreachedMetric ) {
      TRACE7( "Ignoring computation as shortest path to dest not found: " << destination() );
      reason_ = "no path to the destination that avoids what is protected";
   }
   return reason_.empty();
}

CspfRepairs
PqComputeSm::repairs( std::size_t most ) const {
   const TopoGraph & topology = this->topology();
   const CspfRepairTable::RouterKey routerKey = [ & ]( CspfVertex router ) {
      return topology.nodeId( router ).hash();
   };
   const CspfRepairTable::LinkKey linkKey = [ & ]( CspfEdge link ) {
      return topology.neighbor( link ).intfId().hash();
   };
   const auto originators = getAllDestinationNodes();
   const std::uint32_t maxNodes = asked().maxRepairNodes();
   return protection_->repairs().table().repairs(
      { originators, maxNodes ? std::min( maxNodes, 8u ) : 8, destination().hash(), routerKey,
        linkKey, most } );
}

/// For each immediate neighbour the repair with the fewest nodes that begins with it, of so many
/// neighbours.
AllPqPathWithImmNgb
PqComputeSm::getAllPqPath( std::size_t most ) {
   const TopoGraph & topology = this->topology();
   const CspfRepairs found = repairs( most );
   [[maybe_unused]] const auto & cspfData = runs().constrained;
   AllPqPathWithImmNgb all;
   for ( const CspfRepair & repair : found.repairs ) {
      PqPathWithImmNgb path{ topology.nodeId( repair.firstHop ), repair.firstLinks, {}, {} };
      for ( const CspfRepairSegment & segment : repair.segments ) {
         const NodeId & node = topology.nodeId( segment.node );
         LUM_ASSERT( node != cspfData->source() );
         path.path.push( node.isisSystemId() );
         path.segment.push( this->segment( segment ) );
      }
      all.pqPathWithImmNgb.push_back( std::move( path ) );
   }
   TRACE8( "Found " << all.pqPathWithImmNgbs() << " PQ paths to dst: " << destination() );
   if ( found.repairs.empty() ) {
      reason_ = found.nodesNeeded ? std::to_string( found.nodesNeeded )
                                       + " repair nodes would be needed, more than there may be"
                                  : "no repair avoids all that is excluded";
   }
   return all;
}

RepairSegment
PqComputeSm::segment( const CspfRepairSegment & segment ) const {
   const TopoGraph & topology = this->topology();
   RepairSegment published;
   published.toIs( topology.nodeId( segment.node ).isisSystemId() );
   if ( segment.link != noEdge ) {
      const CspfVertex from = topology.graph().from( segment.link );
      published.fromIs( topology.nodeId( from ).isisSystemId() );
      published.nearAddrIs( topology.interfaceAddr( segment.link ) );
      published.farAddrIs( topology.nextHop( segment.arrival ) );
   }
   return published;
}

/// The first one whose next hop is known.
std::optional< PqPath >
PqComputeSm::getLoadBalancedPqPath( const AllPqPathWithImmNgb * allPqPath ) {
   LUM_ASSERT( allPqPath->pqPathWithImmNgbs() != 0 );
   const char * const operation = __PRETTY_FUNCTION__;
   for ( const PqPathWithImmNgb & candidate : allPqPath->pqPathWithImmNgb ) {
      PqPath path;
      if ( std::ranges::any_of( candidate.firstLinks, [ & ]( CspfEdge link ) {
              return resolveNexthop( candidate.immNgb, link, path, operation );
           } ) ) {
         path.path_ = candidate.path;
         path.segment_ = candidate.segment;
         return path;
      }
   }
   const CspfEdge preferred = allPqPath->pqPathWithImmNgb.front().firstLinks.front();
   reason_ = "no next hop known on " + topology().neighbor( preferred ).intfId().stringValue();
   return std::nullopt;
}

/// A neighbour on a point-to-point link may be without address, the interface names it; one on a
/// LAN may not.
bool
PqComputeSm::resolveNexthop( const NodeId & immNgb, CspfEdge firstLink, PqPath & path,
                             const char * operation ) const {
   const IsisExportImpl::AdjacencyKey key{ topology().neighbor( firstLink ).intfId(),
                                           immNgb.isisSystemId() };
   const auto & adjacencies = context().isisAdjacencyInfo;
   const auto * adjacency = adjacencies ? adjacencies->adjacencyFind( key ) : nullptr;
   path.nhIntfIs( key.intf() );
   if ( adjacency ) {
      path.nhIpIs( context().af == Kivnet::AddressFamily::ipv4 ? adjacency->nexthopV4()
                                                               : adjacency->nexthopV6() );
   }
   if ( !path.nhIp() ) {
      TRACE7_FOR( operation, "Nexthop information not available for intf: "
                                << key.intf() << " sysId: " << key.systemId() );
   }
   const bool isLan = topology().graph().kind( firstLink ) == CspfEdgeKind::routerToNetwork;
   return path.nhIp() || ( adjacency && !isLan );
}

void
PqComputeSm::publish( const std::optional< PqPath > & path, RepairKind achieved ) {
   const auto alive = keptAlive();  // whoever reads the reason may withdraw the request
   const auto & status = pathStatusInfo_->cspfStatus();
   const auto & held = pathStatusCache_->pqInfo();
   Lum::Ptr< DedupPqInfo > pqInfo = !path ? nullptr
                                    : held && held->pqPath() == *path
                                       ? held
                                       : context().dedupPqInfoTable->dedup( *path );
   if ( pqInfo && pqInfo->pqIdx() == 0 ) {
      pqInfo = nullptr;
      reason_ = "no repair identifier is left";
      protection_->answerDoesNotHold();
   }
   if ( pqInfo ) {
      status->pathErrorDel( pathInfoKey().pathKey() );
   } else {
      status->pathErrorIs( pathInfoKey().pathKey(), reason_ );
   }
   if ( isRetired() ) {
      return;
   }
   pathStatusCache_->achievedIs( pqInfo ? achieved : RepairKind::none );
   pathStatusCache_->repairOfIs( Lum::hashOf( asked() ) );
   pathStatusCache_->pqInfoIs( pqInfo );
   endStage2();
}

/// Whoever read the reason may have asked anew; what is worked out for that is published.
void
PqComputeSm::endStage2() {
   pathStatusCache_->stage2LastRanAtIs( Lum::now() );
   pathStatusCache_->refreshedStage2CountInc();
}

void
PqComputeSm::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cPqComputeSm %s\n",
                   pathInfoKey().traceString().stringValue().c_str() );
   protection_->dumpState( context, indent + 1 );
   if ( !reason_.empty() ) {
      context.printf( indent + 1, "%*c%s: %s\n",
                      pathStatusCache_->pqInfo() ? "repair stays" : "no repair", reason_.c_str() );
   } else if ( runs().complete() ) {
      context.printf( indent + 1, "%*ccost to destination: after the failure %u, from %s %u\n",
                      getPostConvergenceCostFromPlrToDest(),
                      runs().neighbor->source().stringValue().c_str(),
                      getCostFromProtNodeToDest() );
   }
}

Lum::Ptr< PqComputeSm >
makePqComputeSm( const RepairContext & context, const PathInfoKey & pathInfoKey ) {
   const Destination & destination = pathInfoKey.pathKey().dst();
   const bool isRouter =
      destination.type() == VertexType::isisRouter || destination.type() == VertexType::ospfRouter;
   if ( isRouter || !destination ) {
      return new PqComputeSm( context, pathInfoKey );
   }
   return new PqComputePfxSm( context, pathInfoKey );
}

}
