// A path is in the set of users of one constraint at a time: the one that it was last registered
// with. The set is what a run computes for. The old constraint's row is still there while a
// replacement is being told, unless its table went first.

#include "Cspf/Requests/PathStatusInfoSm.h"

#include "platform/Trace/Trace.h"

namespace Cspf {

void
PathStatusInfoSm::handleInitialized() {
   LUM_WATCH( pathStatusInfo_, constraint, handleConstraint );
   if ( pathStatusInfo_->constraint() ) {
      handleConstraint();
   }
}

void
PathStatusInfoSm::handleConstraint() {
   const PathInfoKey & key = pathStatusInfo()->pathInfoKey();
   doUpdateOldConstraint();
   const ConstraintHandle handle( pathStatusInfo()->constraint() );
   if ( !handle ) {
      TRACE7( "constraint reset for " << key.traceString() );
      return;
   }
   constraintInfoTable_->constraintInfo( handle )->pathIs( key, true );
   oldConstraintIs( handle );
   TRACE7( "constraintInfo " << handle << " updated for " << key.traceString() );
   pathStatusInfo()->constraintChangeCountInc();
}

void
PathStatusInfoSm::doUpdateOldConstraint() {
   const PathInfoKey & key = pathStatusInfo()->pathInfoKey();
   if ( !oldConstraint_ ) {
      TRACE7( "no old constraint for " << key.traceString() );
      return;
   }
   const auto constraintInfo = constraintInfoTable_->constraintInfo( oldConstraint_ );
   oldConstraintIs( {} );
   if ( !constraintInfo ) {
      TRACE7( "constraintInfo deleted for " << key.traceString() );
      return;
   }
   LUM_ASSERT( constraintInfo->path( pathStatusInfo()->pathInfoKey() ) );
   constraintInfo->pathDel( key );
}

void
PathStatusInfoSm::handleDestruction() {
   if ( oldConstraint_ ) {
      TRACE7( "Removing " << pathStatusInfo()->pathInfoKey().traceString()
                          << " from constraint: " << oldConstraint_ );
      doUpdateOldConstraint();
   }
}

}
