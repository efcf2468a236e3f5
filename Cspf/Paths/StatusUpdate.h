#pragma once

#include "Cspf/Records/PathRows.h"

namespace Cspf {

class ParentPathHelper;
class PathUsageSm;

/// Writes a path's status where its client reads it, and only what changed.
class PathStatusUpdator {
 public:
   PathStatusUpdator( const Lum::Ptr< PathStatusInfo > & pathStatusInfo,
                      const Lum::Ptr< Status > & cspfStatus )
      : pathStatusInfo_( pathStatusInfo ),
        cspfStatus_( cspfStatus ) {}

   /// Whether the cached result or the request that it answers differs from what is published.
   bool isPathUpdateRequired( const Lum::Ptr< const PathStatusCache > & pathStatusCache ) const;
   // Null: none.
   bool
   isPathTeRouterIdUpdateRequired( const Lum::Ptr< const PathTeRouterId > & pathTeRouterId ) const;
   bool isIncludeIpUpdateRequired( const Lum::Ptr< const IncludeIps > & includeIps ) const;
   bool isPathSrlgUpdateRequired( const Lum::Ptr< const PathSrlg > & pathSrlg ) const;

   /// Publishes the cached result where it differs. REQUIRES: the refresh is finished.
   void publishPath( const Lum::Ptr< const PathStatusCache > & pathStatusCache );
   /// Replaces the TE router ids, the include IPs or both; the hops stay. Null: keep. REQUIRES: the
   /// path is published, and there is one TE router id a hop.
   void publishPathMetadata( const Lum::Ptr< const PathTeRouterId > & pathTeRouterId,
                             const Lum::Ptr< const IncludeIps > & includeIps );

   const Lum::Ptr< PathStatusInfo > & pathStatusInfo() const noexcept { return pathStatusInfo_; }

 private:
   const PathKey & pathKey() const noexcept { return pathStatusInfo_->pathInfoKey().pathKey(); }
   PathTraceName keyText() const { return pathStatusInfo_->pathInfoKey().traceString(); }
   /// The default where nothing is published.
   const PathStatus & published() const { return cspfStatus_->pathStatus( pathKey() ); }
   bool isPathArrayUpdateRequired( const Lum::Ptr< const PathArray > & path,
                                   const char * operation ) const;
   PathStatus newPathStatus( const PathStatusCache & cache ) const;
   void write( const PathStatus & pathStatus );

   Lum::Ptr< PathStatusInfo > pathStatusInfo_;
   Lum::Ptr< Status > cspfStatus_;
};

/// The index under which the repair of a TI-LFA path is published; 0 where it has none.
std::uint32_t repairPathIdx( const PathStatusCache & pathStatusCache );

/// Takes what is published of the path as its last result, so that an agent that was restarted
/// keeps the paths that are in use. REQUIRES: nothing was computed yet.
void initializePathStatusCache( const Lum::Ptr< PathStatusCache > & pathStatusCache,
                                const PathStatus & pathStatus );

/// Brings a path that needs it up to date: stage 1 is the run of its constraint, stage 2 what is
/// made of the run (stitching, a repair); then the result is published.
///
///   watches                handler                        writes
///   PathStatusInfo.
///     refreshNeeded        handleRefreshNeeded            ConstraintInfo.cspfRequestCount
///   PathStatusCache.
///     refreshedStage1Count handleRefreshStage1Completion  PathStatusInfo: refreshNeeded, -Reason,
///                                                           updatePathPending, stage2RequestCount
///     refreshedStage2Count handleRefreshStage2Completion  PathStatusInfo.updatePathPending,
///                                                           Status.pathStatus
class PathStatusUpdateSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, PathStatusUpdateSm );
   /// `pathUsageSm`: the path's; null for a repair. REQUIRES: the path has a constraint.
   PathStatusUpdateSm( const Lum::Ptr< const ConstraintInfoTable > & constraintInfoTable,
                       const Lum::Ptr< PathUsageSm > & pathUsageSm,
                       const Lum::Ptr< PathStatusInfo > & pathStatusInfo,
                       const Lum::Ptr< const PathStatusCache > & pathStatusCache,
                       const Lum::Ptr< const ParentPathHelper > & parentPathHelper );
   ~PathStatusUpdateSm() override;

   void handleInitialized() override;
   void handleRefreshNeeded();
   void handleRefreshStage1Completion();
   void handleRefreshStage2Completion();
   /// A path of the agent's own is not published.
   void publishPathStatus();
   /// A fresh one.
   void pathStatusUpdatorIs();
   const PathStatusUpdator & pathStatusUpdator() const { return pathStatusUpdator_; }

 private:
   const Lum::Ptr< PathStatusInfo > & pathStatusInfo() const noexcept {
      return pathStatusUpdator_.pathStatusInfo();
   }

   const Lum::Ptr< const ConstraintInfoTable > constraintInfoTable_;
   const Lum::Ptr< PathUsageSm > pathUsageSm_;
   const Lum::Ptr< const PathStatusCache > pathStatusCache_;
   const Lum::Ptr< const ParentPathHelper > parentPathHelper_;
   PathStatusUpdator pathStatusUpdator_;
};

}
