#include "tools/lab/AgentLibrary.h"

#include "platform/AgentRunner/InstalledLibrary.h"

#include <cstdlib>

namespace Lab {

std::string
agentLibraryPath() {
   const char * const library = std::getenv( "CSPF_AGENT_LIBRARY" );
   return library && *library ? library : AgentRunner::installedLibrary( "libCspfAgent.so" );
}

}
