#pragma once

#include "Cspf/Records/PathRows.h"

namespace Cspf {

class VrfRoot;

/// Keeps the path among the users of its constraint.
///
///   watches                     handler            writes
///   PathStatusInfo.constraint   handleConstraint   ConstraintInfo.path (of the old and the new),
///                                                  PathStatusInfo.constraintChangeCount
class PathStatusInfoSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, PathStatusInfoSm );
   /// The root outlives this object.
   PathStatusInfoSm( VrfRoot & vrfRoot, const Lum::Ptr< PathStatusInfo > & pathStatusInfo )
      : vrfRoot_( vrfRoot ),
        pathStatusInfo_( pathStatusInfo ) {}

   void handleInitialized() override;
   void doPrepareToDie() override { handleDestruction(); }
   void handleConstraint();
   void doUpdateOldConstraint();
   void handleDestruction();

 private:
   const Lum::Ptr< PathStatusInfo > & pathStatusInfo() const noexcept { return pathStatusInfo_; }
   void oldConstraintIs( const ConstraintHandle & handle ) noexcept { oldConstraint_ = handle; }

   VrfRoot & vrfRoot_;
   const Lum::Ptr< PathStatusInfo > pathStatusInfo_;
   ConstraintHandle oldConstraint_;  // the one last registered with
};

}
