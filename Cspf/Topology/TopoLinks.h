#pragma once

#include "Cspf/Graph/Graph.h"
#include "Cspf/Topology/RankedMap.h"
#include "schema/Topology.h"

#include <array>

namespace Cspf {

/// Names one directed link in all topologies of one VRF and family. Links of one router, and of one
/// pair of routers in one direction, stand side by side.
struct TopoLinkName {
   TopoId topoId;
   Routing::Topology::NeighborKey neighborKey;
   auto operator<=>( const TopoLinkName & ) const = default;
};

/// The graphs that follow the store.
enum class TopoGraphKind : std::uint8_t { te, lfa };

/// The interface addresses under which a link stands in the store.
using NeighborToIntfIp = Lum::Set< Kivnet::IpGenAddr >;

/// What the store keeps of a link that its router lists: what it has registered under the link's
/// name, so that it can be taken back, and where the link stands in each graph.
struct TopoLink {
   /// For a link to a LAN `membership` is the step back from the LAN.
   struct Place {
      CspfEdge edge = noEdge;
      CspfEdge membership = noEdge;
   };

   NeighborToIntfIp neighborToIntfIp;
   std::array< Place, 2 > places;  ///< by TopoGraphKind

   Place & at( TopoGraphKind kind ) { return places[ static_cast< std::size_t >( kind ) ]; }
   const Place & at( TopoGraphKind kind ) const {
      return places[ static_cast< std::size_t >( kind ) ];
   }
};

/// All listed links, ranked in key order. Entries do not move in memory.
using TopoLinks = RankedMap< TopoLinkName, TopoLink, 63 >;

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
