#pragma once

#include "Cspf/Agent/MachineRows.h"
#include "Cspf/Clients/ClientInfo.h"
#include "Cspf/Paths/ChildSm.h"
#include "Cspf/Paths/RefreshSm.h"
#include "Cspf/Paths/StatusUpdate.h"
#include "Cspf/Paths/StitchSm.h"
#include "Cspf/Paths/UsageSm.h"
#include "Cspf/Repairs/PqComputeSm.h"
#include "Cspf/Requests/PathConfigInfoSm.h"
#include "Cspf/Requests/PathStatusInfoSm.h"
#include "Cspf/Requests/RepairScope.h"
#include "Cspf/Requests/TeIntfStatusSm.h"
#include "Cspf/Runs/ConstraintInfoSm.h"
#include "Cspf/Runs/ConstraintStatusSm.h"
#include "Cspf/Runs/Run.h"
#include "Cspf/Topology/AllTopoDbSm.h"
#include "platform/LumZorch/TableMount.h"

#include <memory>

namespace Cspf {

/// The agent among the consumers of topologies.
inline constexpr const char * topoDbClientName = "cspf";

class VrfRootSm;

/// A path's place among the users of its constraint; and makes the machines that a path has only
/// while it has a constraint.
///
///   watches                     handler               makes (in the VrfRoot)
///   PathStatusInfo.constraint   handleNewConstraint   refresh (of a repair: pqComputeSm), status
///                               (after all else)      update
class PathConstraintSm : public PathStatusInfoSm {
   LUM_ENTITY( Cspf, PathConstraintSm );
   using PathStatusInfoSm::PathStatusInfoSm;

   void handleConstraint() override;
   void doPrepareToDie() override;
   void handleNewConstraint();
   /// Who makes the machines from now on, first those that are due; null: nobody. The owner
   /// outlives this object, or says so.
   void ownerIs( VrfRootSm * owner );

 private:
   VrfRootSm * owner_ = nullptr;
};

/// The machines of one path.
struct PathMachines {
   Lum::Ptr< PathConfigInfoSm > pathConfigInfoSm;
   Lum::Ptr< PathConstraintSm > pathStatusInfoSm;
   Lum::Ptr< PathRefreshSm > pathRefreshSm;
   Lum::Ptr< PathStatusUpdateSm > pathStatusUpdateSm;
   Lum::Ptr< PathUsageSm > pathUsageSm;

   bool empty() const {
      return !pathConfigInfoSm && !pathStatusInfoSm && !pathRefreshSm && !pathStatusUpdateSm
             && !pathUsageSm;
   }
};

/// ... and those that only repairs and paths by hops have.
struct RarePathMachines {
   Lum::Ptr< Lfa::PqComputeSm > pqComputeSm;
   Lum::Ptr< RsvpPathStitchSm > rsvpPathStitchSm;

   bool empty() const { return !pqComputeSm && !rsvpPathStitchSm; }
};

/// ... and of one constraint.
struct ConstraintMachines {
   Lum::Ptr< ConstraintInfoSmBase > constraintInfoSm;
   Lum::Ptr< ConstraintStatusSm > constraintStatusSm;

   bool empty() const { return !constraintInfoSm && !constraintStatusSm; }
};

/// The path service of one VRF and address family: the tables, the topology, the bandwidth
/// accounts, and all state machines of constraints and paths. It only owns; VrfRootSm decides
/// what there is. State machines hold a plain reference to it, since it outlives them.
class VrfRoot : public Lum::Entity {
   LUM_ENTITY( Cspf, VrfRoot );
   /// `dir`: the clients of the topology databases. `teStatus` may be null.
   VrfRoot( const L3::VrfName & vrf, Kivnet::AddressFamily af,
            const Lum::Ptr< Corvdb::EntityManager > & entityManager,
            const Lum::Ptr< Lum::Dir > & dir, const Lum::Ptr< const VrfSourceId > & vrfSourceId,
            const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler,
            const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
            const Lum::Ptr< AllTopoDb > & allTopoDb );
   ~VrfRoot() override;

   LUM_ATTRIBUTE( cliConfig, Lum::Ptr< const CspfCliConfig > );
   void cliConfigDel() { cliConfigIs( nullptr ); }
   LUM_CHILD( constraintInfoTable, ConstraintInfoTable );
   LUM_CHILD( constraintStatsTable, ConstraintStatsTable );
   LUM_CHILD( dedupConstraintTable, DedupConstraintTable );
   LUM_CHILD( pathConfigInfoTable, PathConfigInfoTable );
   LUM_CHILD( pathStatusInfoTable, PathStatusInfoTable );
   LUM_CHILD( pathStatusCacheTable, PathStatusCacheTable );
   LUM_CHILD( clientData, ClientData );
   /// Made with the first TI-LFA path.
   LUM_CHILD( dedupPqInfoTable, Lfa::DedupPqInfoTable );
   LUM_CHILD( prefixWatch, Lfa::PrefixWatch );
   LUM_CHILD( protectionTable, Lfa::ProtectionTable );
   LUM_CHILD( bwUsageManager, BwUsageManager );
   LUM_CHILD( allTopoDbStatus, AllTopoDbStatus );
   LUM_CHILD( allTopoDbSm, AllTopoDbSm );
   LUM_ATTRIBUTE( topoDbClient, Lum::Ptr< Routing::Topology::Client > );
   void topoDbClientDel() { topoDbClientIs( nullptr ); }
   LUM_CHILD( teIntfStatusSm, TeIntfStatusSm );
   LUM_CHILD( repairScope, RepairScope );
   LUM_CHILD( childPathStatusCacheSm, ChildPathStatusCacheSm );
   LUM_ATTRIBUTE( initialized, bool );

   CSPF_MACHINE( constraintMachines_, constraintInfoSm, ConstraintHandle, ConstraintMachines,
                 ConstraintInfoSmBase );
   CSPF_MACHINE( constraintMachines_, constraintStatusSm, ConstraintHandle, ConstraintMachines,
                 ConstraintStatusSm );
   CSPF_MACHINE( pathMachines_, pathConfigInfoSm, PathInfoKey, PathMachines, PathConfigInfoSm );
   CSPF_MACHINE( pathMachines_, pathStatusInfoSm, PathInfoKey, PathMachines, PathConstraintSm );
   CSPF_MACHINE( pathMachines_, pathRefreshSm, PathInfoKey, PathMachines, PathRefreshSm );
   CSPF_MACHINE( pathMachines_, pathStatusUpdateSm, PathInfoKey, PathMachines, PathStatusUpdateSm );
   CSPF_MACHINE( rarePathMachines_, pqComputeSm, PathInfoKey, RarePathMachines, Lfa::PqComputeSm );
   CSPF_MACHINE( pathMachines_, pathUsageSm, PathInfoKey, PathMachines, PathUsageSm );
   CSPF_MACHINE( rarePathMachines_, rsvpPathStitchSm, PathInfoKey, RarePathMachines,
                 RsvpPathStitchSm );

   /// Nobody makes machines any more for paths that get a constraint.
   void pathConstraintsDel();
   const L3::VrfName & vrfName() const noexcept { return vrf_; }
   Kivnet::AddressFamily af() const noexcept { return af_; }
   const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler() const noexcept { return taskScheduler_; }
   const Lum::Ptr< const TrafficEngineering::Status > & teStatus() const noexcept {
      return teStatus_;
   }
   const Lum::Ptr< const VrfSourceId > & vrfSourceId() const noexcept { return vrfSourceId_; }
   const Lum::Ptr< AllTopoDb > & allTopoDb() const noexcept { return allTopoDb_; }
   /// What operators read of each constraint, and of all reservations.
   const Lum::Ptr< ConstraintStatusTable > & constraintStatusTable() const noexcept;
   const Lum::Ptr< BwUsageTable > & bwUsageTable() const noexcept;
   /// The memory of shortest-path runs, made for the first one. Runs follow each other on one loop,
   /// so one is enough.
   CspfRunMemory & runMemory();
   /// ... and of validations of published paths.
   PathValidationMemory & pathValidationMemory() noexcept { return *pathValidationMemory_; }
   /// What its requests are turned into constraints with; there is none before it is initialized.
   const RequestContext & requestContext() const noexcept { return requestContext_; }
   PathUsageContext & pathUsageContext() noexcept { return *pathUsageContext_; }
   /// What its constraints are computed with. REQUIRES: it is initialized.
   const ConstraintSmContext & constraintSmContext();
   /// The tables in which a path stands with its segments.
   StitchTables stitchTables() const {
      return { { pathConfigInfoTable(), pathStatusCacheTable(), pathStatusInfoTable(),
                 constraintStatsTable() },
               constraintInfoTable() };
   }
   /// What its computations see. There is none before it is initialized.
   const VrfTopology & topology() const noexcept { return topology_; }

   void handleInitialized();
   /// Ends all state machines, then leaves the topology and the published tables.
   void doPrepareToDie();
   void handleDestruction();
   /// Ends all of one path but its rows of configuration and status, whose end brings this about.
   void pathDel( const PathInfoKey & key );
   void doMountTopoDb();
   /// Puts the router's own table of that level into the store, where no other one is.
   void doRegisterTopoDb( const TopoId & topoId );
   void enableTopoDbClient();
   void disableTopoDbClient();
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   struct Tables;

   const L3::VrfName vrf_;
   const Kivnet::AddressFamily af_;
   const Lum::Ptr< Corvdb::EntityManager > entityManager_;
   const Lum::Ptr< Lum::Dir > dir_;
   const Lum::Ptr< const VrfSourceId > vrfSourceId_;
   const Lum::Ptr< Kiv::TaskScheduler > taskScheduler_;
   const Lum::Ptr< const TrafficEngineering::Status > teStatus_;
   const Lum::Ptr< AllTopoDb > allTopoDb_;
   VrfTopology topology_;
   RequestContext requestContext_;
   std::unique_ptr< CspfRunMemory > runMemory_;
   std::unique_ptr< PathValidationMemory > pathValidationMemory_;
   std::unique_ptr< PathUsageContext > pathUsageContext_;
   std::unique_ptr< ConstraintSmContext > constraintSmContext_;
   std::unique_ptr< Tables > tables_;  // mounted
   MachineRows< PathInfoKey, PathMachines > pathMachines_;
   MachineRows< PathInfoKey, RarePathMachines > rarePathMachines_;
   MachineRows< ConstraintHandle, ConstraintMachines > constraintMachines_;
};

#undef CSPF_MACHINE

}
