// What operators see of a constraint. The table is keyed by the constraint's serial number, which
// is never used again, so that a reader tells a constraint that came back from one that stayed. A
// client path may use a constraint by several keys of the same name (segments of one path); the
// row counts them.

#include "Cspf/Runs/ConstraintStatusSm.h"

namespace Cspf {

ConstraintStatusSm::ConstraintStatusSm( const Lum::Ptr< const ConstraintInfo > & constraintInfo,
                                        const Lum::Ptr< const ConstraintStats > & constraintStats,
                                        const Lum::Ptr< ConstraintStatusTable > & table )
   : constraintInfo_( constraintInfo ),
     constraintStats_( constraintStats ),
     table_( table ),
     constraintStatus_( Lum::make< ConstraintStatus >() ) {}

void
ConstraintStatusSm::handleInitialized() {
   LUM_WATCH_KEYS( constraintInfo_, path, handlePath );
   LUM_WATCH( constraintInfo_, sourceMissing, handleStats );
   LUM_WATCH( constraintInfo_, constraintMissingInTopo, handleStats );
   LUM_WATCH( constraintStats_, cspfCount, handleStats );
   LUM_WATCH( constraintStats_, cspfSkippedCount, handleStats );
   LUM_WATCH( constraintStats_, cspfCurrentDelay, handleStats );
   handleStats();
   for ( const auto & [ key, used ] : constraintInfo_->pathColl() ) {
      handlePath( key );
   }
   table_->constraintStatusIs( constraintInfo_->constraint().serial(), constraintStatus_ );
}

void
ConstraintStatusSm::doPrepareToDie() {
   table_->constraintStatusDel( constraintInfo_->constraint().serial() );
}

void
ConstraintStatusSm::handlePath( const PathInfoKey & key ) {
   const ConstraintPath user{ key.sharedClientName(), key.clientPathKey(), key.internal() };
   const std::uint32_t users = constraintStatus_->path( user );
   if ( constraintInfo_->pathHas( key ) ) {
      constraintStatus_->pathIs( user, users + 1 );
   } else if ( users > 1 ) {
      constraintStatus_->pathIs( user, users - 1 );
   } else {
      constraintStatus_->pathDel( user );
   }
}

void
ConstraintStatusSm::handleStats() {
   constraintStatus_->cspfCountIs( constraintStats_->cspfCount() );
   constraintStatus_->cspfSkippedCountIs( constraintStats_->cspfSkippedCount() );
   constraintStatus_->cspfCurrentDelayIs( constraintStats_->cspfCurrentDelay() );
   constraintStatus_->sourceMissingIs( constraintInfo_->sourceMissing() );
   constraintStatus_->constraintMissingInTopoIs( constraintInfo_->constraintMissingInTopo() );
}

}
