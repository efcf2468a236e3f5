#pragma once

/// When a constraint is computed, and what operators read of it.

#include "Cspf/Runs/ConstraintInfoSm.h"
#include "Cspf/Runs/ConstraintStatusSm.h"
