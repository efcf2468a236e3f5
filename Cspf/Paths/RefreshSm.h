#pragma once

#include "Cspf/Hops/PathValidator.h"
#include "Cspf/Paths/StatusUpdate.h"
#include "Cspf/Records/PathRows.h"
#include "platform/Kiv/TaskScheduler.h"

namespace Cspf {

class PathUsageSm;

/// Marks a path for refresh when it starts, and whenever the topology that its constraint sees
/// changes. One that follows its constraint is marked with it, by the constraint's machine.
///
///   watches                             handler               writes
///   ConstraintInfo.topoInfoChangedAt    handleTopoChanged     PathStatusInfo.refreshNeeded, its
///                                                             reason
class PathRefreshSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, PathRefreshSm );
   PathRefreshSm( const Lum::Ptr< ConstraintInfo > & constraintInfo,
                  const Lum::Ptr< PathStatusInfo > & pathStatusInfo )
      : constraintInfo_( constraintInfo ),
        pathStatusInfo_( pathStatusInfo ) {}

   void handleInitialized() override;
   void doPrepareToDie() override;
   virtual void handleTopoChanged();

 protected:
   /// What is due when the machine starts: a first constraint, or another one.
   virtual void handleNew();
   const Lum::Ptr< ConstraintInfo > & constraintInfo() const { return constraintInfo_; }
   const Lum::Ptr< PathStatusInfo > & pathStatusInfo() const { return pathStatusInfo_; }

 private:
   const Lum::Ptr< ConstraintInfo > constraintInfo_;
   const Lum::Ptr< PathStatusInfo > pathStatusInfo_;
};

/// What the paths of one VRF and family that are in use are judged by. The memory outlives the
/// machines.
struct PathInUseContext {
   VrfTopology topology;
   PathValidationMemory & memory;
   Lum::Ptr< Kiv::TaskScheduler > taskScheduler;
   Lum::Ptr< const PathStatusInfoTable > pathStatusInfoTable;  ///< for children
};

/// Keeps a path that is in use: on a topology change it checks whether the published path still
/// holds, unless nothing that the last check rests on has changed, and marks the path and its
/// segments for refresh only when it does not. Metadata of a valid path that moved is published as
/// it is now.
///
///   task                          runs               writes
///   RsvpPathValidationTask-<key>  doPathValidation   PathStatusInfo.refreshNeeded, its reason, or
///                                                    the published metadata
class RsvpPathRefreshSm : public PathRefreshSm {
   LUM_ENTITY( Cspf, RsvpPathRefreshSm );
   /// REQUIRES: the path is no internal one.
   RsvpPathRefreshSm( const PathInUseContext & context,
                      const Lum::Ptr< ConstraintInfo > & constraintInfo,
                      const Lum::Ptr< const PathConfigInfo > & pathConfigInfo,
                      const Lum::Ptr< PathStatusInfo > & pathStatusInfo,
                      const Lum::Ptr< const PathStatusCache > & pathStatusCache,
                      const Lum::Ptr< PathUsageSm > & pathUsageSm );
   ~RsvpPathRefreshSm() override;

   void handleNew() override;
   void handleTopoChanged() override;
   void doPathValidation();
   /// Marks the children, then the path, so that the path finds its children waiting.
   void setRefreshNeededForLinkedPaths();

 private:
   const Lum::Ptr< const PathConfigInfo > & pathConfigInfo() const { return pathConfigInfo_; }
   bool isPublishedPathInUse() const;
   bool meetsHops( const PathStatus & published, const PathConstraint & constraint ) const;
   bool isPathFromSourceToSource() const;
   bool nothingToValidate( const char * operation );
   bool standsAsComputed() const;
   RsvpPathValidator validator( const AllTopoTeDbView & view ) const;
   void validityIs( PathValidity validity );
   void publishPathMetadata( const RsvpPathValidator & validator );

   const PathInUseContext context_;
   const Lum::Ptr< const PathConfigInfo > pathConfigInfo_;
   const Lum::Ptr< const PathStatusCache > pathStatusCache_;
   const Lum::Ptr< PathUsageSm > pathUsageSm_;
   PathStatusUpdator pathStatusUpdator_;
   Kiv::Task pathValidationTask_;
   PathValidity validity_;
   std::uint32_t validUsage_ = 0;  // usageChangeCount of then: it moves with what is published
};

}
