#pragma once

/// Constraints, each distinct one once.

#include "Cspf/Records/Constraint.h"
#include "Cspf/Records/PathRows.h"
