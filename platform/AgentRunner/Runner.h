#pragma once

#include "platform/AgentRunner/Agent.h"

#include <stdexcept>
#include <string>

namespace AgentRunner {

/// An agent library that cannot be used. The text says why.
struct LibraryError : std::runtime_error {
   using std::runtime_error::runtime_error;
};

/// A loaded agent library. It stays loaded until the process ends, since objects of its types may
/// outlive the agent.
class Library {
 public:
   /// Throws LibraryError.
   explicit Library( const std::string & path );
   AgentFactory factory() const noexcept { return factory_; }

 private:
   AgentFactory factory_;
};

/// Creates an agent on given state, drives its start, and takes it down in order. State stays.
class Runner {
 public:
   /// Loop, stores and factory outlive the runner.
   Runner( Lum::ActivityLoop & loop, Corvdb::StateStore & state, Zorch::TableStore & tables,
           AgentFactory factory, std::string agentName );
   ~Runner() { stop(); }
   Runner( const Runner & ) = delete;
   Runner & operator=( const Runner & ) = delete;

   /// REQUIRES: no agent runs. The agent is complete some turns of the loop later.
   void start();
   /// Ends the agent, if one runs: it undoes what it did, its call-backs are forgotten, it goes.
   void stop();
   void restart() {
      stop();
      start();
   }
   /// Null while none runs.
   const Lum::Ptr< Agent > & agent() const noexcept { return agent_; }
   const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler() const noexcept { return scheduler_; }
   /// Whether an agent runs that takes commands of that name.
   bool takesCommand( const std::string & name ) const {
      return agent_ && agent_->commandRequestReactor()->agentCommandCallbackHas( name );
   }
   /// Hands a command to the agent; false where it takes none of that name.
   bool command( const std::string & name, int fd, const std::string & text );

 private:
   Corvdb::StateStore & state_;
   Zorch::TableStore & tables_;
   AgentFactory factory_;
   std::string agentName_;
   Lum::Ptr< Kiv::TaskScheduler > scheduler_;
   Lum::Ptr< Agent > agent_;
};

}
