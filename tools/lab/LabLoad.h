#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"

#include <nlohmann/json.hpp>

#include <string>

namespace Lab {

/// Writes a lab's document, without its events, into the state around a running agent. What the
/// lab loaded last in this process wrote, and this one does not hold, goes again. Throws LabError
/// for a bad lab, with nothing written. The stores are the same at each call.
void loadLab( const nlohmann::json & lab, Corvdb::StateStore & state, Zorch::TableStore & tables );
/// Likewise from the file of that name.
void loadLabFile( const std::string & fileName, Corvdb::StateStore & state,
                  Zorch::TableStore & tables );

}
