#pragma once

#include "platform/AgentRunner/Agent.h"

namespace Cspf {

class Agent;

/// Answers the command "VRF\tfamily\tclient\tdestination#id" with facts of why the client's path is
/// what it is, a line each; with "\taddress"... added, of why it does not pass these. It computes
/// beside what is published, and changes nothing. It holds the agent, as the dump command does.
class CspfExplainCallback : public AgentRunner::CommandCallback {
   LUM_ENTITY( Cspf, CspfExplainCallback );
   CspfExplainCallback( const std::string & name, const Lum::Ptr< Agent > & agent );
   ~CspfExplainCallback() override;

   void handleCommand( int fd, const std::string & command ) override;

 private:
   const Lum::Ptr< Agent > agent_;
};

/// Tells the constraints for which a computation waits, a line each: "waits", for how many
/// "milliseconds" still, "vrf", "family", and each "path" of a client that uses it, apart by tabs.
class CspfWaitsCallback : public AgentRunner::CommandCallback {
   LUM_ENTITY( Cspf, CspfWaitsCallback );
   CspfWaitsCallback( const std::string & name, const Lum::Ptr< Agent > & agent );
   ~CspfWaitsCallback() override;

   void handleCommand( int fd, const std::string & command ) override;

 private:
   const Lum::Ptr< Agent > agent_;
};

}
