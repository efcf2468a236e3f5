#pragma once

#include "tools/lab/RouterNames.h"
#include "tools/prove/Answers.h"

#include <string>
#include <vector>

/// What there is to say of a repair, a line each: what it protects against, how packets go, why by
/// these next hop and repair nodes, and whether packets arrive, as the judge of published repairs
/// has it. Then why not by the routers, link or hops of `whyNot`: names, or addresses. The answer
/// is one of the service. Throws std::runtime_error where a name means nothing.
std::vector< std::string > repairLines( const Prove::Snapshot & state,
                                        const Prove::Service & service,
                                        const Prove::Answer & answer,
                                        const Lab::RouterNames & names,
                                        const std::vector< std::string > & whyNot );
