#pragma once

/// One constrained shortest-path run, and its results as hops.

#include "Cspf/Runs/Run.h"
#include "Cspf/Runs/RunData.h"
