#include "Cspf/CspfChildPathStatusCacheSm.h"

#include "tests/faces/Names.h"

using namespace Cspf;

static_assert(
   named< &ChildPathStatusCacheSm::handleCspfData, &ChildPathStatusCacheSm::updateParentPathInfo,
          &ChildPathStatusCacheSm::cspfDataConsistent, &ParentPathHelper::anyChildPathRefreshNeeded,
          &RsvpPathStitchSm::doStitchPaths, &RsvpPathStitchSm::childPathInfoKey,
          &RsvpPathStitchSm::cspfDataConsistent, &PathStitcher::doUpdatePathForStrictHop,
          &PathStitcher::doUpdatePathForLooseHop, &PathStitcher::checkAndUpdatePathForSelfPath,
          &PathStitcher::checkAndUpdateAllExplicitPath, &PathStitcher::findOldNexthopForStrictHop,
          &PathStitcher::findBestNexthopForStrictHop > );
