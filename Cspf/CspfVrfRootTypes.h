#pragma once

/// The rows by which one VRF and family tracks and answers its path requests, and the records that
/// these share with others.

#include "Cspf/Clients/ClientInfo.h"
#include "Cspf/Records/PathRecords.h"
#include "Cspf/Records/PathRows.h"
#include "Cspf/Repairs/TilfaKeys.h"
