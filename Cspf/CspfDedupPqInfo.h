#pragma once

/// Repairs, each distinct one once, and their identifiers.

#include "Cspf/Records/PqInfo.h"
#include "Cspf/Repairs/DedupPqInfoTable.h"
