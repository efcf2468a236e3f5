#pragma once

/// From a client's request to the constraint that a computation is made for.

#include "Cspf/Records/Segments.h"
#include "Cspf/Requests/PathConfigInfoSm.h"
#include "Cspf/Requests/PathSm.h"
#include "Cspf/Requests/PathStatusInfoSm.h"
#include "Cspf/Requests/TeIntfStatusSm.h"
