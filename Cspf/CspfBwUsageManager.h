#pragma once

/// The bandwidth that paths have reserved.

#include "Cspf/Bandwidth/BwUsageManager.h"
#include "Cspf/Paths/UsageSm.h"
