// The program that keeps the agent's state current with the routers around it: with the link-state
// databases of routing daemons, and with the interfaces of the kernel.

#include "tools/igpfeed/Feed.h"
#include "tools/igpfeed/FeedDatabase.h"
#include "tools/igpfeed/Interfaces.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Environment.h"
#include "tools/text/Number.h"
#include "tools/text/Plain.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <map>

namespace {

struct Options {
   std::vector< std::string > sources;
   std::string socket = Service::defaultSocketPath();
   std::string state = Text::environment( "STATE" ),
               passwordFile = Text::environment( "STATE_PASSWORD" );
   std::string vtyDirectory = "/var/run/frr";
   double grace = 30;
   double interval = 100;  // ms
};

IgpFeed::FeedOptions
feedOptions( const Options & options, const std::string & daemon ) {
   return { daemon, options.vtyDirectory + "/" + daemon + ".vty", options.interval / 1000,
            options.grace };
}

using OpenState = IgpFeed::Feed::OpenState;

/// The sources that are followed.
class Feeds {
 public:
   Feeds( Lum::ActivityLoop & loop, const Options & options )
      : loop_( loop ),
        options_( options ) {}

   void start( const std::string & source, const OpenState & openState ) {
      if ( source == "isis" ) {
         isis_.emplace( loop_, std::make_unique< IgpFeed::IsisDaemon >(), Cspf::IgpSource::isis,
                        feedOptions( options_, "isisd" ), openState );
      } else if ( source == "ospf" ) {
         ospf_.emplace( loop_, std::make_unique< IgpFeed::OspfDaemon >(), Cspf::IgpSource::ospf,
                        feedOptions( options_, "ospfd" ), openState );
      } else {
         interfaces_.emplace( loop_, openState );
      }
   }

 private:
   Lum::ActivityLoop & loop_;
   const Options & options_;
   std::optional< IgpFeed::Feed > isis_, ospf_;
   std::optional< IgpFeed::InterfaceFeed > interfaces_;
};

/// Over the control socket of an agent.
void
serveAgent( const Options & options ) {
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   Feeds feeds( loop, options );
   for ( const std::string & source : options.sources ) {
      feeds.start( source, [ & ]() -> std::unique_ptr< IgpFeed::StateAccess > {
         return std::make_unique< IgpFeed::SocketState >( options.socket );
      } );
   }
   loop.run();
}

/// In a database, from where an agent reads.
void
serveDatabase( const Options & options ) {
   const Redis::Url url = Redis::parseUrl( options.state, options.passwordFile );
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   std::map< std::string, std::unique_ptr< IgpFeed::FeedDatabase > > databases;
   Feeds feeds( loop, options );
   std::string failure;
   for ( const std::string & source : options.sources ) {
      const auto granted = [ &feeds, source ]( Service::StateView & state ) {
         feeds.start( source, [ &state ]() -> std::unique_ptr< IgpFeed::StateAccess > {
            return std::make_unique< IgpFeed::ViewState >( state );
         } );
      };
      const auto failed = [ & ]( const std::string & why ) {
         failure = why;
         loop.stop();
      };
      databases[ source ] = std::make_unique< IgpFeed::FeedDatabase >(
         loop, url, source, IgpFeed::FeedDatabase::Handlers{ granted, failed } );
   }
   loop.run();
   if ( !failure.empty() ) {
      throw std::runtime_error( failure );
   }
}

}

int
main( int argc, char ** argv ) {
   Options options;
   CLI::App app{ "Keeps the state of the CSPF agent current with routing daemons and the kernel" };
   app.add_option( "sources", options.sources, "isis, ospf, interfaces: what to follow" )
      ->required()
      ->check( CLI::IsMember( { "isis", "ospf", "interfaces" } ) );
   auto * const socket =
      app.add_option( "--socket", options.socket, "control socket of the agentrunner" )
         ->capture_default_str();
   auto * const state =
      app.add_option( "--state", options.state,
                      "database to write to instead: unix:PATH or redis://HOST:PORT/DATABASE "
                      "(default: STATE)" )
         ->excludes( socket );
   auto * const password =
      app.add_option( "--state-password", options.passwordFile,
                      "file with the database's password (default: STATE_PASSWORD)" );
   app.add_option( "--vty-dir", options.vtyDirectory, "where the daemons' vty sockets are" )
      ->capture_default_str();
   app.add_option( "--grace", options.grace,
                   "seconds for which the topology of a daemon that is gone stays" )
      ->check( Text::numberFrom( 0, 86'400 ) )
      ->capture_default_str();
   app.add_option( "--interval", options.interval, "milliseconds between looks at a daemon" )
      ->check( Text::numberFrom( 10, 60'000 ) )
      ->capture_default_str();
   app.set_version_flag( "--version", "igpfeed " CSPF_VERSION, "show the version" );
   app.failure_message( []( const CLI::App *, const CLI::Error & error ) {
      return std::string( "igpfeed: " ) + error.what() + "; see igpfeed --help\n";
   } );
   try {
      app.parse( argc, argv );
      if ( socket->count() > 0 ) {
         options.state.clear();  // of the environment
      }
      if ( password->count() > 0 && options.state.empty() ) {
         throw CLI::RequiresError( "--state-password", state->get_name() );
      }
      options.state.empty() ? serveAgent( options ) : serveDatabase( options );
   } catch ( const CLI::ParseError & error ) {
      return app.exit( error ) == 0 ? 0 : 1;
   } catch ( const std::exception & error ) {
      std::cerr << "igpfeed: " << Text::plain( error.what() ) << std::endl;
      return 1;
   }
   return 0;
}
