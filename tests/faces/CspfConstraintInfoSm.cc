#include "Cspf/CspfConstraintInfoSm.h"

#include "tests/faces/Names.h"

using namespace Cspf;

static_assert(
   named< &ConstraintInfoSmBase::handleInitialized, &ConstraintInfoSmBase::handleThrottleConfig,
          &ConstraintInfoSmBase::handleCspfRequestCount, &ConstraintInfoSmBase::backoffTimerTask,
          &ConstraintInfoSmBase::handleThrottleTimeout,
          &ConstraintInfoSmBase::checkConstraintInTopoDb, &ConstraintInfoSmBase::handlePathUpdate,
          &ConstraintInfoSmBase::clearCspfData, &ConstraintInfoSmBase::timerRunning,
          &ConstraintInfoSmBase::timerRunningIs, &ConstraintInfoSmBase::timerTaskDel,
          &ConstraintInfoSmBase::doPrepareToDie, &ConstraintInfoSm::handleThrottleTimeout,
          &ConstraintInfoSm::hasNotificationActiveIs > );
static_assert( requires( ConstraintInfoSm & machine, Lum::Ptr< CspfData > cspfData ) {
   machine.updatePathStatusCache( cspfData );
} );
