#pragma once

#include "bench/NetworkGenerator.h"
#include "bench/Timing.h"
#include "platform/AgentRunner/Runner.h"
#include "schema/CspfStatus.h"
#include "tools/lab/LabState.h"

#include <cstdint>
#include <functional>
#include <string>

namespace Cspf {
class VrfRoot;
}

/// Bytes of the heap in use.
std::size_t heapInUse();

/// "r00017", so that names sort by number.
std::string routerName( std::uint32_t router );
/// 1.0.0.1 + router.
Kivnet::IpGenAddr teRouterIdOf( std::uint32_t router );

/// The generated network as the router's own level-2 table; the agent runs on router 0. Link n has
/// the name "l" + n. Without paths or clients.
Lab::LabDocument labOf( const GeneratedNetwork & network );
/// ... with a client that asks for IPv4 paths to routers at random, path n under id n; each is
/// shown with its number before it is asked for.
Lab::LabDocument
requestsOf( const GeneratedNetwork & network, const std::string & client, std::uint32_t paths,
            const std::function< void( std::uint32_t, Lab::LabConstraint & ) > & constrain );

/// The whole agent on state in this process and a virtual clock.
class BenchAgent {
 public:
   BenchAgent();
   ~BenchAgent();

   Lab::LabState & lab() { return lab_; }
   Corvdb::StateStore & state() { return state_; }
   Zorch::TableStore & tables() { return tables_; }
   AgentRunner::Runner & runner() { return runner_; }
   /// Lets the agent work until nothing is pending.
   void settle();

   /// The table that the network stands in.
   Lum::Ptr< Routing::Topology::TopoDb > topology() const;
   /// What the agent published for the client.
   Lum::Ptr< const Cspf::Status > status( const std::string & client ) const;
   /// Runs made so far for all constraints.
   std::uint64_t runs() const;
   /// Makes one run for each constraint of the agent: its filter, tree and destinations, on the
   /// agent's own graph. What it finds goes to nobody.
   void runAll() const;
   /// Whether constraints follow the topology, or are run each time.
   void followingIs( bool following ) const;
   struct FirstFollowing {
      double milliseconds;  // CPU
      std::size_t bytes;
   };
   /// What it takes until every constraint of the agent follows, from nothing, without its paths.
   FirstFollowing followAll() const;

 private:
   Lum::Ptr< Cspf::VrfRoot > vrfRoot() const;

   Lum::ActivityLoop loop_{ Lum::ActivityLoop::Time::virtualTime };
   Corvdb::TypeRegistry types_;
   Corvdb::StateStore state_{ types_ };
   Zorch::TableStore tables_{ types_ };
   Lab::LabState lab_{ state_, tables_ };
   AgentRunner::Runner runner_;
};
