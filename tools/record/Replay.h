#pragma once

#include "platform/AgentRunner/Agent.h"

#include <cstddef>
#include <iosfwd>
#include <stdexcept>
#include <string>

namespace Record {

/// A record that cannot be played: "line N: expected ...".
struct Error : std::runtime_error {
   using std::runtime_error::runtime_error;
};

struct ReplayOptions {
   bool print = false;    ///< each line that is published, as a record has it
   bool verbose = false;  ///< the agent's traces, with the time of the record, on `err`
};

/// What came of it.
struct Replayed {
   std::size_t changes = 0, runs = 0, published = 0;
   double seconds = 0;      ///< of the record
   bool cutOff = false;     ///< the last line is not whole
   std::string difference;  ///< the first one from what was published then; "" without one
};

/// Plays a record, as `Recorder` writes it, on the virtual clock: each change at its time, and as
/// many pieces of the agent's work between them as were done then; behind a record that is cut off
/// also what the agent was about to do. `factory` makes the agent. Throws Error. O(record).
Replayed replay( std::istream & record, AgentRunner::AgentFactory factory,
                 const ReplayOptions & options, std::ostream & out, std::ostream & err );

}
