#pragma once

#include "platform/Trace/Message.h"

/// Between the trace statements and the ring.
namespace Trace {

/// The ring wants the levels up to this one; -1: none.
void ringLevelIs( int maxLevel );

}

namespace Velotrace {

/// Appends one record. REQUIRES: the ring is open.
void record( int level, Trace::Message & message );

}
