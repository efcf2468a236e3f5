#pragma once

#include "tools/igp/Topology.h"

#include <nlohmann/json.hpp>

namespace Igp {

/// A lab of the topologies, in the order in which a person would write it. `router` is the name of
/// the one that the agent runs on, "" for the one that was asked. With `paths`, the client "rsvp"
/// asks for a path to every TE router. What a lab cannot say is left out, with a finding. Throws
/// CaptureError where there is no such router. REQUIRES: links are paired.
nlohmann::ordered_json labOf( const std::vector< Topology > & topologies,
                              const std::string & router, bool paths, Findings & findings );

}
