// From a client's request to the constraint that a computation is made for. A constraint holds all
// that a run depends on, so that paths whose constraints are equal share one run; what does not
// matter to a run is therefore settled here, before constraints are compared: the kind of
// computation follows from the client, the source from the key. The local bandwidth id of a path
// without a shared group is taken and given back here.

#include "Cspf/Requests/PathConfigInfoSm.h"

#include "Cspf/Paths/StatusUpdate.h"
#include "Cspf/Requests/RepairScope.h"
#include "platform/Trace/Trace.h"

#include <stdexcept>
#include <utility>

namespace Cspf {

namespace {

bool
startsAtProtectedNode( ConstraintModifier modifier ) {
   return modifier == unconstrainedSpfAtProtectedNode()
          || modifier == unconstrainedReverseSpfAtProtectedNode();
}

bool
isReverse( ConstraintModifier modifier ) {
   return modifier == unconstrainedReverseSpfAtPlr()
          || modifier == unconstrainedReverseSpfAtProtectedNode();
}

/// What is left of a constraint when nothing is to be avoided.
InternalPathConstraint
unconstrained( const PathConstraint & constraint, ConstraintModifier modifier ) {
   InternalPathConstraint plain;
   plain.topoIdIs( constraint.topoId() );
   plain.reversePathIs( isReverse( modifier ) );
   if ( startsAtProtectedNode( modifier ) ) {
      LUM_ASSERT( !!constraint.excludeIntf() );
      plain.sourceTypeIs( neighborOnLink() );
      plain.excludeIntfIs( constraint.excludeIntf() );
      plain.excludeNodeIs( constraint.excludeNode() );
      plain.neighborLinkIs( constraint.neighborLink() );
      plain.neighborIs( constraint.neighbor() );
      plain.neighborSystemIdIs( constraint.neighborSystemId() );
   }
   return plain;
}

void
addSrlgsOf( const TrafficEngineering::Status & teStatus, const Kivnet::IntfId & intfId,
            InternalPathConstraint & constraint ) {
   const auto * intfStatus = teStatus.intfStatusFind( intfId.stringValue() );
   if ( !intfStatus ) {
      return;
   }
   for ( const auto & [ srlg, present ] : ( *intfStatus )->srlgColl() ) {
      constraint.excludeSrlgDerivedIs( srlg );
   }
}

/// Computations for clients start at this router; a repair's trees also at the neighbour that its
/// request names.
std::string
sourceTypeError( const PathConstraint & constraint, const PathInfoKey & key ) {
   const CspfSourceType type = constraint.sourceType();
   const bool isRepair = key.clientName() == tilfaClientName;
   if ( type == plr() || ( isRepair && type == neighborOnLink() ) ) {
      return {};
   }
   return "source type " + Lum::enumName( type ) + " is not served";
}

/// What is wrong with a request, or nothing. Clients write any number as a priority, which matters
/// where it is read.
std::string
requestError( const InternalPathConstraint & constraint ) {
   const bool hasHops = constraint.includeHops() > 0 || constraint.includeHopAllExplicit();
   if ( constraint.pathComputationType() == PathComputationType::tilfa && hasHops ) {
      return "a repair has no explicit hops";
   }
   try {
      BwPriority( constraint.bandwidth() > 0 ? constraint.bwSetupPriority() : 0 );
   } catch ( const std::range_error & error ) {
      return error.what();
   }
   return {};
}

void
clearResult( PathStatusCache & cache ) {
   cache.pathIs( nullptr );
   cache.pathSrlgIs( nullptr );
   cache.pathTeRouterIdIs( nullptr );
   cache.includeIpsIs( nullptr );
   cache.pathAsTopoDbLinksIs( nullptr );
   cache.pqInfoIs( nullptr );
   cache.achievedIs( RepairKind::none );
}

}

InternalPathConstraint
modifiedConstraint( const PathConstraint & constraint, ConstraintModifier modifier ) {
   InternalPathConstraint modified;
   switch ( modifier ) {
   case ConstraintModifier::noChange:
   case ConstraintModifier::noSpf:
      Lum::copyFields( constraint, modified );
      modified.noSpfIs( constraint.noSpf() || modifier == noSpf() );
      break;
   case ConstraintModifier::spfForPathSegment:
      LUM_ASSERT( constraint.includeHops() > 0 || constraint.includeHopAllExplicit() );
      Lum::copyFields( constraint, modified );
      modified.includeHopDelAll();
      modified.includeHopAllExplicitIs( false );
      modified.noSpfIs( false );  // the whole is given, the segment is computed
      break;
   case ConstraintModifier::spfWithoutProtectedLink:
      Lum::copyFields( constraint, modified );
      modified.excludeNodeIs( ExcludeNode() );
      modified.fallBackToLinkIs( false );
      break;
   default: return unconstrained( constraint, modifier );
   }
   modified.sourceTypeIs( plr() );
   return modified;
}

InternalPathConstraint
withDerivedSrlgs( InternalPathConstraint constraint, const TrafficEngineering::Status * teStatus ) {
   constraint.excludeSrlgDerivedDelAll();
   if ( teStatus && constraint.excludeSrlg() ) {
      addSrlgsOf( *teStatus, constraint.excludeIntf(), constraint );
      addSrlgsOf( *teStatus, constraint.excludeNode().nexthopIntf(), constraint );
   }
   return constraint;
}

void
PathConfigInfoSm::handleInitialized() {
   LUM_WATCH( pathConfigInfo_, configChangeCount, handleChangeCount );
   LUM_WATCH( pathConfigInfo_, derivedConfigChangeCount, handleChangeCount );
   if ( pathConfigInfo_->configChangeCount() > 0 ) {
      handleChangeCount();
   }
}

void
PathConfigInfoSm::doPrepareToDie() {
   releaseOwnId( pathStatusInfo_->constraint() );
}

void
PathConfigInfoSm::handleChangeCount() {
   const PathInfoKey & key = pathConfigInfo_->pathInfoKey();
   const auto * config = pathConfigInfo_->cspfConfig()->pathConfigFind( key.clientPathKey() );
   if ( !config ) {
      return;  // withdrawn: its rows are about to go
   }
   TRACE7( "for " << key.traceString() << " with configChangeCount "
                  << pathConfigInfo_->configChangeCount() << " and derivedConfigChangeCount "
                  << pathConfigInfo_->derivedConfigChangeCount() );
   const std::uint32_t refreshReqSeq = config->refreshReqSeq();
   const InternalPathConstraint derived = getDerivedConstraint(
      getUpdatedConstraint( config->constraint(), key.constraintModifier() ) );
   std::string error = sourceTypeError( config->constraint(), key );
   if ( error.empty() ) {
      error = requestError( derived );
   }
   if ( !error.empty() ) {
      refuse( error, refreshReqSeq );
      return;
   }
   const Lum::Ptr< DedupConstraint > oldConstraint = pathStatusInfo_->constraint();
   const std::uint32_t seen = changeCount();
   pathStatusInfo_->constraintIs(
      context_.dedupConstraintTable->dedup( withBwUsageId( derived ) ) );
   if ( !isRetired()
        && changeCount() == seen ) {  // whoever read of reservations may have asked anew
      requestRefresh( refreshReqSeq, oldConstraint != pathStatusInfo_->constraint() );
   }
}

/// A request that cannot be met has no constraint, holds nothing, and is answered at once.
void
PathConfigInfoSm::refuse( const std::string & error, std::uint32_t refreshReqSeq ) {
   // Whoever reads of reservations, or the reason, may withdraw or change the request.
   const auto alive = keptAlive();
   const std::uint32_t seen = changeCount();
   const PathInfoKey & key = pathConfigInfo_->pathInfoKey();
   const Lum::Ptr< DedupConstraint > oldConstraint = pathStatusInfo_->constraint();
   pathStatusInfo_->constraintIs( nullptr );
   pathConfigInfo_->usageChangeCountInc();
   pathStatusInfo_->lastRefreshReqSeqIs( refreshReqSeq );
   pathStatusInfo_->refreshReasonIs( 0 );
   pathStatusInfo_->refreshNeededIs( false );
   pathStatusInfo_->updatePathPendingIs( false );
   releaseOwnId( oldConstraint );
   if ( key.internal() || isRetired() || changeCount() != seen ) {
      return;
   }
   if ( const auto & cache = context_.pathStatusCacheTable->pathStatusCache( key ) ) {
      clearResult( *cache );
   }
   pathStatusInfo_->cspfStatus()->pathErrorIs( key.pathKey(), error );
   if ( !isRetired() && changeCount() == seen ) {
      PathStatusUpdator( pathStatusInfo_, pathStatusInfo_->cspfStatus() )
         .publishPath( Lum::make< PathStatusCache >( key ) );
   }
}

InternalPathConstraint
PathConfigInfoSm::withBwUsageId( const InternalPathConstraint & derived ) {
   if ( const PathInfoKey & parent = pathConfigInfo_->parentPath() ) {
      return withUserOf( parent, derived );
   }
   const auto & old = pathStatusInfo_->constraint();
   return doUpdateBwUsageId( old ? old->pathConstraint() : InternalPathConstraint(), derived );
}

InternalPathConstraint
PathConfigInfoSm::getUpdatedConstraint( const PathConstraint & constraint,
                                        ConstraintModifier modifier ) const {
   const PathInfoKey & key = pathConfigInfo_->pathInfoKey();
   if ( modifier != noChange() ) {
      TRACE7( "Creating modified constraint for " << key.traceString() );
   }
   const bool isRepair = key.clientName() == tilfaClientName;
   InternalPathConstraint updated =
      modifiedConstraint( isRepair ? repairConstraint( constraint ) : constraint, modifier );
   updated.pathComputationTypeIs( isRepair ? PathComputationType::tilfa
                                           : PathComputationType::cspf );
   if ( key.pathSegmentSourceNodeAddr() ) {
      updated.sourceTypeIs( pathSegmentSource() );
      updated.pathSegmentSourceNodeAddrIs( key.pathSegmentSourceNodeAddr() );
   }
   return updated;
}

InternalPathConstraint
PathConfigInfoSm::getDerivedConstraint( const InternalPathConstraint & constraint ) const {
   InternalPathConstraint derived = withDerivedSrlgs( constraint, context_.teStatus.ptr() );
   if ( !derived.topoId() && derived.pathComputationType() == PathComputationType::tilfa ) {
      derived.topoIdIs( pathConfigInfo_->repairTopoId() );
   }
   return derived;
}

InternalPathConstraint
PathConfigInfoSm::doUpdateBwUsageId( const InternalPathConstraint & oldConstraint,
                                     const InternalPathConstraint & newConstraint ) {
   const auto & client = pathConfigInfo_->pathInfoKey().clientName();
   const std::uint32_t oldLocalId = oldConstraint.bwUsageId().localId();
   InternalPathConstraint updated = newConstraint;
   if ( newConstraint.bandwidth() == 0 || newConstraint.sharedBwGroupId() ) {
      releaseLocalId( oldConstraint );
      updated.bwUsageIdIs( newConstraint.bandwidth() == 0
                              ? BwUsageId()
                              : BwUsageId{ client, newConstraint.sharedBwGroupId(), 0 } );
   } else if ( oldLocalId ) {
      LUM_ASSERT( !oldConstraint.bwUsageId().sharedBwGroupId() );
      updated.bwUsageIdIs( { client, 0, oldLocalId } );
   } else {
      updated.bwUsageIdIs( { client, 0, newLocalId() } );
   }
   return updated;
}

/// A child path uses what its parent has reserved.
InternalPathConstraint
PathConfigInfoSm::withUserOf( const PathInfoKey & parent,
                              InternalPathConstraint constraint ) const {
   const auto & row = context_.pathStatusInfoTable->pathStatusInfo( parent );
   if ( row && row->constraint() ) {
      constraint.bwUsageIdIs( row->constraint()->pathConstraint().bwUsageId() );
   }
   return constraint;
}

std::uint32_t
PathConfigInfoSm::newLocalId() {
   const std::uint64_t newLocalId64 = bwUsageLocalIdAllocator()->getNumber();
   LUM_ASSERT( newLocalId64 != bwUsageLocalIdAllocator()->invalidNumber() );
   return static_cast< std::uint32_t >( newLocalId64 );
}

void
PathConfigInfoSm::releaseLocalId( const InternalPathConstraint & constraint ) {
   if ( const std::uint32_t localId = constraint.bwUsageId().localId() ) {
      bwUsageLocalIdAllocator()->releaseNumber( localId );
   }
}

/// A segment's is its parent's.
void
PathConfigInfoSm::releaseOwnId( const Lum::Ptr< DedupConstraint > & constraint ) {
   const bool isSegment =
      pathConfigInfo_->pathInfoKey().constraintModifier() == ConstraintModifier::spfForPathSegment;
   if ( constraint && !isSegment ) {
      releaseLocalId( constraint->pathConstraint() );
   }
}

void
PathConfigInfoSm::requestRefresh( std::uint32_t refreshReqSeq, bool constraintReplaced ) {
   const std::uint32_t configChanges = pathConfigInfo_->configChangeCount();
   const bool askedAnew = std::exchange( configChangesSeen_, configChanges ) != configChanges;
   const bool isExplicit = refreshReqSeq != pathStatusInfo_->lastRefreshReqSeq();
   pathStatusInfo_->lastRefreshReqSeqIs( refreshReqSeq );
   if ( constraintReplaced ) {
      return;  // the refresh machine that came with it has marked the path, or keeps it in use
   }
   if ( !isExplicit && ( !askedAnew || pathConfigInfo_->pathInfoKey().internal() ) ) {
      return;  // what changed is not read here, or concerns other segments of its parent
   }
   pathStatusInfo_->refreshIs( refreshReasonConfigChanged
                               | ( isExplicit ? refreshReasonExplicit : 0 ) );
}

}
