#pragma once

#include "platform/Kivnet/IntfId.h"
#include "platform/Lum/Attribute.h"
#include "schema/VertexId.h"

namespace IsisExportImpl {

/// One neighbour on one interface.
struct AdjacencyKey {
   LUM_VALUE( IsisExportImpl, AdjacencyKey );
   LUM_FIELD( intf, Kivnet::IntfId );
   LUM_FIELD( systemId, Routing::Isis::SystemId );
};

/// The neighbour's next-hop addresses, unset where it has none of that family.
struct Adjacency {
   LUM_VALUE( IsisExportImpl, Adjacency );
   LUM_FIELD( nexthopV4, Kivnet::IpGenAddr );
   LUM_FIELD( nexthopV6, Kivnet::IpGenAddr );
};

/// "routing/isis/adjacency/<VRF>"
class IsisAdjacencyInfo : public Lum::Entity {
   LUM_ENTITY( IsisExportImpl, IsisAdjacencyInfo );
   LUM_COLLECTION_ORDERED( adjacency, AdjacencyKey, Adjacency );
};

}

namespace Routing::Isis {

/// "routing/isis/hostname/<VRF>": what the routers call themselves (RFC 5301). For people alone.
class Hostnames : public Lum::Entity {
   LUM_ENTITY( Routing::Isis, Hostnames );
   LUM_COLLECTION_ORDERED( hostname, SystemId, Lum::String );
};

}

namespace Mpls {

/// A 32-bit router id and a 16-bit label space. Its text is that of the IS-IS system id whose six
/// bytes the two make up.
struct RouterId {
   LUM_VALUE( Mpls, RouterId );
   LUM_FIELD( routerId, std::uint32_t );
   LUM_FIELD( labelSpace, std::uint16_t );

   static RouterId fromSystemId( const Routing::Isis::SystemId & id );
   std::string stringValue() const;
};

}

namespace Mpls::SegmentRouting {

/// One VRF's entry under "segmentrouting/isis/": the identity of this router in IS-IS.
class Status : public Lum::Entity {
   LUM_ENTITY( Mpls::SegmentRouting, Status );
   LUM_ATTRIBUTE( systemId, Routing::Isis::SystemId );
};

}
