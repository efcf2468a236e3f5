#pragma once

#include "tools/redis/Replica.h"
#include "tools/service/StateView.h"

namespace Service {

/// The state in a database for a program beside the agent: stores of its own, kept equal to the
/// database, and read and patched by path as over an agent's control socket.
class DatabaseState {
 public:
   /// As of `Redis::Replica`. The loop outlives it.
   DatabaseState( Lum::ActivityLoop & loop, Redis::Replica::Settings settings,
                  Redis::Replica::Handlers handlers );

   StateView & view() noexcept { return view_; }
   Redis::Replica & replica() noexcept { return *replica_; }
   const Redis::Replica & replica() const noexcept { return *replica_; }

 private:
   const Corvdb::TypeRegistry types_;
   Corvdb::StateStore state_{ types_ };
   Zorch::TableStore tables_{ types_ };
   StateView view_{ state_, tables_ };
   std::unique_ptr< Redis::Replica > replica_;
};

}
