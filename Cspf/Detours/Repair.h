#pragma once

#include "Cspf/Graph/Graph.h"

#include <cstdint>
#include <vector>

namespace Cspf {

/// One step of a repair: from where the last one ended to the repair node.
struct CspfRepairSegment {
   CspfVertex node = noVertex;
   /// noEdge: by shortest paths. Otherwise over this link, by which the last node is left, and this
   /// edge, by which the packet enters the node: the same one, or the step from a LAN.
   CspfEdge link = noEdge, arrival = noEdge;
};

/// How a packet is steered: out by one of `firstLinks` to `firstHop`, from there by the segments,
/// and from the last repair node by shortest paths to the destination.
struct CspfRepair {
   CspfVertex firstHop = noVertex;
   std::vector< CspfEdge > firstLinks;  ///< equally good, the preferred one first
   std::vector< CspfRepairSegment > segments;
};

/// The repairs of one destination: one for each first hop of a path after the failure, with the
/// fewest repair nodes that do, and in the order of their number.
struct CspfRepairs {
   std::vector< CspfRepair > repairs;
   uint32_t nodesNeeded = 0;  ///< where there is none: by how many repair nodes there would be one
};

}
