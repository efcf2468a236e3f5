#pragma once

#include "tools/cspfctl/Caller.h"
#include "tools/prove/Snapshot.h"

#include <string>

/// The state that the other side has, all of it as of one moment. Throws std::runtime_error.
Prove::Snapshot liveSnapshot( Caller & caller );
/// That of the running agent at that socket.
Prove::Snapshot liveSnapshot( const std::string & socket );
