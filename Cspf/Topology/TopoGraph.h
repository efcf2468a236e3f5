#pragma once

#include "Cspf/Topology/AddressColumn.h"
#include "Cspf/Topology/TopoLinks.h"
#include "schema/CspfKeys.h"

#include <map>
#include <set>
#include <span>
#include <utility>
#include <vector>

namespace Cspf {

/// The compact graph of one view, kept in step with the topology store, and the way between the
/// store's keys and the graph's numbers in both directions.
///
/// All topologies of a VRF and family are one graph. A router of a topology takes part as the node
/// that it is attached as (its TE router id, or its IGP vertex); routers attached as the same node
/// are one vertex. An edge stands for a link exactly while both of its ends take part. A LAN is
/// a vertex while a link leads to it.
///
/// The operations that change it may come in any order, for records that are half written; saying
/// the same twice changes nothing. Cost of one changed link: O(log links); of a burst of changes
/// among n parallel links O(n log n) more, when the graph is asked for next.
class TopoGraph {
 public:
   /// The number of no topology.
   static constexpr std::uint16_t noTopology = CspfGraph::anyTopology - 1;

   /// The links outlive the graph; it notes in them where they and their routers stand.
   TopoGraph( TopoGraphKind kind, TopoLinks & links ) : kind_( kind ), links_( links ) {}
   ~TopoGraph() { links_.forget( kind_ ); }
   TopoGraph( const TopoGraph & ) = delete;
   TopoGraph & operator=( const TopoGraph & ) = delete;

   // Changes, told by the import.

   void topologyIs( const TopoId & topoId,
                    const Lum::Ptr< const Routing::Topology::TopoDb > & topoDb );
   /// Nothing of the topology takes part any more.
   void topologyDel( const TopoId & topoId );
   /// The router takes part as that node. O(its links * log links) when it is new or another one.
   void attach( const TopoId & topoId, const IgpRouterId & router, const NodeId & node );
   void detach( const TopoId & topoId, const IgpRouterId & router );
   void overloadedIs( const TopoId & topoId, const IgpRouterId & router, bool overloaded );
   /// What is known of the router besides, its addresses and prefixes, has changed.
   void touch( const TopoId & topoId, const IgpRouterId & router );
   void touch( const TopoRouter & router );
   /// The link is there, with what its neighbour entry says now.
   void linkIs( TopoLink & link, const Routing::Topology::Neighbor & neighbor );
   void linkDel( TopoLink & link );
   /// The routers that the LAN lists have changed, or it is gone. O(routers * log links).
   void networkChanged( const TopoId & topoId, const Routing::Topology::NetworkId & networkId );
   void rankMoved( const TopoLink & link );

   /// Puts numbers in the order of walks from `root` when so much has changed since the last time
   /// that it pays; every number and tree from before the last change is void then. Call it before
   /// a run, of a LAN as well, before asking for numbers. Amortised O(1) for each change.
   void settle( CspfVertex root );

   // Keys to numbers: noVertex, noEdge where there is none.

   const CspfGraph & graph() const {
      settlePairs();
      return graph_;
   }
   CspfVertex vertex( const NodeId & node ) const;
   CspfVertex vertex( const AllTopoNetworkId & network ) const;
   /// The vertex of a router of that topology.
   CspfVertex router( const TopoId & topoId, const IgpRouterId & router ) const;
   CspfVertex vertex( const TopoRouter & router ) const;
   /// By topology and neighbour key; TE router ids do not matter. O(log links).
   CspfEdge edge( const AllTopoNeighborKey & key ) const;
   /// Of a topology that is there, its number in the edges; nothing otherwise.
   std::optional< std::uint16_t > topologyNumber( const TopoId & topoId ) const;

   // Numbers to keys and records, O(1). REQUIRES: the number is in use, and of that kind.

   const NodeId & nodeId( CspfVertex router ) const;
   AllTopoNetworkId networkId( CspfVertex network ) const;
   /// The link's key, with the TE router ids of its ends in a TE graph. Of the step from a LAN to
   /// a router: the key of that router's link to the LAN.
   AllTopoNeighborKey neighborKey( CspfEdge edge ) const;
   /// The link's neighbour entry (of a step from a LAN: of the router's link to the LAN).
   const Routing::Topology::Neighbor & neighbor( CspfEdge edge ) const {
      return *edgeMeanings_[ index( edge ) ].neighbor;
   }
   /// The address at which a packet that takes this edge enters the router at its far end: of a
   /// link between routers, and of the step from a LAN to a router. Unset where it has none.
   Kivnet::IpGenAddr nextHop( CspfEdge edge ) const {
      settlePairs();
      return nextHops_[ index( edge ) ];
   }

   /// The address of the near end of a link; where it has several, one that the far end knows.
   /// Unset where it has none.
   Kivnet::IpGenAddr interfaceAddr( CspfEdge link ) const;

   /// The router of that topology which is this vertex (the first, where several are); empty where
   /// there is none.
   IgpRouterId igpRouterId( const TopoId & topoId, CspfVertex router ) const;
   bool overloaded( const TopoId & topoId, const IgpRouterId & router ) const;
   /// Edges into (or, `leaving`, out of) routers that are overloaded in one of their topologies
   /// but not in all, in those topologies. O(edges of such routers).
   std::vector< CspfEdge > edgesOfPartlyOverloaded( bool leaving ) const;

 private:
   using Part = TopoRouterParts::Part;
   struct OneTopology {
      Lum::Ptr< const Routing::Topology::TopoDb > topoDb;
      std::uint16_t number = 0;
   };
   /// What a vertex stands for: a node, or a LAN.
   struct Meaning {
      TopoNodes::Entry * node = nullptr;
      TopoRouter * network = nullptr;
   };
   /// What an edge stands for. The neighbour entry is the table's own: an edge is gone before its
   /// entry is.
   struct EdgeMeaning {
      TopoLink * link = nullptr;
      const Routing::Topology::Neighbor * neighbor = nullptr;
   };
   /// Two vertices with links of one topology whose pairing may have changed, the lower one first.
   struct Unpaired {
      CspfVertex low, high;
      std::uint16_t topology;
      auto operator<=>( const Unpaired & ) const = default;
   };
   struct Parallel {
      CspfEdge edge;
      bool paired = false;
   };

   CspfEdge & edgeOf( TopoLink & link ) const { return link.at( kind_ ); }
   Part & part( TopoRouter & router ) const { return router.second.at( kind_ ); }
   const Part & part( const TopoRouter & router ) const { return router.second.at( kind_ ); }
   TopoNodes::Entry & nodeIs( const NodeId & nodeId );
   void attach( TopoRouter & router, const NodeId & node );
   void detach( TopoRouter & router );
   void updateOverload( TopoNodes::Entry & node );
   CspfVertex networkIs( TopoRouter & network );
   void networkDelIfUnused( TopoRouter & network );
   void meaningIs( CspfVertex vertex, const Meaning & meaning );

   void connect( TopoLink & link, const Routing::Topology::Neighbor & neighbor );
   void disconnect( TopoLink & link );
   CspfEdge addEdge( CspfVertex from, CspfVertex to, const CspfEdgeRecord & record, TopoLink & link,
                     const Routing::Topology::Neighbor & neighbor );
   void removeEdge( CspfEdge edge );
   /// The step back from the LAN that a link leads to; noEdge where the LAN does not list its
   /// router, and for any other edge.
   CspfEdge membership( CspfEdge link ) const;
   void updateMembership( TopoLink & link );
   // Pairs follow from what is there; they are worked out when somebody asks.
   void settlePairs() const {
      if ( !unpaired_.empty() ) {
         pairAll();
      }
   }
   void pairingIs( CspfEdge link );
   void pairAll() const;
   std::vector< Parallel > parallels( CspfVertex from, CspfVertex to,
                                      std::uint16_t topology ) const;
   void pairParallels( std::vector< Parallel > forward, std::vector< Parallel > backward ) const;
   void pairMirrored( std::vector< Parallel > & forward, std::vector< Parallel > & backward ) const;
   void pair( Parallel & one, Parallel & other, bool agree ) const;
   void unpair( CspfEdge edge ) const;
   void updateNextHop( CspfEdge edge ) const;
   void nextHopIs( CspfEdge edge, const Kivnet::IpGenAddr & nextHop ) const;
   CspfEdgeRecord record( const TopoLink & link, const OneTopology & topology,
                          const Routing::Topology::Neighbor & neighbor ) const;
   Kivnet::IpGenAddr teRouterIdOf( CspfVertex router ) const;

   const TopoGraphKind kind_;
   TopoLinks & links_;
   mutable CspfGraph graph_;
   std::map< TopoId, OneTopology > topologies_;
   std::vector< bool > topologyNumbers_;  // in use
   TopoNodes nodes_;
   std::vector< Meaning > meanings_;  // by vertex
   mutable std::vector< EdgeMeaning > edgeMeanings_;
   mutable AddressColumn nextHops_;  // by edge
   /// Links of attached routers to a router that takes no part (yet), by that router.
   std::map< std::pair< TopoRouter *, TopoLink * >, const Routing::Topology::Neighbor * > waiting_;
   mutable std::vector< Unpaired > unpaired_;
   std::set< TopoNodes::Entry * > partlyOverloaded_;
   std::uint64_t changes_ = 0;  // edges that came or went since the last settling
};

/// A vertex as traces name it.
std::string nodeText( const TopoGraph & topology, CspfVertex vertex );

}
