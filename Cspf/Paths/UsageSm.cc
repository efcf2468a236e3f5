// Reservations of one path. What a path reserves follows from three things: the hops that its
// client reads, the links that these hops are in the topology, and the user, priority and amount of
// its constraint. Whenever one of them may have changed, the whole set is worked out again and
// compared; equal reservations are the same handle, so nothing moves unless something did. Links
// come and go with the topology, so all paths are accounted again before they are judged by it.
//
// When a client asks anew, what it will get is not known yet. Until the answer is published the
// path goes on holding what was granted last: more would be had without asking whether there is
// room. What an earlier run of the agent granted is not known. A path that it left holds what is
// asked for now, lest its own reservation stand in its way, but for one that stands beside an
// error: its request was refused, and must not be granted for having been restarted.

#include "Cspf/Paths/UsageSm.h"

#include "Cspf/Hops/PathValidator.h"
#include "Cspf/Views/View.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <utility>

namespace Cspf {

namespace {

/// Whose the reservations are; all of a path are of one user.
BwUsageId
userOf( const Lum::Ptr< const PathBwUsage > & pathBwUsage ) {
   return pathBwUsage ? pathBwUsage->bwUsageColl().begin()->second->bwUsageKey().bwUsageId()
                      : BwUsageId();
}

}

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
   if ( const auto replaced = std::exchange( replaced_, nullptr ) ) {
      oldBwUsageIdIs( replaced->oldBwUsageId() );
      granted_ = replaced->granted_;
      pathBwUsage_ = replaced->pathBwUsage();
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
   awaitsResult_ =
      awaitsResult_ || pathStatusInfo_->constraintChangeCount() > 1
      || pathStatusInfo_->cspfStatus()->pathErrorHas( pathStatusInfo_->pathInfoKey().pathKey() );
   const BwUsageId & bwUsageId = constraint->pathConstraint().bwUsageId();
   if ( bwUsageId == oldBwUsageId_ ) {
      TRACE8( "same bwUsageId: sharedBwGroupId " << bwUsageId.sharedBwGroupId() << " localId "
                                                 << bwUsageId.localId() << "for path "
                                                 << pathStatusInfo_->pathInfoKey().traceString() );
   } else {
      oldBwUsageIdIs( bwUsageId );
   }
   doUpdatePathBwUsage();
}

void
PathUsageSm::doUpdatePathBwUsage() {
   const auto & constraint = pathStatusInfo_->constraint();
   if ( !constraint ) {
      TRACE8( "path constraint not set yet" );
      granted_ = {};
      pathBwUsageIs( nullptr );
      return;
   }
   const InternalPathConstraint & asked = constraint->pathConstraint();
   if ( !asked.bwUsageId() ) {
      TRACE8( "bwUsageId not set" );
      granted_ = {};
   } else if ( !awaitsResult_ ) {
      granted_ = { BwPriority( asked.bwSetupPriority() ), asked.bandwidth() };
   }
   pathBwUsageIs( granted_.bandwidth > 0 ? currentPathBwUsage( asked ) : nullptr );
}

void
PathUsageSm::handleTopoChanged() {
   if ( !routers_.unchanged( topology_.allTopoDbStatus->teGraph().graph(),
                             memory_.hopAddresses() ) ) {
      doUpdatePathBwUsage();
   }
}

/// What was granted, on the links that the published hops are now. A hop whose link is away goes on
/// holding it, so that a path which moves gives nothing back before it has the new links.
Lum::Ptr< const PathBwUsage >
PathUsageSm::currentPathBwUsage( const InternalPathConstraint & constraint ) {
   const PathInfoKey & key = pathStatusInfo_->pathInfoKey();
   const PathStatus * published =
      key.internal() ? nullptr : pathStatusInfo_->cspfStatus()->pathStatusFind( key.pathKey() );
   if ( !published || published->paths() == 0 ) {
      TRACE8( "No pathUsage found" );
      return nullptr;
   }
   const auto links = publishedLinks( *published, constraint );
   const auto usage = Lum::make< PathBwUsage >();
   for ( std::size_t i = 0; i < published->paths(); ++i ) {
      const HopIndex hop( i );
      const Kivnet::IpGenAddr & address = published->path( hop );
      if ( links->pathHas( hop ) ) {
         const AllTopoNeighborKey & link = links->path( hop );
         usage->bwUsageIs( usage->bwUsageHas( address ) ? nearAddress( link ) : address,
                           reserved( link ) );
         continue;
      }
      TRACE8( "Hop " << i << " not present in pathAsTopoDbLinks for path " << key.traceString() );
      if ( pathBwUsage_ && pathBwUsage_->bwUsageHas( address ) ) {
         usage->bwUsageIs( address,
                           reserved( pathBwUsage_->bwUsage( address )->bwUsageKey().link() ) );
      }
   }
   return usage->bwUsages() > 0 ? usage : nullptr;
}

Lum::Ptr< const PathAsTopoDbLinks >
PathUsageSm::publishedLinks( const PathStatus & published,
                             const InternalPathConstraint & constraint ) {
   const AllTopoTeDbView view( topology_, constraint );
   HopToTopoDbLinkMapper( view, memory_.hopAddresses() )
      .handleNew( view.topoGraph().vertex( view.spfRoot() ), published.pathList(),
                  memory_.links() );
   const bool all = std::ranges::all_of( memory_.links(), &CspfPathHop::known );
   routers_ =
      all ? PathRouters( view.graph(), memory_.hopAddresses(), memory_.links() ) : PathRouters();
   return pathAsTopoDbLinks( view.topoGraph(), memory_.links() );
}

/// Names a further link to a router whose address names one already: across a LAN, a path that is
/// given by its hops may come to it twice.
Kivnet::IpGenAddr
PathUsageSm::nearAddress( const AllTopoNeighborKey & link ) const {
   const auto * neighbor = topology_.allTopoDb->neighbor( link );
   return neighbor && neighbor->interfaceAddrs() > 0 ? neighbor->interfaceAddrList()[ 0 ]
                                                     : Kivnet::IpGenAddr();
}

Lum::Ptr< const BwUsageDeduped >
PathUsageSm::reserved( const AllTopoNeighborKey & link ) const {
   return topology_.bwUsageManager->updateReservedBandwidth(
      { link, oldBwUsageId_ }, granted_.priority, granted_.bandwidth );
}

void
PathUsageSm::pathBwUsageIs( const Lum::Ptr< const PathBwUsage > & pathBwUsage ) {
   const bool same = pathBwUsage && pathBwUsage_
                        ? pathBwUsage->bwUsageColl() == pathBwUsage_->bwUsageColl()
                        : pathBwUsage == pathBwUsage_;
   if ( same ) {
      return;
   }
   const BwUsageId before = userOf( pathBwUsage_ );
   pathBwUsage_ = pathBwUsage;  // the old reservations end here, after the new ones were made
   if ( before != userOf( pathBwUsage_ )
        && topology_.allTopoDbStatus->bwUsageChangedAtHas( before ) ) {
      handlePathBwUsage( before );  // its other paths
   }
   if ( pathBwUsage_ ) {
      handlePathBwUsage( oldBwUsageId_ );
   }
}

void
PathUsageSm::handlePathBwUsage( const BwUsageId & bwUsageId ) {
   const auto & status = topology_.allTopoDbStatus;
   status->bwUsageChangedAtIs( bwUsageId, status->changeStamp() );
}

}
