// The second stage of paths with explicit hops. By then all loose segments were computed, each by
// the run of its own child path; here they become one path, together with the strict hops between
// them.
//
// Segments that were computed on different states of the topology do not make a path. The stitching
// then waits: the last child to finish counts another first stage on the parent, and that leads
// here again.

#include "Cspf/Paths/StitchSm.h"

#include "platform/Lum/Clock.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

RsvpPathStitchSm::RsvpPathStitchSm( const VrfTopology & topology, PathValidationMemory & memory,
                                    const ChildPathTables & childPathTables,
                                    const Lum::Ptr< const PathConfigInfo > & pathConfigInfo,
                                    const Lum::Ptr< PathStatusInfo > & pathStatusInfo,
                                    const Lum::Ptr< PathStatusCache > & pathStatusCache )
   : topology_( topology ),
     memory_( memory ),
     childPathTables_( childPathTables ),
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
   return childPathTables_.cspfDataConsistent( pathStatusInfo_->pathInfoKey() );
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
   const std::string error = stitch( stitcher, config->constraint() );
   if ( error.empty() ) {
      publish( stitcher );
   } else {
      fail( error );
   }
}

std::string
RsvpPathStitchSm::stitch( PathStitcher & stitcher, const PathConstraint & constraint ) const {
   if ( stitcher.checkAndUpdatePathForSelfPath( pathKey().dst(), constraint ) ) {
      const bool found =
         allTopoDbView_->topoGraph().vertex( allTopoDbView_->spfRoot() ) != noVertex;
      return found ? "" : "source not found in topology";
   }
   if ( constraint.includeHopAllExplicit() ) {
      return stitcher.checkAndUpdateAllExplicitPath( constraint );
   }
   std::string error;
   for ( const PathSegment & segment : pathSegments( constraint, pathKey().dst() ) ) {
      error = segment.loose ? doUpdatePathForLooseHop( stitcher, segment )
                            : stitcher.doUpdatePathForStrictHop( segment );
      if ( !error.empty() ) {
         break;
      }
   }
   return error;
}

std::string
RsvpPathStitchSm::doUpdatePathForLooseHop( PathStitcher & stitcher,
                                           const PathSegment & segment ) const {
   const PathInfoKey key = childPathInfoKey( segment.index );
   const auto & child = childPathTables_.pathStatusCacheTable->pathStatusCache( key );
   return child ? stitcher.doUpdatePathForLooseHop( segment, *child )
                : "pathSegmentIndex " + std::to_string( segment.index ) + " not found";
}

void
RsvpPathStitchSm::publish( PathStitcher & stitcher ) {
   const auto result = stitcher.result();
   if ( !result ) {
      fail( "The path has more than " + std::to_string( HopIndex::max + 1 ) + " hops" );
      return;
   }
   pathStatusCache_->pathIs( result->path );
   pathStatusCache_->pathSrlgIs( result->pathSrlg );
   pathStatusCache_->pathTeRouterIdIs( result->pathTeRouterId );
   pathStatusCache_->includeIpsIs( result->includeIps );
   pathStatusCache_->stage2LastRanAtIs( Lum::now() );
   pathStatusInfo_->cspfStatus()->pathErrorDel( pathKey() );
   pathStatusCache_->refreshedStage2CountInc();
}

void
RsvpPathStitchSm::fail( const std::string & error ) {
   TRACE7( "Cannot stitch paths for " << pathStatusInfo_->pathInfoKey().traceString()
                                      << " with error: " << error );
   pathStatusInfo_->cspfStatus()->pathErrorIs( pathKey(), error );
}

}
