#pragma once

#include "platform/AgentRunner/Runner.h"

#include <string>

namespace Service {

/// What else a running service knows of itself than its series tell.
struct ServiceFigures {
   std::size_t sessions = 0;
   std::size_t backlog = 0;  ///< bytes that wait until callers read them
};

/// All that monitoring asks for, in Prometheus' exposition format (version 0.0.4): the series of
/// the process, paths and constraints as they are published, and the process itself. O(paths).
std::string metricsText( const Zorch::TableStore & tables, const AgentRunner::Runner & runner,
                         const ServiceFigures & figures );

}
