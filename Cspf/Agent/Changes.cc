// Which change is told to whom. A change of the topology moves one time stamp of each constraint,
// by one task for however many changes came before it; what follows from the stamp is the
// constraint's and the paths' own affair. A change of reservations moves the stamps of that user's
// constraints, a new source those of its type. While a topology is taken in, all wait for its end.
// Many are told by slices; what changes meanwhile is told when they are through. Telling and the
// runs that were held back for it take turns, so that neither waits for ever where changes never
// cease.

#include "Cspf/Agent/VrfRootSm.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Cspf {

/// Service ends path by path when its source has gone; those that are left ask for nothing.
void
VrfRootSm::updateTopoInfoChangedAtOf( ConstraintInfo & constraintInfo ) {
   const InternalPathConstraint & constraint = constraintInfo.constraint().pathConstraint();
   if ( !isImporting() && vrfSourceId_->vrfClientSourceIdHas( constraint.pathComputationType() ) ) {
      constraintInfo.topoInfoChangedAtIs( vrfRoot_->allTopoDbStatus()->topoInfoChangedAt(
         constraint.pathComputationType(), constraint.bwUsageId() ) );
   }
}

/// What was taken in is told before a run begins, whichever of those that hear of the end go on.
void
VrfRootSm::handleImports() {
   const std::uint32_t imports = vrfRoot_->allTopoDbStatus()->imports();
   const bool ends = isImporting() && imports == 0;
   tellsFirst_ |= ends;
   vrfRoot_->pathStatusInfoTable()->importsIs( imports );
   if ( ends ) {
      updateConstraintTopoChanged();
   }
}

void
VrfRootSm::handleIntakes() {
   const auto & paths = vrfRoot_->pathStatusInfoTable();
   if ( !tellsFirst_ && !paths->isTakingIn() && !paths->heldBack.empty()
        && !heldBack_.isUnderWay() ) {
      heldBack_.start( std::exchange( paths->heldBack, {} ) );
   }
}

void
VrfRootSm::endGoingOn() {
   handleIntakes();
   if ( std::exchange( changedMeanwhile_, false ) ) {
      updateConstraintTopoChanged();
   }
}

std::size_t
VrfRootSm::goOn( const ConstraintHandle & handle ) {
   if ( const auto & machine = vrfRoot_->constraintInfoSm( handle ) ) {
      machine->goOn();
   }
   return 1;
}

void
VrfRootSm::updateConstraintTopoChanged() {
   TRACE7( "Scheduling constraintTopoInfoUpdaterTask" );
   constraintTopoInfoUpdaterTask_.schedule();
}

/// While a change is being told, no run begins, so that none finds half of the paths told.
void
VrfRootSm::handleConstraintTopoInfoUpdaterTask() {
   if ( isImporting() ) {
      return;
   }
   if ( isTelling_ || ( heldBack_.isUnderWay() && !tellsFirst_ ) ) {
      changedMeanwhile_ = true;
      return;
   }
   TRACE7( "Updating topoChangedAt for constraints" );
   tellingIs( true );
   tellsFirst_ = false;
   tellUsages();
}

void
VrfRootSm::tellingIs( bool telling ) {
   const auto & paths = vrfRoot_->pathStatusInfoTable();
   isTelling_ = telling;
   paths->intakesIs( telling ? paths->intakes() + 1 : paths->intakes() - 1 );
}

/// A link may have another name now. What is a path's own must be known before it is judged.
void
VrfRootSm::tellUsages() {
   auto usages = vrfRoot_->pathUsageContext().byRouter.concerned(
      vrfRoot_->allTopoDbStatus()->teGraph().graph(),
      vrfRoot_->pathValidationMemory().hopAddresses().sourceChanges() );
   std::ranges::copy( std::exchange( untold_, {} ), std::back_inserter( usages ) );
   usagesToTell_.start( std::move( usages ) );
}

/// Of half of a topology it would take another's link for its own.
std::size_t
VrfRootSm::tellUsage( PathsByRouter::Entry entry ) {
   if ( isImporting() ) {
      untold_.push_back( entry );
   } else if ( const auto usage = vrfRoot_->pathUsageContext().byRouter.path( entry ) ) {
      usage->handleTopoChanged();
   }
   return 1;
}

/// What changed meanwhile is told them once more, and then to constraints as well.
void
VrfRootSm::endTellingUsages() {
   if ( changedMeanwhile_ && !std::exchange( tellsUsagesAgain_, true ) ) {
      changedMeanwhile_ = false;
      tellUsages();
      return;
   }
   tellsUsagesAgain_ = false;
   vrfRoot_->repairScope()->handleTopoChanged();
   if ( !isRetired() ) {
      constraintsToTell_.start(
         Lum::keysOf( vrfRoot_->constraintInfoTable()->constraintInfoColl() ) );
   }
}

/// Whoever is told may let the constraint go.
std::size_t
VrfRootSm::tellConstraint( const ConstraintHandle & handle ) {
   if ( const auto info = vrfRoot_->constraintInfoTable()->constraintInfo( handle ) ) {
      const Lum::Ptr< const DedupConstraint > inUse( &info->constraint() );
      updateTopoInfoChangedAtOf( *info );
   }
   return 1;
}

void
VrfRootSm::endTellingConstraints() {
   tellingIs( false );
   if ( std::exchange( changedMeanwhile_, false ) ) {
      updateConstraintTopoChanged();
   }
}

/// While paths hear of a change, so that reservations move, all constraints are told behind them.
void
VrfRootSm::handleBwUsageChangedAt( const BwUsageId & bwUsageId ) {
   LUM_ASSERT( !!bwUsageId );
   TRACE7( "Updating topoInfoChangedAt for constraints with bwUsageId " << bwUsageId );
   const auto own = constraintsOfUser_.find( bwUsageId );
   if ( own == constraintsOfUser_.end() || usagesToTell_.isUnderWay() ) {
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
   if ( isTelling_ ) {
      changedMeanwhile_ = true;
      return;
   }
   tellingIs( true );
   if ( type == PathComputationType::tilfa && !isImporting() ) {
      vrfRoot_->repairScope()->handleTopoChanged();
   }
   if ( isRetired() ) {
      return;
   }
   auto handles = Lum::keysOf( vrfRoot_->constraintInfoTable()->constraintInfoColl() );
   std::erase_if( handles, [ & ]( const ConstraintHandle & handle ) {
      return dedupConstraintOf( handle ).pathConstraint().pathComputationType() != type;
   } );
   constraintsToTell_.start( std::move( handles ) );
}

}
