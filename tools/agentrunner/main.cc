// The agent as a service: it loads the agent's library, drives it on the real clock, and serves the
// control socket until it is told to stop.

#include "platform/AgentRunner/Runner.h"
#include "platform/Trace/Velotrace.h"
#include "schema/Types.h"
#include "tools/agentrunner/MetricsFile.h"
#include "tools/agentrunner/ProofWatch.h"
#include "tools/agentrunner/ServiceManager.h"
#include "tools/agentrunner/SharedState.h"
#include "tools/agentrunner/TraceFile.h"
#include "tools/lab/AgentLibrary.h"
#include "tools/lab/LabLoad.h"
#include "tools/record/Recorder.h"
#include "tools/service/ControlServer.h"
#include "tools/text/Environment.h"
#include "tools/text/Plain.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <malloc.h>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

namespace {

struct Options {
   std::string library;
   std::string name = "CspfAgent";
   Service::SocketFile control{ Service::defaultSocketPath(), "" };
   Service::SocketFile monitor;
   std::string traceFile;
   std::vector< std::string > traceLevels;
   std::string metricsFile;
   std::string lab;
   std::string record;
   bool prove = false;
   std::string state;
   std::string passwordFile = Text::environment( "STATE_PASSWORD" );
   bool standby = false;
};

/// Signals as events of the loop.
class Signals {
 public:
   Signals( Lum::ActivityLoop & loop, TraceFile & traceFile ) : loop_( loop ) {
      sigset_t set;
      sigemptyset( &set );
      for ( const int signal : { SIGTERM, SIGINT, SIGHUP } ) {
         sigaddset( &set, signal );
      }
      sigprocmask( SIG_BLOCK, &set, nullptr );
      signal( SIGPIPE, SIG_IGN );  // a log that nobody reads any more is no reason to end,
      signal( SIGXFSZ, SIG_IGN );  // nor is a trace that may grow no further
      fd_ = signalfd( -1, &set, SFD_CLOEXEC | SFD_NONBLOCK );
      loop_.fdIs( fd_, EPOLLIN, [ this, &traceFile ]( std::uint32_t ) {
         signalfd_siginfo info;
         while ( read( fd_, &info, sizeof info ) == sizeof info ) {
            if ( info.ssi_signo == SIGHUP ) {
               Velotrace::reopen();
               traceFile.reopen();
            } else {
               loop_.stop();
            }
         }
      } );
   }
   ~Signals() {
      loop_.fdDel( fd_ );
      close( fd_ );
   }
   Signals( const Signals & ) = delete;
   Signals & operator=( const Signals & ) = delete;

 private:
   Lum::ActivityLoop & loop_;
   int fd_;
};

/// One line on standard error, whatever became of earlier ones.
void
say( std::string_view text ) {
   std::cerr.clear();
   std::cerr << Text::plain( text ) << std::endl;
}

void
sayOwn( std::string_view text ) {
   say( "agentrunner: " + std::string( text ) );
}

void
logToStandardError( const Trace::LogMessage & message, std::string_view text ) {
   say( Trace::logLine( message, text ) );
}

/// Ends without taking apart what goes with the process, of which there may be much: nobody sees
/// state that is in no database any more.
[[noreturn]] void
endAtOnce() {
   std::cerr.flush();
   _exit( 0 );
}

constexpr int exitOutOfMemory = 3;

/// Ends the process at once: nothing that is half built may be taken down, or served.
[[noreturn]] void
endForWantOfMemory() {
   constexpr std::string_view text = "agentrunner: out of memory\n";
   [[maybe_unused]] const ssize_t ignored = write( STDERR_FILENO, text.data(), text.size() );
   _exit( exitOutOfMemory );
}

/// In force before anything of the program or its libraries allocates.
[[gnu::constructor( 101 )]] void
watchMemory() {
   std::set_new_handler( endForWantOfMemory );
   // Threads take turns here: what one frees another may use.
   mallopt( M_ARENA_MAX, 1 );
}

Lab::LabFile
withoutEvents( Lab::LabJson lab ) {
   lab.erase( "events" );
   return Lab::LabFile::of( std::move( lab ) );
}

/// None where there is no file to read.
std::optional< Lab::LabFile >
readFile( const std::string & fileName ) {
   if ( fileName.empty() ) {
      return std::nullopt;
   }
   try {
      return withoutEvents( Lab::readLabJson( fileName ) );
   } catch ( const Lab::LabError & error ) {
      throw std::runtime_error( fileName + ": " + error.what() );
   }
}

/// "N" or "N:PATTERN". Throws std::runtime_error.
void
traceLevelIs( const std::string & text ) {
   if ( text.empty() || text[ 0 ] < '0' || text[ 0 ] > '9'
        || ( text.size() > 1 && text[ 1 ] != ':' ) || text.size() == 2 ) {
      throw std::runtime_error( "--trace-level " + text
                                + ": expected a level from 0 to 9, or LEVEL:FILE-PATTERN" );
   }
   Trace::levelIs( text[ 0 ] - '0', text.size() > 1 ? text.substr( 2 ) : std::string() );
}

/// For `cspfctl support`.
Service::Json
described( const Options & options ) {
   return { { "name", options.name },           { "socket", options.control.path },
            { "group", options.control.group }, { "monitor", options.monitor.path },
            { "trace", options.traceFile },     { "traceLevels", options.traceLevels },
            { "metrics", options.metricsFile }, { "lab", options.lab },
            { "record", options.record },       { "prove", options.prove },
            { "state", options.state },         { "standby", options.standby } };
}

/// Of an agent that has started.
void
tellIfNoRing() {
   if ( Velotrace::path().empty() && !std::getenv( "VELOTRACE_DISABLE" ) ) {
      const char * const directory = std::getenv( "VELOTRACEDIR" );
      sayOwn( "no trace ring: none can be made in "
              + ( directory ? std::string( directory ) : std::string( "the working directory" ) ) );
   }
}

SharedState::Settings
sharedSettings( const Options & options ) {
   return { Redis::parseUrl( options.state, options.passwordFile ), options.name, options.standby };
}

void
serve( const Options & options ) {
   for ( const std::string & level : options.traceLevels ) {
      traceLevelIs( level );
   }
   Corvdb::TypeRegistry types;
   Schema::registerTypes( types );
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   Corvdb::StateStore state( types );
   Zorch::TableStore tables( types );
   TraceFile traceFile( options.traceFile );
   const Signals signals( loop, traceFile );
   const auto load = [ & ]( Lab::LabJson lab ) {
      Lab::loadLab( withoutEvents( std::move( lab ) ), state, tables );
   };
   const AgentRunner::Library library( options.library.empty() ? Lab::agentLibraryPath()
                                                               : options.library );
   AgentRunner::Runner runner( loop, state, tables, library.factory(), options.name );
   auto recorder = options.record.empty() ? nullptr
                                          : std::make_unique< Record::Recorder >(
                                             options.record, loop, runner, state, tables, sayOwn );
   Service::StateView view( state, tables );
   const auto monitor =
      options.monitor.path.empty() ? std::nullopt : std::optional( options.monitor );
   std::optional< Service::ControlServer > server;
   server.emplace( loop, runner, view, options.control, monitor, load, described( options ) );
   const MetricsFile metricsFile( loop, options.metricsFile,
                                  [ &server ] { return server->metrics(); } );
   std::optional< ProofWatch > proofWatch;
   const ServiceManager manager( loop );
   auto lab = readFile( options.lab );
   const auto ready = [ & ] {
      if ( const auto start = std::exchange( lab, std::nullopt ) ) {
         Lab::startLab( *start, state, tables );
      }
      if ( recorder ) {
         recorder->agentStarts();
      }
   };
   std::optional< SharedState > shared;
   if ( options.state.empty() ) {
      ready();
      runner.start();
      tellIfNoRing();
      server->open();
   } else {
      server->open();  // who asks hears what the service waits for
      shared.emplace( loop, state, tables, runner, sharedSettings( options ), ready, tellIfNoRing );
      server->stateIs( [ &shared ] { return shared->status(); } );
   }
   if ( options.prove ) {
      proofWatch.emplace( loop, runner, state, tables, sayOwn );
   }
   sayOwn( "serving " + options.control.path );
   manager.ready();
   loop.run();
   proofWatch.reset();
   recorder.reset();
   manager.stopping();
   if ( shared ) {
      runner.stop();
      shared->finish();
   }
   server.reset();
   Velotrace::close();
   endAtOnce();
}

}

int
main( int argc, char ** argv ) {
   Options options;
   CLI::App app{ "Runs the CSPF agent and serves its state on a control socket" };
   app.add_option( "--library", options.library,
                   "agent library (default: the one installed with it)" );
   app.add_option( "--name", options.name, "name of the agent and of its trace ring" )
      ->capture_default_str();
   app.add_option( "--socket", options.control.path, "control socket" )->capture_default_str();
   app.add_option( "--group", options.control.group, "group whose members may use the socket" );
   auto * const monitor =
      app.add_option( "--monitor", options.monitor.path, "second socket, for reading only" );
   app.add_option( "--monitor-group", options.monitor.group,
                   "group whose members may use that one" )
      ->needs( monitor );
   app.add_option( "--trace", options.traceFile, "file for the text trace" );
   app.add_option( "--trace-level", options.traceLevels,
                   "levels 0 to N are traced; N:PATTERN: in source files that match it as well" )
      ->allow_extra_args( false );
   app.add_option( "--metrics", options.metricsFile,
                   "file for counters and gauges, written anew every 15 seconds" );
   app.add_option( "--record", options.record,
                   "file for all that comes in, with times, which cspfctl replay plays again" );
   app.add_flag( "--prove", options.prove,
                 "judge all that is published whenever the agent rests after a change" );
   app.add_option( "--lab", options.lab, "lab whose state is there when the agent starts" );
   auto * const state =
      app.add_option( "--state", options.state,
                      "database that holds the state: unix:PATH or redis://HOST:PORT/DATABASE "
                      "(default: this process)" )
         ->envname( "STATE" );
   app.add_option( "--state-password", options.passwordFile,
                   "file with the database's password (default: STATE_PASSWORD)" )
      ->needs( state );
   app.add_flag( "--standby", options.standby, "wait until no other agent writes to the database" )
      ->needs( state );
   Trace::logSinkIs( logToStandardError );
   app.set_version_flag( "--version", "agentrunner " CSPF_VERSION, "show the version" );
   app.failure_message( []( const CLI::App *, const CLI::Error & error ) {
      return std::string( "agentrunner: " ) + error.what() + "; see agentrunner --help\n";
   } );
   try {
      app.parse( argc, argv );
      serve( options );
   } catch ( const CLI::ParseError & error ) {
      return app.exit( error ) == 0 ? 0 : 1;
   } catch ( const std::exception & error ) {
      say( std::string( "agentrunner: " ) + error.what() );
      return 1;
   }
   return 0;
}
