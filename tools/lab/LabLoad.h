#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/lab/LabFile.h"

namespace Lab {

/// Writes a lab's document, without its events, into the state around a running agent, whatever has
/// been changed there since. What the lab loaded last in this process wrote, and this one does not
/// hold, goes again. The stores are the same at each call.
void loadLab( const LabFile & lab, Corvdb::StateStore & state, Zorch::TableStore & tables );

/// Likewise before the agent starts, which finds what the document has of an earlier one.
void startLab( const LabFile & lab, Corvdb::StateStore & state, Zorch::TableStore & tables );

}
