// How a path is refreshed and published. The client reads one record a path, and every write of it
// costs the client work, so a result is compared with what is published field by field and written
// only where they differ; a request with a new sequence number is answered in any case.
//
// A refresh has two stages because some paths are put together from several runs. Whoever completes
// a stage counts it on the path's cache. A second stage that ends while a newer refresh is already
// under way publishes nothing: the newer one will.

#include "Cspf/Paths/StatusUpdate.h"

#include "Cspf/Paths/ChildSm.h"
#include "Cspf/Paths/UsageSm.h"
#include "platform/Trace/Trace.h"

#include <optional>

namespace Cspf {

namespace {

constexpr std::size_t inLength = ~std::size_t{ 0 };

/// The first index at which the lists differ, or `inLength`; nothing when they are equal.
template< class List >
std::optional< std::size_t >
firstDifference( const List & published, const List & cached ) {
   if ( published.size() != cached.size() ) {
      return inLength;
   }
   const auto at = std::mismatch( published.begin(), published.end(), cached.begin() ).first;
   if ( at == published.end() ) {
      return std::nullopt;
   }
   return static_cast< std::size_t >( at - published.begin() );
}

const PathArray noPath;
const PathSrlg noSrlgs;
const PathTeRouterId noTeRouterIds;
const IncludeIps noIncludeIps;

template< class Record >
const Record &
orNone( const Lum::Ptr< const Record > & record, const Record & none ) {
   return record ? *record : none;
}

}

std::uint32_t
repairPathIdx( const PathStatusCache & pathStatusCache ) {
   return pathStatusCache.pqInfo() ? pathStatusCache.pqInfo()->pqIdx() : 0;
}

void
initializePathStatusCache( const Lum::Ptr< PathStatusCache > & pathStatusCache,
                           const PathStatus & pathStatus ) {
   LUM_ASSERT( !pathStatusCache->path() );
   const auto path = sharedRecord< PathArray >( pathStatus.pathList() );
   pathStatusCache->pathIs( path );
   pathStatusCache->pathSrlgIs( sharedRecord( pathStatus.pathSrlgList(), path->lastSrlg ) );
   pathStatusCache->pathTeRouterIdIs(
      sharedRecord( pathStatus.pathTeRouterIdList(), path->lastTeRouterId ) );
   pathStatusCache->includeIpsIs( sharedRecord< IncludeIps >( pathStatus.includeIpList() ) );
}

bool
PathStatusUpdator::isPathUpdateRequired(
   const Lum::Ptr< const PathStatusCache > & pathStatusCache ) const {
   TRACE8( "Checking if path status update is needed for " << keyText() );
   LUM_ASSERT( pathStatusCache->pathInfoKey() == pathStatusInfo()->pathInfoKey() );
   const PathStatus * published = cspfStatus_->pathStatusFind( pathKey() );
   if ( !published ) {
      TRACE8( "Path Status didn't previously exist for path: " << keyText() );
      return true;
   }
   if ( published->refreshRespSeq() != pathStatusInfo()->lastRefreshReqSeq() ) {
      TRACE8( "RefreshReqSeq needs updation for path: " << keyText() );
      return true;
   }
   const PathStatusCache & cache = *pathStatusCache;
   if ( published->repairPathIdx() != repairPathIdx( cache )
        || published->achieved() != cache.achieved() ) {
      TRACE8( "repairPathIdx needs an update for path: " << keyText() );
      return true;
   }
   return isPathArrayUpdateRequired( cache.path(), __PRETTY_FUNCTION__ )
          || isPathTeRouterIdUpdateRequired( cache.pathTeRouterId() )
          || isIncludeIpUpdateRequired( cache.includeIps() )
          || isPathSrlgUpdateRequired( cache.pathSrlg() );
}

bool
PathStatusUpdator::isPathArrayUpdateRequired( const Lum::Ptr< const PathArray > & path,
                                              const char * operation ) const {
   const auto & status = published().pathList();
   const auto & cached = orNone( path, noPath ).path();
   const auto at = firstDifference( status, cached );
   if ( at == inLength ) {
      TRACE8_FOR( operation, "Path array lengths from cache: " << cached.size() << ", from status: "
                                                               << status.size() );
   } else if ( at ) {
      TRACE8_FOR( operation, "Path status hop " << *at << " " << status[ *at ]
                                                << " differs from cache " << cached[ *at ] );
   }
   return at.has_value();
}

bool
PathStatusUpdator::isPathTeRouterIdUpdateRequired(
   const Lum::Ptr< const PathTeRouterId > & pathTeRouterId ) const {
   const auto & status = published().pathTeRouterIdList();
   const auto & cached = orNone( pathTeRouterId, noTeRouterIds ).pathTeRouterId();
   const auto at = firstDifference( status, cached );
   if ( at == inLength ) {
      TRACE8( "Path TE router ID array lengths from cache: " << cached.size() << ", from status: "
                                                             << status.size() );
   } else if ( at ) {
      TRACE8( "Path status TE router ID " << *at << " " << status[ *at ]
                                          << " differs from cache: " << cached[ *at ] );
   }
   return at.has_value();
}

bool
PathStatusUpdator::isIncludeIpUpdateRequired(
   const Lum::Ptr< const IncludeIps > & includeIps ) const {
   const auto & status = published().includeIpList();
   const auto & cached = orNone( includeIps, noIncludeIps ).includeIp();
   const auto at = firstDifference( status, cached );
   if ( at == inLength ) {
      TRACE8( "IncludeIp array lengths from cache: " << cached.size()
                                                     << ", from status: " << status.size() );
   } else if ( at ) {
      TRACE8( "PathStatus includeIp " << *at << " differ from cache "
                                      << Lum::valueString( cached[ *at ] )
                                      << " from status: " << Lum::valueString( status[ *at ] ) );
   }
   return at.has_value();
}

bool
PathStatusUpdator::isPathSrlgUpdateRequired( const Lum::Ptr< const PathSrlg > & pathSrlg ) const {
   const auto & status = published().pathSrlgList();
   const auto & cached = orNone( pathSrlg, noSrlgs ).pathSrlg();
   const auto at = firstDifference( status, cached );
   if ( at == inLength ) {
      TRACE8( "PathSrlg array lengths from cache: " << cached.size()
                                                    << ", from status: " << status.size() );
   } else if ( at ) {
      TRACE8( "PathStatus SRLG " << *at << " " << Lum::valueString( status[ *at ] )
                                 << " differs from cache " << Lum::valueString( cached[ *at ] ) );
   }
   return at.has_value();
}

void
PathStatusUpdator::publishPath( const Lum::Ptr< const PathStatusCache > & pathStatusCache ) {
   TRACE8( "called for: " << keyText() << "ChangeCount: " << published().changeCount()
                          << "RefreshRespSeq: " << published().refreshRespSeq()
                          << "repairPathIdx: " << repairPathIdx( *pathStatusCache ) );
   LUM_ASSERT( !pathStatusInfo()->refreshNeeded() );
   if ( !isPathUpdateRequired( pathStatusCache ) ) {
      return;
   }
   write( newPathStatus( *pathStatusCache ) );
   TRACE7( "Wrote new path status for path: " << keyText() );
}

PathStatus
PathStatusUpdator::newPathStatus( const PathStatusCache & cache ) const {
   PathStatus pathStatus{ pathKey() };
   pathStatus.path_ = orNone( cache.path(), noPath ).path();
   pathStatus.pathSrlg_ = orNone( cache.pathSrlg(), noSrlgs ).pathSrlg();
   pathStatus.includeIp_ = orNone( cache.includeIps(), noIncludeIps ).includeIp();
   const PathTeRouterId * pathTeRouterId = &orNone( cache.pathTeRouterId(), noTeRouterIds );
   LUM_ASSERT( pathStatus.paths() == pathTeRouterId->hopCount() );
   pathStatus.pathTeRouterId_ = pathTeRouterId->pathTeRouterId();
   pathStatus.repairPathIdxIs( repairPathIdx( cache ) );
   pathStatus.achievedIs( cache.achieved() );
   pathStatus.changeCountIs( published().changeCount() + 1 );
   pathStatus.refreshRespSeqIs( pathStatusInfo()->lastRefreshReqSeq() );
   LUM_ASSERT( pathStatusInfo()->lastRefreshReqSeq() == pathStatus.refreshRespSeq() );
   return pathStatus;
}

void
PathStatusUpdator::publishPathMetadata( const Lum::Ptr< const PathTeRouterId > & pathTeRouterId,
                                        const Lum::Ptr< const IncludeIps > & includeIps ) {
   LUM_ASSERT( pathTeRouterId || includeIps );
   PathStatus pathStatus = published();
   if ( pathTeRouterId ) {
      LUM_ASSERT( pathStatus.paths() == pathTeRouterId->hopCount() );
      pathStatus.pathTeRouterId_ = pathTeRouterId->pathTeRouterId();
   }
   if ( includeIps ) {
      pathStatus.includeIp_ = includeIps->includeIp();
   }
   pathStatus.changeCountIs( pathStatus.changeCount() + 1 );
   write( pathStatus );
   pathStatusInfo_->pathStatusMetadataUpdateCountInc();
   TRACE8( "Wrote new path metadata for path: " << keyText() );
}

void
PathStatusUpdator::write( const PathStatus & pathStatus ) {
   pathStatusInfo_->lastUpdatedAtIs( Lum::now() );
   cspfStatus_->pathStatusIs( pathStatus );
}

PathStatusUpdateSm::PathStatusUpdateSm(
   const Lum::Ptr< const ConstraintInfoTable > & constraintInfoTable,
   const Lum::Ptr< PathUsageSm > & pathUsageSm, const Lum::Ptr< PathStatusInfo > & pathStatusInfo,
   const Lum::Ptr< const PathStatusCache > & pathStatusCache,
   const Lum::Ptr< const ParentPathHelper > & parentPathHelper )
   : constraintInfoTable_( constraintInfoTable ),
     pathUsageSm_( pathUsageSm ),
     pathStatusCache_( pathStatusCache ),
     parentPathHelper_( parentPathHelper ),
     pathStatusUpdator_( pathStatusInfo, pathStatusInfo->cspfStatus() ) {}

PathStatusUpdateSm::~PathStatusUpdateSm() = default;

void
PathStatusUpdateSm::pathStatusUpdatorIs() {
   pathStatusUpdator_ = { pathStatusInfo(), pathStatusInfo()->cspfStatus() };
}

void
PathStatusUpdateSm::handleInitialized() {
   LUM_WATCH( pathStatusInfo(), refreshNeeded, handleRefreshNeeded );
   LUM_WATCH( pathStatusCache_, refreshedStage1Count, handleRefreshStage1Completion );
   LUM_WATCH( pathStatusCache_, refreshedStage2Count, handleRefreshStage2Completion );
   handleRefreshNeeded();
}

void
PathStatusUpdateSm::handleRefreshNeeded() {
   const PathInfoKey & key = pathStatusInfo()->pathInfoKey();
   if ( !pathStatusInfo()->refreshNeeded() ) {
      return;
   }
   const RefreshReason reason = pathStatusInfo()->refreshReason();
   const bool explicitRefresh = reason & ( refreshReasonExplicit | refreshReasonConfigChanged );
   const bool delayedPathValidation = reason & refreshReasonTopoChanged;
   LUM_ASSERT( explicitRefresh || delayedPathValidation );
   if ( explicitRefresh ) {
      TRACE7( "Explicit path refresh request for " << key.traceString() );
   }
   if ( parentPathHelper_->anyChildPathRefreshNeeded( key ) ) {
      return;
   }
   TRACE8( "CSPF requested for path: "
           << key.traceString() << " with topoChanged "
           << static_cast< bool >( pathStatusInfo()->refreshReason() & refreshReasonTopoChanged )
           << " and newPath " << !pathStatusInfo()->cspfStatus()->pathStatusHas( key.pathKey() ) );
   const auto & constraintInfo =
      constraintInfoTable_->constraintInfo( pathStatusInfo()->constraint() );
   constraintInfo->waiting.insert( key );
   if ( !pathStatusInfo()->hasAskedThrough() ) {
      constraintInfo->cspfRequestCountInc();
   }
}

void
PathStatusUpdateSm::handleRefreshStage1Completion() {
   TRACE8( "called for " << pathStatusInfo()->pathInfoKey().traceString() );
   if ( !pathStatusInfo()->refreshNeeded() && !pathStatusInfo()->updatePathPending() ) {
      return;  // its segments were computed anew, but the path itself still holds
   }
   pathStatusInfo()->refreshNeededIs( false );
   pathStatusInfo()->refreshReasonIs( 0 );
   TRACE8( "Trigger stage2 for path: " << pathStatusInfo()->pathInfoKey().traceString() );
   pathStatusInfo()->updatePathPendingIs( true );
   pathStatusInfo()->stage2RequestCountInc();
}

void
PathStatusUpdateSm::handleRefreshStage2Completion() {
   TRACE8( "called for " << pathStatusInfo()->pathInfoKey().traceString() );
   if ( pathStatusInfo()->refreshNeeded() ) {
      return;
   }
   pathStatusInfo()->updatePathPendingIs( false );
   publishPathStatus();
}

void
PathStatusUpdateSm::publishPathStatus() {
   if ( pathStatusInfo()->pathInfoKey().internal() ) {
      return;
   }
   if ( pathUsageSm_ ) {
      pathUsageSm_->handleResult( *pathStatusCache_ );
   }
   pathStatusUpdator_.publishPath( pathStatusCache_ );
   if ( pathUsageSm_ ) {
      pathUsageSm_->doUpdatePathBwUsage();  // for the path that stands, too
   }
}

}
