#pragma once

#include <string>

namespace Lab {

/// The agent's library: that of the environment's CSPF_AGENT_LIBRARY, else the one that stands
/// beside the program, in ../lib or ../lib/cspf of its directory, else the one that the loader
/// finds by its name.
std::string agentLibraryPath();

}
