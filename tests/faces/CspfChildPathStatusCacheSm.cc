#include "Cspf/CspfChildPathStatusCacheSm.h"

#include "tests/faces/Names.h"

using namespace Cspf;

static_assert(
   named< &ChildPathStatusCacheSm::handleCspfData, &ChildPathStatusCacheSm::updateParentPathInfo,
          &ChildPathStatusCacheSm::cspfDataConsistent, &ParentPathHelper::anyChildPathRefreshNeeded,
          &RsvpPathStitchSm::doStitchPaths, &RsvpPathStitchSm::childPathInfoKey,
          &RsvpPathStitchSm::cspfDataConsistent, &RsvpPathStitchSm::checkAndUpdatePathForSelfPath,
          &RsvpPathStitchSm::checkAndUpdateAllExplicitPath, &RsvpPathStitchSm::allTopoDbViewIs > );
static_assert( requires( RsvpPathStitchSm & machine, std::uint8_t segment,
                         Kivnet::IpGenAddr address ) {
   machine.doUpdatePathForStrictHop( segment );
   machine.doUpdatePathForLooseHop( segment );
   address = machine.findBestNexthopForStrictHop( address, address, address );
   address = machine.findOldNexthopForStrictHop( address );
   machine.childPathInfoKey( segment ).internal();
} );
static_assert(
   std::constructible_from< ChildPathStatusCacheSm, Lum::Ptr< PathConfigInfoTable >,
                            Lum::Ptr< PathStatusCacheTable >, Lum::Ptr< PathStatusInfoTable >,
                            Lum::Ptr< ConstraintStatsTable > > );
