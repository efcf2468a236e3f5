#pragma once

#include <string>

namespace Lab {

/// The agent's library: that of the environment's CSPF_AGENT_LIBRARY, else the one that is
/// installed with the platform.
std::string agentLibraryPath();

}
