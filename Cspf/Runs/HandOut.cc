// How the results of one run get to the constraint's paths: a slice of paths in a turn of the loop.
// Until the last one is told the constraint counts as run, not as held down, and requests that come
// in wait, as they do where all are told in one turn.
//
// The tree holds numbers of the graph. Where the topology has changed between two slices, the paths
// that are left are run again, as a part of the same run: whoever else the change concerns is
// marked, and waits for the hold-down to end.

#include "Cspf/Runs/ConstraintInfoSm.h"
#include "Cspf/Runs/KeptCheck.h"
#include "Cspf/Runs/PathAnswer.h"
#include "Cspf/Runs/Run.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace Cspf {

void
ConstraintInfoSm::doPrepareToDie() {
   if ( const HandOutPtr out = std::move( handOut_ ) ) {
      endHandOut( *out );
   }
   ConstraintInfoSmBase::doPrepareToDie();
}

/// Those who were marked through the constraint wait for this run.
void
ConstraintInfoSm::takeMarks( HandOut & out ) {
   ConstraintInfo & info = *constraintInfo();
   if ( info.marked && !out.isContinued ) {
      out.marks = info.marks;
      out.since = info.markedSince;
      info.marked = false;
   }
}

void
ConstraintInfoSm::run( HandOut & out, bool kept, const char * operation ) {
   if ( kept && isVerified() ) {
      verifyKept( kept_, view(), context() );
   }
   const Lum::Seconds begin = Lum::RealClock::read();
   out.data = newCspfData( out, operation );
   TRACE7_FOR( operation, "run cspf, cspfRequestCount " << constraintInfo()->cspfRequestCount() );
   if ( kept ) {
      out.tree.emplace( kept_.tree( view()->graph() ) );
      const CspfRun run( *out.data, view(), *out.tree );
   } else {
      const CspfRun run( context().runMemory, *out.data, view() );
   }
   out.version = view()->graph().version();
   if ( out.isContinued ) {
      out.data->ranAtIs( seenUntil() );
      constraintInfo()->cspfDataIs( out.data );
   } else {
      countRun( out.data, Lum::RealClock::read() - begin );
   }
}

Lum::Ptr< CspfData >
ConstraintInfoSm::newCspfData( const HandOut & out, const char * operation ) const {
   auto cspfData = Lum::make< CspfData >();
   cspfData->sourceIs( out.source );
   cspfData->useTeMetricIs( true );
   cspfData->buildReverseSptIs( pathConstraint().reversePath() );
   for ( const PathInfoKey & key : out.paths ) {
      const Kivnet::IpGenAddr tep = key.pathKey().dst().ipAddress();
      TRACE9_FOR( operation, "adding " << tep << " to CspfData::tep collection" );
      cspfData->tepIs( tep );
   }
   return cspfData;
}

/// The paths to tell. What is more than a slice is told from the next turn on: to look at all of
/// these takes as long as the run.
void
ConstraintInfoSm::pathsAre( HandOut & out, std::vector< PathInfoKey > paths ) const {
   out.paths = std::move( paths );
   if ( sliceOf( out ) == out.paths.size() ) {
      takeSlice( out );
   }
}

/// How many paths are told next. Members of one user of bandwidth are told together: between two
/// slices somebody else might reserve what the run has found free.
std::size_t
ConstraintInfoSm::sliceOf( const HandOut & out ) const {
   return pathConstraint().bandwidth() > 0
             ? out.paths.size()
             : std::min( out.paths.size(), context().taskScheduler->slice() );
}

/// They are told in their order, but putting many in order at once would take longer than the run.
void
ConstraintInfoSm::takeSlice( HandOut & out ) const {
   auto & paths = out.paths;
   out.atHand = sliceOf( out );
   if ( out.atHand == paths.size() ) {
      std::ranges::sort( paths );
      return;
   }
   if ( !std::exchange( out.isHeap, true ) ) {
      std::ranges::make_heap( paths, std::greater() );
   }
   auto begin = paths.end();
   for ( std::size_t taken = 0; taken < out.atHand; ++taken ) {
      std::pop_heap( paths.begin(), begin--, std::greater() );
   }
   std::reverse( begin, paths.end() );
}

std::span< const PathInfoKey >
ConstraintInfoSm::slice( const HandOut & out ) {
   return std::span( out.paths ).last( out.atHand );
}

/// Marks followers themselves that are in the next slice, as if they had been all along.
void
ConstraintInfoSm::markFollowers( const HandOut & out ) {
   if ( out.marks == 0 ) {
      return;
   }
   ConstraintInfo & info = *constraintInfo();
   for ( const PathInfoKey & key : slice( out ) ) {
      const auto path = pathStatusInfo( key );
      if ( path && path->hasMark( out.marks ) ) {
         info.marksOne = true;
         path->refreshIs( refreshReasonTopoChanged, out.since );
         info.marksOne = false;
         info.waiting.erase( key );
      }
   }
}

/// Whether the tree is for another topology, or for another source.
bool
ConstraintInfoSm::isOvertaken( const HandOut & out ) const {
   return out.data
          && ( out.version != view()->graph().version() || out.source != view()->spfRoot() );
}

/// Whoever reads one answer may change the topology. The path that was told hears of that as of any
/// change; those that are not told yet are left for a run after the hold-down, so that a reader who
/// changes it at each answer costs no run for each.
void
ConstraintInfoSm::handOutSlice( HandOutPtr out, const char * operation ) {
   const auto paths = slice( *out );
   auto next = paths.begin();
   while ( next != paths.end() && !isOvertaken( *out ) ) {
      const PathInfoKey & key = *next++;
      if ( out->toFollowers ) {
         handOutToFollower( *out, key, operation );
      } else {
         updatePathStatusCache( out->data, { key } );
      }
   }
   const auto first = out->paths.end() - std::ssize( paths );
   out->paths.erase( first, first + ( next - paths.begin() ) );
   out->isHeap = out->isHeap && next == paths.end();
   out->atHand = 0;
   if ( isRetired() || out->paths.empty() ) {
      endHandOut( *out );
      return;
   }
   handOut_ = std::move( out );
   if ( isOvertaken( *handOut_ ) ) {
      startTimer();
   } else {
      goOn();
   }
}

void
ConstraintInfoSm::handOutToFollower( const HandOut & out, const PathInfoKey & key,
                                     const char * operation ) {
   const auto path = pathStatusInfo( key );
   if ( !path || !constraintInfo()->pathHas( key ) ) {
      return;
   }
   updatePath( key, out.data, operation );
   if ( out.all && !left_->contains( key ) ) {
      path->answeredAlone();
   }
   kept_.noteAnswer( *path, isOvertaken( out ) ? CspfData::Ground() : ground( *path, *out.data ) );
}

void
ConstraintInfoSm::endHandOut( HandOut & out ) {
   if ( out.data ) {
      context().runMemory.reclaim( *out.data );
   }
   kept_.endAnswers();
   left_ = nullptr;
   backoffTimerTask();
}

void
ConstraintInfoSm::handOutFurther( const char * operation ) {
   HandOutPtr out = std::move( handOut_ );
   if ( isOvertaken( *out ) ) {
      answer( leftOf( *out ), operation );
      return;
   }
   takeSlice( *out );
   markFollowers( *out );
   handOutSlice( std::move( out ), operation );
}

/// Its paths wait again. Those that were answered by the constraint's count were not answered.
ConstraintInfoSm::HandOutPtr
ConstraintInfoSm::leftOf( HandOut & out ) {
   ConstraintInfo & info = *constraintInfo();
   auto rest = std::make_unique< HandOut >();
   rest->isContinued = true;
   rest->marks = out.marks;
   rest->since = out.since;
   for ( const PathInfoKey & key : out.paths ) {
      const auto path = pathStatusInfo( key );
      if ( path && info.pathHas( key ) ) {
         info.waiting.insert( key );
         if ( out.all && !left_->contains( key ) ) {
            path->answeredAlone();
         }
      }
   }
   context().runMemory.reclaim( *out.data );
   return rest;
}

}
