#pragma once

/// The agent among the clients of the bandwidth manager.

#include "Cspf/Bandwidth/BwmRoot.h"
#include "Cspf/Bandwidth/BwmVrfRoot.h"
