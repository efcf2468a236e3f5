#pragma once

#include "platform/AgentRunner/Runner.h"
#include "tools/service/Worker.h"

#include <functional>
#include <memory>
#include <string>

/// Judges all that is published each time that the agent rests after it has worked. The judge works
/// in a copy of the process, so that the agent's turn is as long as it takes to make one.
class ProofWatch {
 public:
   /// Takes lines for the operator: one for each fault, and the sum where it differs from the last.
   using Say = std::function< void( std::string_view text ) >;

   /// All but `say` outlive it.
   ProofWatch( Lum::ActivityLoop & loop, const AgentRunner::Runner & runner,
               const Corvdb::StateStore & state, const Zorch::TableStore & tables, Say say );
   ~ProofWatch();
   ProofWatch( const ProofWatch & ) = delete;
   ProofWatch & operator=( const ProofWatch & ) = delete;

 private:
   void lookAgain();
   void proveWhereDue();
   void ended( bool done );

   Lum::ActivityLoop & loop_;
   const AgentRunner::Runner & runner_;
   const Corvdb::StateStore & state_;
   const Zorch::TableStore & tables_;
   const Say say_;
   bool due_ = true;  ///< the agent has worked since the last proof began
   std::string report_, lastSum_;
   std::unique_ptr< Service::Worker > worker_;
   Lum::ActivityLoop::TimerId timer_{ 0, 0 };
};
