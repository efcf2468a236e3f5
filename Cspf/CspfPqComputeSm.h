#pragma once

/// TI-LFA: requests, trees, and repairs.

#include "Cspf/Repairs/PqComputeSm.h"
#include "Cspf/Repairs/TilfaConstraintInfoSm.h"
#include "Cspf/Repairs/TilfaKeys.h"
#include "Cspf/Repairs/TilfaPathSm.h"
