#pragma once

#include "tools/prove/Snapshot.h"

#include <string>

/// The state of the running agent at that socket, all of it as of one moment. Throws
/// std::runtime_error.
Prove::Snapshot liveSnapshot( const std::string & socket );
