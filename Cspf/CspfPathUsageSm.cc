// Reservations of one path. What a path reserves follows from three things: the hops that its
// client reads, the links that these hops are in the topology, and the user, priority and amount of
// its constraint. Whenever one of them may have changed, the whole set is worked out again and
// compared; equal reservations are the same handle, so nothing moves unless something did. Links
// come and go with the topology, so a path that stays is accounted again whenever a run or a check
// has found that it holds.
//
// When a client asks anew, what it will get is not known yet. Until the answer is published the
// path goes on holding what it held: more would be had without asking whether there is room.

#include "Cspf/CspfPathUsageSm.h"

#include "Cspf/AllTopoDbView.h"
#include "Cspf/CspfPathValidator.h"
#include "Cspf/CspfVrfRoot.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

#include <cmath>
#include <limits>

namespace Cspf {

void
PathUsageSm::handleInitialized() {
   LUM_WATCH( pathConfigInfo_, usageChangeCount, doUpdatePathBwUsage );
   LUM_WATCH( pathStatusInfo_, constraintChangeCount, handleConstraintChange );
   takeOver();
   handleConstraintChange();
}

/// A request that gets its first explicit hop, or loses its last one, is followed under another
/// key. What was reserved under the old one is held on, for the path that is still published.
void
PathUsageSm::takeOver() {
   PathInfoKey replaced = pathStatusInfo_->pathInfoKey();
   replaced.constraintModifierIs( replaced.constraintModifier() == noSpf() ? noChange() : noSpf() );
   const Lum::Ptr< PathUsageSm > other = vrfRoot_.pathUsageSm( replaced );
   if ( !replaced.internal() && other ) {
      oldBwUsageIdIs( other->oldBwUsageId() );
      pathBwUsage_ = other->pathBwUsage();
      awaitsResult_ = true;
   }
}

void
PathUsageSm::doPrepareToDie() {
   unwatchAll();
   handleDestruction();
}

void
PathUsageSm::handleDestruction() {
   TRACE7( "for path " << pathStatusInfo_->pathInfoKey().traceString() );
   pathBwUsageIs( nullptr );
}

void
PathUsageSm::handleConstraintChange() {
   const auto & constraint = pathStatusInfo_->constraint();
   if ( !constraint ) {
      TRACE8( "path constraint not set yet" );
      return;
   }
   const BwUsageId & bwUsageId = constraint->pathConstraint().bwUsageId();
   if ( bwUsageId == oldBwUsageId_ ) {
      TRACE8( "same bwUsageId: sharedBwGroupId " << bwUsageId.sharedBwGroupId() << " localId "
                                                 << bwUsageId.localId() << "for path "
                                                 << pathStatusInfo_->pathInfoKey().traceString() );
   } else {
      const auto held = heldAs( bwUsageId );
      pathBwUsageIs( nullptr );
      oldBwUsageIdIs( bwUsageId );
      pathBwUsageIs( held );
   }
   awaitsResult_ = awaitsResult_ || pathStatusInfo_->constraintChangeCount() > 1;
   doUpdatePathBwUsage();
}

/// What the path holds, in the name of another user; nothing for none.
Lum::Ptr< const PathBwUsage >
PathUsageSm::heldAs( const BwUsageId & bwUsageId ) const {
   if ( !pathBwUsage_ || !bwUsageId ) {
      return nullptr;
   }
   const auto usage = Lum::make< PathBwUsage >();
   for ( const auto & [ hop, held ] : pathBwUsage_->bwUsageColl() ) {
      usage->bwUsageIs(
         hop, vrfRoot_.bwUsageManager()->updateReservedBandwidth(
                 { held->bwUsageKey().link(), bwUsageId }, held->priority(), held->bandwidth() ) );
   }
   return usage;
}

void
PathUsageSm::handlePublished() {
   awaitsResult_ = false;
   doUpdatePathBwUsage();
}

void
PathUsageSm::doUpdatePathBwUsage() {
   const auto & constraint = pathStatusInfo_->constraint();
   if ( !constraint ) {
      TRACE8( "path constraint not set yet" );
      pathBwUsageIs( nullptr );
      return;
   }
   if ( !constraint->pathConstraint().bwUsageId() ) {
      TRACE8( "bwUsageId not set" );
      return;
   }
   if ( !awaitsResult_ ) {
      pathBwUsageIs( currentPathBwUsage( constraint->pathConstraint() ) );
   }
}

Lum::Ptr< const PathBwUsage >
PathUsageSm::currentPathBwUsage( const InternalPathConstraint & constraint ) {
   const PathInfoKey & key = pathStatusInfo_->pathInfoKey();
   const PathStatus * published =
      key.internal() ? nullptr : pathStatusInfo_->cspfStatus()->pathStatusFind( key.pathKey() );
   if ( !published || published->paths() == 0 ) {
      TRACE8( "No pathUsage found" );
      return nullptr;
   }
   const AllTopoTeDbView view( vrfRoot_.allTopoDb(), vrfRoot_.allTopoDbStatus(), constraint );
   PathValidationMemory & memory = vrfRoot_.pathValidationMemory();
   HopToTopoDbLinkMapper( view, memory.hopAddresses() )
      .handleNew( view.topoGraph().vertex( view.spfRoot() ), published->pathList(),
                  memory.links() );
   const auto links = pathAsTopoDbLinks( view.topoGraph(), memory.links() );
   const auto usage = Lum::make< PathBwUsage >();
   for ( std::size_t i = 0; i < published->paths(); ++i ) {
      const HopIndex hop( i );
      if ( !links->pathHas( hop ) ) {
         TRACE8( "Hop " << i << " not present in pathAsTopoDbLinks for path "
                        << key.traceString() );
         continue;
      }
      usage->bwUsageIs( published->path( hop ),
                        vrfRoot_.bwUsageManager()->updateReservedBandwidth(
                           { links->path( hop ), constraint.bwUsageId() },
                           BwPriority( constraint.bwSetupPriority() ), constraint.bandwidth() ) );
   }
   return usage;
}

void
PathUsageSm::pathBwUsageIs( const Lum::Ptr< const PathBwUsage > & pathBwUsage ) {
   const bool same = pathBwUsage && pathBwUsage_
                        ? pathBwUsage->bwUsageColl() == pathBwUsage_->bwUsageColl()
                        : pathBwUsage == pathBwUsage_;
   if ( !same ) {
      pathBwUsage_ = pathBwUsage;  // the old reservations end here, after the new ones were made
      handlePathBwUsage();
   }
}

void
PathUsageSm::handlePathBwUsage() {
   const auto & status = vrfRoot_.allTopoDbStatus();
   const bool leaving = !pathBwUsage_;
   if ( leaving && !status->bwUsageChangedAtHas( oldBwUsageId_ ) ) {
      return;  // nobody is left to hear of it
   }
   // The clock stands still while this turn's runs and publications are under way; the change is
   // later than all runs that did not see it.
   status->bwUsageChangedAtIs(
      oldBwUsageId_,
      std::nextafter( Lum::now(), std::numeric_limits< Lum::Seconds >::infinity() ) );
}

}
