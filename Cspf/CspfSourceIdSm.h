#pragma once

/// Where computations start.

#include "Cspf/Clients/ClientInfo.h"
#include "Cspf/Clients/SourceIdSm.h"
#include "Cspf/Records/Source.h"
