#pragma once

#include "tools/lab/RouterNames.h"
#include "tools/prove/Snapshot.h"

#include <iosfwd>

/// What the IGPs say that the routers of a VRF and family are called. O(size of the topologies).
Lab::RouterNames liveNames( const Prove::Snapshot & state, const Lab::VrfAf & where );

/// Prints a row for each path that is asked for or published: where it leads by the names of
/// routers, at which metric. `width`: columns of the terminal; 0: no limit.
void printPaths( const Prove::Snapshot & state, std::ostream & out, unsigned width );
