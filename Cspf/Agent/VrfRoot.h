#pragma once

#include "Cspf/Bandwidth/BwUsageManager.h"
#include "Cspf/Clients/ClientInfo.h"
#include "Cspf/Records/PathRows.h"
#include "Cspf/Requests/TeIntfStatusSm.h"
#include "Cspf/Topology/AllTopoDbSm.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/LumZorch/TableMount.h"

#include <memory>

namespace Cspf {

class ChildPathStatusCacheSm;
class ConstraintInfoSmBase;
class ConstraintStatusSm;
class CspfRunMemory;
class DedupConstraintTable;
class PathConfigInfoSm;
class PathConstraintSm;
class PathRefreshSm;
class PathStatusInfoSm;
class PathStatusUpdateSm;
class PathUsageSm;
class PathValidationMemory;
class RsvpPathStitchSm;
namespace Lfa {
class DedupPqInfoTable;
class PqComputeSm;
}

/// The agent among the consumers of topologies.
inline constexpr const char * topoDbClientName = "cspf";

/// State machines of one kind: `x( key )` (null where there is none), `xHas( key )`,
/// `xIs( key, machine )` (starts it in place of an earlier one), `xDel( key )` (ends it),
/// `xDelAll()`.
#define CSPF_MACHINE( name_, Key, ... )                                                            \
   const Lum::Ptr< __VA_ARGS__ > & name_( const Key & key ) const;                                 \
   bool name_##Has( const Key & key ) const {                                                      \
      return name_( key ) != nullptr;                                                              \
   }                                                                                               \
   void name_##Is( const Key & key, Lum::Ptr< __VA_ARGS__ > machine );                             \
   void name_##Del( const Key & key );                                                             \
   void name_##DelAll()

/// An owned child whose type the users of this header need not know.
#define CSPF_CHILD( name_, ... )                                                                   \
   const Lum::Ptr< __VA_ARGS__ > & name_() const noexcept {                                        \
      return name_##_;                                                                             \
   }                                                                                               \
   void name_##Is( Lum::Ptr< __VA_ARGS__ > child );                                                \
   void name_##Del();                                                                              \
                                                                                                   \
 private:                                                                                          \
   Lum::Ptr< __VA_ARGS__ > name_##_;                                                               \
                                                                                                   \
 public:                                                                                           \
   static_assert( true )

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
   LUM_CHILD( constraintInfoTable, ConstraintInfoTable );
   LUM_CHILD( constraintStatsTable, ConstraintStatsTable );
   CSPF_CHILD( dedupConstraintTable, DedupConstraintTable );
   LUM_CHILD( pathConfigInfoTable, PathConfigInfoTable );
   LUM_CHILD( pathStatusInfoTable, PathStatusInfoTable );
   LUM_CHILD( pathStatusCacheTable, PathStatusCacheTable );
   LUM_CHILD( clientData, ClientData );
   /// Made with the first TI-LFA path.
   CSPF_CHILD( dedupPqInfoTable, Lfa::DedupPqInfoTable );
   LUM_CHILD( bwUsageManager, BwUsageManager );
   LUM_CHILD( allTopoDbStatus, AllTopoDbStatus );
   LUM_CHILD( allTopoDbSm, AllTopoDbSm );
   LUM_ATTRIBUTE( topoDbClient, Lum::Ptr< Routing::Topology::Client > );
   LUM_CHILD( teIntfStatusSm, TeIntfStatusSm );
   CSPF_CHILD( childPathStatusCacheSm, ChildPathStatusCacheSm );
   LUM_ATTRIBUTE( initialized, bool );

   CSPF_MACHINE( constraintInfoSm, ConstraintHandle, ConstraintInfoSmBase );
   CSPF_MACHINE( constraintStatusSm, ConstraintHandle, ConstraintStatusSm );
   CSPF_MACHINE( pathConfigInfoSm, PathInfoKey, PathConfigInfoSm );
   CSPF_MACHINE( pathStatusInfoSm, PathInfoKey, PathStatusInfoSm );
   CSPF_MACHINE( pathRefreshSm, PathInfoKey, PathRefreshSm );
   CSPF_MACHINE( pathStatusUpdateSm, PathInfoKey, PathStatusUpdateSm );
   CSPF_MACHINE( pqComputeSm, PathInfoKey, Lfa::PqComputeSm );
   CSPF_MACHINE( pathUsageSm, PathInfoKey, PathUsageSm );
   CSPF_MACHINE( rsvpPathStitchSm, PathInfoKey, RsvpPathStitchSm );
   CSPF_MACHINE( pathConstraintSm, PathInfoKey, PathConstraintSm );

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
   /// The memory of shortest-path runs. Runs follow each other on one loop, so one is enough.
   CspfRunMemory & runMemory() noexcept { return *runMemory_; }
   /// ... and of validations of published paths.
   PathValidationMemory & pathValidationMemory();

   void handleInitialized();
   /// Ends all state machines, then leaves the topology and the published tables.
   void doPrepareToDie();
   void handleDestruction();
   void doMountTopoDb();
   /// Puts the router's own table of that level into the store, where no other one is.
   void doRegisterTopoDb( const TopoId & topoId );
   void enableTopoDbClient();
   void disableTopoDbClient();
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   struct Tables;
   struct Machines;

   const L3::VrfName vrf_;
   const Kivnet::AddressFamily af_;
   const Lum::Ptr< Corvdb::EntityManager > entityManager_;
   const Lum::Ptr< Lum::Dir > dir_;
   const Lum::Ptr< const VrfSourceId > vrfSourceId_;
   const Lum::Ptr< Kiv::TaskScheduler > taskScheduler_;
   const Lum::Ptr< const TrafficEngineering::Status > teStatus_;
   const Lum::Ptr< AllTopoDb > allTopoDb_;
   const std::unique_ptr< CspfRunMemory > runMemory_;
   std::unique_ptr< PathValidationMemory > pathValidationMemory_;  // made when first used
   std::unique_ptr< Tables > tables_;                              // mounted
   const std::unique_ptr< Machines > machines_;
};

#undef CSPF_MACHINE
#undef CSPF_CHILD

}
