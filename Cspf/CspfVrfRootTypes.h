#pragma once

/// The rows by which one VRF and family tracks and answers its path requests.

#include "Cspf/Records/PathRecords.h"
#include "Cspf/Records/PathRows.h"
