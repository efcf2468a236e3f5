#pragma once

#include "Cspf/Repairs/DedupPqInfoTable.h"
#include "Cspf/Repairs/PrefixWatch.h"
#include "Cspf/Repairs/SharedRepairs.h"
#include "Cspf/Repairs/TilfaKeys.h"
#include "Cspf/Requests/RepairScope.h"
#include "Cspf/Topology/Store.h"
#include "platform/Kiv/TaskScheduler.h"
#include "schema/Isis.h"

#include <optional>
#include <set>

/// Repairs for TI-LFA requests: which runs they need, when they are worked out, what is published.
/// The work itself is CspfRepairTable's.
namespace Cspf::Lfa {

/// A repair that begins at one immediate neighbour of the router.
struct PqPathWithImmNgb {
   NodeId immNgb;
   std::vector< CspfEdge > firstLinks;  ///< to the neighbour, the preferred one first
   Lum::List< RepairNodeIdx, Routing::Isis::SystemId > path;
   Lum::List< RepairNodeIdx, RepairSegment > segment;  ///< one for each of `path`
};

/// The repairs of one destination, those with the fewest nodes first, among equals the one that it
/// prefers.
struct AllPqPathWithImmNgb {
   std::vector< PqPathWithImmNgb > pqPathWithImmNgb;

   std::size_t pqPathWithImmNgbs() const { return pqPathWithImmNgb.size(); }
};

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
};

/// Works out the repair of one client path towards a router. It serves one constraint of the path;
/// another constraint gets a machine of its own.
///
///   watches                                   handler               writes
///   PathStatusInfo.stage2RequestCount         handleCspfData
///   PathStatusCache, own and of each tree:    handleCspfData
///     cspfData; of trees refreshedStage1Count
///   IsisAdjacencyInfo.adjacency               handleAdjacency
///   task pqComputeTask                        handlePqComputeTask   pqInfo, refreshedStage2Count,
///                                                                   Status.pathError
class PqComputeSm : public Lum::Reactor {
   LUM_ENTITY( Cspf::Lfa, PqComputeSm );
   /// REQUIRES: the path has its rows and those of its trees.
   PqComputeSm( const RepairContext & context, const PathInfoKey & pathInfoKey );

   void handleInitialized() override;
   /// A run has a new result, or the path's second stage is asked for.
   virtual void handleCspfData();
   virtual void handlePqComputeTask();
   void handleAdjacency( const IsisExportImpl::AdjacencyKey & key );

   /// Costs in the metric of the IGP, CspfTree::unreachedMetric where there is no path. REQUIRES:
   /// the runs are complete.
   virtual std::uint32_t getCostFromProtNodeToDest() const;
   virtual std::uint32_t getPostConvergenceCostFromPlrToDest() const;
   /// Whether packets to the destination may end at the node.
   virtual bool isDestinationNode( const NodeId & nodeId ) const;
   /// Whether there can be a repair; if not, traces and keeps the reason.
   virtual bool validateDestination();
   /// Where packets to the destination may end, and what each router adds to the cost.
   virtual std::vector< CspfRepairTable::Originator > getAllDestinationNodes() const;
   virtual void dumpState( Kiv::DumpContext & context, int indent ) const;

 protected:
   const RepairContext & context() const noexcept { return context_; }
   const PathInfoKey & pathInfoKey() const noexcept { return pathInfoKey_; }
   const Destination & destination() const noexcept { return pathInfoKey_.pathKey().dst(); }
   const TopoId & topoId() const;
   const RepairRuns & runs() const noexcept { return runs_; }
   /// REQUIRES: the runs are complete.
   const TopoGraph & topology() const;
   bool waitsForRefresh() const { return pathStatusInfo_->refreshNeeded(); }
   bool canCompute() const;
   /// Whether the runs are those of the last computation.
   bool runsAreKnown() const { return repairs_ && repairs_->runs() == currentRuns(); }
   void doPqCompute();

 private:
   const PathConstraint & asked() const;
   void adoptPublished();
   void bindCaches();
   Lum::Ptr< PathStatusCache > cacheOf( const PathInfoKey & key );
   Lum::Ptr< PathStatusCache > treeCache( TilfaTree tree );
   RepairRuns currentRuns() const { return currentRuns( isLinkProtection_ ); }
   RepairRuns currentRuns( bool isLinkProtection ) const;
   bool runsAreComplete() const;
   std::string missingRun() const;
   std::string missingRunOf( const Lum::Ptr< PathStatusCache > & cache ) const;
   AllPqPathWithImmNgb getAllPqPath( SharedRepairs & shared );
   std::optional< PqPath > getLoadBalancedPqPath( const AllPqPathWithImmNgb * allPqPath );
   RepairSegment segment( const CspfRepairSegment & segment ) const;
   bool resolveNexthop( const NodeId & immNgb, CspfEdge firstLink, PqPath & path,
                        const char * operation );
   bool protectedLinkIsGone() const;
   std::optional< PqPath > doPqCompute( bool isLinkProtection );
   void endStage2();
   void publish( const std::optional< PqPath > & path, RepairKind achieved );

   const RepairContext context_;
   const PathInfoKey pathInfoKey_;
   const Lum::Ptr< const PathStatusInfo > pathStatusInfo_;
   bool isLinkProtection_ = true;
   // Each carries one run; null where the request has no such tree.
   Lum::Ptr< PathStatusCache > pPathStatusCache_;  // the path's own, where the repair goes,
   Lum::Ptr< PathStatusCache > cPathStatusCache_;  //   which is the run without the resource too
   Lum::Ptr< PathStatusCache > uFwdPathStatusCache_;
   Lum::Ptr< PathStatusCache > uNgbPathStatusCache_;
   Lum::Ptr< PathStatusCache > uRevPathStatusCache_;
   Lum::Ptr< PathStatusCache > linkPathStatusCache_;  // where the link may be protected instead:
   Lum::Ptr< PathStatusCache > plrPathStatusCache_;   //   without the link, and reverse to the PLR
   // Looked up for a next hop, the preferred one first. The last one has it, if any.
   std::vector< IsisExportImpl::AdjacencyKey > adjacencyKeys_;
   Lum::Seconds adjacencyUpdatedAt_ = 0;
   RepairRuns runs_;                        // of the last computation
   Lum::Ptr< SharedRepairs > repairs_;      // of what is asked for
   Lum::Ptr< SharedRepairs > linkRepairs_;  // of the link instead
   std::string reason_;                     // why there is no repair
   Kiv::Task pqComputeTask_;
};

/// The same towards a prefix: it ends at the routers that originate it, each at its metric. Where
/// the originators alone have changed, the repair is worked out of the runs that are there, at
/// most once in a hold-down period that doubles while changes keep coming.
///
///   watches                                   handler
///   PrefixWatch                               handlePfxOriginatorInfo
///   PfxOriginatorInfo.originatorInfo          handleOriginatorInfo
///   task pqComputePrcTask                     handlePqComputePrcTask
class PqComputePfxSm : public PqComputeSm, private PrefixListener {
   LUM_ENTITY( Cspf::Lfa, PqComputePfxSm );
   static constexpr Lum::Seconds initialHoldInterval = 0.05, maxHoldInterval = 1.0;

   PqComputePfxSm( const RepairContext & context, const PathInfoKey & pathInfoKey );

   void handleInitialized() override;
   void doPrepareToDie() override;
   void handlePfxOriginatorInfo( const Kivnet::IpGenPrefix & prefix ) override;
   void handleOriginatorInfo( const NodeId & router );
   void handleCspfData() override;
   void handlePqComputeTask() override;
   void handlePqComputePrcTask();
   bool isDestinationNode( const NodeId & nodeId ) const override;
   std::vector< CspfRepairTable::Originator > getAllDestinationNodes() const override;
   void dumpState( Kiv::DumpContext & context, int indent ) const override;

 private:
   std::vector< OriginatorInfo > originators() const;
   void watchOriginators();
   bool reachabilityChanged() const { return networkUpdate_ || !reachabilityUpdate_.empty(); }
   void schedulePrc();

   const Kivnet::IpGenPrefix prefix_;
   // Since the last computation:
   std::set< NodeId > reachabilityUpdate_;  // originators that came, went or changed their metric
   bool networkUpdate_ = false;             // the prefix came or went in a topology
   Lum::Seconds prcCurrentHoldInterval_ = initialHoldInterval;
   Lum::Seconds prcLastRan_ = -maxHoldInterval;
   Kiv::Task pqComputePrcTask_;
};

/// The computation for a path of the client "tilfa": by prefix or by router.
Lum::Ptr< PqComputeSm > makePqComputeSm( const RepairContext & context,
                                         const PathInfoKey & pathInfoKey );

}
