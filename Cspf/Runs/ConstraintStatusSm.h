#pragma once

#include "Cspf/Records/PathRows.h"

namespace Cspf {

/// Keeps one row of the operators' table in step with a constraint: how often it was computed, and
/// for whom.
///
///   watches                                    handler        writes
///   ConstraintInfo.path                        handlePath     ConstraintStatus.path
///   ConstraintInfo.sourceMissing               handleStats    ConstraintStatus, the same attribute
///   ConstraintInfo.constraintMissingInTopo     handleStats
///   ConstraintStats.cspfCount                  handleStats
///   ConstraintStats.cspfSkippedCount           handleStats
///   ConstraintStats.cspfCurrentDelay           handleStats
class ConstraintStatusSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, ConstraintStatusSm );
   ConstraintStatusSm( const Lum::Ptr< const ConstraintInfo > & constraintInfo,
                       const Lum::Ptr< const ConstraintStats > & constraintStats,
                       const Lum::Ptr< ConstraintStatusTable > & table );

   void handleInitialized() override;
   /// Takes the row out.
   void doPrepareToDie() override;
   void handlePath( const PathInfoKey & key );
   void handleStats();

 private:
   const Lum::Ptr< const ConstraintInfo > constraintInfo_;
   const Lum::Ptr< const ConstraintStats > constraintStats_;
   const Lum::Ptr< ConstraintStatusTable > table_;
   const Lum::Ptr< ConstraintStatus > constraintStatus_;
};

}
