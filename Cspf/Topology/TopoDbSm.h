#pragma once

#include "Cspf/Topology/Store.h"
#include "platform/Kiv/Walk.h"

#include <functional>
#include <vector>

namespace Cspf {

/// Imports one topology into the store.
///
///   watches                      handler                writes
///   TopoDb.router                handleRouter           RouterIdMap, links, graphs
///   TopoDb.neighbor              handleNeighbor         interface addresses, graphs
///   TopoDb.network               handleNetwork          graphs
///   TopoDb.reachability          handleReachability     PfxOriginatorInfoTable
///   RouterIdMap.igpRouterId      handleTeRouterIdChange pendingRouterToHandle
///
/// A table that comes is taken in router by router, a slice in a turn of the loop; what changes
/// meanwhile is handled at once. One that goes is taken out in the same way; a router with a
/// neighbor that changes meanwhile is taken out at once, since the graphs refer to rows of
/// neighbors. Every change stamps the store; then readers are told of published addresses, since
/// they may change the table in their turn. A router that gives up a TE router id which others
/// carry as well makes the first of them pending; it is handled when the router at hand is done.
class TopoDbSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, TopoDbSm );
   /// Where `taskScheduler` is null, the table is taken in and out at once.
   TopoDbSm( const TopoId & topoId, Lum::Ptr< const Routing::Topology::TopoDb > topoDb,
             Lum::Ptr< AllTopoDbStatus > allTopoDbStatus,
             const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler = nullptr );

   void handleInitialized() override;
   /// Leaves what the store has of the topology as it is: the store ends, or it has nothing more.
   void doPrepareToDie() override;
   /// Takes the topology out of the store from the next turn on, counted among its imports; then
   /// calls `ended`, in which the machine may end. REQUIRES: not called before.
   void handleDestruction( std::function< void() > ended );
   bool isLeaving() const noexcept { return !!ended_; }

   void handleRouter( const IgpRouterId & igpRouterId );
   void handleNeighbor( const Routing::Topology::NeighborKey & neighborKey );
   void handleNetwork( const Routing::Topology::NetworkId & networkId );
   void handleReachability( const IgpRouterId & igpRouterId );
   void handleTeRouterIdChange( const Kivnet::IpGenAddr & teRouterId );

   const TopoId & topoId() const noexcept { return topoId_; }
   const Lum::Ptr< const Routing::Topology::TopoDb > & topoDb() const noexcept { return topoDb_; }
   const Lum::Ptr< RouterIdMap > & routerIdMap() const noexcept { return routerIdMap_; }
   const IgpRouterId & pendingRouterToHandle() const noexcept { return pendingRouterToHandle_; }
   /// Whether interface addresses of the link stand in the store.
   bool neighborToIntfIpHas( const Routing::Topology::NeighborKey & key ) const;
   /// The TE router id under which the router is parked as a duplicate; unset where it is not.
   Kivnet::IpGenAddr doFindDuplicateRouter( const IgpRouterId & igpRouterId ) const;
   /// Parks the router under its TE router id, which another one owns, and logs that. REQUIRES: the
   /// table has the router.
   void doAddDuplicateRouter( const IgpRouterId & igpRouterId );
   /// REQUIRES: the router is parked there.
   void doDelDuplicateRouter( const IgpRouterId & igpRouterId,
                              const Kivnet::IpGenAddr & teRouterId );
   /// Takes out a router that has gone, and its links. `teRouterId`: the one that it owned; a copy
   /// of what is mapped.
   void doHandleRouterDeletion( const IgpRouterId & igpRouterId,
                                const Kivnet::IpGenAddr & teRouterId );
   /// Stamps a change of the topology.
   void doUpdateAllTopoDbStatus();

   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   using RouterToNeighbor = std::vector< TopoLink * >;
   using ReachabilityMap = Lum::Set< Kivnet::IpGenPrefix >;

   std::vector< IgpRouterId > routersToImport() const;
   std::size_t importRouter( const IgpRouterId & igpRouterId );
   void endImport();
   std::vector< IgpRouterId > knownRouters() const;
   std::size_t takeOutRouter( const IgpRouterId & igpRouterId );
   void handleLeavingNeighbor( const Routing::Topology::NeighborKey & neighborKey ) {
      takeOutRouter( neighborKey.routerId() );
   }
   void endTakingOut();
   void isMovingIs( bool moving );
   void holdReaders() const;
   void tellReaders() const;
   // `operation`: the signature under which they trace.
   void doHandleRouter( const IgpRouterId & igpRouterId, const char * operation );
   void doUpdateTeRouterId( const IgpRouterId & igpRouterId, const Kivnet::IpGenAddr & teRouterId,
                            const char * operation );
   void doMoveMapping( const IgpRouterId & igpRouterId, const Kivnet::IpGenAddr & oldTeRouterId,
                       const Kivnet::IpGenAddr & teRouterId, const char * operation );
   void doReconcileNeighbors( const IgpRouterId & igpRouterId,
                              const Lum::Set< Routing::Topology::NeighborKey > & listed,
                              const char * operation );
   void doDelLink( TopoLink & link );
   void doUpdateLink( TopoLink & link, const Routing::Topology::Neighbor * neighbor );
   void doUpdateReachability( const IgpRouterId & igpRouterId,
                              const Routing::Topology::Reachability * reachability );
   void doUpdateOriginator( const Kivnet::IpGenPrefix & prefix, const NodeId & router,
                            const std::uint32_t * metric );
   RouterToNeighbor routerToNeighbor( const IgpRouterId & igpRouterId ) const;

   const TopoId topoId_;
   const Lum::Ptr< const Routing::Topology::TopoDb > topoDb_;
   const Lum::Ptr< AllTopoDbStatus > allTopoDbStatus_;
   Lum::Ptr< RouterIdMap > routerIdMap_;
   Lum::Ptr< PfxOriginatorInfoTable > pfxOriginatorInfoTable_;
   Lum::Map< IgpRouterId, ReachabilityMap > reachabilityMap_;  // what each router advertised last
   IgpRouterId pendingRouterToHandle_;
   Kiv::Walk< IgpRouterId > import_;
   Kiv::Walk< IgpRouterId > takingOut_;
   std::function< void() > ended_;  // of a topology that leaves
   bool isMoving_ = false;          // in or out
};

}
