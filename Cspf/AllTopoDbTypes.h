#pragma once

/// The topology store of one VRF and family: its import, and the views of it.

#include "Cspf/Topology/AllTopoDbSm.h"
#include "Cspf/Topology/Store.h"
#include "Cspf/Topology/TopoDbSm.h"
#include "Cspf/Views/View.h"
