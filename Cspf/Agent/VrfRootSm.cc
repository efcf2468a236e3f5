// What there is in a VRF root, and what is told to whom. Rows decide: a constraint has its machine
// while its row is there, a path has its machines while its status row is there, and those that
// work on a computed path while it has a constraint.
//
// Nothing is computed here. A change of the topology moves one time stamp of each constraint, by
// one task for however many changes came before it; what follows from the stamp is the constraint's
// and the paths' own affair. A change of reservations moves the stamps of that user's constraints.

#include "Cspf/Agent/VrfRootSm.h"

#include "Cspf/Paths/ChildSm.h"
#include "Cspf/Paths/RefreshSm.h"
#include "Cspf/Paths/StatusUpdate.h"
#include "Cspf/Paths/StitchSm.h"
#include "Cspf/Paths/UsageSm.h"
#include "Cspf/Repairs/DedupPqInfoTable.h"
#include "Cspf/Repairs/PqComputeSm.h"
#include "Cspf/Repairs/TilfaConstraintInfoSm.h"
#include "Cspf/Requests/PathConfigInfoSm.h"
#include "Cspf/Requests/PathStatusInfoSm.h"
#include "Cspf/Runs/ConstraintStatusSm.h"
#include "Cspf/Runs/Run.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

namespace {

constexpr const char * rsvpClientName = "rsvp";

bool
isTilfa( const PathInfoKey & key ) {
   return key.clientName() == tilfaClientName;
}

/// The agent's own paths follow the topology; a client keeps a valid path that it uses.
bool
isValidatedAsRsvpPath( const PathInfoKey & key ) {
   return key.clientName() == rsvpClientName && !key.internal();
}

/// A client's own path of which no run gives the hops has include hops, and is put together.
bool
isStitched( const PathInfoKey & key ) {
   return !isTilfa( key ) && !key.internal() && key.constraintModifier() == noSpf();
}

const DedupConstraint &
constraintOf( const ConstraintHandle & handle ) {
   return static_cast< const DedupConstraint & >( *handle.handle() );
}

}

void
PathConstraintSm::handleInitialized() {
   LUM_WATCH( pathStatusInfo_, constraint, handleNewConstraint );
   if ( pathStatusInfo_->constraint() ) {
      handleNewConstraint();
   }
}

void
PathConstraintSm::handleNewConstraint() {
   if ( pathStatusInfo_->constraint() ) {
      owner_.doInitConstraintMachines( pathStatusInfo_ );
   } else {
      owner_.doCleanupConstraintMachines( pathStatusInfo_->pathInfoKey() );
   }
}

VrfRootSm::VrfRootSm( const L3::VrfName & vrf, const Lum::Ptr< VrfRoot > & vrfRoot,
                      const Lum::Ptr< const VrfSourceId > & vrfSourceId )
   : vrf_( vrf ),
     vrfRoot_( vrfRoot ),
     vrfSourceId_( vrfSourceId ) {}

VrfRootSm::~VrfRootSm() = default;

void
VrfRootSm::handleInitialized() {
   LUM_ASSERT( vrfRoot_->initialized() );
   constraintTopoInfoUpdaterTask_ = std::make_unique< Kiv::Task >(
      vrfRoot_->taskScheduler(), "constraintTopoInfoUpdaterTask-" + vrf_.stringValue(),
      [ this ]() { handleConstraintTopoInfoUpdaterTask(); } );
   parentPathHelper_ = Lum::make< const ParentPathHelper >( vrfRoot_->pathConfigInfoTable(),
                                                            vrfRoot_->pathStatusInfoTable(),
                                                            vrfRoot_->pathStatusCacheTable() );
   LUM_WATCH_KEYS( vrfSourceId_, vrfClientSourceId, handleClientSourceId );
   LUM_WATCH_KEYS( vrfRoot_->constraintInfoTable(), constraintInfo, handleConstraintInfo );
   LUM_WATCH_KEYS( vrfRoot_->pathStatusInfoTable(), pathStatusInfo, handlePathStatusInfo );
   LUM_WATCH( vrfRoot_->allTopoDbStatus(), topoChangedAt, updateConstraintTopoChanged );
   LUM_WATCH_KEYS( vrfRoot_->allTopoDbStatus(), bwUsageChangedAt, handleBwUsageChangedAt );
   LUM_WATCH_KEYS( vrfRoot_->allTopoDb(), topoDb, handleTopoDb );
}

void
VrfRootSm::doPrepareToDie() {
   pathStatusInfoDelAll();
   constraintTopoInfoUpdaterTask_ = nullptr;
}

void
VrfRootSm::handleConstraintInfo( const ConstraintHandle & handle ) {
   if ( const auto constraintInfo = vrfRoot_->constraintInfoTable()->constraintInfo( handle ) ) {
      doInitConstraintSm( handle, constraintInfo );
   } else {
      doCleanupConstraintSm( handle );
   }
}

void
VrfRootSm::doInitConstraintSm( const ConstraintHandle & handle,
                               const Lum::Ptr< ConstraintInfo > & constraintInfo ) {
   const auto & statsTable = vrfRoot_->constraintStatsTable();
   if ( !statsTable->constraintStatsHas( handle ) ) {
      statsTable->constraintStatsIs( handle, Lum::make< ConstraintStats >() );
   }
   if ( vrfRoot_->constraintInfoSmHas( handle ) ) {
      return;
   }
   if ( const BwUsageId & user = constraintOf( handle ).pathConstraint().bwUsageId() ) {
      constraintsOfUser_[ user ].insert( handle );
   }
   const Lum::Ptr< ConstraintStats > stats = statsTable->constraintStats( handle );
   vrfRoot_->constraintInfoSmIs( handle, newConstraintInfoSm( constraintInfo, stats ) );
   vrfRoot_->constraintStatusSmIs(
      handle, new ConstraintStatusSm( constraintInfo, stats, vrfRoot_->constraintStatusTable() ) );
}

Lum::Ptr< ConstraintInfoSmBase >
VrfRootSm::newConstraintInfoSm( const Lum::Ptr< ConstraintInfo > & constraintInfo,
                                const Lum::Ptr< ConstraintStats > & stats ) {
   const InternalPathConstraint & constraint = constraintInfo->constraint().pathConstraint();
   const auto & allTopoDb = vrfRoot_->allTopoDb();
   const auto & allTopoDbStatus = vrfRoot_->allTopoDbStatus();
   const ConstraintSmContext context{ vrfRoot_->cliConfig(), vrfRoot_->taskScheduler(),
                                      vrfRoot_->pathStatusInfoTable(),
                                      vrfRoot_->pathStatusCacheTable(), vrfRoot_->runMemory() };
   if ( constraint.pathComputationType() == PathComputationType::tilfa ) {
      TRACE7( "Starting a new TilfaConstraintInfoSm" );
      return new TilfaConstraintInfoSm(
         constraintInfo, stats,
         new AllTopoLfaDbView( allTopoDb, allTopoDbStatus,
                               TilfaConstraintInfoSm::viewConstraint( constraint ) ),
         context );
   }
   TRACE7( "Starting a new ConstraintInfoSm" );
   return new ConstraintInfoSm( constraintInfo, stats,
                                new AllTopoTeDbView( allTopoDb, allTopoDbStatus, constraint ),
                                context );
}

void
VrfRootSm::doCleanupConstraintSm( const ConstraintHandle & handle ) {
   TRACE7( "Deleting the constraintInfoSm" );
   vrfRoot_->constraintInfoSmDel( handle );
   const BwUsageId & user = constraintOf( handle ).pathConstraint().bwUsageId();
   if ( const auto own = constraintsOfUser_.find( user ); own != constraintsOfUser_.end() ) {
      own->second.erase( handle );
      if ( own->second.empty() ) {
         constraintsOfUser_.erase( own );
      }
   }
   doCleanupBwUsageChangedAt( user );
   vrfRoot_->constraintStatusSmDel( handle );
   vrfRoot_->constraintStatsTable()->constraintStatsDel( handle );
}

void
VrfRootSm::doCleanupBwUsageChangedAt( const BwUsageId & bwUsageId ) {
   TRACE7( "Checking if bwUsageId is still in use " << Lum::valueString( bwUsageId ) );
   const auto & allTopoDbStatus = vrfRoot_->allTopoDbStatus();
   if ( !allTopoDbStatus->bwUsageChangedAtHas( bwUsageId ) ) {
      TRACE7( "No bwUsageChangedAt entry for bwUsageId " << Lum::valueString( bwUsageId ) );
      return;
   }
   if ( constraintsOfUser_.contains( bwUsageId ) ) {
      return;
   }
   TRACE7( "bwUsageId not in use, deleting bwUsageChangedAt entry... "
           << Lum::valueString( bwUsageId ) );
   allTopoDbStatus->bwUsageChangedAtDel( bwUsageId );
}

void
VrfRootSm::handlePathStatusInfo( const PathInfoKey & key ) {
   const auto pathStatusInfo = vrfRoot_->pathStatusInfoTable()->pathStatusInfo( key );
   if ( pathStatusInfo ) {
      TRACE7( "Creating Path SMs for " << key.traceString() );
      doInitPathSms( key, pathStatusInfo );
   } else {
      TRACE7( "Deleting Path SMs for " << key.traceString() );
      doCleanupPathSms( key );
   }
}

void
VrfRootSm::doInitPathSms( const PathInfoKey & key,
                          const Lum::Ptr< PathStatusInfo > & pathStatusInfo ) {
   const Lum::Ptr< PathConfigInfo > pathConfigInfo =
      vrfRoot_->pathConfigInfoTable()->pathConfigInfo( key );
   vrfRoot_->pathConfigInfoSmIs(
      key, new PathConfigInfoSm( *vrfRoot_, pathConfigInfo, pathStatusInfo ) );
   vrfRoot_->pathStatusInfoSmIs( key, new PathStatusInfoSm( *vrfRoot_, pathStatusInfo ) );
   const auto cache = newPathStatusCache( key, *pathStatusInfo->cspfStatus() );
   vrfRoot_->pathStatusCacheTable()->pathStatusCacheIs( key, cache );
   if ( isTilfa( key ) ) {
      initializePqComputeSm( key, pathStatusInfo );
   } else {
      vrfRoot_->pathUsageSmIs( key, new PathUsageSm( *vrfRoot_, pathConfigInfo, pathStatusInfo ) );
   }
   if ( isStitched( key ) ) {
      vrfRoot_->rsvpPathStitchSmIs(
         key, new RsvpPathStitchSm( *vrfRoot_, pathConfigInfo, pathStatusInfo, cache ) );
   }
   vrfRoot_->pathConstraintSmIs( key, new PathConstraintSm( *this, pathStatusInfo ) );
}

Lum::Ptr< PathStatusCache >
VrfRootSm::newPathStatusCache( const PathInfoKey & key, const Status & cspfStatus ) {
   auto pathStatusCache = Lum::make< PathStatusCache >( key );
   const PathStatus * published = cspfStatus.pathStatusFind( key.pathKey() );
   if ( published && !key.internal() ) {
      TRACE7( "Initializing pathStatusCache with pathStatus for " << key.traceString() );
      initializePathStatusCache( pathStatusCache, *published );
   }
   return pathStatusCache;
}

void
VrfRootSm::doCleanupPathSms( const PathInfoKey & key ) {
   vrfRoot_->pathConfigInfoSmDel( key );
   vrfRoot_->pathStatusInfoSmDel( key );
   vrfRoot_->pathStatusUpdateSmDel( key );
   vrfRoot_->pathRefreshSmDel( key );
   vrfRoot_->rsvpPathStitchSmDel( key );
   vrfRoot_->pathStatusCacheTable()->pathStatusCacheDel( key );
   if ( isTilfa( key ) ) {
      deletePqComputeSm( key );
   }
   vrfRoot_->pathUsageSmDel( key );
   pathStatusInfoDel( key );
}

void
VrfRootSm::doInitConstraintMachines( const Lum::Ptr< PathStatusInfo > & pathStatusInfo ) {
   const PathInfoKey & key = pathStatusInfo->pathInfoKey();
   TRACE7( "Creating PathRefreshSm and PathStatusUpdateSm for " << key.traceString() );
   const Lum::Ptr< const ConstraintInfo > constraintInfo =
      vrfRoot_->constraintInfoTable()->constraintInfo( pathStatusInfo->constraint() );
   // The refresh machine marks the path; the update machine that asks for the run comes after it.
   vrfRoot_->pathStatusUpdateSmDel( key );
   if ( isValidatedAsRsvpPath( key ) ) {
      vrfRoot_->pathRefreshSmIs(
         key, new RsvpPathRefreshSm( *vrfRoot_, constraintInfo,
                                     vrfRoot_->pathConfigInfoTable()->pathConfigInfo( key ),
                                     pathStatusInfo ) );
   } else {
      vrfRoot_->pathRefreshSmIs( key, new PathRefreshSm( constraintInfo, pathStatusInfo ) );
   }
   if ( isTilfa( key ) ) {
      initializePqComputeSm( key, pathStatusInfo );
   }
   vrfRoot_->pathStatusUpdateSmIs(
      key, new PathStatusUpdateSm( *vrfRoot_, pathStatusInfo,
                                   vrfRoot_->pathStatusCacheTable()->pathStatusCache( key ),
                                   parentPathHelper_ ) );
}

void
VrfRootSm::doCleanupConstraintMachines( const PathInfoKey & key ) {
   TRACE7( "Deleting PathRefreshSm for " << key.traceString() );
   vrfRoot_->pathRefreshSmDel( key );
   TRACE7( "Deleting PathStatusUpdateSm for " << key.traceString() );
   vrfRoot_->pathStatusUpdateSmDel( key );
   if ( isTilfa( key ) ) {
      deletePqComputeSm( key );
   }
}

void
VrfRootSm::initializePqComputeSm( const PathInfoKey & key,
                                  const Lum::Ptr< PathStatusInfo > & pathStatusInfo ) {
   if ( key.internal() || !pathStatusInfo->constraint() ) {
      return;
   }
   const auto & table = vrfRoot_->dedupPqInfoTable();
   if ( !table || table->status() != pathStatusInfo->cspfStatus() ) {
      vrfRoot_->dedupPqInfoTableIs( new Lfa::DedupPqInfoTable( pathStatusInfo->cspfStatus() ) );
   }
   vrfRoot_->pqComputeSmIs( key, Lfa::makePqComputeSm( *vrfRoot_, key ) );
}

void
VrfRootSm::deletePqComputeSm( const PathInfoKey & key ) {
   vrfRoot_->pqComputeSmDel( key );
}

template< class Concerns >
void
VrfRootSm::updateTopoInfoChangedAt( Concerns && concerns ) {
   vrfRoot_->dedupConstraintTable()->forEach( [ & ]( const DedupConstraint & dedupConstraint ) {
      if ( concerns( dedupConstraint.pathConstraint() ) ) {
         updateTopoInfoChangedAtOf( dedupConstraint );
      }
   } );
}

/// Service ends path by path when its source has gone; those that are left ask for nothing.
void
VrfRootSm::updateTopoInfoChangedAtOf( const DedupConstraint & dedupConstraint ) {
   const InternalPathConstraint & constraint = dedupConstraint.pathConstraint();
   if ( vrfSourceId_->vrfClientSourceIdHas( constraint.pathComputationType() ) ) {
      vrfRoot_->constraintInfoTable()
         ->constraintInfo( &dedupConstraint )
         ->topoInfoChangedAtIs( vrfRoot_->allTopoDbStatus()->topoInfoChangedAt(
            constraint.pathComputationType(), constraint.bwUsageId() ) );
   }
}

void
VrfRootSm::updateConstraintTopoChanged() {
   TRACE7( "Scheduling constraintTopoInfoUpdaterTask" );
   constraintTopoInfoUpdaterTask_->schedule();
}

void
VrfRootSm::handleConstraintTopoInfoUpdaterTask() {
   TRACE7( "Updating topoChangedAt for constraints" );
   doUpdatePathBwUsages();
   updateTopoInfoChangedAt( []( const InternalPathConstraint & ) { return true; } );
}

/// A link may have another name now. What is a path's own must be known before it is judged.
void
VrfRootSm::doUpdatePathBwUsages() {
   for ( const auto & [ user, handles ] : constraintsOfUser_ ) {
      for ( const ConstraintHandle & handle : handles ) {
         for ( const auto & [ key, uses ] :
               vrfRoot_->constraintInfoTable()->constraintInfo( handle )->pathColl() ) {
            if ( const auto & usage = vrfRoot_->pathUsageSm( key ) ) {
               usage->handleTopoChanged();
            }
         }
      }
   }
}

void
VrfRootSm::handleBwUsageChangedAt( const BwUsageId & bwUsageId ) {
   LUM_ASSERT( !!bwUsageId );
   TRACE7( "Updating topoInfoChangedAt for constraints with bwUsageId "
           << Lum::valueString( bwUsageId ) );
   const auto own = constraintsOfUser_.find( bwUsageId );
   if ( own == constraintsOfUser_.end() ) {
      return;
   }
   const auto handles = own->second;  // a path that is told may let its constraint go
   for ( const ConstraintHandle & handle : handles ) {
      if ( vrfRoot_->constraintInfoTable()->constraintInfoHas( handle ) ) {
         updateTopoInfoChangedAtOf( constraintOf( handle ) );
      }
   }
}

void
VrfRootSm::handleClientSourceId( const PathComputationType & type ) {
   TRACE7( "Updating SourceId for all constraint for client " << Lum::enumName( type ) );
   if ( !vrfSourceId_->vrfClientSourceIdHas( type ) ) {
      TRACE7( "client " << Lum::enumName( type ) << " being removed, not scheduling SPF" );
      return;
   }
   const auto & allTopoDbStatus = vrfRoot_->allTopoDbStatus();
   allTopoDbStatus->sourceChangedAtIs( type, allTopoDbStatus->changeStamp() );
   updateTopoInfoChangedAt( [ & ]( const InternalPathConstraint & constraint ) {
      return constraint.pathComputationType() == type;
   } );
}

}
