// What recording costs: requests that come in and go, with nobody, a watcher of the control socket,
// and a recorder listening. The peer is the watcher, which tells the same changes as JSON.

#include "bench/BenchAgent.h"
#include "schema/CspfClient.h"
#include "schema/Types.h"
#include "tools/record/Recorder.h"
#include "tools/service/StateView.h"

#include <benchmark/benchmark.h>

#include <cstdio>

namespace {

constexpr const char * path = "te/cspf/config/vrf/default/ipv4/rsvp";

struct Stores {
   Stores() { Schema::registerTypes( types ); }

   Corvdb::TypeRegistry types;
   Lum::ActivityLoop loop{ Lum::ActivityLoop::Time::virtualTime };
   Corvdb::StateStore state{ types };
   Zorch::TableStore tables{ types };
   AgentRunner::Runner runner{ loop, state, tables, nullptr, "none" };
};

/// So many requests come, and change once.
void
write( Stores & stores, unsigned requests ) {
   const auto config =
      Lum::cast< Cspf::Config >( stores.tables.alwaysIs( path, Cspf::Config::lumTypeName ) );
   for ( unsigned i = 0; i < 2 * requests; ++i ) {
      Cspf::PathConfig asked;
      asked.pathKeyIs(
         { Cspf::Destination( *Kivnet::IpGenAddr::parse( "10.0.0.3" ) ), 1 + i % requests } );
      asked.refreshReqSeqIs( 1 + i / requests );
      config->pathConfigIs( asked );
   }
   config->pathConfigDelAll();
}

void
nobody( benchmark::State & state ) {
   Stores stores;
   for ( auto _ : state ) {
      write( stores, static_cast< unsigned >( state.range( 0 ) ) );
   }
}

void
watcher( benchmark::State & state ) {
   Stores stores;
   std::FILE * const out = std::fopen( "/dev/null", "w" );
   const auto table = stores.tables.alwaysIs( path, Cspf::Config::lumTypeName );
   const auto watch =
      Lum::make< Service::StateWatch >( path, table, [ & ]( const State::Json & change ) {
         std::fputs( State::text( change ).c_str(), out );
         std::fflush( out );
      } );
   for ( auto _ : state ) {
      write( stores, static_cast< unsigned >( state.range( 0 ) ) );
   }
   std::fclose( out );
}

void
recorder( benchmark::State & state ) {
   Stores stores;
   const Record::Recorder recorder( "/dev/null", stores.loop, stores.runner, stores.state,
                                    stores.tables, []( const std::string & ) {} );
   for ( auto _ : state ) {
      write( stores, static_cast< unsigned >( state.range( 0 ) ) );
   }
}

BENCHMARK( nobody )->Arg( 10 )->Arg( 1000 )->Arg( 100'000 );
BENCHMARK( watcher )->Arg( 10 )->Arg( 1000 )->Arg( 100'000 );
BENCHMARK( recorder )->Arg( 10 )->Arg( 1000 )->Arg( 100'000 );

}

BENCHMARK_MAIN();
