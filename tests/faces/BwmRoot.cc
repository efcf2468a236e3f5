#include "Cspf/BwmRoot.h"

#include "tests/faces/Names.h"

using namespace TrafficEngineering;

static_assert(
   named< &BwmRoot::bwmAllClientInfo, &BwmRoot::bwmActiveVrfsNotifiee, &BwmRoot::bwmVrfRoot,
          &BwmRoot::initialVrfCount, &BwmRoot::bwmActiveStatusCleanupDone,
          &BwmRoot::doBwmActiveStatusCleanup, &BwmRoot::dumpState,
          &BwmAllClientInfo::activeVrfsDedupTable, &BwmAllClientInfo::bandwidthClientStatusTable,
          &BwmAllClientInfo::bandwidthClientUsageTable, &BwmActiveVrfsNotifiee::handleInsert,
          &BwmActiveVrfsNotifiee::handleRemove, &BwmClientSetupSm::doSetupBwmClient,
          &BwmClientSetupSm::doCleanupBwmClient, &BwmClientSetupSm::dedupVrfHandle,
          &BwmClientSetupSm::clientStatusMountPathBase, &BwmVrfRoot::statusMountPathBase > );
