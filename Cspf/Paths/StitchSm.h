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
   ~RsvpPathStitchSm() override;

   void handleInitialized() override;
   void doStitchPaths();

   // The steps of a stitching, as PathStitcher has them, for the request as it is. Each goes on
   // from where the last one ended; every `doStitchPaths` begins at the source. Segments go by
   // their index. REQUIRES: there is a request.

   std::string doUpdatePathForStrictHop( std::uint8_t segment );
   std::string doUpdatePathForLooseHop( std::uint8_t segment );
   bool checkAndUpdatePathForSelfPath();
   std::string checkAndUpdateAllExplicitPath();
   Kivnet::IpGenAddr findBestNexthopForStrictHop( const Kivnet::IpGenAddr & source,
                                                  const Kivnet::IpGenAddr & destination,
                                                  const Kivnet::IpGenAddr & strictHop );
   Kivnet::IpGenAddr findOldNexthopForStrictHop( const Kivnet::IpGenAddr & strictHop );

   /// The key of the child path of that segment; empty where it has none.
   PathInfoKey childPathInfoKey( std::uint8_t segment ) const;
   bool cspfDataConsistent() const;
   /// The topology under the path's constraint.
   void allTopoDbViewIs( const Lum::Ptr< const AllTopoTeDbView > & view ) { allTopoDbView_ = view; }

 private:
   /// The request, what is published for it, and how far its path has come.
   struct Work;
   enum class Outcome { built, waits, failed };

   Work & work();
   const PathSegment * segment( std::uint8_t index );
   Outcome stitch( std::string & error );
   Outcome stitchSegments( std::string & error );
   Lum::Ptr< const PathStatusCache > childFrom( const NodeId & end, const PathSegment & segment,
                                                const char * operation ) const;
   // `operation`: the one for which, as traces begin.
   void publish( const char * operation );
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
   std::unique_ptr< Work > work_;                     // while one goes on
};

}
