#pragma once

#include "schema/Topology.h"
#include "tools/state/JsonPlace.h"

#include <optional>

namespace State {

/// What is wrong with an announcement of a topology whose fields are each right; nothing where the
/// agent may see it.
std::optional< Error > faultOf( const Routing::Topology::ExportPath & announcement );

}
