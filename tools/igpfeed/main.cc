// The program that keeps the agent's state current with the routers around it: with the link-state
// databases of routing daemons, and with the interfaces of the kernel.

#include "tools/igpfeed/Feed.h"
#include "tools/igpfeed/Interfaces.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Plain.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace {

struct Options {
   std::vector< std::string > sources;
   std::string socket = Service::defaultSocketPath();
   std::string vtyDirectory = "/var/run/frr";
   double grace = 30;
   double interval = 100;  // ms
};

IgpFeed::FeedOptions
feedOptions( const Options & options, const std::string & daemon ) {
   return { daemon, options.vtyDirectory + "/" + daemon + ".vty", options.interval / 1000,
            options.grace };
}

void
serve( const Options & options ) {
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   const auto openState = [ & ]() -> std::unique_ptr< IgpFeed::StateAccess > {
      return std::make_unique< IgpFeed::SocketState >( options.socket );
   };
   std::optional< IgpFeed::Feed > isis, ospf;
   std::optional< IgpFeed::InterfaceFeed > interfaces;
   for ( const std::string & source : options.sources ) {
      if ( source == "isis" ) {
         isis.emplace( loop, std::make_unique< IgpFeed::IsisDaemon >(), Cspf::IgpSource::isis,
                       feedOptions( options, "isisd" ), openState );
      } else if ( source == "ospf" ) {
         ospf.emplace( loop, std::make_unique< IgpFeed::OspfDaemon >(), Cspf::IgpSource::ospf,
                       feedOptions( options, "ospfd" ), openState );
      } else {
         interfaces.emplace( loop, openState );
      }
   }
   loop.run();
}

}

int
main( int argc, char ** argv ) {
   Options options;
   CLI::App app{ "Keeps the state of the CSPF agent current with routing daemons and the kernel" };
   app.add_option( "sources", options.sources, "isis, ospf, interfaces: what to follow" )
      ->required()
      ->check( CLI::IsMember( { "isis", "ospf", "interfaces" } ) );
   app.add_option( "--socket", options.socket, "control socket of the agentrunner" )
      ->capture_default_str();
   app.add_option( "--vty-dir", options.vtyDirectory, "where the daemons' vty sockets are" )
      ->capture_default_str();
   app.add_option( "--grace", options.grace,
                   "seconds for which the topology of a daemon that is gone stays" )
      ->check( CLI::Range( 0.0, 86400.0 ) )
      ->capture_default_str();
   app.add_option( "--interval", options.interval, "milliseconds between looks at a daemon" )
      ->check( CLI::Range( 10.0, 60000.0 ) )
      ->capture_default_str();
   try {
      app.parse( argc, argv );
      serve( options );
   } catch ( const CLI::ParseError & error ) {
      return app.exit( error ) == 0 ? 0 : 1;
   } catch ( const std::exception & error ) {
      std::cerr << "igpfeed: " << Text::plain( error.what() ) << std::endl;
      return 1;
   }
   return 0;
}
