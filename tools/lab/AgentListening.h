#pragma once

#include "platform/Lum/ActivityLoop.h"
#include "platform/Lum/Assert.h"

#include <functional>
#include <iosfwd>

namespace Lab {

/// Traces, log and broken invariants of the agent of this process go to the streams while this
/// lives: traces with the time since its start where they are asked for. A broken invariant ends
/// the process with `exitBrokenInvariant`.
class AgentListening {
 public:
   /// All outlive it.
   AgentListening( std::ostream & out, std::ostream & err, const Lum::ActivityLoop & loop,
                   bool verbose );
   ~AgentListening();
   AgentListening( const AgentListening & ) = delete;
   AgentListening & operator=( const AgentListening & ) = delete;

 private:
   const Lum::Seconds start_;
   Lum::AssertHandler previous_ = nullptr;
};

/// No trace ring in the directory that a program is started in, unless somebody wants one.
void withoutTraceRing();

/// Does the work of an agent. A value out of its bounds is a broken invariant, too.
void untilBroken( const std::function< void() > & work );

}
