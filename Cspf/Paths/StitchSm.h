#pragma once

#include "Cspf/Hops/PathStitcher.h"
#include "Cspf/Paths/ChildSm.h"
#include "Cspf/Records/PathRows.h"

namespace Cspf {

class CspfRunMemory;

/// Builds a path with include hops: loose segments from its child paths, strict hops as single
/// links, a path that is given hop by hop as it stands. What cannot be built of results that are
/// going to be replaced waits for the next one. A path that cannot be built at all leaves the
/// cache and the published path as they were; the reason goes to the client's `Status::pathError`.
///
///   watches                             handler          writes
///   PathStatusInfo.stage2RequestCount   doStitchPaths    PathStatusCache: the path,
///                                                          refreshedStage2Count, stage2LastRanAt
///                                                        Status.pathError
class RsvpPathStitchSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, RsvpPathStitchSm );
   /// The memories outlive this object. REQUIRES: the path has a constraint.
   RsvpPathStitchSm( const VrfTopology & topology, PathValidationMemory & memory,
                     CspfRunMemory & runMemory, const StitchTables & stitchTables,
                     const Lum::Ptr< const PathConfigInfo > & pathConfigInfo,
                     const Lum::Ptr< PathStatusInfo > & pathStatusInfo,
                     const Lum::Ptr< PathStatusCache > & pathStatusCache );

   void handleInitialized() override;
   void doStitchPaths();

   /// The key of the child path of that segment; empty where it has none.
   PathInfoKey childPathInfoKey( std::uint8_t segment ) const;
   bool cspfDataConsistent() const;

 private:
   void allTopoDbViewIs( const Lum::Ptr< const AllTopoTeDbView > & view ) { allTopoDbView_ = view; }
   enum class Outcome { built, waits, failed };
   Outcome stitch( PathStitcher & stitcher, const PathConstraint & constraint,
                   std::string & error ) const;
   Outcome stitchSegments( PathStitcher & stitcher, const PathConstraint & constraint,
                           std::string & error ) const;
   std::string doUpdatePathForLooseHop( PathStitcher & stitcher,
                                        const PathSegment & segment ) const;
   // `operation`: the one for which, as traces begin.
   void publish( PathStitcher & stitcher, const char * operation );
   void followSegments();
   void fail( const std::string & error, const char * operation );

   const PathKey & pathKey() const { return pathStatusInfo_->pathInfoKey().pathKey(); }

   const VrfTopology topology_;
   PathValidationMemory & memory_;
   CspfRunMemory & runMemory_;
   const StitchTables stitchTables_;
   const Lum::Ptr< const PathConfigInfo > pathConfigInfo_;
   const Lum::Ptr< PathStatusInfo > pathStatusInfo_;
   const Lum::Ptr< PathStatusCache > pathStatusCache_;
   Lum::Ptr< const AllTopoTeDbView > allTopoDbView_;  // of the last stitching
};

}
