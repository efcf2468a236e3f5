// The proof that following is computing: everything that is kept for a constraint is compared with
// a run from nothing. It costs what is saved otherwise, and is for tests and for whoever doubts.

#include "Cspf/Runs/KeptCheck.h"

#include "Cspf/Runs/ConstraintInfoSm.h"
#include "Cspf/Runs/PathAnswer.h"
#include "Cspf/Runs/Run.h"
#include "platform/Lum/Assert.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace Cspf {

namespace {

template< class Kept >
void
verifyTree( const AllTopoDbView & view, const Kept & kept, const CspfTree & tree ) {
   const CspfGraph & graph = view.graph();
   for ( std::uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      const CspfVertex vertex{ v };
      if ( !graph.has( vertex ) ) {
         continue;
      }
      if ( tree.reached( vertex ) ? kept.cost( vertex ) != tree.cost( vertex )
                                  : kept.reached( vertex ) ) {
         differFromRun( view, "metric " + std::to_string( kept.metric( vertex ) ) + " (not "
                                 + std::to_string( tree.metric( vertex ) ) + ") of "
                                 + nodeText( view.topoGraph(), vertex ) );
      }
      if ( !std::ranges::equal( kept.lastLinks( vertex ), tree.lastLinks( vertex ) ) ) {
         differFromRun( view, "set of last links of " + nodeText( view.topoGraph(), vertex ) );
      }
   }
}

/// What the path has, and what its client reads.
void
verifyAnswer( const PathStatusInfo & path, const CspfData & run, const PathStatusCache & cache ) {
   const PathInfoKey & key = path.pathInfoKey();
   const PathStatus & published = path.cspfStatus()->pathStatus( key.pathKey() );
   PathStatusCache again( key );
   again.resultIs( cache.result() );
   const std::string error = fillPathStatusCache( path, run, again, __PRETTY_FUNCTION__ );
   const bool same =
      again.path() == cache.path() && again.pathSrlg() == cache.pathSrlg()
      && again.pathTeRouterId() == cache.pathTeRouterId()
      && again.includeIps() == cache.includeIps()
      && again.pathAsTopoDbLinks() == cache.pathAsTopoDbLinks()
      && error == path.cspfStatus()->pathError( key.pathKey() )
      && ( !cache.path() || cache.path()->path() == published.pathList() )
      && ( !cache.pathSrlg() || cache.pathSrlg()->pathSrlg() == published.pathSrlgList() );
   if ( !same ) {
      differFromRun( run.view(), "answer of " + key.traceString().stringValue() );
   }
}

}

void
differFromRun( const AllTopoDbView & view, const std::string & what ) {
   Lum::assertFailed( "CSPF_VERIFY_REPAIR: " + what + " differs from a run from nothing, under "
                         + Lum::valueString( view.constraint() ),
                      __FILE__, __LINE__ );
}

bool
isVerified() {
   static const bool verified = []() {
      const char * wish = std::getenv( "CSPF_VERIFY_REPAIR" );
      return wish && std::strcmp( wish, "1" ) == 0;
   }();
   return verified;
}

void
verifyKept( const KeptAnswers & kept, const Lum::Ptr< const AllTopoDbView > & view,
            const ConstraintSmContext & context ) {
   const auto run = Lum::make< CspfData >();
   run->sourceIs( view->spfRoot() );
   run->useTeMetricIs( true );
   run->buildReverseSptIs( view->constraint().reversePath() );
   kept.forEachHeld( [ & ]( const PathStatusInfo & path ) {
      run->tepIs( path.pathInfoKey().pathKey().dst().ipAddress() );
   } );
   const CspfRun made( context.runMemory, *run, view );
   verifyTree( *view, kept.tree( view->graph() ), run->tree() );
   kept.forEachHeld( [ & ]( const PathStatusInfo & path ) {
      const auto & cache = context.pathStatusCacheTable->pathStatusCache( path.pathInfoKey() );
      if ( cache && !path.isRefreshed() ) {
         verifyAnswer( path, *run, *cache );
      }
   } );
   context.runMemory.reclaim( *run );
}

void
verifyKept( const LfaCspfData & kept, const Lum::Ptr< const AllTopoDbView > & view,
            const ConstraintSmContext & context ) {
   const auto run = Lum::make< LfaCspfData >();
   run->sourceIs( kept.source() );
   run->buildReverseSptIs( kept.buildReverseSpt() );
   const CspfRun made( context.runMemory, *run, view );
   verifyTree( *view, kept.tree(), run->tree() );
   context.runMemory.reclaim( *run );
}

}
