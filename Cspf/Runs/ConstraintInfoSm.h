#pragma once

#include "Cspf/Records/PathRows.h"
#include "Cspf/Runs/KeptAnswers.h"
#include "Cspf/Runs/RunData.h"
#include "Cspf/Views/View.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/Trace/Message.h"

#include <memory>
#include <optional>
#include <set>
#include <span>

namespace Cspf {

class CspfRunMemory;

/// What the constraint machines of one VRF root share.
struct ConstraintSmContext {
   Lum::Ptr< const CspfCliConfig > cliConfig;
   Lum::Ptr< Kiv::TaskScheduler > taskScheduler;
   Lum::Ptr< PathStatusInfoTable > pathStatusInfoTable;
   Lum::Ptr< PathStatusCacheTable > pathStatusCacheTable;
   CspfRunMemory & runMemory;
};

/// Decides when a constraint is computed: the first request after a quiet period waits
/// `initialInt`, requests in the hold-down after a run wait for its end, and a topology that keeps
/// changing doubles the hold-down from `holdInt` to `maxInt`.
///
///   state       timer  cspfScheduled   request                         expiry
///   quiet       off    no              -> scheduled, arm the timer     (none)
///   scheduled   on     yes             (already on its way)            run -> hold-down, arm again
///   hold-down   on     no              -> scheduled, double the delay  -> quiet, delay initialInt
///                                      if the topology changed
///
///   watches                          handler
///   ConstraintInfo.cspfRequestCount  handleCspfRequestCount
///   ConstraintInfo.path              handlePathUpdate
///   CspfCliConfig, all intervals     handleThrottleConfig
class ConstraintInfoSmBase : public Lum::Reactor {
 public:
   /// The context outlives this object.
   ConstraintInfoSmBase( const Lum::Ptr< ConstraintInfo > & constraintInfo,
                         const Lum::Ptr< ConstraintStats > & constraintStats,
                         const Lum::Ptr< AllTopoDbView > & view,
                         const ConstraintSmContext & context );

   void handleInitialized() override;
   /// Stops the timer and lets go of all results.
   void doPrepareToDie() override;
   /// The running timer keeps its deadline; the new delay counts from its expiry.
   void handleThrottleConfig();
   void handleCspfRequestCount();
   /// The timer expired: run, or end the hold-down. Begins with `stopUnlessScheduled`, ends with
   /// `backoffTimerTask`.
   virtual void handleThrottleTimeout() = 0;
   /// Whether what the constraint names is in the topology.
   virtual bool checkConstraintInTopoDb() { return true; }
   /// A path joined or left the constraint.
   virtual void handlePathUpdate( const PathInfoKey & key );
   /// Forgets the result of one path, so that its next one comes from a new run.
   void clearCspfData( const PathInfoKey & key );
   /// Starts the hold-down after a run.
   void backoffTimerTask();
   /// While results are handed out it is off: a request that they lead to waits until it is on.
   void hasNotificationActiveIs( bool active );

   const Lum::Ptr< ConstraintInfo > & constraintInfo() const noexcept { return constraintInfo_; }
   const Lum::Ptr< ConstraintStats > & constraintStats() const noexcept { return constraintStats_; }
   const Lum::Ptr< AllTopoDbView > & view() const noexcept { return view_; }
   const InternalPathConstraint & pathConstraint() const {
      return constraintInfo_->constraint().pathConstraint();
   }
   /// The next expiry comes at once: to a constraint that was held back, or has results left.
   void goOn() { timerTask().schedule(); }
   bool timerRunning() const noexcept { return timerRunning_; }
   void timerRunningIs( bool running ) { timerRunning_ = running; }
   /// Stops the timer.
   void timerTaskDel();
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 protected:
   // `operation`: the one for which, as traces begin.

   /// The first step of an expiry: true when nobody asked for a run, and the constraint is quiet.
   bool stopUnlessScheduled( const char * operation );
   /// Whether the node is a router of the constraint's topology.
   bool sourceInTopology( const NodeId & source ) const;
   /// Runs `cspfData`, whose attributes and destinations are set, counts the run, and keeps it as
   /// the constraint's last one.
   void runCspf( const Lum::Ptr< CspfData > & cspfData, const char * operation );
   /// Counts a run that took so long, seconds, and keeps it as the constraint's last one.
   void countRun( const Lum::Ptr< CspfData > & run, Lum::Seconds took );
   /// The time up to which the constraint's changes are in the topology as it stands; seconds.
   Lum::Seconds seenUntil() const;
   /// The last of these changes; seconds.
   Lum::Seconds changedAt() const;
   /// The rows of a path; null while it has none.
   Lum::Ptr< PathStatusCache > pathStatusCache( const PathInfoKey & key ) const;
   Lum::Ptr< PathStatusInfo > pathStatusInfo( const PathInfoKey & key ) const;
   const ConstraintSmContext & context() const noexcept { return context_; }
   /// The first stage of a path has its result; of one whose `whole` answer it is, the second, too.
   static void tellPath( const PathStatusInfo & path, PathStatusCache & cache, bool whole );
   /// As traces name the constraint.
   const Trace::Prepared & tracedConstraint() const;
   /// The next expiry comes after the current delay.
   void startTimer();
   /// Whether the run at hand has results that wait for an expiry.
   virtual bool isHandingOut() const { return false; }

 private:
   void handleThrottleChange( const Lum::AnyChange & );
   void expire();
   Kiv::Task & timerTask();
   void requestInHoldDown( bool topologyChanged, const char * operation );
   void requestInQuiet( bool topologyChanged, const char * operation );
   void resetDelay( const char * operation );

   Lum::Ptr< ConstraintInfo > constraintInfo_;
   Lum::Ptr< ConstraintStats > constraintStats_;
   const Lum::Ptr< AllTopoDbView > view_;
   const ConstraintSmContext & context_;
   std::unique_ptr< Kiv::Task > timerTask_;  // while the timer runs: most constraints are quiet
   bool timerRunning_ = false;
   bool hasNotificationActive_ = true;
   bool requestWaits_ = false;
   double timerDelay_ = 0;  // of the running timer, milliseconds
   mutable std::unique_ptr< const Trace::Prepared > tracedConstraint_;
};

/// Computes an ordinary constraint over the TE view: one run for all of its paths, or, where it can
/// be followed, what a run would answer for those that may get another answer. Marks its followers.
/// Results for many paths are handed out by slices; where the topology changes meanwhile, those
/// that are left are run again, and come first.
///
///   watches                           handler             writes
///   ConstraintInfo.topoInfoChangedAt  handleTopoChanged   ConstraintInfo: marked, cspfRequestCount
///
/// With CSPF_VERIFY_REPAIR=1 in the environment every answer that comes from what is kept is
/// computed again, and the agent stops at the first difference.
class ConstraintInfoSm : public ConstraintInfoSmBase {
   LUM_ENTITY( Cspf, ConstraintInfoSm );
   using ConstraintInfoSmBase::ConstraintInfoSmBase;

   void handleInitialized() override;
   void doPrepareToDie() override;
   void handlePathUpdate( const PathInfoKey & key ) override;
   void handleTopoChanged();
   void handleThrottleTimeout() override;
   /// Hands the results of a run to the constraint's paths; null: there was nothing to run.
   void updatePathStatusCache( const Lum::Ptr< CspfData > & cspfData );
   /// ... to these of them.
   void updatePathStatusCache( const Lum::Ptr< CspfData > & cspfData,
                               const std::vector< PathInfoKey > & paths );

 protected:
   bool isHandingOut() const override { return left_ != nullptr; }

 private:
   /// The results of one run on their way to its paths.
   struct HandOut {
      std::vector< PathInfoKey > paths;  // left; then the slice at hand, in order
      std::size_t atHand = 0;
      bool isHeap = false;  // those that are left, the first one on top
      NodeId source;
      bool isContinued = false;  // an earlier one that the topology has overtaken
      std::uint32_t marks = 0;   // followers that have these are marked themselves first; 0: none
      double since = 0;          // the change that these are for; seconds
      bool toFollowers = false;  // from what is kept, which takes note of them
      bool all = false;          // every follower was counted as answered
      Lum::Ptr< CspfData > data{};            // null: nothing was run
      std::optional< CspfLabelTree > tree{};  // that the data rest on, where that is kept
      std::uint64_t version = 0;              // of the graph that was run on
   };
   using HandOutPtr = std::unique_ptr< HandOut >;

   void tellFollowers() const;
   bool follows( const NodeId & source );
   // `out`: a fresh one, or what is left of an earlier one.
   void answer( HandOutPtr out, const char * operation );
   void answerFollowers( HandOutPtr out, const char * operation );
   void answerEachOne( HandOutPtr out, bool kept, const char * operation );
   std::vector< PathInfoKey > pathsToAnswer( const HandOut & out );
   void takeMarks( HandOut & out );
   void run( HandOut & out, bool kept, const char * operation );
   Lum::Ptr< CspfData > newCspfData( const HandOut & out, const char * operation ) const;
   void pathsAre( HandOut & out, std::vector< PathInfoKey > paths ) const;
   std::size_t sliceOf( const HandOut & out ) const;
   void takeSlice( HandOut & out ) const;
   static std::span< const PathInfoKey > slice( const HandOut & out );
   void markFollowers( const HandOut & out );
   void handOutSlice( HandOutPtr out, const char * operation );
   bool isOvertaken( const HandOut & out ) const;
   void handOutToFollower( const HandOut & out, const PathInfoKey & key, const char * operation );
   void endHandOut( HandOut & out );
   void handOutFurther( const char * operation );
   HandOutPtr leftOf( HandOut & out );
   void updatePath( const PathInfoKey & key, const Lum::Ptr< CspfData > & cspfData,
                    const char * operation );

   NodeId answeredFrom_;  // all paths, at the last run; unset: they were not
   KeptAnswers kept_;
   HandOutPtr handOut_;                               // between two slices
   std::unique_ptr< std::set< PathInfoKey > > left_;  // while results are handed out
};

}
