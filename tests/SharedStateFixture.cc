#include "tests/SharedStateFixture.h"

#include <chrono>
#include <fstream>
#include <unistd.h>

bool
SharedStateTest::comesTrue( const std::function< bool() > & condition ) {
   const auto end = std::chrono::steady_clock::now() + std::chrono::seconds( 60 );
   while ( !condition() ) {
      if ( std::chrono::steady_clock::now() > end ) {
         return false;
      }
      usleep( 10'000 );
   }
   return true;
}

std::string
SharedStateTest::log() const {
   std::ifstream in( directory / "log" );
   return { std::istreambuf_iterator< char >( in ), {} };
}

void
SharedStateTest::loadSquare( const RunnerProcess & runner ) {
   load( runner, labTopology( "A -10- B -10- D; A -20- C -20- D" ), { "rsvp" } );
}

void
SharedStateTest::load( const RunnerProcess & runner, const nlohmann::json & topology,
                       const std::vector< std::string > & clients ) {
   nlohmann::json lab = { { "router", "A" }, { "topologies", { { "net", topology } } } };
   for ( const std::string & client : clients ) {
      lab[ "clients" ][ client ] = { { "vrf", { { "default", true } } },
                                     { "addressFamily", { { "ipv4", true } } } };
   }
   Service::Client( runner.socket() ).call( "load", { { "lab", lab } } );
}
