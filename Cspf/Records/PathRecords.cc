// The records of a path that has nothing to tell. One that is empty already is kept, since who
// compares results compares records first.

#include "Cspf/Records/PathRecords.h"

namespace Cspf {

void
CspfPathResult::clear() {
   if ( !path || path->hopCount() || path->isPathFromSourceToSource() ) {
      path = Lum::make< const PathArray >();
   }
   if ( !pathSrlg || pathSrlg->hopCount() ) {
      pathSrlg = Lum::make< const PathSrlg >();
   }
   if ( !pathTeRouterId || pathTeRouterId->hopCount() ) {
      pathTeRouterId = Lum::make< const PathTeRouterId >();
   }
   clearIncludeIps();
   pathAsTopoDbLinks = nullptr;
}

void
CspfPathResult::clearIncludeIps() {
   if ( !includeIps || !includeIps->includeIp().empty() ) {
      includeIps = Lum::make< const IncludeIps >();
   }
}

}
