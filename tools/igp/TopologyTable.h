#pragma once

#include "tools/igp/Topology.h"
#include "tools/lab/LabTable.h"

namespace Igp {

/// The topology as the rows of its table. REQUIRES: links are paired.
Lab::LabTable tableOf( const Topology & topology );

}
