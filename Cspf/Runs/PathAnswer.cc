// From a run to the answer for one of its paths. At a choice among equals the answer keeps to what
// is in use: to what the client was told; a segment to its own part of that, since a path that is
// put together may meet a router several times, and go on from it differently each time.

#include "Cspf/Runs/PathAnswer.h"

#include "Cspf/Records/Segments.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

namespace {

CspfOldPath
part( std::span< const Kivnet::IpGenAddr > hops, std::span< const Kivnet::IpGenAddr > routers,
      const HopRange & range ) {
   return { hops.subspan( range.first, range.count ), routers.subspan( range.first, range.count ) };
}

/// A segment of a path that has none yet keeps to its own last result.
CspfOldPath
oldPath( const PathStatusInfo & path, const PathStatusCache & cache, const NodeId & ownSource ) {
   const PathInfoKey & key = path.pathInfoKey();
   const PathStatus & published = path.cspfStatus()->pathStatus( key.clientPathKey() );
   if ( published.paths() == 0 && key.internal() && cache.path() ) {
      return { cache.path()->path(), cache.pathTeRouterId()->pathTeRouterId() };
   }
   if ( key.internal() && published.paths() == published.pathTeRouterIds() ) {
      if ( const auto range = publishedSegment( published, ownSource.ipAddress(), key ) ) {
         return part( published.pathList(), published.pathTeRouterIdList(), *range );
      }
   }
   return { published.pathList(), published.pathTeRouterIdList() };
}

}

std::string
fillPathStatusCache( const PathStatusInfo & path, const CspfData & cspfData,
                     PathStatusCache & cache, const char * operation ) {
   const PathInfoKey & key = path.pathInfoKey();
   const Kivnet::IpGenAddr tep = key.pathKey().dst().ipAddress();
   if ( !cspfData.routerWithTepHas( tep ) ) {
      TRACE9_FOR( operation, "no path found for tep " << key.pathKey().dst() );
      return noPath( cache, "no path found for tep " + key.pathKey().dst().stringValue() );
   }
   CspfPathResult answer = cache.result();
   const auto old = [ & ]() { return oldPath( path, cache, cspfData.view().getOurSourceId() ); };
   if ( !cspfData.fillHopByHopPathForTep( tep, old, answer ) ) {
      return noPath( cache, "path to tep " + tep.stringValue() + " has too many hops" );
   }
   cache.resultIs( answer );
   if ( key.keptWhileValid() && path.isRefreshed() ) {  // else another one stays published
      cache.routers.own() = cspfData.pathRouters();
   }
   return {};
}

CspfData::Ground
ground( const PathStatusInfo & path, const CspfData & cspfData ) {
   const PathStatus & published =
      path.cspfStatus()->pathStatus( path.pathInfoKey().clientPathKey() );
   return cspfData.ground( path.pathInfoKey().pathKey().dst().ipAddress(), [ & ]() {
      return CspfOldPath{ published.pathList(), published.pathTeRouterIdList() };
   } );
}

std::string
noPath( PathStatusCache & cache, std::string reason ) {
   CspfPathResult none = cache.result();
   none.clear();
   cache.resultIs( none );
   return reason;
}

Lum::Ptr< const PathStatusCache >
computeFrom( const NodeId & source, const PathStatusInfo & path,
             const Lum::Ptr< const AllTopoDbView > & view, CspfRunMemory & memory,
             const char * operation ) {
   const auto cspfData = Lum::make< CspfData >();
   cspfData->sourceIs( source );
   cspfData->useTeMetricIs( true );
   cspfData->buildReverseSptIs( view->constraint().reversePath() );
   cspfData->tepIs( path.pathInfoKey().pathKey().dst().ipAddress() );
   const CspfRun run( memory, *cspfData, view );
   auto cache = Lum::make< PathStatusCache >( path.pathInfoKey() );
   fillPathStatusCache( path, *cspfData, *cache, operation );
   memory.reclaim( *cspfData );
   cache->cspfDataIs( cspfData );
   return cache;
}

}
