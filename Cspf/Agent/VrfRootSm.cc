// What there is in a VRF root. Rows decide: a constraint has its machine while its row is there, a
// path has its machines while its status row is there, and those that work on a computed path while
// it has a constraint. Each is handed what it uses.

#include "Cspf/Agent/VrfRootSm.h"

#include "Cspf/Repairs/TilfaConstraintInfoSm.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

namespace {

bool
isTilfa( const PathInfoKey & key ) {
   return key.clientName() == tilfaClientName;
}

/// A client's own path of which no run gives the hops has include hops, and is put together.
bool
isStitched( const PathInfoKey & key ) {
   return !isTilfa( key ) && !key.internal() && key.constraintModifier() == noSpf();
}

}

void
PathConstraintSm::ownerIs( VrfRootSm * owner ) {
   owner_ = owner;
   if ( pathStatusInfo()->constraint() ) {
      handleNewConstraint();
   }
}

void
PathConstraintSm::doPrepareToDie() {
   owner_ = nullptr;
   PathStatusInfoSm::doPrepareToDie();
}

void
PathConstraintSm::handleConstraint() {
   PathStatusInfoSm::handleConstraint();
   handleNewConstraint();
}

void
PathConstraintSm::handleNewConstraint() {
   if ( !owner_ ) {
      return;
   }
   const PathInfoKey & key = pathStatusInfo()->pathInfoKey();
   if ( pathStatusInfo()->constraint() ) {
      TRACE7( "Creating PathRefreshSm and PathStatusUpdateSm for " << key.traceString() );
      owner_->doInitConstraintMachines( pathStatusInfo() );
   } else {
      TRACE7( "Deleting PathRefreshSm for " << key.traceString() );
      TRACE7( "Deleting PathStatusUpdateSm for " << key.traceString() );
      owner_->doCleanupConstraintMachines( key );
   }
}

VrfRootSm::VrfRootSm( const L3::VrfName & vrf, const Lum::Ptr< VrfRoot > & vrfRoot,
                      const Lum::Ptr< const VrfSourceId > & vrfSourceId )
   : vrf_( vrf ),
     vrfRoot_( vrfRoot ),
     vrfSourceId_( vrfSourceId ),
     constraintTopoInfoUpdaterTask_( *this, vrfRoot->taskScheduler(),
                                     "constraintTopoInfoUpdaterTask-" + vrf.stringValue(),
                                     [ this ]() { handleConstraintTopoInfoUpdaterTask(); } ),
     usagesToTell_( *this, vrfRoot->taskScheduler(), "topologyToUsagesTask-" + vrf.stringValue(),
                    { [ this ]( PathsByRouter::Entry entry ) { return tellUsage( entry ); },
                      [ this ] { endTellingUsages(); } } ),
     constraintsToTell_(
        *this, vrfRoot->taskScheduler(), "topologyToConstraintsTask-" + vrf.stringValue(),
        { [ this ]( const ConstraintHandle & handle ) { return tellConstraint( handle ); },
          [ this ] { endTellingConstraints(); } } ),
     heldBack_( *this, vrfRoot->taskScheduler(), "heldBackTask-" + vrf.stringValue(),
                { [ this ]( const ConstraintHandle & handle ) { return goOn( handle ); },
                  [ this ] { endGoingOn(); } } ) {}

VrfRootSm::~VrfRootSm() = default;

void
VrfRootSm::handleInitialized() {
   LUM_ASSERT( vrfRoot_->initialized() );
   parentPathHelper_ = Lum::make< const ParentPathHelper >( vrfRoot_->pathConfigInfoTable(),
                                                            vrfRoot_->pathStatusInfoTable(),
                                                            vrfRoot_->pathStatusCacheTable() );
   LUM_WATCH_KEYS( vrfSourceId_, vrfClientSourceId, handleClientSourceId );
   LUM_WATCH_KEYS( vrfRoot_->constraintInfoTable(), constraintInfo, handleConstraintInfo );
   LUM_WATCH_KEYS( vrfRoot_->pathStatusInfoTable(), pathStatusInfo, handlePathStatusInfo );
   LUM_WATCH( vrfRoot_->pathStatusInfoTable(), intakes, handleIntakes );
   LUM_WATCH( vrfRoot_->allTopoDbStatus(), imports, handleImports );
   handleImports();
   LUM_WATCH( vrfRoot_->allTopoDbStatus(), topoChangedAt, updateConstraintTopoChanged );
   LUM_WATCH_KEYS( vrfRoot_->allTopoDbStatus(), bwUsageChangedAt, handleBwUsageChangedAt );
   LUM_WATCH_KEYS( vrfRoot_->allTopoDb(), topoDb, handleTopoDb );
}

void
VrfRootSm::doPrepareToDie() {
   usagesToTell_.stop();
   constraintsToTell_.stop();
   heldBack_.stop();
   pathStatusInfoDelAll();
}

void
VrfRootSm::handleConstraintInfo( const ConstraintHandle & handle ) {
   if ( const auto constraintInfo = vrfRoot_->constraintInfoTable()->constraintInfo( handle ) ) {
      if ( !vrfRoot_->constraintInfoSmHas( handle ) ) {
         const InternalPathConstraint & constraint = constraintInfo->constraint().pathConstraint();
         const bool isRepair = constraint.pathComputationType() == PathComputationType::tilfa;
         TRACE7( "Starting a new " << ( isRepair ? "TilfaConstraintInfoSm" : "ConstraintInfoSm" ) );
      }
      doInitConstraintSm( handle, constraintInfo );
   } else {
      TRACE7( "Deleting the constraintInfoSm" );
      doCleanupConstraintSm( handle );
   }
}

void
VrfRootSm::doInitConstraintSm( const ConstraintHandle & handle,
                               const Lum::Ptr< ConstraintInfo > & constraintInfo ) {
   const auto stats = vrfRoot_->constraintStatsTable()->constraintStatsIs( handle );
   if ( vrfRoot_->constraintInfoSmHas( handle ) ) {
      return;
   }
   if ( const BwUsageId & user = dedupConstraintOf( handle ).pathConstraint().bwUsageId() ) {
      constraintsOfUser_[ user ].insert( handle );
   }
   vrfRoot_->constraintInfoSmIs( handle, newConstraintInfoSm( constraintInfo, stats ) );
   vrfRoot_->constraintStatusSmIs(
      handle, new ConstraintStatusSm( constraintInfo, stats, vrfRoot_->constraintStatusTable() ) );
}

Lum::Ptr< ConstraintInfoSmBase >
VrfRootSm::newConstraintInfoSm( const Lum::Ptr< ConstraintInfo > & constraintInfo,
                                const Lum::Ptr< ConstraintStats > & stats ) {
   const InternalPathConstraint & constraint = constraintInfo->constraint().pathConstraint();
   const VrfTopology & topology = vrfRoot_->topology();
   const ConstraintSmContext & context = vrfRoot_->constraintSmContext();
   if ( constraint.pathComputationType() == PathComputationType::tilfa ) {
      return new TilfaConstraintInfoSm(
         constraintInfo, stats,
         new AllTopoLfaDbView( topology, TilfaConstraintInfoSm::viewConstraint( constraint ) ),
         context );
   }
   return new ConstraintInfoSm(
      constraintInfo, stats,
      new AllTopoTeDbView( topology, constraintInfo->constraint().sharedPathConstraint() ),
      context );
}

void
VrfRootSm::doCleanupConstraintSm( const ConstraintHandle & handle ) {
   vrfRoot_->constraintInfoSmDel( handle );
   const BwUsageId & user = dedupConstraintOf( handle ).pathConstraint().bwUsageId();
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
   TRACE7( "Checking if bwUsageId is still in use " << bwUsageId );
   const auto & allTopoDbStatus = vrfRoot_->allTopoDbStatus();
   if ( !allTopoDbStatus->bwUsageChangedAtHas( bwUsageId ) ) {
      TRACE7( "No bwUsageChangedAt entry for bwUsageId " << bwUsageId );
      return;
   }
   if ( constraintsOfUser_.contains( bwUsageId ) ) {
      return;
   }
   TRACE7( "bwUsageId not in use, deleting bwUsageChangedAt entry... " << bwUsageId );
   allTopoDbStatus->bwUsageChangedAtDel( bwUsageId );
}

void
VrfRootSm::handlePathStatusInfo( const PathInfoKey & key ) {
   const auto pathStatusInfo = vrfRoot_->pathStatusInfoTable()->pathStatusInfo( key );
   if ( pathStatusInfo ) {
      TRACE7( "Creating Path SMs for " << key.traceString() );
      if ( !key.internal() && pathStatusInfo->cspfStatus()->pathStatusHas( key.pathKey() ) ) {
         TRACE7( "Initializing pathStatusCache with pathStatus for " << key.traceString() );
      }
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
      key, new PathConfigInfoSm( vrfRoot_->requestContext(), pathConfigInfo, pathStatusInfo ) );
   const Lum::Ptr< PathConstraintSm > pathConstraintSm =
      new PathConstraintSm( vrfRoot_->constraintInfoTable(), pathStatusInfo );
   vrfRoot_->pathStatusInfoSmIs( key, pathConstraintSm );
   const auto cache = newPathStatusCache( key, *pathStatusInfo->cspfStatus() );
   cache->pathStatusInfo = pathStatusInfo;
   vrfRoot_->pathStatusCacheTable()->pathStatusCacheIs( key, cache );
   if ( isTilfa( key ) ) {
      initializePqComputeSm( key, pathStatusInfo );
   } else {
      vrfRoot_->pathUsageSmIs( key, new PathUsageSm( vrfRoot_->pathUsageContext(),
                                                     replacedUsageSm( key ), pathConfigInfo,
                                                     pathStatusInfo ) );
   }
   if ( isStitched( key ) ) {
      vrfRoot_->rsvpPathStitchSmIs(
         key, new RsvpPathStitchSm( vrfRoot_->topology(), vrfRoot_->pathValidationMemory(),
                                    vrfRoot_->runMemory(), vrfRoot_->stitchTables(), pathConfigInfo,
                                    pathStatusInfo, cache ) );
   }
   pathConstraintSm->ownerIs( this );
}

/// A request that gets its first explicit hop, or loses its last one, is followed under another
/// key, where its reservations go along.
Lum::Ptr< PathUsageSm >
VrfRootSm::replacedUsageSm( PathInfoKey key ) const {
   key.constraintModifierIs( key.constraintModifier() == noSpf() ? noChange() : noSpf() );
   return key.internal() ? nullptr : vrfRoot_->pathUsageSm( key );
}

Lum::Ptr< PathStatusCache >
VrfRootSm::newPathStatusCache( const PathInfoKey & key, const Status & cspfStatus ) {
   auto pathStatusCache = Lum::make< PathStatusCache >( key );
   const PathStatus * published = cspfStatus.pathStatusFind( key.pathKey() );
   if ( published && !key.internal() ) {
      initializePathStatusCache( pathStatusCache, *published );
   }
   return pathStatusCache;
}

void
VrfRootSm::pathStatusInfoDel( const PathInfoKey & key ) {
   if ( const auto & machine = vrfRoot_->pathStatusInfoSm( key ) ) {
      machine->ownerIs( nullptr );
   }
}

void
VrfRootSm::doCleanupPathSms( const PathInfoKey & key ) {
   pathStatusInfoDel( key );
   vrfRoot_->pathDel( key );
}

void
VrfRootSm::doInitConstraintMachines( const Lum::Ptr< PathStatusInfo > & pathStatusInfo ) {
   const PathInfoKey & key = pathStatusInfo->pathInfoKey();
   // One machine marks the path; the update machine that asks for the run comes after it.
   vrfRoot_->pathStatusUpdateSmDel( key );
   if ( isTilfa( key ) && !key.internal() ) {  // its protection refreshes it
      initializePqComputeSm( key, pathStatusInfo );
   } else {
      vrfRoot_->pathRefreshSmIs( key, newPathRefreshSm( pathStatusInfo ) );
   }
   vrfRoot_->pathStatusUpdateSmIs(
      key, new PathStatusUpdateSm(
              vrfRoot_->constraintInfoTable(), vrfRoot_->pathUsageSm( key ), pathStatusInfo,
              vrfRoot_->pathStatusCacheTable()->pathStatusCache( key ), parentPathHelper_ ) );
}

Lum::Ptr< PathRefreshSm >
VrfRootSm::newPathRefreshSm( const Lum::Ptr< PathStatusInfo > & pathStatusInfo ) const {
   const PathInfoKey & key = pathStatusInfo->pathInfoKey();
   const Lum::Ptr< ConstraintInfo > constraintInfo =
      vrfRoot_->constraintInfoTable()->constraintInfo( pathStatusInfo->constraint() );
   if ( !key.keptWhileValid() ) {
      return new PathRefreshSm( constraintInfo, pathStatusInfo );
   }
   return new RsvpPathRefreshSm(
      { vrfRoot_->topology(), vrfRoot_->pathValidationMemory(), vrfRoot_->taskScheduler(),
        vrfRoot_->pathStatusInfoTable() },
      constraintInfo, vrfRoot_->pathConfigInfoTable()->pathConfigInfo( key ), pathStatusInfo,
      vrfRoot_->pathStatusCacheTable()->pathStatusCache( key ), vrfRoot_->pathUsageSm( key ) );
}

void
VrfRootSm::doCleanupConstraintMachines( const PathInfoKey & key ) {
   vrfRoot_->pathRefreshSmDel( key );
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
      vrfRoot_->dedupPqInfoTableIs( pathStatusInfo->cspfStatus() );
   }
   vrfRoot_->pqComputeSmIs( key, Lfa::makePqComputeSm( repairContext(), key ) );
}

void
VrfRootSm::deletePqComputeSm( const PathInfoKey & key ) {
   vrfRoot_->pqComputeSmDel( key );
}

Lfa::RepairContext
VrfRootSm::repairContext() const {
   return { vrfRoot_->af(),
            vrfRoot_->taskScheduler(),
            vrfRoot_->pathConfigInfoTable(),
            vrfRoot_->pathStatusInfoTable(),
            vrfRoot_->pathStatusCacheTable(),
            vrfRoot_->constraintInfoTable(),
            vrfRoot_->allTopoDbStatus(),
            vrfRoot_->clientData()->isisAdjacencyInfo(),
            vrfRoot_->dedupPqInfoTable(),
            vrfRoot_->prefixWatch(),
            vrfRoot_->protectionTable() };
}

}
