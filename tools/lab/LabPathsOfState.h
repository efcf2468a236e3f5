#pragma once

#include "tools/lab/LabOfState.h"
#include "tools/lab/LabRecords.h"

namespace Lab {

/// Of a path that is asked for in that table.
std::string pathNameKey( const std::string & table, const Cspf::PathKey & key );

/// Adds to the document what the clients ask for. REQUIRES: it has its topologies.
void readPaths( const Zorch::TableStore & tables, const LabNames & names, LabDocument & document );

}
