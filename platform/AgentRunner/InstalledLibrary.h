#pragma once

#include <string>

namespace AgentRunner {

/// Where the agent library of that file name is installed with the platform: beside the platform's
/// own library, or in "cspf-agent" there. The bare name, for the loader to find, where in neither.
std::string installedLibrary( const std::string & fileName );

}
