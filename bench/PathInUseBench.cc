// What it costs to leave paths in use alone: 10,000 paths on 2,000 routers, one remote link changes
// its metric. The RSVP client's paths are validated; those of an ordinary client, which asks for
// the same, are computed anew. The change, the network and the requests are equal, so that the
// ratio of the two is that of validating to recomputing.
//
// Paths that reserve bandwidth have a constraint, and thus a run, each; paths without share one
// run, after which only the hops of each path are worked out. The first change after a path was
// published costs it a whole check; later ones, of other routers, a look at its own. Both are
// given, and the ratio is that of later ones.

#include "bench/BenchAgent.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

namespace {

constexpr std::uint32_t routers = 2'000;
constexpr std::uint32_t paths = 10'000;
constexpr int rounds = 7;

Lab::LabDocument
requests( const GeneratedNetwork & network, const std::string & client, std::uint64_t bandwidth ) {
   Lab::LabDocument document = labOf( network );
   document.clients[ client ] = {
      { { Lab::Vrf::defaultVrf(), true } }, { { Lab::Af::ipv4, true } }, false };
   std::mt19937 random( 5 );
   for ( std::uint32_t n = 0; n < paths; ++n ) {
      Lab::LabPath & path = document.paths[ client ][ "p" + std::to_string( n ) ];
      path.dst = Cspf::Destination( teRouterIdOf( 1 + random() % ( routers - 1 ) ) );
      path.id = n;
      path.constraint.bandwidth = bandwidth;
   }
   return document;
}

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
      times.push_back( milliseconds( [ & ]() {
         table->neighborIs( key, link );
         agent.settle();
      } ) );
   }
   std::ranges::sort( times.begin() + 1, times.end() );
   return { times[ 0 ], times[ 1 + rounds / 2 ] };
}

double
measure( const GeneratedNetwork & network, const char * client, std::uint64_t bandwidth,
         bool recomputes ) {
   BenchAgent agent;
   agent.lab().write( requests( network, client, bandwidth ) );
   agent.settle();
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
   return time.later;
}

void
compare( const GeneratedNetwork & network, const char * what, std::uint64_t bandwidth ) {
   std::printf( "%s\n", what );
   const double validated = measure( network, "rsvp", bandwidth, false );
   const double recomputed = measure( network, "bench", bandwidth, true );
   std::printf( "   ratio      %9.4f\n", validated / recomputed );
}

}

int
main() {
   const GeneratedNetwork network = generateNetwork( routers, 1 );
   std::printf( "%u routers, %zu links, %u paths, one link change\n", routers, network.links.size(),
                paths );
   compare( network, "paths with bandwidth, a constraint each", 1'000 );
   compare( network, "paths without, one constraint", 0 );
}
