// The runs of ordinary constraints, and what becomes of their results.
//
// A constraint that can be followed keeps what a run would find, and answers only those of its
// paths that may get another answer, or have asked themselves. All others are answered by one
// count in the constraint's row. Such a run counts, stamps and holds down like any other. Where
// not all of its paths follow (one is in use, or a segment), all that are to be answered are, out
// of what is kept.
//
// Paths that follow the constraint are marked in its row when the topology changes. Where a run
// has to tell them one by one, they are marked themselves first, as if they had been all along.

#include "Cspf/Runs/ConstraintInfoSm.h"

#include "Cspf/Runs/KeptCheck.h"
#include "Cspf/Runs/PathAnswer.h"
#include "Cspf/Runs/Run.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <utility>

namespace Cspf {

namespace {

/// Whether the constraint's paths are put together from given hops and other paths.
bool
stitched( const InternalPathConstraint & c ) {
   return c.noSpf() && ( c.includeHops() > 0 || c.includeHopAllExplicit() );
}

/// The reason that the client reads where there is no path; empty where there is one.
void
setError( const PathStatusInfo & path, const std::string & error ) {
   const PathInfoKey & key = path.pathInfoKey();
   if ( key.internal() || !( path.refreshNeeded() || path.updatePathPending() ) ) {
      return;
   }
   if ( error.empty() ) {
      path.cspfStatus()->pathErrorDel( key.pathKey() );
   } else {
      path.cspfStatus()->pathErrorIs( key.pathKey(), error );
   }
}

}

void
ConstraintInfoSm::handleInitialized() {
   LUM_WATCH( constraintInfo(), topoInfoChangedAt, handleTopoChanged );
   ConstraintInfoSmBase::handleInitialized();
}

void
ConstraintInfoSm::handlePathUpdate( const PathInfoKey & key ) {
   if ( !constraintInfo()->pathHas( key ) ) {
      kept_.pathLeft();
      if ( left_ ) {
         left_->insert( key );
      }
   }
   ConstraintInfoSmBase::handlePathUpdate( key );
}

void
ConstraintInfoSm::handleThrottleTimeout() {
   if ( handOut_ ) {
      handOutFurther( __PRETTY_FUNCTION__ );
   } else if ( !stopUnlessScheduled( __PRETTY_FUNCTION__ ) ) {
      answer( std::make_unique< HandOut >(), __PRETTY_FUNCTION__ );
   }
}

void
ConstraintInfoSm::answer( HandOutPtr out, const char * operation ) {
   [[maybe_unused]] const InternalPathConstraint & pathConstraint = this->pathConstraint();
   LUM_ASSERT( pathConstraint.sourceType() == plr()
               || pathConstraint.sourceType() == pathSegmentSource() );
   ConstraintInfo & info = *constraintInfo();
   out->source = view()->spfRoot();
   info.sourceMissingIs( !kept_.isAt( *view(), out->source ) && !sourceInTopology( out->source ) );
   constraintStats()->sourceMissing = info.sourceMissing();
   const bool kept = follows( out->source );
   left_ = std::make_unique< std::set< PathInfoKey > >();
   if ( kept && info.followers == info.paths() ) {
      answerFollowers( std::move( out ), operation );
   } else {
      answerEachOne( std::move( out ), kept, operation );
   }
}

void
ConstraintInfoSm::answerEachOne( HandOutPtr out, bool kept, const char * operation ) {
   if ( kept ) {
      kept_.forgetPaths();
   } else {
      kept_.forget();
   }
   takeMarks( *out );
   pathsAre( *out, pathsToAnswer( *out ) );
   markFollowers( *out );
   if ( constraintInfo()->sourceMissing() ) {
      TRACE7_FOR( operation, "Source not found in topoId " << pathConstraint().topoId() );
   } else if ( pathConstraint().noSpf() ) {
      constraintStats()->cspfLastRanAtIs( seenUntil() );
   } else {
      run( *out, kept, operation );
   }
   handOutSlice( std::move( out ), operation );
}

/// Tells of each follower what its own machine would.
void
ConstraintInfoSm::tellFollowers() const {
   for ( const PathInfoKey & key : Lum::sortedKeys( constraintInfo()->pathColl() ) ) {
      if ( key.followsConstraint() ) {
         TRACE8_FOR( "virtual void Cspf::PathRefreshSm::handleTopoChanged()",
                     "topoChangedAt reset for " << key.traceString() );
      }
   }
}

/// Followers are marked together. Those that are marked themselves have asked before.
void
ConstraintInfoSm::handleTopoChanged() {
   ConstraintInfo & info = *constraintInfo();
   if ( Trace::wanted( 8 ) ) {
      tellFollowers();
   }
   if ( info.marked || info.followers == 0 ) {
      return;
   }
   const auto asking = info.followers
                       - static_cast< std::uint32_t >(
                          std::ranges::count_if( info.waiting, [ this ]( const PathInfoKey & key ) {
                             const auto path = pathStatusInfo( key );
                             return key.followsConstraint() && path && path->refreshNeeded();
                          } ) );
   if ( asking == 0 ) {
      return;
   }
   info.marked = true;
   info.markedSince = info.topoInfoChangedAt();
   ++info.marks;
   const std::uint32_t requests = info.cspfRequestCount() + asking;
   info.cspfRequestCountIs( requests == 0 ? 1 : requests );  // 0 is no request
}

/// Whether what is kept can answer. Whoever traces every step of a run gets runs.
bool
ConstraintInfoSm::follows( const NodeId & source ) {
   const ConstraintInfo & info = *constraintInfo();
   SharedLabels & shared = context().runMemory.sharedLabels();
   kept_.dropLeft( info, *context().pathStatusInfoTable );
   return !info.sourceMissing() && KeptAnswers::suits( pathConstraint() ) && shared.enabled()
          && !Trace::wanted( 9 ) && kept_.follow( *view(), source, shared );
}

void
ConstraintInfoSm::answerFollowers( HandOutPtr out, const char * operation ) {
   ConstraintInfo & info = *constraintInfo();
   out->toFollowers = true;
   out->all = info.marked && !out->isContinued;
   pathsAre( *out, kept_.pathsToAnswer( info, out->all ) );
   takeMarks( *out );
   markFollowers( *out );
   std::exchange( info.waiting, {} );  // with its memory
   info.answers += out->all;
   answeredFrom_ = out->source;
   if ( out->paths.empty() && info.cspfData() ) {
      if ( isVerified() ) {
         verifyKept( kept_, view(), context() );
      }
      if ( !out->isContinued ) {
         TRACE7_FOR( operation, "run cspf, cspfRequestCount " << info.cspfRequestCount() );
         countRun( info.cspfData(), 0 );
      }
   } else {
      run( *out, true, operation );
      kept_.beginAnswers( out->paths, info, *context().pathStatusInfoTable );
   }
   handOutSlice( std::move( out ), operation );
}

/// Those that asked where nothing has changed since all were answered, else all; in no order. A
/// path more must not cost a walk over the others.
std::vector< PathInfoKey >
ConstraintInfoSm::pathsToAnswer( const HandOut & out ) {
   const NodeId from = constraintInfo()->sourceMissing() || out.isContinued ? NodeId() : out.source;
   const bool fresh = std::exchange( answeredFrom_, from ) == from && from
                      && changedAt() <= constraintStats()->cspfLastRanAt();
   const auto waiting = std::exchange( constraintInfo()->waiting, {} );
   return out.isContinued || ( fresh && out.marks == 0 )
             ? std::vector< PathInfoKey >( waiting.begin(), waiting.end() )
             : Lum::keysOf( constraintInfo()->pathColl() );
}

void
ConstraintInfoSm::updatePathStatusCache( const Lum::Ptr< CspfData > & cspfData ) {
   updatePathStatusCache( cspfData, Lum::sortedKeys( constraintInfo()->pathColl() ) );
}

void
ConstraintInfoSm::updatePathStatusCache( const Lum::Ptr< CspfData > & cspfData,
                                         const std::vector< PathInfoKey > & paths ) {
   for ( const PathInfoKey & key : paths ) {
      if ( constraintInfo()->pathHas( key ) ) {  // whoever reads one answer may change the others
         updatePath( key, cspfData, __PRETTY_FUNCTION__ );
      }
   }
}

/// A path that is stitched gets nothing from here but the word that it may be.
void
ConstraintInfoSm::updatePath( const PathInfoKey & key, const Lum::Ptr< CspfData > & cspfData,
                              const char * operation ) {
   const auto cache = pathStatusCache( key );
   const auto path = pathStatusInfo( key );
   if ( !cache || !path ) {
      return;
   }
   if ( !stitched( pathConstraint() ) ) {
      const std::string error =
         cspfData ? fillPathStatusCache( *path, *cspfData, *cache, operation )
         : constraintInfo()->sourceMissing()
            ? noPath( *cache, "source not found in topology" )
            : noPath( *cache, "no computation asked for, and no hops given" );
      cache->cspfDataIs( cspfData );
      if ( pathStatusInfo( key ) != path ) {
         return;
      }
      setError( *path, error );
   }
   tellPath( *path, *cache, !stitched( pathConstraint() ) );
}

}
