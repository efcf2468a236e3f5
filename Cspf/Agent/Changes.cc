// Which change is told to whom. A change of the topology moves one time stamp of each constraint,
// by one task for however many changes came before it; what follows from the stamp is the
// constraint's and the paths' own affair. A change of reservations moves the stamps of that user's
// constraints, a new source those of its type. While a topology is taken in, all wait for its end.

#include "Cspf/Agent/VrfRootSm.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

/// Who is told may let constraints go, so all are held until the last one was told.
template< class Concerns >
void
VrfRootSm::updateTopoInfoChangedAt( Concerns && concerns ) {
   struct Row {
      Lum::Ptr< const DedupConstraint > constraint;
      Lum::Ptr< ConstraintInfo > info;
   };
   std::vector< Row > rows;
   rows.reserve( vrfRoot_->constraintInfoTable()->constraintInfos() );
   for ( const auto & [ handle, info ] : vrfRoot_->constraintInfoTable()->constraintInfoColl() ) {
      rows.push_back( { &info->constraint(), info } );
   }
   for ( const Row & row : rows ) {
      if ( concerns( row.constraint->pathConstraint() ) ) {
         updateTopoInfoChangedAtOf( *row.info );
      }
   }
}

/// Service ends path by path when its source has gone; those that are left ask for nothing.
void
VrfRootSm::updateTopoInfoChangedAtOf( ConstraintInfo & constraintInfo ) {
   const InternalPathConstraint & constraint = constraintInfo.constraint().pathConstraint();
   if ( !isImporting() && vrfSourceId_->vrfClientSourceIdHas( constraint.pathComputationType() ) ) {
      constraintInfo.topoInfoChangedAtIs( vrfRoot_->allTopoDbStatus()->topoInfoChangedAt(
         constraint.pathComputationType(), constraint.bwUsageId() ) );
   }
}

void
VrfRootSm::handleImports() {
   const bool wasImporting = isImporting();
   vrfRoot_->pathStatusInfoTable()->importsIs( vrfRoot_->allTopoDbStatus()->imports() );
   if ( wasImporting && !isImporting() ) {
      updateConstraintTopoChanged();
   }
}

void
VrfRootSm::updateConstraintTopoChanged() {
   TRACE7( "Scheduling constraintTopoInfoUpdaterTask" );
   constraintTopoInfoUpdaterTask_.schedule();
}

void
VrfRootSm::handleConstraintTopoInfoUpdaterTask() {
   if ( isImporting() ) {
      return;
   }
   TRACE7( "Updating topoChangedAt for constraints" );
   const auto alive = keptAlive();  // whoever reads reservations may end the VRF's last service
   doUpdatePathBwUsages();
   if ( isRetired() ) {
      return;
   }
   vrfRoot_->repairScope()->handleTopoChanged();
   updateTopoInfoChangedAt( []( const InternalPathConstraint & ) { return true; } );
}

/// A link may have another name now. What is a path's own must be known before it is judged.
void
VrfRootSm::doUpdatePathBwUsages() {
   const auto concerned = vrfRoot_->pathUsageContext().byRouter.concerned(
      vrfRoot_->allTopoDbStatus()->teGraph().graph(),
      vrfRoot_->pathValidationMemory().hopAddresses().sourceChanges() );
   for ( const auto & usage : concerned ) {  // one that is told may end others
      usage->handleTopoChanged();
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
         updateTopoInfoChangedAtOf( *vrfRoot_->constraintInfoTable()->constraintInfo( handle ) );
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
