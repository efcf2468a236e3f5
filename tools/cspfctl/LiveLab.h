#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/cspfctl/Caller.h"

#include <string>

/// A copy of all live state, as of one moment. The toggles of this process are the agent's from
/// then on.
class LiveState {
 public:
   /// Throws std::runtime_error.
   explicit LiveState( Caller & caller );
   const Corvdb::StateStore & state() const noexcept { return state_; }
   const Zorch::TableStore & tables() const noexcept { return tables_; }

 private:
   using Json = nlohmann::json;

   void addDirectory( const std::string & prefix, const Json & directory );

   Corvdb::TypeRegistry types_;
   Corvdb::StateStore state_{ types_ };
   Zorch::TableStore tables_{ types_ };
};

/// All live state as a lab. What the lab of that file has too is called as it is there; "": as the
/// IGP does, else by addresses and ids. Throws std::runtime_error.
nlohmann::ordered_json liveLab( Caller & caller, const std::string & namesFile );
