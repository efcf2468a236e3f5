#pragma once

#include "tools/lab/LabOutcome.h"
#include "tools/prove/Snapshot.h"

namespace Draw {

/// The networks that a running agent sees in that VRF and family as a lab would hold them: routers
/// by the names that the IGP gives, else by TE router id or identity, links by the names of their
/// ends. A link of which one end alone speaks is advertised one way.
Lab::LabDocument liveDocument( const Prove::Snapshot & state, const Lab::VrfAf & where );

}
