// What it costs to start the agent where an earlier one was killed, on the network and 20,000 paths
// that it had published, as a ratio to a start on the same network and requests with nothing
// published. Paths of the RSVP client are in use and are checked; those of another client are
// computed in both cases. All figures are CPU time.

#include "bench/BenchAgent.h"
#include "tools/lab/LabPublished.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr std::uint32_t paths = 20'000;
constexpr std::uint32_t constraints = 100;
constexpr int rounds = 5;

/// One of a few, so that a start makes as many runs.
void
constraintOf( std::uint32_t path, Lab::LabConstraint & constraint ) {
   constraint.excludeLinkWithIp = {
      Kivnet::IpGenAddr( Kivnet::IpAddr( 0x0a000000 + path % constraints ) ) };
}

std::size_t
found( const BenchAgent & agent, const std::string & client ) {
   const auto status = agent.status( client );
   std::size_t count = 0;
   for ( const auto & [ key, path ] : status->pathStatusColl() ) {
      count += path.paths() > 0;
   }
   return count;
}

/// Whether all paths were there each time.
bool
compare( std::uint32_t routers, const std::string & client ) {
   BenchAgent agent;
   agent.lab().write( requestsOf( generateNetwork( routers, 1 ), client, paths, constraintOf ) );
   agent.settle();
   const std::size_t all = found( agent, client );
   const auto start = [ & ]() {
      return cpuMilliseconds( [ & ]() {
         agent.runner().start();
         agent.settle();
      } );
   };
   std::vector< double > fromNothing, again, quotients;
   bool isRight = all > 0;
   for ( int i = 0; i < rounds; ++i ) {
      agent.runner().stop();
      agent.settle();
      fromNothing.push_back( start() );
      isRight &= found( agent, client ) == all;
      const auto left = Lab::publishedIn( agent.state(), agent.tables() );
      agent.runner().stop();
      agent.settle();
      Lab::leavePublished( left, agent.state(), agent.tables() );
      again.push_back( start() );
      isRight &= found( agent, client ) == all;
      quotients.push_back( again.back() / fromNothing.back() );
   }
   std::printf(
      "%6u routers, %zu paths of %-5s: from nothing %8.1f ms, again %8.1f ms, ratio %.3f\n",
      routers, all, client.c_str(), median( fromNothing ), median( again ), median( quotients ) );
   return isRight;
}

}

/// Exit status 1 where a start lost paths.
int
main() {
   bool isRight = true;
   for ( const std::uint32_t routers : { 1'000U, 10'000U } ) {
      for ( const char * client : { "rsvp", "bench" } ) {
         isRight &= compare( routers, client );
      }
   }
   return isRight ? EXIT_SUCCESS : EXIT_FAILURE;
}
