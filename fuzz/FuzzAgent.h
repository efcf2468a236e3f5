#pragma once

#include "Cspf/Agent/Agent.h"
#include "platform/AgentRunner/Runner.h"
#include "schema/Types.h"
#include "tools/lab/LabLoad.h"
#include "tools/lab/LabState.h"

#include <cstdlib>

/// An agent on a small network with two clients and their paths, as the input of a fuzzer finds it.
class FuzzAgent {
 public:
   explicit FuzzAgent( Lum::ActivityLoop::Time time )
      : loop( time ),
        types( registered() ),
        state( types ),
        tables( types ),
        runner( loop, state, tables, &agentFactory, "FuzzAgent" ) {
      Lab::LabState( state, tables ).write( network().document() );
      runner.start();
   }
   /// Time for what follows from a change.
   void settle() { loop.settle( maxTimers, loop.now() + 20 ); }

   Lum::ActivityLoop loop;
   Corvdb::TypeRegistry types;
   Corvdb::StateStore state;
   Zorch::TableStore tables;
   AgentRunner::Runner runner;

 private:
   static constexpr std::size_t maxTimers = 10'000;

   static Corvdb::TypeRegistry registered() {
      setenv( "VELOTRACE_DISABLE", "1", 1 );
      Corvdb::TypeRegistry types;
      Schema::registerTypes( types );
      return types;
   }
   static const Lab::LabFile & network() {
      static const Lab::LabFile lab =
         Lab::LabFile::parse( R"({"router": "a", "topologies": {"core": {
         "routers": {"a": {"id": "0000.0000.0001", "teRouterId": "10.0.0.1"},
                     "b": {"id": "0000.0000.0002", "teRouterId": "10.0.0.2"},
                     "c": {"id": "0000.0000.0003", "teRouterId": "10.0.0.3"}},
         "links": {"ab": {"a": "a", "b": "b", "aAddr": "10.1.0.1", "bAddr": "10.1.0.2", "bandwidth": 1e9},
                   "bc": {"a": "b", "b": "c", "aAddr": "10.1.0.5", "bAddr": "10.1.0.6", "bandwidth": 1e9},
                   "ac": {"a": "a", "b": "c", "aAddr": "10.1.0.9", "bAddr": "10.1.0.10", "metric": 50}}}},
         "clients": {"rsvp": {"vrf": {"default": true}, "addressFamily": {"ipv4": true}},
                     "tilfa": {"vrf": {"default": true}, "addressFamily": {"ipv4": true}}},
         "paths": {"rsvp": {"one": {"dst": "10.0.0.3"},
                            "two": {"dst": "10.0.0.3", "id": 2, "constraint": {"bandwidth": 1000,
                                    "includeHop": [{"addr": "10.1.0.2", "loose": true}]}}}}})" );
      return lab;
   }
};
