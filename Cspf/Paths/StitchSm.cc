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

#include <algorithm>

namespace Cspf {

namespace {

std::string
notFound( std::uint8_t segment ) {
   return "pathSegmentIndex " + std::to_string( segment ) + " not found";
}

}

struct RsvpPathStitchSm::Work {
   Work( const AllTopoTeDbView & view, PathValidationMemory & memory, const PathStatusInfo & path,
         const PathConstraint & asked )
      : constraint( asked ),
        published( path.cspfStatus()->pathStatus( path.pathInfoKey().pathKey() ) ),
        segments( pathSegments( asked, path.pathInfoKey().pathKey().dst() ) ),
        stitcher( view, memory, path.pathInfoKey(), published ) {}

   const PathConstraint constraint;
   const PathStatus published;
   const std::vector< PathSegment > segments;
   PathStitcher stitcher;
};

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

RsvpPathStitchSm::~RsvpPathStitchSm() = default;

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

RsvpPathStitchSm::Work &
RsvpPathStitchSm::work() {
   if ( !work_ ) {
      allTopoDbViewIs( Lum::make< AllTopoTeDbView >(
         topology_, pathStatusInfo_->constraint()->sharedPathConstraint() ) );
      work_ = std::make_unique< Work >(
         *allTopoDbView_, memory_, *pathStatusInfo_,
         pathConfigInfo_->cspfConfig()->pathConfigFind( pathKey() )->constraint() );
   }
   return *work_;
}

const PathSegment *
RsvpPathStitchSm::segment( std::uint8_t index ) {
   const auto & segments = work().segments;
   const auto found = std::ranges::find( segments, index, &PathSegment::index );
   return found == segments.end() ? nullptr : &*found;
}

void
RsvpPathStitchSm::doStitchPaths() {
   const PathConfig * config = pathConfigInfo_->cspfConfig()->pathConfigFind( pathKey() );
   if ( !config || !pathStatusInfo_->constraint() || !cspfDataConsistent() ) {
      return;
   }
   const auto alive = keptAlive();  // whoever reads what is published may withdraw the path
   work_ = nullptr;
   std::string error;
   switch ( stitch( error ) ) {
   case Outcome::built: publish( __PRETTY_FUNCTION__ ); break;
   case Outcome::failed: fail( error, __PRETTY_FUNCTION__ ); break;
   case Outcome::waits:
      TRACE7( "Waiting for segments of " << pathStatusInfo_->pathInfoKey().traceString() );
      break;
   }
   work_ = nullptr;
}

RsvpPathStitchSm::Outcome
RsvpPathStitchSm::stitch( std::string & error ) {
   if ( checkAndUpdatePathForSelfPath() ) {
      const bool found =
         allTopoDbView_->topoGraph().vertex( allTopoDbView_->spfRoot() ) != noVertex;
      error = found ? "" : "source not found in topology";
   } else if ( work().constraint.includeHopAllExplicit() ) {
      error = checkAndUpdateAllExplicitPath();
   } else {
      return stitchSegments( error );
   }
   return error.empty() ? Outcome::built : Outcome::failed;
}

RsvpPathStitchSm::Outcome
RsvpPathStitchSm::stitchSegments( std::string & error ) {
   for ( const PathSegment & segment : work().segments ) {
      error = segment.loose ? doUpdatePathForLooseHop( segment.index )
                            : doUpdatePathForStrictHop( segment.index );
      if ( !error.empty() ) {
         const bool final =
            !segment.loose || stitchTables_.childFresh( childPathInfoKey( segment.index ) );
         return final ? Outcome::failed : Outcome::waits;
      }
   }
   return stitchTables_.cspfDataFresh( pathStatusInfo_->pathInfoKey() ) || work().stitcher.isValid()
             ? Outcome::built
             : Outcome::waits;
}

bool
RsvpPathStitchSm::checkAndUpdatePathForSelfPath() {
   return work().stitcher.checkAndUpdatePathForSelfPath( pathKey().dst(), work().constraint );
}

std::string
RsvpPathStitchSm::checkAndUpdateAllExplicitPath() {
   return work().stitcher.checkAndUpdateAllExplicitPath( work().constraint );
}

Kivnet::IpGenAddr
RsvpPathStitchSm::findBestNexthopForStrictHop( const Kivnet::IpGenAddr & source,
                                               const Kivnet::IpGenAddr & destination,
                                               const Kivnet::IpGenAddr & strictHop ) {
   return work().stitcher.findBestNexthopForStrictHop( source, destination, strictHop );
}

Kivnet::IpGenAddr
RsvpPathStitchSm::findOldNexthopForStrictHop( const Kivnet::IpGenAddr & strictHop ) {
   return work().stitcher.findOldNexthopForStrictHop( strictHop );
}

std::string
RsvpPathStitchSm::doUpdatePathForStrictHop( std::uint8_t index ) {
   const PathSegment * segment = this->segment( index );
   return segment ? work().stitcher.doUpdatePathForStrictHop( *segment ) : notFound( index );
}

std::string
RsvpPathStitchSm::doUpdatePathForLooseHop( std::uint8_t index ) {
   const PathSegment * segment = this->segment( index );
   const auto child =
      segment ? childFrom( NodeId( work().stitcher.end() ), *segment, __PRETTY_FUNCTION__ )
              : nullptr;
   return child ? work().stitcher.doUpdatePathForLooseHop( *segment, *child ) : notFound( index );
}

/// The segment's result, from that router where this is one that the segment may start at; null
/// where it has no child path.
Lum::Ptr< const PathStatusCache >
RsvpPathStitchSm::childFrom( const NodeId & end, const PathSegment & segment,
                             const char * operation ) const {
   const PathInfoKey key = childPathInfoKey( segment.index );
   const auto & child = stitchTables_.pathStatusCacheTable->pathStatusCache( key );
   if ( !child || !child->cspfData() || child->cspfData()->source() == end
        || !allTopoDbView_->hasRouter( end )
        || !allTopoDbView_->hasTep( end.ipAddress(), segment.source ) ) {
      return child;
   }
   const auto & row = stitchTables_.pathStatusInfoTable->pathStatusInfo( key );
   const auto view =
      Lum::make< const AllTopoTeDbView >( topology_, row->constraint()->sharedPathConstraint() );
   return computeFrom( end, *row, view, runMemory_, operation );
}

void
RsvpPathStitchSm::publish( const char * operation ) {
   const auto result = work().stitcher.result();
   if ( !result ) {
      fail( "The path has more than " + std::to_string( HopIndex::max + 1 ) + " hops", operation );
      return;
   }
   pathStatusCache_->resultIs( *result );
   pathStatusCache_->stage2LastRanAtIs( Lum::now() );
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
