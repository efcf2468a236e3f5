#pragma once

#include "platform/Lum/Bounded.h"
#include "schema/Topology.h"
#include "schema/VertexId.h"

/// Keys and small records that the agent shares with its clients.
namespace Cspf {

LUM_BOUNDED( HopIndex, std::uint8_t, 0, 254 );
LUM_BOUNDED( ConstraintAttrIndex, std::uint8_t, 0, 99 );
LUM_BOUNDED( IncludeIpIndex, std::uint8_t, 0, 254 );
LUM_BOUNDED( RepairNodeIdx, std::uint8_t, 0, 7 );
LUM_BOUNDED( BwPriority, std::uint8_t, 0, 7 );

LUM_ENUM( PathComputationType, std::uint8_t, cspf, tilfa );
LUM_ENUM( CspfSourceType, std::uint8_t, neighborOnLink, plr, pathSegmentSource );

/// The client's own name for one path.
struct PathKey {
   LUM_VALUE( Cspf, PathKey );
   LUM_FIELD( dst, Destination );
   LUM_FIELD( id, std::uint32_t );  ///< the client's path number towards that destination
};

/// A hop that a path must pass.
struct IncludeHop {
   LUM_VALUE( Cspf, IncludeHop );
   LUM_FIELD( addr, Kivnet::IpGenAddr );
   LUM_FIELD( loose, bool );
};

/// An include hop found on a path.
struct IncludeIp {
   LUM_VALUE( Cspf, IncludeIp );
   LUM_FIELD( addr, Kivnet::IpGenAddr );
   LUM_FIELD( teRouterId, Kivnet::IpGenAddr );
};

/// The SRLGs of one hop's link, in the order in which the link lists them.
struct SrlgOfHop {
   LUM_VALUE( Cspf, SrlgOfHop );
   LUM_LIST( srlg, SrlgIndex, TrafficEngineering::SrlgId );
};

/// A node to avoid, and the local interface behind which it stands.
struct ExcludeNode {
   LUM_VALUE( Cspf, ExcludeNode );
   LUM_FIELD( nodeId, NodeId );
   LUM_FIELD( nexthopIntf, Kivnet::IntfId );

   explicit operator bool() const { return static_cast< bool >( nodeId_ ); }
};

struct AllTopoNetworkId {
   LUM_VALUE( Cspf, AllTopoNetworkId );
   LUM_FIELD( topoId, TopoId );
   LUM_FIELD( networkId, Routing::Topology::NetworkId );

   explicit operator bool() const { return static_cast< bool >( networkId_ ); }
};

/// One directed link of the topology store. A TE graph names links with the TE router ids of their
/// ends, an IGP graph without.
struct AllTopoNeighborKey {
   LUM_VALUE( Cspf, AllTopoNeighborKey );
   LUM_FIELD( topoId, TopoId );
   LUM_FIELD( neighborKey, Routing::Topology::NeighborKey );
   LUM_FIELD( teNeighborOf, Kivnet::IpGenAddr );  ///< TE router id of the owner
   LUM_FIELD( teNeighborId, Kivnet::IpGenAddr );  ///< of the far end; unset for a LAN

   /// "AllTopoNeighborKey=<topoId=.., neighborKey=.., teNeighborOf=.., teNeighborId=..>"
   std::string stringValue() const;
   bool isLan() const { return neighborKey_.neighborType() == Routing::Topology::lan(); }
   /// The node that owns the link: its TE router id where the key has one, else its IGP vertex.
   NodeId neighborOf() const;
   /// The node at the far end, likewise; empty for a link to a LAN.
   NodeId neighborId() const;
   /// The LAN that the link leads to; empty for a link to a router.
   AllTopoNetworkId allTopoNetworkId() const;
   explicit operator bool() const { return static_cast< bool >( neighborKey_ ); }
};

/// Identity of a user of bandwidth; users with the same identity share their reservations.
struct BwUsageId {
   LUM_VALUE( Cspf, BwUsageId );
   LUM_FIELD( clientName, Lum::String );
   LUM_FIELD( sharedBwGroupId, std::uint32_t );  ///< 0: no shared group
   LUM_FIELD( localId, std::uint32_t );          ///< 0 where a shared group is used

   explicit operator bool() const { return !clientName_.empty(); }
};

/// One user's bandwidth on one directed link.
struct BwUsageKey {
   LUM_VALUE( Cspf, BwUsageKey );
   LUM_FIELD( link, AllTopoNeighborKey );
   LUM_FIELD( bwUsageId, BwUsageId );

   std::string stringValue() const;
};

}
