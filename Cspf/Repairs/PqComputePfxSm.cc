// Repairs towards prefixes. What differs from a router is where the packet may end, and that this
// changes without the graph: a prefix moves, is advertised by one more router, or at another
// metric. That is heard of at once, and what is to be done waits for the hold-down: prefixes that
// flap cost one computation a period. The store stamps it like any change of the topology, too; but
// where the trees at hand are of the graph as it is, the repair does not wait until their run, held
// down for seconds perhaps, is found to hold.

#include "Cspf/Repairs/PqComputeSm.h"
#include "platform/Kiv/DumpContext.h"

#include <algorithm>

namespace Cspf::Lfa {

PqComputePfxSm::PqComputePfxSm( const RepairContext & context, const PathInfoKey & pathInfoKey )
   : PqComputeSm( context, pathInfoKey ),
     prefix_( destination().ipPrefix() ? destination().ipPrefix()
                                       : Kivnet::IpGenPrefix::host( destination().ipAddress() ) ) {}

/// Calls `visit( router, metric )` for each router that originates the prefix.
template< class Visit >
void
PqComputePfxSm::forEachOriginator( Visit && visit ) const {
   const auto & status = context().allTopoDbStatus;
   if ( !topoId() ) {
      for ( const OriginatorInfo & originator : status->originators( prefix_ ) ) {
         visit( originator );
      }
      return;
   }
   const auto & table = status->pfxOriginatorInfoTable( topoId() );
   const auto * prefix = table ? table->pfxOriginatorInfoFind( prefix_ ) : nullptr;
   if ( prefix ) {
      for ( const auto & [ router, originator ] : ( *prefix )->originatorInfoColl() ) {
         visit( originator );
      }
   }
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
   PqComputeSm::doPrepareToDie();
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
   schedulePrc();
}

void
PqComputePfxSm::handleOriginatorInfo( const NodeId & ) {
   schedulePrc();
}

/// Where other runs are to come, what is worked out of them has seen the change.
void
PqComputePfxSm::schedulePrc() {
   hasMovedIs( true );
   if ( pqComputePrcTask_ || !protection().runsAreKnown() ) {
      return;
   }
   const Lum::Seconds sinceLast = Lum::now() - prcLastRan_;
   if ( sinceLast >= 2 * prcCurrentHoldInterval_ ) {
      prcCurrentHoldInterval_ = initialHoldInterval;
   }
   pqComputePrcTask_ = std::make_unique< Kiv::Task >(
      *this, context().taskScheduler, "pqComputePrcTask-" + destination().stringValue(),
      [ this ]() { handlePqComputePrcTask(); } );
   pqComputePrcTask_->schedule( std::max( 0.0, prcCurrentHoldInterval_ - sinceLast ) );
}

void
PqComputePfxSm::handlePqComputePrcTask() {
   pqComputePrcTask_ = nullptr;
   if ( !hasMoved() || !protection().runsAreKnown() ) {
      return;  // the next runs compute; or have done so
   }
   const Lum::Seconds now = Lum::now();
   if ( now - prcLastRan_ < 2 * prcCurrentHoldInterval_ ) {
      prcCurrentHoldInterval_ = std::min( maxHoldInterval, 2 * prcCurrentHoldInterval_ );
   }
   prcLastRan_ = now;
   if ( waitsForRefresh() ) {
      handleCspfData();
   }
   handlePqComputeTask();
}

void
PqComputePfxSm::handlePqComputeTask() {
   if ( !waitsForRefresh() && runs().complete() ) {
      hasMovedIs( false );
   }
   PqComputeSm::handlePqComputeTask();
}

std::vector< CspfRepairTable::Originator >
PqComputePfxSm::getAllDestinationNodes() const {
   std::vector< CspfRepairTable::Originator > result;
   forEachOriginator( [ & ]( const OriginatorInfo & originator ) {
      const CspfVertex router = topology().vertex( originator.routerId() );
      if ( router != noVertex ) {
         result.push_back( { router, originator.metric() } );
      }
   } );
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
                   pqComputePrcTask_ ? "yes" : "no" );
   forEachOriginator( [ & ]( const OriginatorInfo & originator ) {
      context.printf( indent + 1, "%*coriginator %s, metric %u\n",
                      originator.routerId().stringValue().c_str(), originator.metric() );
   } );
}

}
