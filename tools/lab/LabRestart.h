#pragma once

#include "platform/AgentRunner/Runner.h"

namespace Lab {

/// Lets the agent die as a process does that is killed: what it has published stays as it is. A new
/// agent is then started on that. REQUIRES: an agent runs; the stores are the runner's.
void killAndStart( AgentRunner::Runner & runner, Corvdb::StateStore & state,
                   Zorch::TableStore & tables );

}
