// The second stage of paths with explicit hops. By then all loose segments were computed, each by
// the run of its own child path; here they become one path, together with the strict hops between
// them.
//
// Segments that were computed on different states of the topology may not make a path. Such a path
// is judged; where it does not hold, a run is due that will tell this again. An ordinary path goes
// on to follow those runs; one that is in use is content with a path that holds.
//
// An address may be one of several routers', as a host prefix can be. A segment that was computed
// from another one than the router at which the segment before it ended is computed here.

#include "Cspf/Paths/StitchSm.h"

#include "Cspf/Runs/PathAnswer.h"
#include "platform/Lum/Clock.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

RsvpPathStitchSm::RsvpPathStitchSm( const VrfTopology & topology, PathValidationMemory & memory,
                                    CspfRunMemory & runMemory, const StitchTables & stitchTables,
                                    const Lum::Ptr< const PathConfigInfo > & pathConfigInfo,
                                    const Lum::Ptr< PathStatusInfo > & pathStatusInfo,
                                    const Lum::Ptr< PathStatusCache > & pathStatusCache )
   : topology_( topology ),
     memory_( memory ),
     runMemory_( runMemory ),
     stitchTables_( stitchTables ),
     pathConfigInfo_( pathConfigInfo ),
     pathStatusInfo_( pathStatusInfo ),
     pathStatusCache_( pathStatusCache ) {}

void
RsvpPathStitchSm::handleInitialized() {
   LUM_WATCH( pathStatusInfo_, stage2RequestCount, doStitchPaths );
}

PathInfoKey
RsvpPathStitchSm::childPathInfoKey( std::uint8_t segment ) const {
   return pathConfigInfo_->childPath( segment );
}

bool
RsvpPathStitchSm::cspfDataConsistent() const {
   return stitchTables_.cspfDataConsistent( pathStatusInfo_->pathInfoKey() );
}

void
RsvpPathStitchSm::doStitchPaths() {
   const PathConfig * config = pathConfigInfo_->cspfConfig()->pathConfigFind( pathKey() );
   if ( !config || !pathStatusInfo_->constraint() || !cspfDataConsistent() ) {
      return;
   }
   allTopoDbViewIs(
      Lum::make< AllTopoTeDbView >( topology_, pathStatusInfo_->constraint()->pathConstraint() ) );
   PathStitcher stitcher( *allTopoDbView_, memory_, pathStatusInfo_->pathInfoKey(),
                          pathStatusInfo_->cspfStatus()->pathStatus( pathKey() ) );
   std::string error;
   switch ( stitch( stitcher, config->constraint(), error ) ) {
   case Outcome::built: publish( stitcher, __PRETTY_FUNCTION__ ); break;
   case Outcome::failed: fail( error, __PRETTY_FUNCTION__ ); break;
   case Outcome::waits:
      TRACE7( "Waiting for segments of " << pathStatusInfo_->pathInfoKey().traceString() );
      break;
   }
}

RsvpPathStitchSm::Outcome
RsvpPathStitchSm::stitch( PathStitcher & stitcher, const PathConstraint & constraint,
                          std::string & error ) const {
   if ( stitcher.checkAndUpdatePathForSelfPath( pathKey().dst(), constraint ) ) {
      const bool found =
         allTopoDbView_->topoGraph().vertex( allTopoDbView_->spfRoot() ) != noVertex;
      error = found ? "" : "source not found in topology";
   } else if ( constraint.includeHopAllExplicit() ) {
      error = stitcher.checkAndUpdateAllExplicitPath( constraint );
   } else {
      return stitchSegments( stitcher, constraint, error );
   }
   return error.empty() ? Outcome::built : Outcome::failed;
}

RsvpPathStitchSm::Outcome
RsvpPathStitchSm::stitchSegments( PathStitcher & stitcher, const PathConstraint & constraint,
                                  std::string & error ) const {
   const StitchTables & children = stitchTables_;
   for ( const PathSegment & segment : pathSegments( constraint, pathKey().dst() ) ) {
      error = segment.loose ? doUpdatePathForLooseHop( stitcher, segment )
                            : stitcher.doUpdatePathForStrictHop( segment );
      if ( !error.empty() ) {
         const bool final =
            !segment.loose || children.childFresh( childPathInfoKey( segment.index ) );
         return final ? Outcome::failed : Outcome::waits;
      }
   }
   return children.cspfDataFresh( pathStatusInfo_->pathInfoKey() ) || stitcher.isValid()
             ? Outcome::built
             : Outcome::waits;
}

std::string
RsvpPathStitchSm::doUpdatePathForLooseHop( PathStitcher & stitcher,
                                           const PathSegment & segment ) const {
   const PathInfoKey key = childPathInfoKey( segment.index );
   Lum::Ptr< const PathStatusCache > child =
      stitchTables_.pathStatusCacheTable->pathStatusCache( key );
   if ( !child ) {
      return "pathSegmentIndex " + std::to_string( segment.index ) + " not found";
   }
   const NodeId end( stitcher.end() );
   if ( child->cspfData() && child->cspfData()->source() != end && allTopoDbView_->hasRouter( end )
        && allTopoDbView_->hasTep( stitcher.end(), segment.source ) ) {
      const auto & row = stitchTables_.pathStatusInfoTable->pathStatusInfo( key );
      const auto view =
         Lum::make< const AllTopoTeDbView >( topology_, row->constraint()->pathConstraint() );
      child = computeFrom( end, *row, view, runMemory_, __PRETTY_FUNCTION__ );
   }
   return stitcher.doUpdatePathForLooseHop( segment, *child );
}

void
RsvpPathStitchSm::publish( PathStitcher & stitcher, const char * operation ) {
   const auto result = stitcher.result();
   if ( !result ) {
      fail( "The path has more than " + std::to_string( HopIndex::max + 1 ) + " hops", operation );
      return;
   }
   pathStatusCache_->resultIs( *result );
   pathStatusCache_->stage2LastRanAtIs( Lum::now() );
   const auto alive = keptAlive();  // whoever reads what is published may withdraw the path
   const bool fresh = stitchTables_.cspfDataFresh( pathStatusInfo_->pathInfoKey() );
   pathStatusInfo_->cspfStatus()->pathErrorDel( pathKey() );
   pathStatusCache_->refreshedStage2CountInc();
   if ( !fresh && !pathStatusInfo_->pathInfoKey().keptWhileValid() ) {
      followSegments();
   }
}

/// The best path may be another one when the segments that a run is due for have their results.
void
RsvpPathStitchSm::followSegments() {
   const auto & row =
      stitchTables_.constraintInfoTable->constraintInfo( pathStatusInfo_->constraint() );
   if ( row ) {
      pathStatusInfo_->refreshIs( refreshReasonTopoChanged, row->topoInfoChangedAt() );
   }
}

void
RsvpPathStitchSm::fail( const std::string & error, const char * operation ) {
   TRACE7_FOR( operation, "Cannot stitch paths for " << pathStatusInfo_->pathInfoKey().traceString()
                                                     << " with error: " << error );
   pathStatusInfo_->cspfStatus()->pathErrorIs( pathKey(), error );
}

}
