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
static_assert(
   std::constructible_from< ChildPathStatusCacheSm, Lum::Ptr< PathConfigInfoTable >,
                            Lum::Ptr< PathStatusCacheTable >, Lum::Ptr< PathStatusInfoTable >,
                            Lum::Ptr< ConstraintStatsTable > > );
