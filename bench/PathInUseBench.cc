// What it costs to leave paths in use alone: 10,000 paths, one remote link changes its metric. The
// RSVP client's paths are validated; those of an ordinary client, which asks for the same, are
// computed anew, as they are where no constraint follows the topology. The change, the network and
// the requests are equal, so that the ratio of the two is that of validating to recomputing.
//
// Paths that reserve bandwidth have a constraint, and thus a run, each; paths without share one
// run, after which only the hops of each path are worked out. The first change after a path was
// published costs it a whole check; later ones, of other routers, a look at its own. All figures
// are CPU time.

#include "bench/BenchAgent.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr std::uint32_t paths = 10'000;
constexpr int rounds = 7;

struct Times {
   double first, later;
};

/// The change that no path minds, as milliseconds until nothing is pending: the first time, and the
/// median of the others.
Times
oneLinkChange( BenchAgent & agent ) {
   const auto table = agent.topology();
   const auto keys = Lum::sortedKeys( table->neighborColl() );
   std::vector< double > times;
   for ( int i = 0; i <= rounds; ++i ) {
      const auto & key = keys[ keys.size() - 1 - static_cast< std::size_t >( i ) ];
      Routing::Topology::Neighbor link = table->neighbor( key );
      link.metricIs( link.metric() % 1000 + 1 );
      times.push_back( cpuMilliseconds( [ & ]() {
         table->neighborIs( key, link );
         agent.settle();
      } ) );
   }
   std::ranges::sort( times.begin() + 1, times.end() );
   return { times[ 0 ], times[ 1 + rounds / 2 ] };
}

Times
measure( const GeneratedNetwork & network, const char * client, std::uint64_t bandwidth,
         bool recomputes ) {
   BenchAgent agent;
   agent.lab().write(
      requestsOf( network, client, paths, [ & ]( std::uint32_t, Lab::LabConstraint & constraint ) {
         constraint.bandwidth = bandwidth;
      } ) );
   agent.settle();
   agent.followingIs( false );
   const std::uint64_t runsBefore = agent.runs();
   std::size_t found = 0;
   for ( const auto & [ key, path ] : agent.status( client )->pathStatusColl() ) {
      found += path.paths() > 0;
   }
   const Times time = oneLinkChange( agent );
   const std::uint64_t runs = ( agent.runs() - runsBefore ) / ( rounds + 1 );
   if ( found != paths || ( runs > 0 ) != recomputes ) {
      std::fprintf( stderr, "wrong: %zu paths, %llu runs a change\n", found,
                    static_cast< unsigned long long >( runs ) );
      std::exit( 1 );
   }
   std::printf( "   %-10s %9.2f ms, the first time %9.2f ms, %llu runs\n",
                recomputes ? "recomputed" : "validated", time.later, time.first,
                static_cast< unsigned long long >( runs ) );
   return time;
}

void
compare( const GeneratedNetwork & network, const char * what, std::uint64_t bandwidth ) {
   std::printf( "%u routers, %zu links, %u paths %s\n", network.routers, network.links.size(),
                paths, what );
   const Times validated = measure( network, "rsvp", bandwidth, false );
   const Times recomputed = measure( network, "bench", bandwidth, true );
   std::printf( "   ratio      %9.4f,    the first time %9.4f\n",
                validated.later / recomputed.later, validated.first / recomputed.later );
}

}

int
main() {
   const GeneratedNetwork network = generateNetwork( 2'000, 1 );
   compare( network, "with bandwidth, a constraint each", 1'000 );
   compare( network, "without, one constraint", 0 );
   compare( generateNetwork( 10'000, 1 ), "without, one constraint", 0 );
}
