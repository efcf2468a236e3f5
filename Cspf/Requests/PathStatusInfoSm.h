#pragma once

#include "Cspf/Records/PathRows.h"

namespace Cspf {

/// Keeps the path among the users of its constraint.
///
///   watches                     handler            writes
///   PathStatusInfo.constraint   handleConstraint   ConstraintInfo.path (of the old and the new),
///                                                  PathStatusInfo.constraintChangeCount
class PathStatusInfoSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, PathStatusInfoSm );
   PathStatusInfoSm( const Lum::Ptr< const ConstraintInfoTable > & constraintInfoTable,
                     const Lum::Ptr< PathStatusInfo > & pathStatusInfo )
      : constraintInfoTable_( constraintInfoTable ),
        pathStatusInfo_( pathStatusInfo ) {}

   void handleInitialized() override;
   void doPrepareToDie() override { handleDestruction(); }
   virtual void handleConstraint();
   void doUpdateOldConstraint();
   void handleDestruction();

   /// The one last registered with.
   const ConstraintHandle & oldConstraint() const noexcept { return oldConstraint_; }
   void oldConstraintIs( const ConstraintHandle & handle ) noexcept { oldConstraint_ = handle; }

 protected:
   const Lum::Ptr< PathStatusInfo > & pathStatusInfo() const noexcept { return pathStatusInfo_; }

 private:
   const Lum::Ptr< const ConstraintInfoTable > constraintInfoTable_;
   const Lum::Ptr< PathStatusInfo > pathStatusInfo_;
   ConstraintHandle oldConstraint_;
};

}
