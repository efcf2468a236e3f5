// Repairs towards prefixes. What differs from a router is where the packet may end, and that this
// changes without the graph: a prefix moves, is advertised by one more router, or at another
// metric. That is heard of at once, and what is to be done waits for the hold-down: prefixes that
// flap cost one computation a period. The store stamps it like any change of the topology, too, so
// the path is refreshed; but where the trees at hand are of the graph as it is, the refresh does
// not wait until its run, held down for seconds perhaps, is found to hold.

#include "Cspf/Repairs/PqComputeSm.h"
#include "platform/Kiv/DumpContext.h"

#include <algorithm>

namespace Cspf::Lfa {

PqComputePfxSm::PqComputePfxSm( const RepairContext & context, const PathInfoKey & pathInfoKey )
   : PqComputeSm( context, pathInfoKey ),
     prefix_( destination().ipPrefix() ? destination().ipPrefix()
                                       : Kivnet::IpGenPrefix::host( destination().ipAddress() ) ),
     pqComputePrcTask_( *this, context.taskScheduler,
                        "pqComputePrcTask-" + pathInfoKey.traceString(),
                        [ this ]() { handlePqComputePrcTask(); } ) {}

std::vector< OriginatorInfo >
PqComputePfxSm::originators() const {
   const auto & status = context().allTopoDbStatus;
   if ( !topoId() ) {
      return status->originators( prefix_ );
   }
   std::vector< OriginatorInfo > result;
   const auto & table = status->pfxOriginatorInfoTable( topoId() );
   if ( const auto prefix = table ? table->pfxOriginatorInfo( prefix_ ) : nullptr ) {
      for ( const auto & [ router, originator ] : prefix->originatorInfoColl() ) {
         result.push_back( originator );
      }
   }
   return result;
}

void
PqComputePfxSm::handleInitialized() {
   context().prefixWatch->listenerIs( prefix_, *this );
   watchOriginators();
   PqComputeSm::handleInitialized();
}

void
PqComputePfxSm::doPrepareToDie() {
   context().prefixWatch->listenerDel( prefix_, *this );
}

void
PqComputePfxSm::watchOriginators() {
   for ( const auto & [ topoId, table ] :
         context().allTopoDbStatus->pfxOriginatorInfoTableColl() ) {
      if ( const auto & info = table->pfxOriginatorInfo( prefix_ ) ) {
         unwatch( *info );
         LUM_WATCH_KEYS( info, originatorInfo, handleOriginatorInfo );
      }
   }
}

void
PqComputePfxSm::handlePfxOriginatorInfo( const Kivnet::IpGenPrefix & ) {
   watchOriginators();
   networkUpdate_ = true;
   if ( runsAreKnown() ) {
      schedulePrc();
   }
}

void
PqComputePfxSm::handleOriginatorInfo( const NodeId & router ) {
   reachabilityUpdate_.insert( router );
   if ( runsAreKnown() ) {
      schedulePrc();
   }
}

void
PqComputePfxSm::handleCspfData() {
   const bool onlyReachability =
      runsAreKnown() && canCompute() && runs().complete() && reachabilityChanged();
   if ( onlyReachability ) {
      schedulePrc();
   } else {
      PqComputeSm::handleCspfData();
   }
}

void
PqComputePfxSm::schedulePrc() {
   if ( pqComputePrcTask_.scheduled() ) {
      return;
   }
   const Lum::Seconds sinceLast = Lum::now() - prcLastRan_;
   if ( sinceLast >= 2 * prcCurrentHoldInterval_ ) {
      prcCurrentHoldInterval_ = initialHoldInterval;
   }
   pqComputePrcTask_.schedule( std::max( 0.0, prcCurrentHoldInterval_ - sinceLast ) );
}

void
PqComputePfxSm::handlePqComputePrcTask() {
   if ( waitsForRefresh() && runsAreKnown() && runs().complete() ) {
      // The trees hold: the path's first stage is over, and its second one leads here again.
      context().pathStatusCacheTable->pathStatusCache( pathInfoKey() )->refreshedStage1CountInc();
      return;
   }
   if ( !canCompute() || !reachabilityChanged() ) {
      return;  // the end of the refresh, or the next run, computes; or has done so
   }
   const Lum::Seconds now = Lum::now();
   if ( now - prcLastRan_ < 2 * prcCurrentHoldInterval_ ) {
      prcCurrentHoldInterval_ = std::min( maxHoldInterval, 2 * prcCurrentHoldInterval_ );
   }
   prcLastRan_ = now;
   handlePqComputeTask();
}

void
PqComputePfxSm::handlePqComputeTask() {
   if ( canCompute() ) {
      reachabilityUpdate_.clear();
      networkUpdate_ = false;
   }
   PqComputeSm::handlePqComputeTask();
}

std::vector< CspfRepairTable::Originator >
PqComputePfxSm::getAllDestinationNodes() const {
   std::vector< CspfRepairTable::Originator > result;
   for ( const OriginatorInfo & originator : originators() ) {
      const CspfVertex router = topology().vertex( originator.routerId() );
      if ( router != noVertex ) {
         result.push_back( { router, originator.metric() } );
      }
   }
   return result;
}

/// A router that originates the prefix, but reaches another originator at less cost, is none.
bool
PqComputePfxSm::isDestinationNode( const NodeId & nodeId ) const {
   const CspfVertex router = topology().vertex( nodeId );
   const std::uint32_t least = getPostConvergenceCostFromPlrToDest();
   return std::ranges::any_of( getAllDestinationNodes(), [ & ]( const auto & originator ) {
      return originator.router == router
             && std::uint64_t( runs().constrained->tree().metric( router ) ) + originator.metric
                   == least;
   } );
}

void
PqComputePfxSm::dumpState( Kiv::DumpContext & context, int indent ) const {
   PqComputeSm::dumpState( context, indent );
   context.printf( indent + 1, "%*chold interval: %.3f seconds\n", prcCurrentHoldInterval_ );
   context.dumpAge( indent + 1, "last run for a prefix change", prcLastRan_ > 0 ? prcLastRan_ : 0 );
   context.printf( indent + 1, "%*crun for a prefix change scheduled: %s\n",
                   pqComputePrcTask_.scheduled() ? "yes" : "no" );
   for ( const OriginatorInfo & originator : originators() ) {
      context.printf( indent + 1, "%*coriginator %s, metric %u\n",
                      originator.routerId().stringValue().c_str(), originator.metric() );
   }
}

}
