#pragma once

#include "platform/AgentRunner/Agent.h"

#include <unistd.h>

namespace Cspf {

/// Answers the command "DUMP_CSPF_STATE" with the agent's internal state as text. It holds the
/// agent; the runner lets go of it before it ends the agent.
class CspfCommandCallback : public AgentRunner::CommandCallback {
   LUM_ENTITY( Cspf, CspfCommandCallback );
   CspfCommandCallback( const std::string & name, const Lum::Ptr< AgentRunner::Agent > & agent )
      : CommandCallback( name ),
        agent_( agent ) {}

   void handleCommand( int fd, const std::string & command ) override;

 private:
   const Lum::Ptr< AgentRunner::Agent > agent_;
};

/// Dumps the state of the process's agent, for use from a debugger or a signal handler: what is
/// said stands even if the process ends on the way.
void dumpStateTo( int fd );
/// The same on standard error.
void dumpStateCallback();

}
