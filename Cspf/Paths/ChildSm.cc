// When the segments of an explicit-hop path are ready.
//
// Every loose segment is a child path with a constraint, a throttle and runs of its own, so the
// children of one parent finish one after the other, and while the topology keeps changing there
// may be no moment at which all of them answer for the topology as it is. The parent's first stage
// is complete when each of them answers for the change that the parent waits for, or a later one;
// what is put together of that is judged before it is published. It can come true in two ways: a
// child gets a new result, or a child that has one stops waiting; each child has a watcher for
// both.
//
// Only a parent that waits is told. Children follow every change of the topology, but a path that
// is in use must not move because one of its segments could be better now.

#include "Cspf/Paths/ChildSm.h"

#include "Cspf/Runs/RunData.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

template< class Test >
bool
ChildPathTables::allChildren( const PathInfoKey & parent, Test && test ) const {
   const auto & config = pathConfigInfoTable->pathConfigInfo( parent );
   return config && std::ranges::all_of( config->childPathColl(), [ & ]( const auto & child ) {
             return test( child.second );
          } );
}

bool
ChildPathTables::cspfDataConsistent( const PathInfoKey & parent ) const {
   const auto & status = pathStatusInfoTable->pathStatusInfo( parent );
   return status && allChildren( parent, [ & ]( const PathInfoKey & child ) {
             return childAnswers( child, status->waitsSince() );
          } );
}

bool
ChildPathTables::childAnswers( const PathInfoKey & child, double since ) const {
   const auto & status = pathStatusInfoTable->pathStatusInfo( child );
   const auto & cache = pathStatusCacheTable->pathStatusCache( child );
   constexpr RefreshReason asked = refreshReasonConfigChanged | refreshReasonExplicit;
   if ( !status || !cache || ( status->refreshNeeded() && ( status->refreshReason() & asked ) ) ) {
      return false;
   }
   const auto & stats = constraintStatsTable->constraintStats( status->constraint() );
   const auto & cspfData = cache->cspfData();
   // A segment that starts nowhere has an answer, though there was nothing to run.
   return stats && ( cspfData ? cspfData->ranAt() >= since : stats->sourceMissing );
}

bool
StitchTables::cspfDataFresh( const PathInfoKey & parent ) const {
   return allChildren( parent, [ & ]( const PathInfoKey & child ) { return childFresh( child ); } );
}

bool
StitchTables::childFresh( const PathInfoKey & child ) const {
   const auto & status = pathStatusInfoTable->pathStatusInfo( child );
   const auto & cache = pathStatusCacheTable->pathStatusCache( child );
   if ( !status || !cache ) {
      return false;
   }
   const auto & info = constraintInfoTable->constraintInfo( status->constraint() );
   const auto & cspfData = cache->cspfData();
   return info && cspfData ? info->topoInfoChangedAt() <= cspfData->ranAt()
                           : !status->refreshNeeded();
}

bool
ParentPathHelper::anyChildPathRefreshNeeded( const PathInfoKey & parent ) const {
   if ( parent.constraintModifier() != noSpf() ) {
      return false;  // what is computed as a whole has no segments
   }
   const auto & config = pathConfigInfoTable_->pathConfigInfo( parent );
   return config && std::ranges::any_of( config->childPathColl(), [ & ]( const auto & child ) {
             const auto & status = pathStatusInfoTable_->pathStatusInfo( child.second );
             return status && status->refreshNeeded();
          } );
}

void
ChildPathStatusSm::handleInitialized() {
   LUM_WATCH( cache_, cspfData, handleCspfData );
   LUM_WATCH( pathStatusInfo_, refreshNeeded, handleCspfData );
}

void
ChildPathStatusSm::handleCspfData() {
   owner_.handleCspfData( cache_->pathInfoKey() );
}

void
ChildPathStatusCacheSm::handleInitialized() {
   LUM_FOLLOW_KEYS( tables_.pathStatusCacheTable, pathStatusCache, handlePathStatusCache );
}

void
ChildPathStatusCacheSm::handlePathStatusCache( const PathInfoKey & key ) {
   const auto & cache = tables_.pathStatusCacheTable->pathStatusCache( key );
   const auto & status = tables_.pathStatusInfoTable->pathStatusInfo( key );
   if ( !cache || !status ) {
      childPathStatusDel( key );
   } else if ( key.constraintModifier() == ConstraintModifier::spfForPathSegment ) {
      childPathStatusIs( key, new ChildPathStatusSm( *this, cache, status ) );
   }
}

void
ChildPathStatusCacheSm::handleCspfData( const PathInfoKey & child ) {
   const auto & config = tables_.pathConfigInfoTable->pathConfigInfo( child );
   if ( !config || !config->parentPath() ) {
      return;
   }
   const PathInfoKey parent = config->parentPath();
   if ( cspfDataConsistent( parent ) ) {
      updateParentPathInfo( parent );
   }
}

void
ChildPathStatusCacheSm::updateParentPathInfo( const PathInfoKey & parent ) {
   const auto status = tables_.pathStatusInfoTable->pathStatusInfo( parent );
   const auto cache = tables_.pathStatusCacheTable->pathStatusCache( parent );
   if ( status && cache && status->isRefreshed() ) {
      TRACE9( "all segments computed for " << parent.traceString() );
      cache->refreshedStage1CountInc();
   }
}

}
