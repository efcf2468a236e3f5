// What the trace ring costs an event: the same event with the ring as it is by default, and without
// it, turn by turn in one agent. All figures are CPU time.

#include "bench/BenchAgent.h"
#include "platform/Trace/Velotrace.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <vector>

namespace {

constexpr std::uint32_t routers = 1'000;
constexpr std::uint32_t paths = 2'000;
constexpr int rounds = 31;
constexpr int eventsPerRound = 200;

using Event = std::function< void( int number ) >;

double
microsecondsOf( const Event & event, int & number, bool traced ) {
   Velotrace::maxLevelIs( traced ? 7 : -1 );
   return 1000 / double( eventsPerRound ) * cpuMilliseconds( [ & ]() {
             for ( int i = 0; i < eventsPerRound; ++i ) {
                event( number++ );
             }
          } );
}

/// Whichever comes first in a round comes second in the next.
void
measure( const char * name, const Event & event ) {
   std::vector< double > without, with, ratios;
   int number = 0;
   for ( int round = 0; round < rounds; ++round ) {
      const bool first = round % 2 == 1;
      const double a = microsecondsOf( event, number, first );
      const double b = microsecondsOf( event, number, !first );
      with.push_back( first ? a : b );
      without.push_back( first ? b : a );
      ratios.push_back( with.back() / without.back() );
   }
   std::printf( "%-40s %8.1f us without, %8.1f us with: %.3f\n", name, median( without ),
                median( with ), median( ratios ) );
}

/// One constraint in ten, each of two hundred paths; destinations at random.
Lab::LabDocument
requests( const GeneratedNetwork & network ) {
   return requestsOf( network, "bench", paths, []( std::uint32_t n, Lab::LabConstraint & c ) {
      c.excludeAdminGroup = 1u << n % 10;
   } );
}

void
measureAll( BenchAgent & agent ) {
   const auto table = agent.topology();
   const auto keys = Lum::sortedKeys( table->neighborColl() );
   const auto key = [ & ]( int number ) {
      return keys[ static_cast< std::size_t >( number ) * 37 % keys.size() ];
   };
   measure( "a link's metric", [ & ]( int number ) {
      Routing::Topology::Neighbor link = table->neighbor( key( number ) );
      link.metricIs( link.metric() % 1000 + 1 );
      table->neighborIs( link.key(), link );
      agent.settle();
   } );
   const auto config =
      Lum::cast< Cspf::Config >( agent.tables().table( "te/cspf/config/vrf/default/ipv4/bench" ) );
   Cspf::PathConfig more = config->pathConfigColl().begin()->second;
   measure( "a path comes, and goes", [ & ]( int number ) {
      const Cspf::PathKey fresh{ more.pathKey().dst(), paths + static_cast< unsigned >( number ) };
      more.pathKeyIs( fresh );
      config->pathConfigIs( more );
      agent.settle();
      config->pathConfigDel( fresh );
      agent.settle();
   } );
   measure( "a path is asked for anew", [ & ]( int ) {
      Cspf::PathConfig again = config->pathConfigColl().begin()->second;
      again.refreshReqSeqIs( again.refreshReqSeq() + 1 );
      config->pathConfigIs( again );
      agent.settle();
   } );
}

}

int
main() {
   BenchAgent agent;
   agent.lab().write( requests( generateNetwork( routers, 1 ) ) );
   agent.settle();
   const auto ring = std::filesystem::temp_directory_path() / "cspf-ring-bench-%d.qt";
   if ( !Velotrace::initialise( ring, nullptr, 0, 24, Velotrace::singleThreaded, true, 512 ) ) {
      std::fprintf( stderr, "%s: no ring can be made here\n", ring.c_str() );
      return 1;
   }
   const std::string file = Velotrace::path();
   measureAll( agent );
   Velotrace::close();
   std::filesystem::remove( file );
   return 0;
}
