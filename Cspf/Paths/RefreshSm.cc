// When a path is computed again because the topology changed.
//
// An ordinary path always is. A path of the RSVP client is in use: traffic flows over it, so it is
// checked first where a change may concern it, on a task of its own because a burst of changes
// needs one check. It is marked only when the published path does not hold any more. A path whose
// last refresh could not be finished does not have what its client asked for, whether or not the
// older path that is still published holds; it is marked at once.
//
// A path that an earlier run of the agent has published is in use as well, and is checked before it
// is computed.

#include "Cspf/Paths/RefreshSm.h"

#include "Cspf/Paths/UsageSm.h"
#include "Cspf/Runs/KeptCheck.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

void
PathRefreshSm::handleInitialized() {
   if ( pathStatusInfo_->pathInfoKey().followsConstraint() ) {
      pathStatusInfo_->followedIs( constraintInfo_ );
   } else {
      LUM_WATCH( constraintInfo_, topoInfoChangedAt, handleTopoChanged );
   }
   handleNew();
}

void
PathRefreshSm::doPrepareToDie() {
   pathStatusInfo_->followedIs( nullptr );
}

void
PathRefreshSm::handleNew() {
   pathStatusInfo_->refreshIs( refreshReasonConfigChanged );
}

void
PathRefreshSm::handleTopoChanged() {
   TRACE8( "topoChangedAt reset for " << pathStatusInfo_->pathInfoKey().traceString() );
   pathStatusInfo_->refreshIs( refreshReasonTopoChanged, constraintInfo_->topoInfoChangedAt() );
}

RsvpPathRefreshSm::RsvpPathRefreshSm( const PathInUseContext & context,
                                      const Lum::Ptr< ConstraintInfo > & constraintInfo,
                                      const Lum::Ptr< const PathConfigInfo > & pathConfigInfo,
                                      const Lum::Ptr< PathStatusInfo > & pathStatusInfo,
                                      const Lum::Ptr< const PathStatusCache > & pathStatusCache,
                                      const Lum::Ptr< PathUsageSm > & pathUsageSm )
   : PathRefreshSm( constraintInfo, pathStatusInfo ),
     context_( context ),
     pathConfigInfo_( pathConfigInfo ),
     pathStatusCache_( pathStatusCache ),
     pathUsageSm_( pathUsageSm ),
     pathStatusUpdator_( pathStatusInfo, pathStatusInfo->cspfStatus() ),
     pathValidationTask_( *this, context.taskScheduler,
                          "RsvpPathValidationTask-"
                             + Lum::valueString( pathStatusInfo->pathInfoKey().pathKey() ),
                          [ this ]() { doPathValidation(); } ) {}

RsvpPathRefreshSm::~RsvpPathRefreshSm() = default;

void
RsvpPathRefreshSm::handleNew() {
   LUM_ASSERT( !pathConfigInfo()->pathInfoKey().internal() );
   if ( isPublishedPathInUse() ) {
      pathValidationTask_.schedule();
   } else {
      PathRefreshSm::handleNew();
   }
}

/// A service that begins, and finds what an earlier one has published for this same request.
bool
RsvpPathRefreshSm::isPublishedPathInUse() const {
   const PathKey & pathKey = pathStatusInfo()->pathInfoKey().pathKey();
   const Status & status = *pathStatusInfo()->cspfStatus();
   const PathConfig * config = pathConfigInfo()->cspfConfig()->pathConfigFind( pathKey );
   const PathStatus * published = status.pathStatusFind( pathKey );
   return !pathUsageSm_->awaitsResult() && config && published && published->paths() > 0
          && !status.pathErrorHas( pathKey )
          && published->refreshRespSeq() == config->refreshReqSeq()
          && meetsHops( *published, config->constraint() );
}

/// Whether the path was put together by the request's hops: it lists them, in their order. One that
/// it does not list was away when it was last checked. Where it is back, the path may miss it.
bool
RsvpPathRefreshSm::meetsHops( const PathStatus & published,
                              const PathConstraint & constraint ) const {
   const auto & listed = published.includeIpList();
   const auto & routers = published.pathTeRouterIdList();
   std::size_t next = 0;
   for ( const IncludeHop & hop : constraint.includeHopList() ) {
      if ( next < listed.size() && listed[ next ].addr() == hop.addr() ) {
         ++next;
         continue;
      }
      const auto owners = context_.topology.allTopoDbStatus->teRouterIdsOfTep( hop.addr() );
      if ( !owners.empty() && std::ranges::find_first_of( routers, owners ) == routers.end() ) {
         return false;
      }
   }
   return next == listed.size();
}

void
RsvpPathRefreshSm::handleTopoChanged() {
   if ( pathStatusInfo()->refreshNeeded() ) {
      TRACE8( "refreshNeeded already set" );
   } else if ( constraintInfo()->topoInfoChangedAt() == 0 ) {
      TRACE8( "topoChangedAt is reset" );
   } else if ( pathStatusInfo()->updatePathPending() ) {
      setRefreshNeededForLinkedPaths();
   } else if ( !pathValidationTask_.scheduled() && !nothingToValidate( __PRETTY_FUNCTION__ ) ) {
      pathValidationTask_.schedule();
   }
}

void
RsvpPathRefreshSm::doPathValidation() {
   const PathInfoKey & key = pathStatusInfo()->pathInfoKey();
   if ( context_.pathStatusInfoTable->imports() > 0 ) {
      return;  // a topology has come since, and is told when it is in
   }
   if ( nothingToValidate( __PRETTY_FUNCTION__ ) ) {
      return;
   }
   TRACE8( "Process path validation for destination " << key.pathKey().dst() );
   const auto alive = keptAlive();  // whoever reads what is published may withdraw the path
   const SharedPathConstraint constraint = pathStatusInfo()->constraint()->sharedPathConstraint();
   const AllTopoTeDbView view( context_.topology, constraint );
   RsvpPathValidator validator = this->validator( view );
   validator.validatePathAndUpdateMetadata();
   if ( validator.valid() ) {
      validityIs( validator.links().empty() ? PathValidity() : validator.validity() );
      if ( constraint->bwUsageId() ) {
         pathUsageSm_->handleValid( view.topoGraph(), validator.links() );
      }
      if ( !isRetired() ) {
         publishPathMetadata( validator );
      }
   } else {
      setRefreshNeededForLinkedPaths();
   }
}

RsvpPathValidator
RsvpPathRefreshSm::validator( const AllTopoTeDbView & view ) const {
   const PathInfoKey & key = pathStatusInfo()->pathInfoKey();
   const Status & status = *pathStatusInfo()->cspfStatus();
   const PathStatus & published = status.pathStatus( key.pathKey() );
   const bool isSelf =
      published.paths() == 0 && !status.pathErrorHas( key.pathKey() ) && isPathFromSourceToSource();
   return { key, published, isSelf, view, context_.memory, pathUsageSm_->links() };
}

/// What a run has found and is published is valid while none of the routers on it changes, where
/// each of its addresses is one router's. What a path has reserved moves when it is published, so
/// that one that reserves is checked once.
bool
RsvpPathRefreshSm::standsAsComputed() const {
   const PathStatusCache & result = *pathStatusCache_;
   const InternalPathConstraint & constraint = pathStatusInfo()->constraint()->pathConstraint();
   if ( result.routers->routers.empty() || !result.runInfo() || constraint.bwUsageId() ) {
      return false;
   }
   const AllTopoDbStatus & status = *context_.topology.allTopoDbStatus;
   const auto isOneRouters = [ & ]( const Kivnet::IpGenAddr & hop ) {
      HopAddressMemory & addresses = context_.memory.hopAddresses();
      return !HopAddressMemory::another( addresses.carriers( hop, constraint.topoId() ) );
   };
   const bool stands =
      unchanged( status.teGraph().graph(), *result.routers )
      && result.runInfo()->source() == status.sourceId( constraint.pathComputationType() )
      && std::ranges::all_of( result.path()->path(), isOneRouters );
   if ( stands && isVerified() ) {
      LUM_ASSERT( !pathStatusUpdator_.isPathUpdateRequired( pathStatusCache_ ) );
      const AllTopoTeDbView view( context_.topology, constraint );
      RsvpPathValidator again = validator( view );
      again.validatePathAndUpdateMetadata();
      LUM_ASSERT( again.valid() && !again.pathTeRouterIdChanged() && !again.includeIpsChanged() );
   }
   return stands;
}

/// A path that is going to be computed, and one of which nothing has changed since it was valid.
bool
RsvpPathRefreshSm::nothingToValidate( const char * operation ) {
   const auto & constraint = pathStatusInfo()->constraint();
   const bool knownValid = validUsage_ == pathConfigInfo()->usageChangeCount() && constraint
                           && validity_.holds( context_.topology, context_.memory,
                                               constraint->pathConstraint().bwUsageId() );
   if ( pathStatusInfo()->refreshNeeded() || !constraint || knownValid ) {
      TRACE8_FOR( operation, "Skipping path validation for "
                                << pathStatusInfo()->pathInfoKey().traceString() );
      return true;
   }
   if ( standsAsComputed() ) {
      validityIs( { context_.memory, pathStatusCache_->routers } );
      return true;
   }
   return false;
}

void
RsvpPathRefreshSm::validityIs( PathValidity validity ) {
   validity_ = std::move( validity );
   validUsage_ = pathConfigInfo()->usageChangeCount();
}

bool
RsvpPathRefreshSm::isPathFromSourceToSource() const {
   return pathStatusCache_->path() && pathStatusCache_->path()->isPathFromSourceToSource();
}

void
RsvpPathRefreshSm::publishPathMetadata( const RsvpPathValidator & validator ) {
   if ( !validator.pathTeRouterIdChanged() && !validator.includeIpsChanged() ) {
      return;
   }
   pathStatusUpdator_.publishPathMetadata(
      validator.pathTeRouterIdChanged() ? validator.pathTeRouterId() : nullptr,
      validator.includeIpsChanged() ? validator.includeIps() : nullptr );
}

void
RsvpPathRefreshSm::setRefreshNeededForLinkedPaths() {
   const double since = constraintInfo()->topoInfoChangedAt();
   const auto children = pathConfigInfo()->childPathColl();  // whoever hears of one may end others
   for ( const auto & [ segment, child ] : children ) {
      if ( const auto & status = context_.pathStatusInfoTable->pathStatusInfo( child ) ) {
         status->refreshIs( refreshReasonTopoChanged, since );
      }
   }
   pathStatusInfo()->refreshIs( refreshReasonTopoChanged, since );
}

}
