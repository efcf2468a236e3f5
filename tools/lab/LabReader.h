#pragma once

#include "tools/lab/LabCursor.h"

/// From the JSON of a lab to its plain data. Each reader throws LabError at the first thing wrong.
namespace Lab {

/// Everything but the events, which are passed over. O(document).
LabDocument readDocument( const LabJson & root );

LabTopology readTopology( const LabCursor & at );

/// A path of that client. REQUIRES: the document has its topologies.
LabPath readPath( const LabCursor & at, const std::string & client, const LabDocument & document );

}
