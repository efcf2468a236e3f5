#pragma once

#include "tools/lab/LabDocument.h"

#include <map>
#include <string>

namespace Lab {

/// The routers, links and LANs of a topology that a patch names, and the routers that these name,
/// as they were and as they are. What is not there was not, or is no longer.
struct LabTopologyChange {
   LabTopology before, after;
};

/// What a patch did to a document.
struct LabChange {
   bool everything = false;  ///< anything may be another; the rest of this says nothing then
   /// More than the tables of topologies may be another: configuration, interfaces and adjacencies
   /// of the lab's router, clients, paths.
   bool surroundings = false;
   std::map< std::string, LabTopologyChange > topologies;  ///< by name
};

}
