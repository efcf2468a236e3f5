#pragma once

#include "Cspf/CspfVrfRootTypes.h"

namespace Cspf {

class VrfRoot;

/// Keeps the bandwidth that one path has reserved in step with the path that its client uses: the
/// published one. New links are reserved before old ones are given back, so a path that moves
/// holds both for a moment and never less than what it needs.
///
///   watches                                handler                  writes
///   PathConfigInfo.usageChangeCount        doUpdatePathBwUsage      PathBwUsage
///   PathStatusInfo.constraintChangeCount   handleConstraintChange   PathBwUsage
///   (its PathBwUsage)                      handlePathBwUsage AllTopoDbStatus.bwUsageChangedAt
///
/// A path that the agent derived from another one reserves nothing: the path that it serves does.
class PathUsageSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, PathUsageSm );
   /// The root outlives this object.
   PathUsageSm( VrfRoot & vrfRoot, const Lum::Ptr< const PathConfigInfo > & pathConfigInfo,
                const Lum::Ptr< const PathStatusInfo > & pathStatusInfo )
      : vrfRoot_( vrfRoot ),
        pathConfigInfo_( pathConfigInfo ),
        pathStatusInfo_( pathStatusInfo ) {}

   void handleInitialized() override;
   /// Gives everything back.
   void doPrepareToDie() override;
   void handleDestruction();
   void handleConstraintChange();
   void doUpdatePathBwUsage();
   void handlePathBwUsage();
   /// An answer to the path's request has been published, or is the one that was; its links may be
   /// others even so.
   void handlePublished();

   /// The user under which the reservations were made.
   const BwUsageId & oldBwUsageId() const noexcept { return oldBwUsageId_; }
   const Lum::Ptr< const PathBwUsage > & pathBwUsage() const noexcept { return pathBwUsage_; }
   /// The path was asked for anew; what is published, and held, is for the last answer.
   bool awaitsResult() const noexcept { return awaitsResult_; }

 private:
   void takeOver();
   void oldBwUsageIdIs( const BwUsageId & id ) { oldBwUsageId_ = id; }
   void pathBwUsageIs( const Lum::Ptr< const PathBwUsage > & pathBwUsage );
   Lum::Ptr< const PathBwUsage > currentPathBwUsage( const InternalPathConstraint & constraint );
   Lum::Ptr< const PathBwUsage > heldAs( const BwUsageId & bwUsageId ) const;

   VrfRoot & vrfRoot_;
   const Lum::Ptr< const PathConfigInfo > pathConfigInfo_;
   const Lum::Ptr< const PathStatusInfo > pathStatusInfo_;
   BwUsageId oldBwUsageId_;
   bool awaitsResult_ = false;
   Lum::Ptr< const PathBwUsage > pathBwUsage_;
};

}
