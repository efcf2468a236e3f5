#pragma once

/// The path service of one VRF and family, and the machines of its paths.

#include "Cspf/Agent/VrfRoot.h"
#include "Cspf/Agent/VrfRootSm.h"
#include "Cspf/Hops/HopLinks.h"
#include "Cspf/Hops/PathStitcher.h"
#include "Cspf/Hops/PathValidator.h"
#include "Cspf/Paths/RefreshSm.h"
#include "Cspf/Paths/StatusUpdate.h"
#include "Cspf/Paths/StitchSm.h"
