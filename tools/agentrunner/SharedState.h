#pragma once

#include "platform/AgentRunner/Runner.h"
#include "tools/pace/Job.h"
#include "tools/redis/Replica.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <optional>
#include <string>

/// The agent on state that outlives the process: it starts once the state is here and nobody else
/// writes what an agent writes.
class SharedState {
 public:
   struct Settings {
      Redis::Url url;
      std::string agentName;
      bool standby = false;  ///< waits for another agent's end
   };

   /// `ready` is called before the agent starts, as the work of a job, and `started` when it has.
   /// All outlive it.
   SharedState( Lum::ActivityLoop & loop, Corvdb::StateStore & state, Zorch::TableStore & tables,
                AgentRunner::Runner & runner, const Settings & settings,
                std::function< void() > ready, std::function< void() > started );

   /// Once the agent is stopped: writes what is left to be written, and lets go of the state.
   /// Throws std::runtime_error where the agent could not start, or could not go on.
   void finish();
   /// For operators.
   nlohmann::json status() const;

 private:
   void start( const std::function< void() > & ready );
   void fail( const std::string & why );

   Lum::ActivityLoop & loop_;
   AgentRunner::Runner & runner_;
   const std::string url_;
   const std::function< void() > started_;
   std::string failure_;
   bool isOver_ = false;  ///< no agent starts any more
   Redis::Replica replica_;
   std::optional< Pace::Job > gettingReady_;
};
