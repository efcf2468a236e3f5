// When the repair of a path is worked out, and what becomes of it. Four runs come in on their own
// throttles; a repair needs all four of one and the same topology, so this waits until the last one
// has caught up. Meanwhile what is published stays. A run that cannot be had ends the wait: then
// there is no repair, and the client reads why. But when the protected link goes, which is when
// routers need the repair, the one that is published stays until its request goes or the link is
// back.
//
// The repair is the second stage of the path's refresh; counting it makes the path's publisher
// compare and write. Nothing is counted while a newer refresh is under way, whose own second
// stage comes later.

#include "Cspf/Repairs/PqComputeSm.h"

#include "Cspf/Views/View.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf::Lfa {

namespace {

Lum::Ptr< const LfaCspfData >
dataOf( const Lum::Ptr< PathStatusCache > & cache ) {
   return cache ? Lum::cast< const LfaCspfData >( cache->cspfData() ) : nullptr;
}

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

}

PqComputeSm::PqComputeSm( const RepairContext & context, const PathInfoKey & pathInfoKey )
   : context_( context ),
     pathInfoKey_( pathInfoKey ),
     pathStatusInfo_( context.pathStatusInfoTable->pathStatusInfo( pathInfoKey ) ),
     pqComputeTask_( context.taskScheduler, "pqComputeTask-" + pathInfoKey.traceString(),
                     [ this ]() { handlePqComputeTask(); } ) {}

void
PqComputeSm::handleInitialized() {
   LUM_WATCH( pathStatusInfo_, stage2RequestCount, handleCspfData );
   if ( context_.isisAdjacencyInfo ) {
      LUM_WATCH_KEYS( context_.isisAdjacencyInfo, adjacency, handleAdjacency );
   }
   bindCaches();
   handleCspfData();
}

void
PqComputeSm::doPrepareToDie() {
   pqComputeTask_.unschedule();
}

Lum::Ptr< PathStatusCache >
PqComputeSm::cacheOf( const PathInfoKey & key ) {
   auto cache = context_.pathStatusCacheTable->pathStatusCache( key );
   if ( cache ) {
      LUM_WATCH( cache, cspfData, handleCspfData );
   }
   return cache;
}

Lum::Ptr< PathStatusCache >
PqComputeSm::treeCache( TilfaTree tree ) {
   auto cache = cacheOf( tilfaTreeKey( pathInfoKey_, tree, isLinkProtection_ ) );
   if ( cache ) {
      LUM_WATCH( cache, refreshedStage1Count, handleCspfData );
   }
   return cache;
}

/// Trees of what was protected before may still be there.
void
PqComputeSm::bindCaches() {
   const auto & row = context_.pathConfigInfoTable->pathConfigInfo( pathInfoKey_ );
   const PathConstraint constraint =
      row->cspfConfig()->pathConfig( pathInfoKey_.pathKey() ).constraint();
   isLinkProtection_ = isLinkProtection( constraint );
   pPathStatusCache_ = cPathStatusCache_ = cacheOf( pathInfoKey_ );
   if ( constraint.excludeIntf() ) {
      uFwdPathStatusCache_ = treeCache( TilfaTree::forward );
      uNgbPathStatusCache_ = treeCache( TilfaTree::neighbor );
      uRevPathStatusCache_ = treeCache( TilfaTree::reverse );
   }
}

RepairRuns
PqComputeSm::currentRuns() const {
   return { dataOf( cPathStatusCache_ ), dataOf( uFwdPathStatusCache_ ),
            dataOf( uNgbPathStatusCache_ ), dataOf( uRevPathStatusCache_ ), isLinkProtection_ };
}

std::string
PqComputeSm::missingRunOf( const Lum::Ptr< PathStatusCache > & cache ) const {
   const auto & path = context_.pathStatusInfoTable->pathStatusInfo( cache->pathInfoKey() );
   const auto & constraint = path ? path->constraint() : nullptr;
   const auto & row =
      constraint ? context_.constraintInfoTable->constraintInfo( constraint ) : nullptr;
   if ( !row || !( row->sourceMissing() || row->constraintMissingInTopo() ) ) {
      return "";
   }
   return row->sourceMissing() ? "source not found in topology"
                               : "protected link or its neighbor not found in topology";
}

/// Why one of the runs will not come; empty while they may.
std::string
PqComputeSm::missingRun() const {
   for ( const auto & cache :
         { cPathStatusCache_, uFwdPathStatusCache_, uNgbPathStatusCache_, uRevPathStatusCache_ } ) {
      if ( !cache ) {
         return "no protected interface asked for";
      }
      if ( std::string missing = missingRunOf( cache ); !missing.empty() ) {
         return missing;
      }
   }
   const auto constrained = dataOf( cPathStatusCache_ );
   return constrained && constrained->buildReverseSpt() ? "reverse path asked for" : "";
}

bool
PqComputeSm::canCompute() const {
   return pathStatusInfo_->constraint() && !waitsForRefresh()
          && ( currentRuns().complete() || !missingRun().empty() );
}

void
PqComputeSm::handleCspfData() {
   TRACE8( "called for " << pathInfoKey_.traceString() );
   if ( canCompute() ) {
      pqComputeTask_.schedule();
   } else if ( pqComputeTask_.scheduled() ) {
      TRACE8( "Unscheduling pqComputeTask" );
      pqComputeTask_.unschedule();
   }
}

void
PqComputeSm::handleAdjacency( const IsisExportImpl::AdjacencyKey & key ) {
   if ( std::ranges::find( adjacencyKeys_, key ) != adjacencyKeys_.end() ) {
      adjacencyUpdatedAt_ = Lum::now();
      handleCspfData();
   }
}

void
PqComputeSm::handlePqComputeTask() {
   doPqCompute();
}

void
PqComputeSm::doPqCompute() {
   if ( !canCompute() ) {
      return;
   }
   reason_ = missingRun();
   if ( protectedLinkIsGone() ) {
      TRACE7( "repair for " << pathInfoKey_.traceString() << " stays: " << reason_ );
      endStage2();
      return;
   }
   const Lum::Ptr< const SharedRepairs > shared = repairs_;  // until its successor is found
   runs_ = currentRuns();
   repairs_ = nullptr;
   if ( !reason_.empty() ) {
      TRACE7( "no repair for " << pathInfoKey_.traceString() << ": " << reason_ );
      publish( std::nullopt );
   } else {
      compute();
   }
}

/// Whether the link is gone that the published repair protects: there is no new tree of its far
/// end, but still an old one, if not the very one that the repair came of.
bool
PqComputeSm::protectedLinkIsGone() const {
   const auto lastTree = dataOf( uNgbPathStatusCache_ );
   return pPathStatusCache_->pqInfo() && lastTree && runs_.neighbor
          && lastTree->source() == runs_.neighbor->source()
          && !missingRunOf( uNgbPathStatusCache_ ).empty();
}

void
PqComputeSm::compute() {
   repairs_ =
      context_.dedupPqInfoTable->sharedRepairs()->dedup( Lum::make< SharedRepairs >( runs_ ) );
   if ( !validateDestination() ) {
      publish( std::nullopt );
      return;
   }
   TRACE7( "PQ computation with constrained at: " << runs_.constrained->ranAt()
                                                  << " fwdSpf at: " << runs_.forward->ranAt()
                                                  << " ngbSpf at: " << runs_.neighbor->ranAt()
                                                  << " revSpf at: " << runs_.reverse->ranAt() );
   const AllPqPathWithImmNgb allPqPath = getAllPqPath();
   publish( allPqPath.pqPathWithImmNgbs() > 0 ? getLoadBalancedPqPath( &allPqPath )
                                              : std::nullopt );
}

const TopoId &
PqComputeSm::topoId() const {
   return pathStatusInfo_->constraint()->pathConstraint().topoId();
}

const TopoGraph &
PqComputeSm::topology() const {
   return runs_.constrained->view().topoGraph();
}

std::vector< CspfRepairTable::Originator >
PqComputeSm::getAllDestinationNodes() const {
   const CspfVertex router = topology().vertex( NodeId( destination() ) );
   if ( router == noVertex ) {
      return {};
   }
   return { { router, 0 } };
}

std::uint32_t
PqComputeSm::getCostFromProtNodeToDest() const {
   return cheapest( runs_.neighbor->tree(), getAllDestinationNodes() );
}

std::uint32_t
PqComputeSm::getPostConvergenceCostFromPlrToDest() const {
   return cheapest( runs_.constrained->tree(), getAllDestinationNodes() );
}

bool
PqComputeSm::isDestinationNode( const NodeId & nodeId ) const {
   return nodeId == NodeId( destination() );
}

bool
PqComputeSm::validateDestination() {
   if ( isDestinationNode( runs_.constrained->source() ) ) {
      TRACE7( "Ignoring computation as source is the destination: " << destination() );
      reason_ = "source is the destination";
   } else if ( getPostConvergenceCostFromPlrToDest() == CspfTree::unreachedMetric ) {
      TRACE7( "Ignoring computation as shortest path to dest not found: " << destination() );
      reason_ = "no path to the destination that avoids what is protected";
   }
   return reason_.empty();
}

/// For each immediate neighbour the repair with the fewest nodes that begins with it.
AllPqPathWithImmNgb
PqComputeSm::getAllPqPath() {
   const TopoGraph & topology = this->topology();
   const auto & cspfData = runs_.constrained;
   AllPqPathWithImmNgb all;
   const CspfRepairTable::RouterKey routerKey = [ & ]( CspfVertex router ) {
      return topology.nodeId( router ).hash();
   };
   const CspfRepairTable::LinkKey linkKey = [ & ]( CspfEdge link ) {
      return topology.neighbor( link ).intfId().hash();
   };
   const auto originators = getAllDestinationNodes();
   const CspfRepairs found = repairs_->table( topology )
                                .repairs( topology.graph(), cspfData->tree(),
                                          { originators, 8, destination().hash(), routerKey, linkKey } );
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
   TRACE7( "Found " << all.pqPathWithImmNgbs() << " PQ paths to dst: " << destination() );
   reason_ =
      all.pqPathWithImmNgb.empty() ? "no repair with as few repair nodes as there may be" : "";
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

/// The first one whose next hop is known. A next hop that comes to be known, and would have been
/// preferred, is heard of.
std::optional< PqPath >
PqComputeSm::getLoadBalancedPqPath( const AllPqPathWithImmNgb * allPqPath ) {
   LUM_ASSERT( allPqPath->pqPathWithImmNgbs() != 0 );
   adjacencyKeys_.clear();
   for ( const PqPathWithImmNgb & candidate : allPqPath->pqPathWithImmNgb ) {
      PqPath path;
      if ( std::ranges::any_of( candidate.firstLinks, [ & ]( CspfEdge link ) {
              return resolveNexthop( candidate.immNgb, link, path );
           } ) ) {
         path.path_ = candidate.path;
         path.segment_ = candidate.segment;
         return path;
      }
   }
   reason_ = "no next hop known on " + adjacencyKeys_.front().intf().stringValue();
   return std::nullopt;
}

/// A neighbour on a point-to-point link may be without address, the interface names it; one on a
/// LAN may not.
bool
PqComputeSm::resolveNexthop( const NodeId & immNgb, CspfEdge firstLink, PqPath & path ) {
   const IsisExportImpl::AdjacencyKey key{ topology().neighbor( firstLink ).intfId(),
                                           immNgb.isisSystemId() };
   adjacencyKeys_.push_back( key );
   const auto * adjacency =
      context_.isisAdjacencyInfo ? context_.isisAdjacencyInfo->adjacencyFind( key ) : nullptr;
   path.nhIntfIs( key.intf() );
   if ( adjacency ) {
      path.nhIpIs( context_.af == Kivnet::AddressFamily::ipv4 ? adjacency->nexthopV4()
                                                              : adjacency->nexthopV6() );
   }
   if ( !path.nhIp() ) {
      TRACE7( "Nexthop information not available for intf: " << key.intf()
                                                             << " sysId: " << key.systemId() );
   }
   const bool isLan = topology().graph().kind( firstLink ) == CspfEdgeKind::routerToNetwork;
   return path.nhIp() || ( adjacency && !isLan );
}

void
PqComputeSm::publish( const std::optional< PqPath > & path ) {
   const auto & status = pathStatusInfo_->cspfStatus();
   Lum::Ptr< DedupPqInfo > pqInfo = path ? context_.dedupPqInfoTable->dedup( *path ) : nullptr;
   if ( pqInfo && pqInfo->pqIdx() == 0 ) {
      pqInfo = nullptr;
      reason_ = "no repair identifier is left";
   }
   if ( pqInfo ) {
      status->pathErrorDel( pathInfoKey_.pathKey() );
   } else {
      status->pathErrorIs( pathInfoKey_.pathKey(), reason_ );
   }
   pPathStatusCache_->pqInfoIs( pqInfo );
   endStage2();
}

/// The path's publisher may end this machine's path.
void
PqComputeSm::endStage2() {
   const auto alive = keptAlive();
   pPathStatusCache_->stage2LastRanAtIs( Lum::now() );
   pPathStatusCache_->refreshedStage2CountInc();
}

void
PqComputeSm::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cPqComputeSm %s\n", pathInfoKey_.traceString().c_str() );
   context.printf( indent + 1, "%*cprotection: %s\n", isLinkProtection_ ? "link" : "node" );
   for ( const auto & key : adjacencyKeys_ ) {
      context.printf( indent + 1, "%*cadjacency: %s %s\n", key.intf().stringValue().c_str(),
                      key.systemId().stringValue().c_str() );
   }
   context.dumpAge( indent + 1, "adjacency updated", adjacencyUpdatedAt_ );
   const auto dumpRun = [ & ]( const char * label, const Lum::Ptr< const LfaCspfData > & run ) {
      context.dumpAge( indent + 1, label, run ? run->ranAt() : 0 );
   };
   dumpRun( "constrained run", runs_.constrained );
   dumpRun( "forward run", runs_.forward );
   dumpRun( "neighbor run", runs_.neighbor );
   dumpRun( "reverse run", runs_.reverse );
   context.printf( indent + 1, "%*ccomputation scheduled: %s\n",
                   pqComputeTask_.scheduled() ? "yes" : "no" );
   if ( !reason_.empty() ) {
      context.printf( indent + 1, "%*c%s: %s\n",
                      pPathStatusCache_ && pPathStatusCache_->pqInfo() ? "repair stays"
                                                                       : "no repair",
                      reason_.c_str() );
   } else if ( runs_.complete() ) {
      context.printf( indent + 1, "%*ccost to destination: after the failure %u, from %s %u\n",
                      getPostConvergenceCostFromPlrToDest(),
                      runs_.neighbor->source().stringValue().c_str(), getCostFromProtNodeToDest() );
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
