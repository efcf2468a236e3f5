#pragma once

/// The service of one address family: which VRFs are active.

#include "Cspf/Agent/Root.h"
#include "Cspf/Clients/ClientInfo.h"
#include "Cspf/Records/VrfHandle.h"
