#pragma once

#include "platform/Kiv/DumpContext.h"
#include "platform/Lum/Clock.h"

namespace Cspf {

/// Prints the line "<label>: <age> ago" of a dump, where `at` is in seconds of the framework clock;
/// "<label>: never" where it is 0.
void dumpAge( Kiv::DumpContext & context, int indent, const char * label, Lum::Seconds at );

}
