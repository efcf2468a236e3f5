#pragma once

#include "Cspf/Records/Source.h"
#include "Cspf/Topology/IntfIpToNeighbor.h"
#include "Cspf/Topology/TopoGraph.h"
#include "schema/CspfKeys.h"
#include "schema/CspfStatus.h"

#include <memory>
#include <utility>
#include <vector>

namespace Kiv {
class DumpContext;
}

/// The topology store of one VRF and family: the tables as the IGPs publish them, and what path
/// computation needs besides.
namespace Cspf {

/// A router as a view offers it.
struct AllTopoRouter {
   LUM_VALUE( Cspf, AllTopoRouter );
   LUM_FIELD( nodeId, NodeId );
   LUM_SET( neighbor, AllTopoNeighborKey );
   LUM_SET( tep, Kivnet::IpGenAddr );  ///< tunnel end points on this node
};

/// A LAN as a view offers it.
struct AllTopoNetwork {
   LUM_VALUE( Cspf, AllTopoNetwork );
   LUM_FIELD( allTopoNetworkId, AllTopoNetworkId );
   LUM_SET( router, NodeId );
};

/// A router that advertises a prefix. It is named by its IGP vertex.
struct OriginatorInfo {
   LUM_VALUE( Cspf, OriginatorInfo );
   LUM_FIELD( routerId, NodeId );
   LUM_FIELD( metric, std::uint32_t );
};

/// The topologies that are mounted for one VRF.
class AllTopoDb : public Lum::Entity {
   LUM_ENTITY( Cspf, AllTopoDb );
   LUM_COLLECTION_ORDERED( topoDb, TopoId, Lum::Ptr< const Routing::Topology::TopoDb > );

   /// The link's neighbour entry; null where there is none.
   const Routing::Topology::Neighbor * neighbor( const AllTopoNeighborKey & key ) const;
   const Routing::Topology::Router * router( const TopoId & topoId, const IgpRouterId & id ) const;
   const Routing::Topology::Network * network( const AllTopoNetworkId & id ) const;
};

/// All VRFs of one family.
class AllTopoDbDir : public Lum::Entity {
   LUM_ENTITY( Cspf, AllTopoDbDir );
   LUM_COLLECTION_ORDERED( allTopoDbColl, L3::VrfName, Lum::Ptr< AllTopoDb > );
};

/// Routers that carry a TE router id which another router of the topology has.
class DuplicateRouters : public Lum::Entity {
   LUM_ENTITY( Cspf, DuplicateRouters );
   LUM_COLLECTION_ORDERED( router, IgpRouterId, bool );
   void routerIs( const IgpRouterId & igpRouterId ) { routerIs( igpRouterId, true ); }
};

/// The TE router ids of one topology, both ways. A router is in one of three states: it owns its TE
/// router id, or it is parked as a duplicate, or it has none.
class RouterIdMap : public Lum::Entity {
   LUM_ENTITY( Cspf, RouterIdMap );
   LUM_COLLECTION( teRouterId, IgpRouterId, Kivnet::IpGenAddr );
   LUM_COLLECTION( igpRouterId, Kivnet::IpGenAddr, IgpRouterId );
   LUM_COLLECTION_ORDERED( duplicateRouters, Kivnet::IpGenAddr, Lum::Ptr< DuplicateRouters > );
   LUM_ROWS_BY_KEY( duplicateRouters, Kivnet::IpGenAddr, DuplicateRouters );

   void dumpState( Kiv::DumpContext & context, int indent ) const;
};

/// Who advertises one prefix, and at which metric.
class PfxOriginatorInfo : public Lum::Entity {
   LUM_ENTITY( Cspf, PfxOriginatorInfo );
   LUM_COLLECTION_ORDERED( originatorInfo, NodeId, OriginatorInfo );
};

class PfxOriginatorInfoTable : public Lum::Entity {
   LUM_ENTITY( Cspf, PfxOriginatorInfoTable );
   LUM_COLLECTION( pfxOriginatorInfo, Kivnet::IpGenPrefix, Lum::Ptr< PfxOriginatorInfo > );
   LUM_ROWS_BY_KEY( pfxOriginatorInfo, Kivnet::IpGenPrefix, PfxOriginatorInfo );
};

/// What the agent has worked out of the topologies of one VRF and family. `AllTopoDbSm` writes it.
class AllTopoDbStatus : public Lum::Entity {
   LUM_ENTITY( Cspf, AllTopoDbStatus );
   /// Interface addresses are published in `intfIpToRouterIdTable` as well (null: they are not).
   AllTopoDbStatus( Lum::Ptr< const VrfSourceId > vrfSourceId,
                    Lum::Ptr< IntfIpToRouterIdTable > intfIpToRouterIdTable );
   LUM_COLLECTION_ORDERED( routerIdMap, TopoId, Lum::Ptr< RouterIdMap > );
   LUM_COLLECTION_ORDERED( pfxOriginatorInfoTable, TopoId, Lum::Ptr< PfxOriginatorInfoTable > );
   /// The tables that are being imported.
   LUM_COLLECTION_ORDERED( topoDb, TopoId, Lum::Ptr< const Routing::Topology::TopoDb > );
   /// Tables on their way in or out. Until they are there, nothing is told of changes.
   LUM_ATTRIBUTE( imports, std::uint32_t );
   LUM_ATTRIBUTE( topoChangedAt, Lum::Seconds );
   LUM_COUNTER( originatorChangeCount );  ///< a prefix got or lost an originator
   LUM_COLLECTION( bwUsageChangedAt, BwUsageId, Lum::Seconds );
   LUM_COLLECTION_ORDERED( sourceChangedAt, PathComputationType, Lum::Seconds );

   const Lum::Ptr< IntfIpToNeighborTable > & intfIpToNeighborTable() const noexcept {
      return intfIpToNeighborTable_;
   }
   const Lum::Ptr< IntfIpToRouterIdTable > & intfIpToRouterIdTable() const noexcept {
      return intfIpToRouterIdTable_;
   }
   const Lum::Ptr< const VrfSourceId > & vrfSourceId() const noexcept { return vrfSourceId_; }

   /// For a change of now: later than the clock and than all stamps given before. Changes of one
   /// instant are several changes, and later than what was computed in it.
   Lum::Seconds changeStamp();
   /// When that last changed which computations of this type for this bandwidth user depend on:
   /// the topology, the source, the user's own reservations. REQUIRES: the VRF has a source of that
   /// type.
   Lum::Seconds topoInfoChangedAt( PathComputationType pathComputationType,
                                   const BwUsageId & bwUsageId ) const;
   /// The source of that type of computation; empty where the VRF has none.
   NodeId sourceId( PathComputationType type ) const;

   /// Whether a router of some topology owns that TE router id.
   bool teRouterIdPresent( const Kivnet::IpGenAddr & teRouterId ) const;
   /// Unset where the router owns none.
   Kivnet::IpGenAddr teRouterId( const TopoId & topoId, const IgpRouterId & router ) const;
   /// The link's key with the TE router ids that its ends own now.
   AllTopoNeighborKey
   allTopoNeighborKey( const TopoId & topoId,
                       const Routing::Topology::NeighborKey & neighborKey ) const;
   struct RouterInTopo {
      TopoId topoId;
      IgpRouterId router;
   };
   /// The routers with that tunnel end point: those that own it as their TE router id, have a link
   /// with that interface address, or advertise it as a host prefix. May name a router twice.
   std::vector< RouterInTopo > routersWithTep( const Kivnet::IpGenAddr & tep ) const;
   /// Their TE router ids, of those that own one. In order, each once.
   std::vector< Kivnet::IpGenAddr > teRouterIdsOfTep( const Kivnet::IpGenAddr & tep ) const;
   /// All routers that advertise the prefix, in any topology; of a router that does so in several,
   /// the least metric. In order.
   std::vector< OriginatorInfo > originators( const Kivnet::IpGenPrefix & prefix ) const;

   /// Listed links; written by the import.
   TopoLinks & links() noexcept { return links_; }
   const TopoLinks & links() const noexcept { return links_; }
   /// Addresses that links or host prefixes got, or have no more. Those that are TE router ids
   /// alone are not among them: with such a one a vertex of the graph comes or goes.
   const ChangeLog< Kivnet::IpGenAddr > & addressChanges() const noexcept {
      return addressChanges_;
   }
   void noteAddress( const Kivnet::IpGenAddr & address ) { addressChanges_.note( address ); }

   /// The graph of TE router ids. It lives as long as the store.
   TopoGraph & teGraph() const noexcept { return *teGraph_; }
   /// The graph of IGP vertices: built for its first holder, kept in step while there is one. The
   /// store outlives it.
   std::shared_ptr< TopoGraph > lfaGraph() const;
   /// Calls `visit` for each graph that there is at this moment.
   template< class Visit >
   void forEachGraph( Visit && visit ) const {
      visit( *teGraph_ );
      ifLfaGraph( visit );
   }
   template< class Visit >
   void ifLfaGraph( Visit && visit ) const {
      if ( const auto lfa = lfaGraph_.lock() ) {
         visit( *lfa );
      }
   }

   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   const Lum::Ptr< const VrfSourceId > vrfSourceId_;
   const Lum::Ptr< IntfIpToRouterIdTable > intfIpToRouterIdTable_;
   const Lum::Ptr< IntfIpToNeighborTable > intfIpToNeighborTable_;
   Lum::Seconds lastStamp_ = 0;
   ChangeLog< Kivnet::IpGenAddr > addressChanges_{ 64 };
   mutable TopoLinks links_{ [ this ]( const TopoLink & link ) {
      forEachGraph( [ & ]( TopoGraph & graph ) { graph.rankMoved( link ); } );
   } };  // graphs note in it where they keep each link
   const std::unique_ptr< TopoGraph > teGraph_;
   mutable std::weak_ptr< TopoGraph > lfaGraph_;
};

/// Whether the router lists the link.
inline bool
routerHasNeighbor( const Routing::Topology::Router & router,
                   const Routing::Topology::NeighborKey & neighborKey ) {
   return router.neighborHas( neighborKey );
}

}
