#pragma once

#include "tools/prove/Answers.h"

#include <string>
#include <vector>

/// What there is to say of a repair, a line each: what it protects against, how packets go, and
/// whether they arrive, as the judge of published repairs has it. The answer is one of the service.
std::vector< std::string > repairLines( const Prove::Snapshot & state,
                                        const Prove::Service & service,
                                        const Prove::Answer & answer );
