#pragma once

/// Paths that are put together of segments.

#include "Cspf/Paths/ChildSm.h"
#include "Cspf/Paths/StitchSm.h"
