// Repairs towards prefixes. What differs from a router is where the packet may end, and that this
// changes without the graph: a prefix moves, is advertised by one more router, or at another
// metric. The store stamps that like any change of the topology, the path is refreshed, and its run
// is found to hold. Then the originators are compared with those of the last computation, and
// what is left to do waits for the hold-down: prefixes that flap cost one computation a period.

#include "Cspf/CspfPqComputeSm.h"
#include "Cspf/CspfVrfRoot.h"
#include "platform/Kiv/DumpContext.h"

#include <algorithm>

namespace Cspf::Lfa {

PqComputePfxSm::PqComputePfxSm( VrfRoot & vrfRoot, const PathInfoKey & pathInfoKey )
   : PqComputeSm( vrfRoot, pathInfoKey ),
     prefix_( destination().ipPrefix() ? destination().ipPrefix()
                                       : Kivnet::IpGenPrefix::host( destination().ipAddress() ) ),
     pqComputePrcTask_( vrfRoot.taskScheduler(), "pqComputePrcTask-" + pathInfoKey.traceString(),
                        [ this ]() { handlePqComputePrcTask(); } ) {}

std::vector< OriginatorInfo >
PqComputePfxSm::originators() const {
   const auto & status = vrfRoot().allTopoDbStatus();
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
PqComputePfxSm::handleCspfData() {
   const bool onlyReachability = runsAreKnown() && !waitsForRefresh() && runs().complete()
                                 && originators() != pfxOriginatorInfo_;
   if ( onlyReachability ) {
      schedulePrc();
   } else {
      pqComputePrcTask_.unschedule();
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
   if ( sinceLast < prcCurrentHoldInterval_ ) {
      prcCurrentHoldInterval_ = std::min( maxHoldInterval, 2 * prcCurrentHoldInterval_ );
   }
}

void
PqComputePfxSm::handlePqComputePrcTask() {
   prcLastRan_ = Lum::now();
   handlePqComputeTask();
}

void
PqComputePfxSm::handlePqComputeTask() {
   pfxOriginatorInfo_ = originators();
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
   for ( const OriginatorInfo & originator : pfxOriginatorInfo_ ) {
      context.printf( indent + 1, "%*coriginator %s, metric %u\n",
                      originator.routerId().stringValue().c_str(), originator.metric() );
   }
}

}
