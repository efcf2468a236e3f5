#pragma once

#include "platform/AgentRunner/Runner.h"
#include "tools/lab/LabDocument.h"

namespace Lab {

/// All that the agent has written into this state. One that starts on it takes it up.
LabStateTexts publishedIn( const Corvdb::StateStore & state, const Zorch::TableStore & tables );

/// Writes what an agent has left, as of `publishedIn`. REQUIRES: no agent runs.
void leavePublished( const LabStateTexts & published, Corvdb::StateStore & state,
                     Zorch::TableStore & tables );

/// Lets the agent die as a process does that is killed: what it has published stays as it is. A new
/// agent is then started on that. REQUIRES: an agent runs; the stores are the runner's.
void killAndStart( AgentRunner::Runner & runner, Corvdb::StateStore & state,
                   Zorch::TableStore & tables );

}
