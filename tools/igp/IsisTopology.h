#pragma once

#include "schema/Isis.h"
#include "tools/igp/IsisText.h"

namespace Igp {

using IsisAdjacencies = std::map< IsisExportImpl::AdjacencyKey, IsisExportImpl::Adjacency >;

/// What a capture makes together: for each area and level a topology of each family that its
/// routers speak, links paired; IPv6 is the topology of its own where routers have one, and
/// follows the links of IPv4 between routers that speak both otherwise.
struct IsisNetwork {
   std::vector< Topology > topologies;
   IsisAdjacencies adjacencies;   ///< of the router that was asked
   Routing::Isis::SystemId self;  ///< unset where the capture does not say
   Findings findings;
};

IsisNetwork isisNetwork( const IsisCapture & capture, const L3::VrfName & vrf );

}
