#pragma once

#include "Cspf/Graph/Graph.h"
#include "Cspf/Topology/RankedMap.h"
#include "platform/Lum/PackedVector.h"
#include "schema/Topology.h"

#include <array>

namespace Cspf {

/// The graphs that follow the store.
enum class TopoGraphKind : std::uint8_t { te, lfa };

struct TopoRouterName {
   LUM_VALUE( Cspf, TopoRouterName );
   LUM_FIELD( topoId, TopoId );
   LUM_FIELD( id, IgpRouterId );
};

struct TopoRouterParts;
/// A router or a LAN of one topology, under the one name that all links from and to it share.
/// Entries do not move in memory.
using TopoRouter = std::pair< const TopoRouterName, TopoRouterParts >;

/// A node of one graph.
struct TopoNode {
   CspfVertex vertex = noVertex;
   std::uint32_t overloaded = 0;               // how many of its routers are
   Lum::PackedVector< TopoRouter * > routers;  // that are attached as this node, by name
};
using TopoNodes = RankedMap< NodeId, TopoNode, 63 >;

/// As what a router or a LAN takes part in each graph.
struct TopoRouterParts {
   struct Part {
      TopoNodes::Entry * node = nullptr;  // that a router is attached as
      CspfVertex network = noVertex;      // of a LAN
      bool overloaded = false;
   };

   std::array< Part, 2 > parts;  // by TopoGraphKind
   std::uint32_t links = 0;      // that name it

   Part & at( TopoGraphKind kind ) { return parts[ static_cast< std::size_t >( kind ) ]; }
   const Part & at( TopoGraphKind kind ) const {
      return parts[ static_cast< std::size_t >( kind ) ];
   }
};

/// Names one directed link in all topologies of one VRF and family. Links of one router, and of one
/// pair of routers in one direction, stand side by side.
struct TopoLinkName {
   TopoRouter * from;
   TopoRouter * to;  // or the LAN; of the same topology
   std::uint32_t linkId;
   Routing::Topology::NeighborType neighborType;

   const TopoId & topoId() const { return from->first.topoId(); }
   bool isLan() const { return neighborType == Routing::Topology::lan(); }
   Routing::Topology::NeighborKey neighborKey() const {
      return { from->first.id(), neighborType, to->first.id(), linkId };
   }
   /// That of topologies and neighbour keys.
   std::strong_ordering operator<=>( const TopoLinkName & other ) const;
   bool operator==( const TopoLinkName & ) const = default;
};

/// The interface addresses under which a link stands in the store: the list of the neighbour entry
/// that it had last, which both share.
using NeighborToIntfIp = Lum::List< Routing::Topology::AddrIndex, Kivnet::IpGenAddr >;

/// What the store keeps of a link that its router lists: what it has registered under the link's
/// name, so that it can be taken back, and where the link stands in each graph.
struct TopoLink {
   NeighborToIntfIp neighborToIntfIp;
   std::array< CspfEdge, 2 > edges{ noEdge, noEdge };  ///< by TopoGraphKind

   CspfEdge & at( TopoGraphKind kind ) { return edges[ static_cast< std::size_t >( kind ) ]; }
   CspfEdge at( TopoGraphKind kind ) const { return edges[ static_cast< std::size_t >( kind ) ]; }
};

/// All listed links, ranked in key order, and the routers and LANs that they name. Entries do not
/// move in memory.
class TopoLinks {
 public:
   using Links = RankedMap< TopoLinkName, TopoLink, 63 >;
   using Entry = Links::Entry;
   using Routers = Lum::Map< TopoRouterName, TopoRouterParts >;

   const Routers & routers() const { return routers_; }
   /// Null where no link names it and no graph has it.
   TopoRouter * router( const TopoId & topoId, const IgpRouterId & id );
   /// Made where there is none. Whoever has no use for it in the end says so.
   TopoRouter & routerIs( const TopoId & topoId, const IgpRouterId & id );
   void routerDelIfUnused( TopoRouter & router );

   Entry * find( const TopoId & topoId, const Routing::Topology::NeighborKey & key );
   /// The link of that router, and whether it was made. `moved( entry )` is told of each other link
   /// whose rank changes. REQUIRES: the key is one of the router's.
   template< class Moved >
   std::pair< Entry *, bool >
   tryInsert( TopoRouter & from, const Routing::Topology::NeighborKey & key, Moved && moved ) {
      TopoRouter & to = routerIs( from.first.topoId(), key.neighborId() );
      const auto inserted =
         links_.tryInsert( { &from, &to, key.linkId(), key.neighborType() }, moved );
      from.second.links += inserted.second;
      to.second.links += inserted.second;
      return inserted;
   }
   void erase( Entry & link );
   /// Calls `visit( entry )` for the links of a router in key order, until it gives false. It may
   /// erase the entry.
   template< class Visit >
   void visitOf( const TopoRouter & router, Visit && visit ) {
      visitFrom( router.first,
                 [ & ]( Entry & link ) { return link.first.from == &router && visit( link ); } );
   }
   /// The same for all links of that router and those behind them.
   template< class Visit >
   void visitFrom( const TopoRouterName & router, Visit && visit ) {
      TopoRouter from( router, {} );
      TopoRouter to( { router.topoId(), {} }, {} );
      links_.visitFrom( { &from, &to, 0, Routing::Topology::p2p() }, visit );
   }
   /// Drops what was noted for a graph that goes. O(links).
   void forget( TopoGraphKind kind );

 private:
   Routers routers_;
   Links links_;
};

/// Whether the address is among the link's own interface addresses. No link has the unset one,
/// whatever gaps its list has.
bool neighborHasInterfaceAddr( const Routing::Topology::Neighbor & neighbor,
                               const Kivnet::IpGenAddr & address );
/// Each end of a link knows an address of the other: some interface address of each is among the
/// other's neighbour addresses. False where one has no addresses.
bool addressesMirror( const Routing::Topology::Neighbor & neighbor,
                      const Routing::Topology::Neighbor & reverseNeighbor );
/// An end knows addresses of its neighbour, and the other end has addresses, but none of these: the
/// two are ends of different links.
bool addressesContradict( const Routing::Topology::Neighbor & neighbor,
                          const Routing::Topology::Neighbor & reverseNeighbor );

}
