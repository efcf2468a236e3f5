// The agent as a service: it loads the agent's library, drives it on the real clock, and serves the
// control socket until it is told to stop.

#include "platform/AgentRunner/Runner.h"
#include "platform/Trace/Gemtrace.h"
#include "platform/Trace/Velotrace.h"
#include "schema/Types.h"
#include "tools/lab/AgentLibrary.h"
#include "tools/lab/LabLoad.h"
#include "tools/service/ControlServer.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Plain.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

struct Options {
   std::string library;
   std::string name = "CspfAgent";
   std::string socket = Service::defaultSocketPath();
   std::string traceFile;
   std::string lab;
};

/// Seconds since 1970. A log is read beside those of other programs.
double
utcNow() {
   timespec time{};
   clock_gettime( CLOCK_REALTIME, &time );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) * 1e-9;
}

/// The text trace in a file, which may be moved away and reopened.
class TraceFile {
 public:
   explicit TraceFile( std::string path ) : path_( std::move( path ) ) {
      reopen();
      if ( !path_.empty() && !out_ ) {
         throw std::runtime_error( path_
                                   + ": the trace cannot be written: " + std::strerror( errno ) );
      }
   }
   ~TraceFile() { Gemtrace::sinkIs( nullptr ); }
   TraceFile( const TraceFile & ) = delete;
   TraceFile & operator=( const TraceFile & ) = delete;

   void reopen() {
      if ( path_.empty() ) {
         return;
      }
      out_ = std::ofstream( path_, std::ios::app );
      Gemtrace::sinkIs(
         [ this ]( int level, std::string_view text ) {
            out_ << Text::utcText( utcNow() ) << " " << level << " " << text << std::endl;
         },
         7 );
   }

 private:
   std::string path_;
   std::ofstream out_;
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

void
logToStandardError( const Trace::LogMessage & message, std::string_view text ) {
   std::cerr << message.id << ": " << text << std::endl;
}

void
loadFile( const std::string & fileName, const Service::ControlServer::Load & load ) {
   try {
      load( Lab::readLabJson( fileName ) );
   } catch ( const Lab::LabError & error ) {
      throw std::runtime_error( fileName + ": " + error.what() );
   }
}

void
serve( const Options & options ) {
   Corvdb::TypeRegistry types;
   Schema::registerTypes( types );
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   Corvdb::StateStore state( types );
   Zorch::TableStore tables( types );
   TraceFile traceFile( options.traceFile );
   const Signals signals( loop, traceFile );
   const auto load = [ & ]( const Lab::LabJson & lab ) {
      Lab::loadLab( Lab::LabFile::of( lab ), state, tables );
   };
   if ( !options.lab.empty() ) {
      loadFile( options.lab, load );
   }

   const AgentRunner::Library library( options.library.empty() ? Lab::agentLibraryPath()
                                                               : options.library );
   AgentRunner::Runner runner( loop, state, tables, library.factory(), options.name );
   Service::StateView view( state, tables );
   const Service::ControlServer server( loop, runner, view, options.socket, load );
   runner.start();
   std::cerr << "agentrunner: serving " << options.socket << std::endl;
   loop.run();
   runner.stop();
   Velotrace::close();
}

}

int
main( int argc, char ** argv ) {
   Options options;
   CLI::App app{ "Runs the CSPF agent and serves its state on a control socket" };
   app.add_option( "--library", options.library,
                   "agent library (default: the one beside this program)" );
   app.add_option( "--name", options.name, "name of the agent and of its trace ring" )
      ->capture_default_str();
   app.add_option( "--socket", options.socket, "control socket" )->capture_default_str();
   app.add_option( "--trace", options.traceFile, "file for the text trace" );
   app.add_option( "--lab", options.lab, "lab whose state is there when the agent starts" );
   Trace::logSinkIs( logToStandardError );
   try {
      app.parse( argc, argv );
      serve( options );
   } catch ( const CLI::ParseError & error ) {
      return app.exit( error ) == 0 ? 0 : 1;
   } catch ( const std::exception & error ) {
      std::cerr << "agentrunner: " << error.what() << std::endl;
      return 1;
   }
   return 0;
}
