#pragma once

#include "Cspf/Graph/LinkFilter.h"
#include "Cspf/Graph/Tree.h"
#include "Cspf/Records/Constraint.h"
#include "Cspf/Views/VrfTopology.h"

namespace Cspf {

/// Whether a link may be used: the link itself, and the tunnel end points behind it.
struct NeighborAndTepStatus {
   LUM_VALUE( Cspf, NeighborAndTepStatus );
   LUM_FIELD( neighborAllowed, bool );
   LUM_FIELD( tepAllowed, bool );
};

/// The topology of one VRF and family under one constraint.
///
/// A run asks for the graph and for the constraint in the graph's numbers. Everybody else asks by
/// key; both ways give the same answers. A view reads live state and keeps nothing of it.
class AllTopoDbView : public Lum::Entity {
 public:
   /// `bwUsageManager` is needed where the constraint asks for bandwidth.
   AllTopoDbView( Lum::Ptr< const AllTopoDb > allTopoDb,
                  Lum::Ptr< const AllTopoDbStatus > allTopoDbStatus,
                  SharedPathConstraint constraint,
                  Lum::Ptr< const BwUsageManager > bwUsageManager = nullptr )
      : allTopoDb_( std::move( allTopoDb ) ),
        allTopoDbStatus_( std::move( allTopoDbStatus ) ),
        bwUsageManager_( std::move( bwUsageManager ) ),
        constraint_( std::move( constraint ) ) {}
   AllTopoDbView( const VrfTopology & topology, SharedPathConstraint constraint )
      : AllTopoDbView( topology.allTopoDb, topology.allTopoDbStatus, std::move( constraint ),
                       topology.bwUsageManager ) {}

   // For runs.

   virtual TopoGraph & topoGraph() const = 0;
   const CspfGraph & graph() const { return topoGraph().graph(); }
   /// The constraint in numbers of the graph, for a run from `root`. May renumber the graph:
   /// numbers and trees from before the last topology change are void afterwards. Throws
   /// std::range_error where bandwidth is asked for at a priority of 8 or more.
   /// O(links that the constraint names + links that its user has reserved), amortised.
   CspfLinkConstraint linkConstraint( const NodeId & root ) const;
   struct OwnReservations {
      std::vector< std::pair< CspfEdge, std::uint64_t > > held;
      bool someAway = false;  ///< ... and on links that are not there
   };
   /// What the constraint's user holds at its priority or a better one; nothing where no bandwidth
   /// is asked for. Throws as `linkConstraint`. O(links that its user has reserved).
   OwnReservations ownReservations() const;
   /// The vertices with that tunnel end point, each once.
   std::vector< CspfVertex > verticesWithTep( const Kivnet::IpGenAddr & tep ) const;

   // The topology, by key.

   /// The router, or the LAN (in the constraint's topology, else the first one) of that identity;
   /// noVertex where there is none.
   CspfVertex vertex( const NodeId & node ) const;
   /// The step from the LAN that the link leads to, to the neighbour that the constraint names;
   /// noEdge where it names none, or one that is not on the LAN.
   CspfEdge stepToNeighbor( CspfEdge linkToLan ) const;
   /// Where the computation starts; empty where that is not known.
   virtual NodeId spfRoot() const = 0;
   virtual bool spfRootOverloaded() const;
   bool hasRouter( const NodeId & nodeId ) const {
      return topoGraph().vertex( nodeId ) != noVertex;
   }
   /// Empty (without a node id) where the view has no such router.
   virtual AllTopoRouter router( const NodeId & nodeId ) const;
   virtual AllTopoNetwork network( const AllTopoNetworkId & networkId ) const;
   /// The far end of the own source's point-to-point link on that interface (the first in key
   /// order, while an old and a new neighbour stand there); a default `topoId` looks at all
   /// topologies. Empty where there is none.
   virtual IgpRouterId p2pNeighborOnLink( const Kivnet::IntfId & intfId,
                                          const TopoId & topoId ) const = 0;
   /// The node as a router of that topology; empty where it is none.
   virtual IgpRouterId getIgpId( const TopoId & topoId, const NodeId & nodeId ) const;
   virtual bool twoWayAddrCheck( const Routing::Topology::Neighbor & neighbor,
                                 const Routing::Topology::Neighbor & reverseNeighbor ) const = 0;
   /// Metric of the link in the opposite direction (with `useTeMetric`, the TE metric where it has
   /// one); 0 where there is none, and for a link to a LAN.
   virtual std::uint32_t getReverseLinkMetric( const AllTopoNeighborKey & link,
                                               bool useTeMetric ) const;
   /// The link's neighbour entry; null where it has none.
   const Routing::Topology::Neighbor * neighbor( const AllTopoNeighborKey & link ) const {
      return allTopoDb_->neighbor( link );
   }
   /// The link back between the same two routers; empty where there is none.
   AllTopoNeighborKey getReverseNeighborKeyP2P( const AllTopoNeighborKey & link ) const;
   /// Address at which a packet over this link enters the router at its far end; unset where it
   /// has none.
   Kivnet::IpGenAddr nexthopOnP2pLink( const AllTopoNeighborKey & link ) const;
   /// Address of `router` on the LAN that the link leads to.
   Kivnet::IpGenAddr nexthopOnLanLink( const AllTopoNeighborKey & link,
                                       const NodeId & router ) const;
   /// TE router id of the router with that tunnel end point (the first, where there are several);
   /// unset where there is none.
   Kivnet::IpGenAddr teRouterIdOfNodeWithTep( const Kivnet::IpGenAddr & tep ) const;
   /// Whether the router with that TE router id has that tunnel end point; its own id is one.
   bool hasTep( const Kivnet::IpGenAddr & teRouterId, const Kivnet::IpGenAddr & tep ) const;
   /// The node that this type of computation starts from in this VRF.
   NodeId getOurSourceId() const;

   // The tests of a link, in the order in which they are made. A link or node that is named as the
   // other kind of view names it means the same one.

   /// Whether the constraint lets paths use the link.
   NeighborAndTepStatus neighborAndTepAllowed( const AllTopoNeighborKey & link ) const;
   /// ... and whether an ordinary path may: the link is of the constraint's topology and passes the
   /// two-way check, and the router behind it is not one that the view avoids because of overload.
   /// `routerInNetwork`: the router reached across a LAN, which must be on it.
   NeighborAndTepStatus neighborAndTepAllowedForTe( const AllTopoNeighborKey & link,
                                                    const NodeId & routerInNetwork = {} ) const;
   bool twoWayCheckPassed( const AllTopoNeighborKey & link ) const;
   bool twoWayCheckP2P( const AllTopoNeighborKey & link ) const;
   bool twoWayCheckLan( const AllTopoNeighborKey & link ) const;
   /// Whether the router lists the LAN that the link leads to, and the LAN lists it.
   bool twoWayCheckLan( const AllTopoNeighborKey & link, const NodeId & router ) const;
   bool isInterfaceAllowed( const AllTopoNeighborKey & link, const Kivnet::IntfId & intfId ) const;
   /// `nodeId`: the node that the link leads to; empty (a LAN) passes.
   bool isNodeAllowed( const AllTopoNeighborKey & link, const NodeId & nodeId ) const;
   bool isSrlgAllowed( const AllTopoNeighborKey & link ) const;
   bool isAdminGroupAllowed( const AllTopoNeighborKey & link, std::uint32_t includeAll,
                             std::uint32_t includeAny, std::uint32_t exclude ) const;
   bool isLinkIpAllowed( const Routing::Topology::Neighbor & neighbor ) const;
   bool bandwidthCheckPassed( const AllTopoNeighborKey & link ) const;
   SrlgExcludeInfo srlgExcludeInfo( const AllTopoNeighborKey & link ) const;
   SrlgIncludeInfo srlgIncludeInfo( const AllTopoNeighborKey & link ) const;

   const Lum::Ptr< const AllTopoDb > & allTopoDb() const noexcept { return allTopoDb_; }
   const Lum::Ptr< const AllTopoDbStatus > & allTopoDbStatus() const noexcept {
      return allTopoDbStatus_;
   }
   /// Null where it was not given.
   const Lum::Ptr< const BwUsageManager > & bwUsageManager() const noexcept {
      return bwUsageManager_;
   }
   const InternalPathConstraint & constraint() const noexcept { return *constraint_; }

 protected:
   bool rootOverloaded() const;
   virtual CspfOverloadRule overloadRule() const = 0;
   /// The link as this view names it.
   virtual AllTopoNeighborKey ownKey( const AllTopoNeighborKey & link ) const = 0;

 private:
   void excludeInterface( CspfLinkConstraint & numbers ) const;
   /// The router of that topology as this view names it; as it is given where the view has none.
   NodeId ownNode( const TopoId & topoId, const NodeId & nodeId ) const;
   void excludeEdges( CspfLinkConstraint & numbers ) const;
   std::vector< CspfVertex > excludedVertices() const;
   static void addTeps( AllTopoRouter & router, const Routing::Topology::TopoDb & table,
                        const IgpRouterId & id );
   /// The step from the LAN of the link to the router (the first in key order, where the router is
   /// on it with several interfaces); noEdge where the router is not on it.
   CspfEdge stepFromLan( const AllTopoNeighborKey & link, const NodeId & router ) const;
   // `operation`: the one for which, as traces begin.
   bool allowed( const AllTopoNeighborKey & link, const NodeId & farEnd,
                 const char * operation ) const;
   bool linkIpsAllowed( const AllTopoNeighborKey & link, const char * operation ) const;
   bool overloaded( const AllTopoNeighborKey & link, const NodeId & farEnd,
                    const char * operation ) const;

   const Lum::Ptr< const AllTopoDb > allTopoDb_;
   const Lum::Ptr< const AllTopoDbStatus > allTopoDbStatus_;
   const Lum::Ptr< const BwUsageManager > bwUsageManager_;
   const SharedPathConstraint constraint_;
};

/// Nodes are TE router ids; routers without one take no part. An overloaded router is neither
/// crossed nor reached.
class AllTopoTeDbView : public AllTopoDbView {
   LUM_ENTITY( Cspf, AllTopoTeDbView );
   using AllTopoDbView::AllTopoDbView;

   TopoGraph & topoGraph() const override { return allTopoDbStatus()->teGraph(); }
   NodeId spfRoot() const override;
   bool spfRootOverloaded() const override { return rootOverloaded(); }
   AllTopoNetwork network( const AllTopoNetworkId & networkId ) const override;
   IgpRouterId p2pNeighborOnLink( const Kivnet::IntfId & intfId,
                                  const TopoId & topoId ) const override;
   bool twoWayAddrCheck( const Routing::Topology::Neighbor & neighbor,
                         const Routing::Topology::Neighbor & reverseNeighbor ) const override {
      return addressesMirror( neighbor, reverseNeighbor );
   }

 protected:
   CspfOverloadRule overloadRule() const override { return CspfOverloadRule::avoid; }
   AllTopoNeighborKey ownKey( const AllTopoNeighborKey & link ) const override {
      return allTopoDbStatus()->allTopoNeighborKey( link.topoId(), link.neighborKey() );
   }
};

/// Nodes are IGP vertices: the IGP's graph as it is. An overloaded router may be reached, not
/// crossed. The view holds the graph: it is kept up to date while a view of this kind lives.
class AllTopoLfaDbView : public AllTopoDbView {
   LUM_ENTITY( Cspf, AllTopoLfaDbView );
   AllTopoLfaDbView( const Lum::Ptr< const AllTopoDb > & allTopoDb,
                     const Lum::Ptr< const AllTopoDbStatus > & allTopoDbStatus,
                     SharedPathConstraint constraint )
      : AllTopoDbView( allTopoDb, allTopoDbStatus, std::move( constraint ) ),
        graph_( allTopoDbStatus->lfaGraph() ) {}
   AllTopoLfaDbView( const VrfTopology & topology, SharedPathConstraint constraint )
      : AllTopoDbView( topology, std::move( constraint ) ),
        graph_( topology.allTopoDbStatus->lfaGraph() ) {}

   TopoGraph & topoGraph() const override { return *graph_; }
   NodeId spfRoot() const override { return getOurSourceId(); }
   bool spfRootOverloaded() const override { return rootOverloaded(); }
   IgpRouterId p2pNeighborOnLink( const Kivnet::IntfId & intfId,
                                  const TopoId & topoId ) const override;
   bool twoWayAddrCheck( const Routing::Topology::Neighbor &,
                         const Routing::Topology::Neighbor & ) const override {
      return true;
   }

 protected:
   CspfOverloadRule overloadRule() const override { return CspfOverloadRule::mayEnd; }
   AllTopoNeighborKey ownKey( const AllTopoNeighborKey & link ) const override {
      return { link.topoId(), link.neighborKey(), {}, {} };
   }

 private:
   const std::shared_ptr< TopoGraph > graph_;
};

}
