// What the service costs around its computations: a change of one link until every status is
// published, a dump of all state, and the memory of paths and links.
//
// The network has 10,000 routers, the client asks for 20,000 paths under 1,000 distinct
// constraints. What the runs themselves take is measured by making them once more, each with its
// filter and destinations, in the same agent.

#include "bench/BenchAgent.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <random>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::uint32_t routers = 10'000;
constexpr std::uint32_t constraints = 1'000;
constexpr std::uint32_t paths = 20'000;
constexpr int rounds = 7;

/// Constraint n avoids the links of one address, so that all differ and none refuses much.
Lab::LabConstraint
constraintOf( std::uint32_t n, std::uint32_t links ) {
   Lab::LabConstraint constraint;
   constraint.excludeAdminGroup = 32;
   constraint.excludeLinkWithIp = {
      Kivnet::IpGenAddr( Kivnet::IpAddr( 0x0a000000 + n * ( links / constraints ) ) ) };
   return constraint;
}

void
askForPaths( Lab::LabDocument & document, std::uint32_t links ) {
   document.clients[ "bench" ] = {
      { { Lab::Vrf::defaultVrf(), true } }, { { Lab::Af::ipv4, true } }, false };
   auto & wanted = document.paths[ "bench" ];
   std::mt19937 random( 3 );
   for ( std::uint32_t n = 0; n < paths; ++n ) {
      Lab::LabPath & path = wanted[ "p" + std::to_string( n ) ];
      path.dst = Cspf::Destination( teRouterIdOf( 1 + random() % ( routers - 1 ) ) );
      path.id = n;
      path.constraint = constraintOf( n % constraints, links );
   }
}

/// Changes the metric of one link and lets the agent work it through; milliseconds.
double
oneLinkChange( BenchAgent & agent, const Routing::Topology::NeighborKey & key ) {
   const auto table = agent.topology();
   Routing::Topology::Neighbor link = table->neighbor( key );
   link.metricIs( link.metric() % 1000 + 1 );
   return milliseconds( [ & ]() {
      table->neighborIs( key, link );
      agent.settle();
   } );
}

/// How long the loop stands while all state is dumped, as the control socket does it.
void
measureDump( BenchAgent & agent ) {
   const int file = memfd_create( "dump", MFD_CLOEXEC );
   const double took =
      milliseconds( [ & ]() { agent.runner().command( "CspfDump", file, "DUMP_CSPF_STATE" ); } );
   std::printf( "dump of all state: %.3f of a second of the loop, %.1f MB\n", took / 1000,
                static_cast< double >( lseek( file, 0, SEEK_END ) ) / 1e6 );
   close( file );
}

void
measureChange() {
   const GeneratedNetwork network = generateNetwork( routers, 1 );
   const auto links = static_cast< std::uint32_t >( network.links.size() );
   BenchAgent agent;
   Lab::LabDocument document = labOf( network );
   agent.lab().write( document );
   agent.settle();
   const std::size_t before = heapInUse();
   askForPaths( document, links );
   const double first = milliseconds( [ & ]() {
      agent.lab().write( document );
      agent.settle();
   } );
   const auto status = agent.status( "bench" );
   std::size_t found = 0;
   for ( const auto & [ key, path ] : status->pathStatusColl() ) {
      found += path.paths() > 0;
   }
   std::printf( "%u routers, %u links, %u constraints, %u paths (%zu found)\n", routers, links,
                constraints, paths, found );
   std::printf( "all paths asked for and published: %.0f ms\n", first );

   const auto keys = Lum::sortedKeys( agent.topology()->neighborColl() );
   std::vector< double > whole, alone;
   std::uint64_t runs = 0;
   for ( int i = 0; i < rounds; ++i ) {
      const std::uint64_t runsBefore = agent.runs();
      whole.push_back( oneLinkChange( agent, keys[ keys.size() / rounds * i ] ) );
      runs = agent.runs() - runsBefore;
      alone.push_back( milliseconds( [ & ]() { agent.runAll(); } ) );
   }
   std::printf( "one link change: %.0f ms, %llu runs; the runs alone: %.0f ms, %.3f ms each\n",
                median( whole ), static_cast< unsigned long long >( runs ), median( alone ),
                median( alone ) / constraints );
   std::printf( "outside of the runs: %.3f of the whole\n", 1 - median( alone ) / median( whole ) );

   measureDump( agent );
   const std::size_t withPaths = heapInUse();
   document.paths.clear();
   const std::size_t documentSize = withPaths - heapInUse();
   std::printf( "one path: %zu bytes, its request included\n",
                ( withPaths - before - documentSize ) / paths );
}

/// Heap growth by the store when an IGP table of that many links appears.
void
measureLinks() {
   const GeneratedNetwork network = generateNetwork( 20'500, 1 );
   BenchAgent agent;
   Lab::LabDocument document = labOf( network );
   document.clients[ "bench" ] = {
      { { Lab::Vrf::defaultVrf(), true } }, { { Lab::Af::ipv4, true } }, false };
   const std::size_t empty = heapInUse();
   agent.lab().write( document );
   agent.settle();
   const std::size_t full = heapInUse();
   document.clients.clear();
   agent.lab().write( document );
   agent.settle();
   std::printf( "one link of the store: %zu bytes; of the IGP's table: %zu (%zu links)\n",
                ( full - heapInUse() ) / network.links.size(),
                ( heapInUse() - empty ) / network.links.size(), network.links.size() );
}

}

int
main() {
   measureChange();
   measureLinks();
}
