// The throttle of runs, and what becomes of a run's result. There is one machine for each distinct
// constraint, made and ended by the VRF root with the constraint's row. Requests come from path
// machines, which count them up in the row; nothing runs inside of a request, only when the timer
// expires, so a burst of requests costs one run.
//
// The delay doubles when a request finds that the topology changed after the last run, so the time
// of change that the fan-out writes must be there before the request is. The tree of an ordinary
// run lives only while its results are handed out: thousands of constraints share its memory.

#include "Cspf/Runs/ConstraintInfoSm.h"

#include "Cspf/Runs/Run.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Metrics/Metrics.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <utility>

namespace Cspf {

namespace {

Metrics::Histogram runSeconds( "cspf_run_seconds", "Time of one computation",
                               { 1e-5, 1e-4, 1e-3, 1e-2, 0.1, 1 } );

}

ConstraintInfoSmBase::ConstraintInfoSmBase( const Lum::Ptr< ConstraintInfo > & constraintInfo,
                                            const Lum::Ptr< ConstraintStats > & constraintStats,
                                            const Lum::Ptr< AllTopoDbView > & view,
                                            const ConstraintSmContext & context )
   : constraintInfo_( constraintInfo ),
     constraintStats_( constraintStats ),
     view_( view ),
     context_( context ) {}

const Trace::Prepared &
ConstraintInfoSmBase::tracedConstraint() const {
   if ( !tracedConstraint_ ) {
      tracedConstraint_ = std::make_unique< Trace::Prepared >( pathConstraint() );
   }
   return *tracedConstraint_;
}

void
ConstraintInfoSmBase::handleInitialized() {
   watchAny< &ConstraintInfoSmBase::handleThrottleChange >( *context_.cliConfig, this );
   LUM_WATCH( constraintInfo_, cspfRequestCount, handleCspfRequestCount );
   LUM_WATCH_KEYS( constraintInfo_, path, handlePathUpdate );
   resetDelay( __PRETTY_FUNCTION__ );
   handleCspfRequestCount();
}

void
ConstraintInfoSmBase::doPrepareToDie() {
   timerTaskDel();
   for ( const PathInfoKey & key : Lum::sortedKeys( constraintInfo_->pathColl() ) ) {
      clearCspfData( key );
   }
   constraintInfo_->cspfDataIs( nullptr );
}

void
ConstraintInfoSmBase::resetDelay( const char * operation ) {
   constraintStats_->cspfCurrentDelayIs( context_.cliConfig->initialInt() );
   TRACE8_FOR( operation, "CSPF throttle timer current delay set to "
                             << constraintStats_->cspfCurrentDelay() );
}

/// There is nothing but intervals in it.
void
ConstraintInfoSmBase::handleThrottleChange( const Lum::AnyChange & ) {
   handleThrottleConfig();
}

void
ConstraintInfoSmBase::handleThrottleConfig() {
   resetDelay( __PRETTY_FUNCTION__ );
}

void
ConstraintInfoSmBase::handleCspfRequestCount() {
   if ( constraintInfo_->cspfRequestCount() == 0 ) {
      return;
   }
   if ( !hasNotificationActive_ ) {
      requestWaits_ = true;
      return;
   }
   if ( constraintStats_->cspfScheduled() ) {
      TRACE8( "CSPF already scheduled for constraint: " << tracedConstraint() );
      LUM_ASSERT( timerRunning() );
      return;
   }
   const bool topologyChanged =
      constraintInfo_->topoInfoChangedAt() - constraintStats_->cspfLastRanAt() > 0;
   if ( timerRunning() ) {
      requestInHoldDown( topologyChanged, __PRETTY_FUNCTION__ );
      return;
   }
   if ( constraintStats_->cspfCurrentDelay() != context_.cliConfig->initialInt() ) {
      resetDelay( __PRETTY_FUNCTION__ );  // another constraint has heard of new intervals first
   }
   requestInQuiet( topologyChanged, __PRETTY_FUNCTION__ );
}

void
ConstraintInfoSmBase::requestInHoldDown( bool topologyChanged, const char * operation ) {
   if ( topologyChanged ) {
      const double longest = context_.cliConfig->maxInt();
      constraintStats_->cspfCurrentDelayIs(
         std::min( longest, 2 * constraintStats_->cspfCurrentDelay() ) );
      TRACE7_FOR( operation, "Topology changed during the hold down interval. "
                                << "Next hold int: " << constraintStats_->cspfCurrentDelay() );
   }
   constraintStats_->cspfScheduledIs( true );
   TRACE7_FOR( operation, "CSPF scheduled for constraint " << tracedConstraint()
                                                           << " during the hold down interval" );
}

void
ConstraintInfoSmBase::requestInQuiet( bool topologyChanged, const char * operation ) {
   [[maybe_unused]] const double initialInt = context_.cliConfig->initialInt();
   LUM_ASSERT( constraintStats()->cspfCurrentDelay() == initialInt );
   startTimer();
   timerRunningIs( true );
   constraintStats_->cspfScheduledIs( true );
   TRACE7_FOR( operation, tracedConstraint() << " CSPF scheduled for constraint with initial delay "
                                             << constraintStats_->cspfCurrentDelay() );
   if ( topologyChanged ) {
      constraintStats_->cspfCurrentDelayIs( context_.cliConfig->holdInt() );
      TRACE8_FOR( operation, "Topology changed in a quiescent period. "
                                << "Next hold int: " << constraintStats_->cspfCurrentDelay() );
   }
}

Kiv::Task &
ConstraintInfoSmBase::timerTask() {
   if ( !timerTask_ ) {
      timerTask_ = std::make_unique< Kiv::Task >(
         *this, context_.taskScheduler,
         "constraintTimerTask-" + Lum::valueString( constraintInfo_->constraint().serial() ),
         [ this ]() { expire(); } );
   }
   return *timerTask_;
}

void
ConstraintInfoSmBase::startTimer() {
   timerDelay_ = constraintStats_->cspfCurrentDelay();
   timerTask().schedule( timerDelay_ / 1000 );
   constraintStats_->timerEndsAt = Lum::now() + timerDelay_ / 1000;
}

void
ConstraintInfoSmBase::timerTaskDel() {
   timerTask_ = nullptr;
   timerRunningIs( false );
}

void
ConstraintInfoSmBase::backoffTimerTask() {
   if ( isRetired() ) {
      return;
   }
   constraintStats_->cspfScheduledIs( false );
   startTimer();
   TRACE8( "CSPF backoff timer started for constraint: " << tracedConstraint() << " with delay "
                                                         << timerDelay_ << " ms" );
}

void
ConstraintInfoSmBase::hasNotificationActiveIs( bool active ) {
   hasNotificationActive_ = active;
   if ( active && std::exchange( requestWaits_, false ) ) {
      handleCspfRequestCount();
   }
}

/// What is published may end the last use of this constraint. While requests or topologies are
/// taken in, it waits.
void
ConstraintInfoSmBase::expire() {
   if ( context_.pathStatusInfoTable->isTakingIn() ) {
      context_.pathStatusInfoTable->heldBack.emplace_back( &constraintInfo_->constraint() );
      return;
   }
   const auto alive = keptAlive();
   const Lum::Ptr< const DedupConstraint > inUse( &constraintInfo_->constraint() );
   hasNotificationActiveIs( false );
   handleThrottleTimeout();
   hasNotificationActiveIs( !isHandingOut() && !isRetired() );
}

bool
ConstraintInfoSmBase::stopUnlessScheduled( const char * operation ) {
   if ( constraintStats_->cspfScheduled() ) {
      return false;
   }
   TRACE8_FOR( operation, "no CSPF scheduled for constraint "
                             << tracedConstraint() << " in the last " << timerDelay_
                             << "throttle window. Stopping timer" );
   timerTaskDel();
   resetDelay( operation );
   return true;
}

void
ConstraintInfoSmBase::handlePathUpdate( const PathInfoKey & key ) {
   if ( !constraintInfo_->pathHas( key ) ) {
      constraintInfo_->waiting.erase( key );
      clearCspfData( key );
   }
}

void
ConstraintInfoSmBase::clearCspfData( const PathInfoKey & key ) {
   TRACE7( "Cleaning cspfData for : " << key.traceString() );
   if ( const auto cache = pathStatusCache( key ) ) {
      cache->cspfDataIs( nullptr );
   }
}

Lum::Ptr< PathStatusCache >
ConstraintInfoSmBase::pathStatusCache( const PathInfoKey & key ) const {
   const auto * cache = context_.pathStatusCacheTable->pathStatusCacheFind( key );
   return cache ? *cache : nullptr;
}

Lum::Ptr< PathStatusInfo >
ConstraintInfoSmBase::pathStatusInfo( const PathInfoKey & key ) const {
   const auto * path = context_.pathStatusInfoTable->pathStatusInfoFind( key );
   return path ? *path : nullptr;
}

bool
ConstraintInfoSmBase::sourceInTopology( const NodeId & source ) const {
   const TopoId & topoId = pathConstraint().topoId();
   return source && view_->topoGraph().vertex( source ) != noVertex
          && ( !topoId || view_->getIgpId( topoId, source ) );
}

/// Changes of one instant carry stamps ahead of the clock, and reach the row only later.
Lum::Seconds
ConstraintInfoSmBase::seenUntil() const {
   return std::max( Lum::now(), changedAt() );
}

Lum::Seconds
ConstraintInfoSmBase::changedAt() const {
   const AllTopoDbStatus & status = *view_->allTopoDbStatus();
   const PathComputationType type = pathConstraint().pathComputationType();
   return status.vrfSourceId()->vrfClientSourceIdHas( type )
             ? status.topoInfoChangedAt( type, pathConstraint().bwUsageId() )
             : constraintInfo_->topoInfoChangedAt();
}

void
ConstraintInfoSmBase::runCspf( const Lum::Ptr< CspfData > & cspfData, const char * operation ) {
   TRACE7_FOR( operation, "run cspf, cspfRequestCount " << constraintInfo_->cspfRequestCount() );
   const Lum::Seconds begin = Lum::RealClock::read();
   const CspfRun run( context_.runMemory, *cspfData, view_ );
   countRun( cspfData, Lum::RealClock::read() - begin );
}

void
ConstraintInfoSmBase::countRun( const Lum::Ptr< CspfData > & run, Lum::Seconds took ) {
   runSeconds.observe( took );
   run->ranAtIs( seenUntil() );
   constraintStats_->cspfCountInc();
   constraintStats_->cspfLastRanAtIs( run->ranAt() );
   constraintInfo_->cspfDataIs( run );
}

void
ConstraintInfoSmBase::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.dump( *constraintStats_, indent );
   context.dump( *constraintInfo_, indent );
}

void
ConstraintInfo::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*c CSPF request count: %u\n", cspfRequestCount() );
   context.dumpAge( indent, " Last topology change seen", topoInfoChangedAt() );
   context.printf( indent, "%*c topoInfoChangedAt: %f\n", topoInfoChangedAt() );
   if ( sourceMissing() ) {
      context.printf( indent, "%*c CSPF source MISSING\n" );
   }
   if ( constraintMissingInTopo() ) {
      context.printf( indent, "%*c CSPF constraint MISSING in topology\n" );
   }
   dumpConstraint( constraint().pathConstraint(), context, indent );
   context.printf( indent, "%*c TEPs using this constraint: \n" );
   for ( const PathInfoKey & key : Lum::sortedKeys( pathColl() ) ) {
      context.printf( indent + 1, "%*c %s\n", key.pathKey().dst().stringValue().c_str() );
   }
}

/// Stage 2 is asked only after stage 1 was told: hearing of it is what makes an update pending.
void
ConstraintInfoSmBase::tellPath( const PathStatusInfo & path, PathStatusCache & cache, bool whole ) {
   if ( path.refreshNeeded() ) {
      cache.refreshedStage1CountInc();
   }
   if ( whole && path.updatePathPending() ) {
      cache.stage2LastRanAtIs( Lum::now() );
      cache.refreshedStage2CountInc();
   }
}

}
