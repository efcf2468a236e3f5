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
     pqComputeTask_( *this, context.taskScheduler, "pqComputeTask-" + pathInfoKey.traceString(),
                     [ this ]() { handlePqComputeTask(); } ) {}

void
PqComputeSm::handleInitialized() {
   LUM_WATCH( pathStatusInfo_, stage2RequestCount, handleCspfData );
   if ( context_.isisAdjacencyInfo ) {
      LUM_WATCH_KEYS( context_.isisAdjacencyInfo, adjacency, handleAdjacency );
   }
   bindCaches();
   adoptPublished();
   handleCspfData();
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
   const std::uint32_t trees =
      context_.pathConfigInfoTable->pathConfigInfo( pathInfoKey_ )->treesId();
   auto cache =
      cacheOf( tilfaTreeKey( pathInfoKey_.clientName(), trees, tree, isLinkProtection_ ) );
   if ( cache ) {
      LUM_WATCH( cache, refreshedStage1Count, handleCspfData );
   }
   return cache;
}

const PathConstraint &
PqComputeSm::asked() const {
   const auto & row = context_.pathConfigInfoTable->pathConfigInfo( pathInfoKey_ );
   return row->cspfConfig()->pathConfigFind( pathInfoKey_.pathKey() )->constraint();
}

void
PqComputeSm::bindCaches() {
   const PathConstraint constraint = repairConstraint( asked() );
   isLinkProtection_ = isLinkProtection( constraint );
   pPathStatusCache_ = cPathStatusCache_ = cacheOf( pathInfoKey_ );
   if ( !constraint.excludeIntf() ) {
      return;
   }
   uFwdPathStatusCache_ = treeCache( TilfaTree::forward );
   uNgbPathStatusCache_ = treeCache( TilfaTree::neighbor );
   uRevPathStatusCache_ = treeCache( TilfaTree::reverse );
   if ( tilfaTrees( constraint ).size() > 3 ) {
      linkPathStatusCache_ = treeCache( TilfaTree::withoutLink );
      plrPathStatusCache_ = treeCache( TilfaTree::toPlr );
   }
}

/// An agent that starts takes over what an earlier one has published for the same path. Where the
/// protected link is gone, there is no other way to know it.
void
PqComputeSm::adoptPublished() {
   const auto & status = pathStatusInfo_->cspfStatus();
   const PathStatus * published = status->pathStatusFind( pathInfoKey_.pathKey() );
   const PqInfo * repair = published ? status->pqInfoFind( published->repairPathIdx() ) : nullptr;
   if ( !repair || pPathStatusCache_->pqInfo() ) {
      return;
   }
   PqPath path;
   Lum::copyFields( *repair, path );
   pPathStatusCache_->pqInfoIs( context_.dedupPqInfoTable->dedup( path ) );
   pPathStatusCache_->achievedIs( published->achieved() );
   pPathStatusCache_->repairOfIs( Lum::hashOf( asked() ) );
}

RepairRuns
PqComputeSm::currentRuns( bool isLinkProtection ) const {
   const bool instead = isLinkProtection && !isLinkProtection_;
   return { dataOf( instead ? linkPathStatusCache_ : cPathStatusCache_ ),
            dataOf( uFwdPathStatusCache_ ), dataOf( uNgbPathStatusCache_ ),
            dataOf( instead ? plrPathStatusCache_ : uRevPathStatusCache_ ), isLinkProtection };
}

bool
PqComputeSm::runsAreComplete() const {
   return currentRuns().complete() && ( !linkPathStatusCache_ || currentRuns( true ).complete() );
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
   if ( row->sourceMissing() ) {
      return "source not found in topology";
   }
   const std::string intf = constraint->pathConstraint().excludeIntf().stringValue();
   switch ( row->missing() ) {
   case ConstraintMissing::neighborOnInterface: return "interface " + intf + " has no neighbor";
   case ConstraintMissing::neighborOnLan: return "neighbor not found on the LAN behind " + intf;
   case ConstraintMissing::nodeBehindInterface: return "another node is behind interface " + intf;
   default: return "interface " + intf + " not found in topology";
   }
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
          && ( runsAreComplete() || !missingRun().empty() );
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
   if ( !reason_.empty() && protectedLinkIsGone() ) {
      TRACE7( "repair for " << pathInfoKey_.traceString() << " stays: " << reason_ );
      endStage2();
      return;
   }
   const auto shared = std::pair( repairs_, linkRepairs_ );  // until their successors are found
   repairs_ = linkRepairs_ = nullptr;
   runs_ = currentRuns();
   if ( !reason_.empty() ) {
      TRACE7( "no repair for " << pathInfoKey_.traceString() << ": " << reason_ );
      publish( std::nullopt, RepairKind::none );
      return;
   }
   std::optional< PqPath > path = doPqCompute( isLinkProtection_ );
   const bool instead = !path && linkPathStatusCache_;
   if ( instead ) {
      path = doPqCompute( true );
   }
   publish( path, isLinkProtection_ || instead ? RepairKind::link : RepairKind::node );
}

/// Whether what the published repair protects against has come: the link is gone, or has lost its
/// neighbour. The repair is that of the request as it is.
bool
PqComputeSm::protectedLinkIsGone() const {
   if ( !pPathStatusCache_->pqInfo() || !uNgbPathStatusCache_
        || pPathStatusCache_->repairOf() != Lum::hashOf( asked() )
        || missingRunOf( uNgbPathStatusCache_ ).empty() ) {
      return false;
   }
   const auto & path =
      context_.pathStatusInfoTable->pathStatusInfo( uNgbPathStatusCache_->pathInfoKey() );
   return context_.constraintInfoTable->constraintInfo( path->constraint() )->missing()
          != ConstraintMissing::nodeBehindInterface;
}

std::optional< PqPath >
PqComputeSm::doPqCompute( bool isLinkProtection ) {
   reason_.clear();
   runs_ = currentRuns( isLinkProtection );
   auto & shared = isLinkProtection == isLinkProtection_ ? repairs_ : linkRepairs_;
   shared =
      context_.dedupPqInfoTable->sharedRepairs()->dedup( Lum::make< SharedRepairs >( runs_ ) );
   if ( !validateDestination() ) {
      return std::nullopt;
   }
   TRACE7( "PQ computation with constrained at: " << runs_.constrained->ranAt()
                                                  << " fwdSpf at: " << runs_.forward->ranAt()
                                                  << " ngbSpf at: " << runs_.neighbor->ranAt()
                                                  << " revSpf at: " << runs_.reverse->ranAt() );
   const AllPqPathWithImmNgb allPqPath = getAllPqPath( *shared );
   return allPqPath.pqPathWithImmNgbs() > 0 ? getLoadBalancedPqPath( &allPqPath ) : std::nullopt;
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
   const CspfVertex router = topoId() ? topology().router( topoId(), IgpRouterId( destination() ) )
                                      : topology().vertex( NodeId( destination() ) );
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
   const auto originators = getAllDestinationNodes();
   if ( originators.empty() ) {
      TRACE7( "Ignoring computation as destination is not there: " << destination() );
      reason_ = destination().isisSystemId() ? "destination not found in topology"
                                             : "prefix is not announced";
   } else if ( isDestinationNode( runs_.constrained->source() ) ) {
      TRACE7( "Ignoring computation as source is the destination: " << destination() );
      reason_ = "source is the destination";
   } else if ( !runs_.isLinkProtection && originators.size() == 1
               && topology().nodeId( originators.front().router ) == runs_.neighbor->source() ) {
      TRACE7( "Ignoring computation as destination is the protected node: " << destination() );
      reason_ = "destination is the protected node";
   } else if ( getPostConvergenceCostFromPlrToDest() == CspfTree::unreachedMetric ) {
      TRACE7( "Ignoring computation as shortest path to dest not found: " << destination() );
      reason_ = "no path to the destination that avoids what is protected";
   }
   return reason_.empty();
}

/// For each immediate neighbour the repair with the fewest nodes that begins with it.
AllPqPathWithImmNgb
PqComputeSm::getAllPqPath( SharedRepairs & shared ) {
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
   const std::uint32_t maxNodes = asked().maxRepairNodes();
   const CspfRepairs found = shared.table( topology )
                                .repairs( topology.graph(), cspfData->tree(),
                                          { originators, maxNodes ? std::min( maxNodes, 8u ) : 8,
                                            destination().hash(), routerKey, linkKey } );
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

/// The first one whose next hop is known. A next hop that comes to be known, and would have been
/// preferred, is heard of.
std::optional< PqPath >
PqComputeSm::getLoadBalancedPqPath( const AllPqPathWithImmNgb * allPqPath ) {
   LUM_ASSERT( allPqPath->pqPathWithImmNgbs() != 0 );
   const char * const operation = __PRETTY_FUNCTION__;
   adjacencyKeys_.clear();
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
   reason_ = "no next hop known on " + adjacencyKeys_.front().intf().stringValue();
   return std::nullopt;
}

/// A neighbour on a point-to-point link may be without address, the interface names it; one on a
/// LAN may not.
bool
PqComputeSm::resolveNexthop( const NodeId & immNgb, CspfEdge firstLink, PqPath & path,
                             const char * operation ) {
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
      TRACE7_FOR( operation, "Nexthop information not available for intf: "
                                << key.intf() << " sysId: " << key.systemId() );
   }
   const bool isLan = topology().graph().kind( firstLink ) == CspfEdgeKind::routerToNetwork;
   return path.nhIp() || ( adjacency && !isLan );
}

void
PqComputeSm::publish( const std::optional< PqPath > & path, RepairKind achieved ) {
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
   pPathStatusCache_->achievedIs( pqInfo ? achieved : RepairKind::none );
   pPathStatusCache_->repairOfIs( Lum::hashOf( asked() ) );
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
                      pPathStatusCache_->pqInfo() ? "repair stays" : "no repair", reason_.c_str() );
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
