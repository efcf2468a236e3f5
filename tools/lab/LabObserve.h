#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/lab/LabOutcome.h"

namespace Lab {

/// Reads what the agent has published back from the stores. `document`, the lab as it stands,
/// gives names and metrics; `time` is in seconds from the start of the lab.
Outcome observe( const LabDocument & document, Corvdb::StateStore & state,
                 Zorch::TableStore & tables, double time );

}
