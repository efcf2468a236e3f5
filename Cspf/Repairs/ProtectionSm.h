#pragma once

#include "Cspf/Repairs/DedupPqInfoTable.h"
#include "Cspf/Repairs/PrefixWatch.h"
#include "Cspf/Repairs/SharedRepairs.h"
#include "Cspf/Repairs/TilfaKeys.h"
#include "Cspf/Requests/RepairScope.h"
#include "platform/Kiv/TaskScheduler.h"
#include "schema/Isis.h"

#include <map>
#include <span>
#include <vector>

namespace Cspf::Lfa {

class PqComputeSm;
class ProtectionTable;

/// What the repairs of one VRF and family are worked out with.
struct RepairContext {
   Kivnet::AddressFamily af;
   Lum::Ptr< Kiv::TaskScheduler > taskScheduler;
   Lum::Ptr< const PathConfigInfoTable > pathConfigInfoTable;
   Lum::Ptr< const PathStatusInfoTable > pathStatusInfoTable;
   Lum::Ptr< const PathStatusCacheTable > pathStatusCacheTable;
   Lum::Ptr< const ConstraintInfoTable > constraintInfoTable;
   Lum::Ptr< const AllTopoDbStatus > allTopoDbStatus;
   Lum::Ptr< const IsisExportImpl::IsisAdjacencyInfo > isisAdjacencyInfo;  ///< may be null
   Lum::Ptr< DedupPqInfoTable > dedupPqInfoTable;
   Lum::Ptr< PrefixWatch > prefixWatch;
   Lum::Ptr< ProtectionTable > protectionTable;
};

/// What one protection is: the constraint that its requests share, and the number of their trees.
struct ProtectionKey {
   ConstraintHandle constraint;
   std::uint32_t treesId;

   auto operator<=>( const ProtectionKey & ) const = default;
};

/// Serves all requests that differ in the destination alone. It hears of the runs that they share,
/// decides when repairs are to be worked out, and goes over its requests. Where the next runs leave
/// all repairs as they are, no request is looked at that has not changed itself.
///
/// With CSPF_VERIFY_REPAIR=1 in the environment these repairs are worked out all the same, and the
/// agent stops at the first difference.
///
///   watches                                   handler
///   ConstraintInfo.topoInfoChangedAt          handleTopoChanged
///   ConstraintInfo.answeredCount              handleAnswered
///   PathStatusCache of each tree: cspfData,   handleTree
///     refreshedStage1Count
///   IsisAdjacencyInfo.adjacency               handleAdjacency
///   task pqComputeTask                        handlePqComputeTask   (each request: its repair,
///                                                                   by slices)
class ProtectionSm : public Lum::Reactor {
   LUM_ENTITY( Cspf::Lfa, ProtectionSm );
   /// `asked`: of the request that it is made for. REQUIRES: the trees have their rows.
   ProtectionSm( const RepairContext & context, const ProtectionKey & key,
                 const Lum::String & clientName, const PathConstraint & asked );

   void handleInitialized() override;
   void doPrepareToDie() override;
   void handleTopoChanged();
   void handleAnswered();
   void handleTree();
   void handleAdjacency( const IsisExportImpl::AdjacencyKey & key );
   void handlePqComputeTask();

   /// The request is served until it is taken out; it outlives that.
   void requestIs( PqComputeSm & request );
   void requestDel( PqComputeSm & request );
   /// The request waits for a refresh: it is answered after the next run, or what stands for one.
   void refreshIs( PqComputeSm & request );

   const RepairContext & context() const noexcept { return context_; }
   const ProtectionKey & key() const noexcept { return key_; }
   bool isLinkProtection() const noexcept { return isLinkProtection_; }
   bool mayFallBack() const noexcept { return linkPathStatusCache_ != nullptr; }
   std::size_t requests() const noexcept { return requests_.size(); }
   /// Why no run would come at the last computation; empty: there were runs.
   const std::string & settledFor() const noexcept { return settledFor_; }
   /// Whether the far end of the protected link has gone, or the link.
   bool protectedLinkIsGone() const;
   /// Whether all runs are of the topology as it is, and the last computation was made of them.
   bool runsAreKnown() const;
   /// Some request's destination is another one since its repair was worked out.
   void destinationMoved() noexcept { someHaveMoved_ = true; }
   /// A request's answer is another one the next time, whatever the runs.
   void answerDoesNotHold() noexcept { allHold_ = false; }
   /// Counts computations that left all answers as they were.
   std::uint32_t answersHeld() const noexcept { return answersHeld_; }
   /// Of what is asked for, or, within a `Work`, of the link instead.
   SharedRepairs & repairs() noexcept { return isInstead_ ? linkRepairs_ : repairs_; }
   class Work {
    public:
      /// REQUIRES for protection of the link instead: mayFallBack().
      Work( ProtectionSm & protection, bool isInstead ) noexcept : protection_( protection ) {
         protection_.isInstead_ = isInstead;
      }
      ~Work() { protection_.isInstead_ = false; }

    private:
      ProtectionSm & protection_;
   };
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   void bindTrees( const Lum::String & clientName, std::size_t trees );
   Lum::Ptr< PathStatusCache > treeCache( const Lum::String & clientName, TilfaTree tree );
   std::string missingRun() const;
   RepairRuns currentRuns( bool isInstead ) const;
   bool runsAreComplete() const;
   std::string missingRunOf( const PathStatusCache & cache ) const;
   std::string missingRunOf( const ConstraintInfo & row ) const;
   const ConstraintInfo * rowOf( const PathStatusCache & cache ) const;
   bool isSettled() const;
   bool isOvertaken() const;
   void scheduleIfDue();
   bool takeRuns( const std::string & missing );
   std::vector< Lum::Ptr< PqComputeSm > > dueRequests( bool all, bool hold ) const;
   void compute( const std::string & missing );
   void goOverDue();
   void startAgain();
   void countHeld( std::span< const Lum::Ptr< PqComputeSm > > due );
   void verifyHeld();

   const RepairContext context_;
   const ProtectionKey key_;
   const bool isLinkProtection_;
   const Lum::Ptr< ConstraintInfo > constraintInfo_;  // of the run without the resource
   // Each carries one run; null where the requests have no such tree.
   Lum::Ptr< PathStatusCache > uFwdPathStatusCache_;
   Lum::Ptr< PathStatusCache > uNgbPathStatusCache_;
   Lum::Ptr< PathStatusCache > uRevPathStatusCache_;
   Lum::Ptr< PathStatusCache > linkPathStatusCache_;  // where the link may be protected instead:
   Lum::Ptr< PathStatusCache > plrPathStatusCache_;   //   without the link, and reverse to the PLR
   std::vector< PqComputeSm * > requests_;            // each knows its place
   /// For the next answer, in the order in which they came; one may have had it meanwhile.
   std::vector< Lum::Ptr< PqComputeSm > > waiting_;
   std::vector< Lum::Ptr< PqComputeSm > >
      due_;                    // that the last computation has left, the next last
   std::size_t firstDue_ = 0;  // where in `requests_` it begins
   bool allAreDue_ = false;
   bool someAreDue_ = false;
   bool runsHaveMoved_ = false;  // all are due unless their answers hold
   bool someHaveMoved_ = false;
   bool allHold_ = true;  // where nothing else has changed
   std::uint32_t answersHeld_ = 0;
   SharedRepairs repairs_;      // of the last computation: of what is asked for,
   SharedRepairs linkRepairs_;  //   and of the link instead
   bool isInstead_ = false;
   std::string settledFor_;  // the missing run that all requests were told of
   Lum::Seconds adjacencyUpdatedAt_ = 0;
   Kiv::Task pqComputeTask_;
};

/// The protections of one VRF and family; each is there while it has a request.
class ProtectionTable : public Lum::Entity {
   LUM_ENTITY( Cspf::Lfa, ProtectionTable );

   Lum::Ptr< ProtectionSm > protectionIs( const RepairContext & context, const ProtectionKey & key,
                                          const Lum::String & clientName,
                                          const PathConstraint & asked );
   /// Ends it where it has no request any more.
   void protectionDel( const ProtectionKey & key );

 private:
   std::map< ProtectionKey, Lum::Ptr< ProtectionSm > > protections_;
};

}
