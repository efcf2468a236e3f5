#pragma once

#include "Cspf/Bandwidth/BwUsageManager.h"
#include "Cspf/Topology/Store.h"

namespace Cspf {

/// What computations of one VRF and family see: the tables, what was worked out of them, and what
/// paths have reserved. Made once, with its VRF.
struct VrfTopology {
   Lum::Ptr< const AllTopoDb > allTopoDb;
   Lum::Ptr< AllTopoDbStatus > allTopoDbStatus;
   Lum::Ptr< BwUsageManager > bwUsageManager;
};

}
