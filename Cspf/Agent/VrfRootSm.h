#pragma once

#include "Cspf/Agent/VrfRoot.h"
#include "platform/Kiv/Walk.h"

#include <set>

namespace Cspf {

/// Gives each constraint and each path of a VrfRoot its state machines, and passes changes of the
/// topology, of reservations and of the source on to the constraints that they concern.
///
///   watches                               handler                      makes or writes
///   constraintInfoTable.constraintInfo    handleConstraintInfo         constraint machine, stats
///   pathStatusInfoTable.pathStatusInfo    handlePathStatusInfo         machines of the path
///   pathStatusInfoTable.intakes           handleIntakes                runs that were held back
///   allTopoDbStatus.imports               handleImports                whether all waits
///   allTopoDbStatus.topoChangedAt         updateConstraintTopoChanged  schedules the task
///   allTopoDbStatus.bwUsageChangedAt      handleBwUsageChangedAt       topoInfoChangedAt
///   VrfSourceId.vrfClientSourceId         handleClientSourceId         topoInfoChangedAt
///   AllTopoDb.topoDb                      handleTopoDb                 own table in place of one
///                                                                      that was withdrawn
///   (task)                                handleConstraintTopoInfo-    topoInfoChangedAt, and what
///                                         UpdaterTask                  paths have reserved
class VrfRootSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, VrfRootSm );
   /// REQUIRES: the root is initialized.
   VrfRootSm( const L3::VrfName & vrf, const Lum::Ptr< VrfRoot > & vrfRoot,
              const Lum::Ptr< const VrfSourceId > & vrfSourceId );
   ~VrfRootSm() override;

   void handleInitialized() override;
   void doPrepareToDie() override;
   void handleConstraintInfo( const ConstraintHandle & handle );
   void handlePathStatusInfo( const PathInfoKey & key );
   void handleIntakes();
   void handleImports();
   void updateConstraintTopoChanged();
   void handleConstraintTopoInfoUpdaterTask();
   void handleBwUsageChangedAt( const BwUsageId & bwUsageId );
   void handleClientSourceId( const PathComputationType & type );
   void handleTopoDb( const TopoId & topoId ) { vrfRoot_->doRegisterTopoDb( topoId ); }

   /// Drops the reactors on the constraints of paths.
   void pathStatusInfoDel( const PathInfoKey & key );
   void pathStatusInfoDelAll() { vrfRoot_->pathConstraintsDel(); }
   /// Drops the time at which the user's reservations last changed, unless a constraint still
   /// names that user.
   void doCleanupBwUsageChangedAt( const BwUsageId & bwUsageId );
   void initializePqComputeSm( const PathInfoKey & key,
                               const Lum::Ptr< PathStatusInfo > & pathStatusInfo );
   void deletePqComputeSm( const PathInfoKey & key );

   /// The path has a constraint, a first or another one.
   void doInitConstraintMachines( const Lum::Ptr< PathStatusInfo > & pathStatusInfo );
   void doCleanupConstraintMachines( const PathInfoKey & key );

 private:
   void doInitConstraintSm( const ConstraintHandle & handle,
                            const Lum::Ptr< ConstraintInfo > & constraintInfo );
   Lum::Ptr< ConstraintInfoSmBase >
   newConstraintInfoSm( const Lum::Ptr< ConstraintInfo > & constraintInfo,
                        const Lum::Ptr< ConstraintStats > & stats );
   void doCleanupConstraintSm( const ConstraintHandle & handle );
   void doInitPathSms( const PathInfoKey & key, const Lum::Ptr< PathStatusInfo > & pathStatusInfo );
   /// With what is published of the client's own path as its result.
   static Lum::Ptr< PathStatusCache > newPathStatusCache( const PathInfoKey & key,
                                                          const Status & cspfStatus );
   void doCleanupPathSms( const PathInfoKey & key );
   Lfa::RepairContext repairContext() const;
   /// Of the same request under the key that it was followed under before; null where it was not.
   Lum::Ptr< PathUsageSm > replacedUsageSm( PathInfoKey key ) const;
   /// REQUIRES: the path has a constraint.
   Lum::Ptr< PathRefreshSm >
   newPathRefreshSm( const Lum::Ptr< PathStatusInfo > & pathStatusInfo ) const;
   void tellingIs( bool telling );
   void tellUsages();
   std::size_t tellUsage( PathsByRouter::Entry entry );
   void endTellingUsages();
   std::size_t tellConstraint( const ConstraintHandle & handle );
   std::size_t goOn( const ConstraintHandle & handle );
   void endGoingOn();
   void endTellingConstraints();
   /// Tells the constraint when its topology last changed.
   void updateTopoInfoChangedAtOf( ConstraintInfo & constraintInfo );
   bool isImporting() const { return vrfRoot_->pathStatusInfoTable()->imports() > 0; }

   const L3::VrfName vrf_;
   const Lum::Ptr< VrfRoot > vrfRoot_;
   const Lum::Ptr< const VrfSourceId > vrfSourceId_;
   Lum::Ptr< const ParentPathHelper > parentPathHelper_;
   Kiv::Task constraintTopoInfoUpdaterTask_;
   Kiv::Walk< PathsByRouter::Entry > usagesToTell_;
   Kiv::Walk< ConstraintHandle > constraintsToTell_;
   Kiv::Walk< ConstraintHandle > heldBack_;
   std::vector< PathsByRouter::Entry > untold_;  // a topology came while they were being told
   bool isTelling_ = false;
   bool tellsUsagesAgain_ = false;
   bool tellsFirst_ = false;  // before a run begins
   bool changedMeanwhile_ = false;
   Lum::Map< BwUsageId, std::set< ConstraintHandle > > constraintsOfUser_;  // oldest first
};

}
