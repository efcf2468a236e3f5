#pragma once

#include "Cspf/Repairs/ProtectionSm.h"

#include <memory>
#include <optional>

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

/// Works out the repair of one client path towards a router, when its protection says so. It serves
/// one constraint of the path; another constraint gets a machine of its own.
///
///   watches                         handler               writes
///   PathStatusInfo.refreshNeeded    handleRefreshNeeded
///   (ProtectionSm)                  handleCspfData        PathStatusCache.refreshedStage1Count
///   (ProtectionSm)                  handlePqComputeTask   PathStatusCache: pqInfo,
///                                                           refreshedStage2Count;
///                                                         Status.pathError
class PqComputeSm : public Lum::Reactor {
   LUM_ENTITY( Cspf::Lfa, PqComputeSm );
   /// REQUIRES: the path has its rows and those of its trees, and a constraint.
   PqComputeSm( const RepairContext & context, const PathInfoKey & pathInfoKey );

   void handleInitialized() override;
   void doPrepareToDie() override;
   void handleRefreshNeeded();
   /// The run that the refresh asked for is there, or what stands for it.
   virtual void handleCspfData();
   virtual void handlePqComputeTask();
   /// Works the answer out that holds, and stops the agent where it is another one.
   void verifyAnswer();

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

   /// Whether it is to be computed though its runs are those of the last time.
   bool isDue() const noexcept { return isDue_; }
   void becomesDue() noexcept { isDue_ = true; }
   /// Whether the destination is another one since.
   bool hasMoved() const noexcept { return hasMoved_; }
   /// Whether it is to be answered after the next run.
   bool waitsForRefresh() const { return pathStatusInfo_->refreshNeeded(); }
   /// It is not among those of which the protection says for the last time that their answers hold.
   void isCountedAlone();
   /// Brings the count of its answers up to date with those that held.
   void countHeld();
   /// Where the protection keeps it.
   std::size_t place() const noexcept { return place_; }
   void placeIs( std::size_t place ) noexcept { place_ = static_cast< std::uint32_t >( place ); }

 protected:
   ProtectionSm & protection() const noexcept { return *protection_; }
   const RepairContext & context() const noexcept { return protection_->context(); }
   const PathInfoKey & pathInfoKey() const noexcept { return pathStatusInfo_->pathInfoKey(); }
   const Destination & destination() const noexcept { return pathInfoKey().pathKey().dst(); }
   const TopoId & topoId() const;
   const RepairRuns & runs() const noexcept { return protection_->repairs().runs(); }
   /// REQUIRES: the runs are complete.
   const TopoGraph & topology() const { return protection_->repairs().topology(); }
   void doPqCompute();
   void hasMovedIs( bool moved );

 private:
   const PathConstraint & asked() const;
   void adoptPublished();
   CspfRepairs repairs( std::size_t most ) const;
   AllPqPathWithImmNgb getAllPqPath( std::size_t most );
   std::optional< PqPath > getLoadBalancedPqPath( const AllPqPathWithImmNgb * allPqPath );
   RepairSegment segment( const CspfRepairSegment & segment ) const;
   bool resolveNexthop( const NodeId & immNgb, CspfEdge firstLink, PqPath & path,
                        const char * operation ) const;
   struct Answer {
      std::optional< PqPath > path;
      RepairKind achieved;
   };
   Answer answer();
   std::optional< PqPath > doPqCompute( bool isInstead );
   void publish( const std::optional< PqPath > & path, RepairKind achieved );
   void endStage2();

   const Lum::Ptr< const PathConfigInfo > pathConfigInfo_;
   const Lum::Ptr< PathStatusInfo > pathStatusInfo_;
   const Lum::Ptr< PathStatusCache > pathStatusCache_;
   const Lum::Ptr< ProtectionSm > protection_;
   std::string reason_;  // why there is no repair
   std::uint32_t place_ = 0;
   std::uint32_t heldBefore_ = 0;  // answers of the protection that held, and are none of its own
   bool isDue_ = false;
   bool hasMoved_ = false;
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
   void handlePqComputeTask() override;
   void handlePqComputePrcTask();
   bool isDestinationNode( const NodeId & nodeId ) const override;
   std::vector< CspfRepairTable::Originator > getAllDestinationNodes() const override;
   void dumpState( Kiv::DumpContext & context, int indent ) const override;

 private:
   template< class Visit >
   void forEachOriginator( Visit && visit ) const;
   void watchOriginators();
   void schedulePrc();

   const Kivnet::IpGenPrefix prefix_;
   Lum::Seconds prcCurrentHoldInterval_ = initialHoldInterval;
   Lum::Seconds prcLastRan_ = -maxHoldInterval;
   std::unique_ptr< Kiv::Task > pqComputePrcTask_;  // while a change waits: few prefixes flap
};

/// The computation for a path of the client "tilfa": by prefix or by router.
Lum::Ptr< PqComputeSm > makePqComputeSm( const RepairContext & context,
                                         const PathInfoKey & pathInfoKey );

}
