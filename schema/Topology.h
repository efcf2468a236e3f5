#pragma once

#include "platform/Kivnet/IntfId.h"
#include "platform/Kivnet/VrfName.h"
#include "platform/Lum/Attribute.h"
#include "platform/Lum/Bounded.h"
#include "schema/TrafficEngineering.h"
#include "schema/VertexId.h"

#include <array>
#include <optional>

/// A link-state topology as the routing protocols publish it: one table for each IGP topology.
namespace Routing::Topology {

using Cspf::IgpRouterId;
using Cspf::TopoId;

LUM_ENUM( NeighborType, std::uint8_t, p2p, lan );

/// One directed link of a router: to a neighbour (point-to-point) or to a LAN.
struct NeighborKey {
   LUM_VALUE( Routing::Topology, NeighborKey );
   LUM_FIELD( routerId, IgpRouterId );  ///< the router that owns the link
   LUM_FIELD( neighborType, NeighborType );
   LUM_FIELD( neighborId, IgpRouterId );  ///< the neighbour, or the LAN's pseudonode
   LUM_FIELD( linkId, std::uint32_t );    ///< tells parallel links of one pair apart

   explicit operator bool() const { return static_cast< bool >( routerId_ ); }
};

/// A LAN, by its pseudonode.
struct NetworkId {
   LUM_VALUE( Routing::Topology, NetworkId );
   LUM_FIELD( id, IgpRouterId );

   std::string stringValue() const { return id_.stringValue(); }
   explicit operator bool() const { return static_cast< bool >( id_ ); }
};

LUM_BOUNDED( AddrIndex, std::uint8_t, 0, 9 );

struct Router {
   LUM_VALUE( Routing::Topology, Router );
   LUM_FIELD( id, IgpRouterId );
   LUM_FIELD( teRouterId, Kivnet::IpGenAddr );  ///< unset: not a TE router
   LUM_FIELD( overload, bool );                 ///< the overload bit
   LUM_SET( neighbor, NeighborKey );
};

struct Neighbor {
   LUM_VALUE( Routing::Topology, Neighbor );
   LUM_FIELD( key, NeighborKey );
   LUM_FIELD( intfId, Kivnet::IntfId );  ///< the owner's local interface
   LUM_FIELD( adminGroup, std::uint32_t );
   LUM_LIST( interfaceAddr, AddrIndex, Kivnet::IpGenAddr );
   LUM_LIST( neighborAddr, AddrIndex, Kivnet::IpGenAddr );
   LUM_FIELD( metric, std::uint32_t );  ///< IGP metric
   LUM_FIELD( teMetric, std::optional< std::uint32_t > );
   LUM_FIELD( maxLinkBandwidth, float );                      ///< bytes per second
   LUM_FIELD( unreservedBandwidth, std::array< float, 8 > );  ///< by priority, bytes per second
   LUM_LIST( srlg, Cspf::SrlgIndex, TrafficEngineering::SrlgId );
};

struct Network {
   LUM_VALUE( Routing::Topology, Network );
   LUM_FIELD( networkId, NetworkId );
   LUM_SET( router, IgpRouterId );
};

struct PrefixMetric {
   LUM_VALUE( Routing::Topology, PrefixMetric );
   LUM_FIELD( prefix, Kivnet::IpGenPrefix );
   LUM_FIELD( metric, std::uint32_t );
};

/// The prefixes that one router originates.
struct Reachability {
   LUM_VALUE( Routing::Topology, Reachability );
   LUM_FIELD( routerId, IgpRouterId );
   LUM_SET( prefix, PrefixMetric );
};

/// One topology: a shared-memory table that its IGP writes.
class TopoDb : public Lum::Entity {
   LUM_ENTITY( Routing::Topology, TopoDb );
   LUM_COLLECTION( router, IgpRouterId, Router );
   LUM_COLLECTION( neighbor, NeighborKey, Neighbor );
   LUM_COLLECTION( network, NetworkId, Network );
   LUM_COLLECTION( reachability, IgpRouterId, Reachability );
};

/// The announcement of one table under "routing/topoDbExport".
class ExportPath : public Lum::Entity {
   LUM_ENTITY( Routing::Topology, ExportPath );
   LUM_ATTRIBUTE( igpSource, Cspf::IgpSource );
   LUM_ATTRIBUTE( number1, std::uint32_t );
   LUM_ATTRIBUTE( number2, std::uint32_t );
   LUM_ATTRIBUTE( vrfName, L3::VrfName );
   LUM_ATTRIBUTE( af, Kivnet::AddressFamily );
   LUM_ATTRIBUTE( initialized, bool );  ///< the table is complete and may be mounted
};

/// A consumer of the topology databases: the VRFs in which it needs them.
class Client : public Lum::Entity {
   LUM_ENTITY( Routing::Topology, Client );
   LUM_COLLECTION_ORDERED( needTopoDb, L3::VrfName, bool );
};

}

namespace Routing::General {

/// "routing/general/config/global"
class Config : public Lum::Entity {
   LUM_ENTITY( Routing::General, Config );
   LUM_ATTRIBUTE( routerIdV4, Kivnet::IpAddr );
};

}
