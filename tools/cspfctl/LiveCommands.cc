// Commands for a running agent, over its control socket. Each reads and writes state by path;
// nothing here knows the agent.

#include "tools/cspfctl/LiveCommands.h"

#include "tools/cspfctl/Caller.h"
#include "tools/cspfctl/Facts.h"
#include "tools/cspfctl/LiveLab.h"
#include "tools/cspfctl/LivePaths.h"
#include "tools/cspfctl/LiveSnapshot.h"
#include "tools/cspfctl/PatchText.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabRunner.h"
#include "tools/service/Client.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Output.h"
#include "tools/text/Plain.h"
#include "tools/text/Table.h"

#include <iostream>
#include <memory>

namespace {

using Service::Client;
using Service::Json;

struct LiveOptions {
   std::string socket = Service::defaultSocketPath();
   const CLI::App * app = nullptr;
   std::string path;
   std::vector< std::string > paths;
   std::string patch;
   bool json = false;
   int level = -1;
   std::string files;
};

std::unique_ptr< Caller >
caller( const LiveOptions & options ) {
   return liveCaller( *options.app, options.socket );
}

std::string
listed( const std::vector< std::string > & list ) {
   std::string text;
   for ( const std::string & element : list ) {
      text.append( text.empty() ? "" : ", " ).append( element );
   }
   return text;
}

Json
parsed( const std::string & text ) {
   try {
      Lab::LabJson::parse( text );  // which says in words where it is none
      return Json::parse( text );
   } catch ( const Lab::LabError & error ) {
      throw std::runtime_error( std::string( "the patch: " ) + error.what() );
   }
}

void
runGet( const LiveOptions & options ) {
   const Json state = caller( options )->call( "get", { { "path", options.path } } );
   std::cout << state.dump( options.json ? -1 : 2 ) << "\n";
}

void
runPatch( const LiveOptions & options ) {
   const Json patch = parsed( patchText( options.patch ) );
   caller( options )->call( "patch", { { "path", options.path }, { "patch", patch } } );
}

void
runSave( const LiveOptions & options ) {
   std::cout << liveLab( *caller( options ), options.path ).dump( 2 ) << "\n";
}

/// The text's parts fit a frame however many of their bytes are escaped in it.
void
loadInParts( const std::string & socket, const std::string & lab ) {
   constexpr std::size_t length = 1u << 20;
   Client client( socket );
   for ( std::size_t at = 0; at < lab.size(); ) {
      std::size_t end = std::min( lab.size(), at + length );
      while ( end < lab.size() && ( lab[ end ] & 0xc0 ) == 0x80 ) {
         --end;  // letters stay whole
      }
      client.call( "load", { { "part", lab.substr( at, end - at ) } } );
      at = end;
   }
   client.call( "load", Json::object() );
}

/// The lab is checked here as well, so that its errors read as those of `check`.
int
runLoad( const LiveOptions & options ) {
   try {
      Lab::LabJson lab = Lab::readLabJson( options.path );
      Lab::LabFile::of( lab );
      lab.erase( "events" );
      loadInParts( options.socket, lab.text() );
      return Lab::exitOk;
   } catch ( const Lab::LabError & error ) {
      std::cerr << "cspfctl: " << Text::plain( options.path + ": " + error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
}

void
printChange( const Json & change ) {
   std::cout << change[ "path" ].get< std::string >();
   if ( change.contains( "attribute" ) ) {
      std::cout << " " << change[ "attribute" ].get< std::string >();
   }
   if ( change.contains( "key" ) ) {
      std::cout << "[" << change[ "key" ].dump() << "]";
   }
   std::cout << ( change.contains( "value" ) ? " = " + change[ "value" ].dump() : " deleted" )
             << "\n";
}

void
runWatch( const LiveOptions & options ) {
   const auto other = caller( options );
   const auto notified = [ & ]( const std::string & method, const Json & params ) {
      if ( method == "cutOff" ) {
         throw std::runtime_error( "cut off: " + params.value( "reason", "" ) );
      }
      if ( options.json ) {
         std::cout << params.dump() << "\n";
      } else {
         printChange( params );
      }
      Text::flushOutput();
   };
   const Json states = other->call( "watch", { { "paths", options.paths } }, notified );
   std::cout << states.dump( options.json ? -1 : 2 ) << "\n";
   Text::flushOutput();
   other->listen( notified );
}

void
runDump( const LiveOptions & options ) {
   caller( options )->call( "command", { { "name", "CspfDump" }, { "text", "DUMP_CSPF_STATE" } },
                            []( const std::string & method, const Json & params ) {
                               if ( method == "output" ) {
                                  std::cout << params.value( "text", "" );
                               }
                            } );
}

/// What there is to say of the database that holds the state.
std::string
stateText( const Json & state ) {
   const auto count = [ & ]( const char * name ) {
      return state.value( name, std::uint64_t( 0 ) );
   };
   std::string text =
      state.value( "url", "" ) + ( state.value( "connected", false ) ? "" : ", away" );
   text += ", revision " + std::to_string( count( "revision" ) );
   for ( const char * name : { "pending", "resyncs", "refused" } ) {
      text += count( name ) ? ", " + std::to_string( count( name ) ) + " " + name : "";
   }
   const std::string writer = state.value( "writer", "" );
   return text + ( writer.empty() ? "" : ", written by " + writer );
}

/// The constraints for which a computation waits, as the agent tells.
Json
waitsOf( Caller & agent ) {
   std::string lines;
   try {
      agent.call( "command", { { "name", "CspfWaits" }, { "text", "" } },
                  [ & ]( const std::string & method, const Json & params ) {
                     lines += method == "output" ? params.value( "text", "" ) : "";
                  } );
   } catch ( const std::runtime_error & ) {
      return Json::array();  // there is none, or it has just begun
   }
   Json waits = Json::array();
   for ( const auto & [ kind, fact ] : factsOf( lines ) ) {
      waits.push_back( fact );
   }
   return waits;
}

/// "rsvp/10.0.0.3#1 and 2 more (default/ipv4) for 150 ms"
std::string
waitText( const Json & wait ) {
   const auto & paths = wait[ "paths" ];
   return paths[ 0 ].get< std::string >()
          + ( paths.size() > 1 ? " and " + std::to_string( paths.size() - 1 ) + " more" : "" )
          + " (" + wait.value( "vrf", "" ) + "/" + wait.value( "family", "" ) + ") for "
          + wait[ "milliseconds" ].dump() + " ms";
}

/// The first ones of a list that may be long. `count`: of all.
std::string
shortened( std::vector< std::string > list, std::size_t count ) {
   constexpr std::size_t most = 5;
   if ( list.size() > most ) {
      list[ most ] = "and " + std::to_string( count - most ) + " more";
      list.resize( most + 1 );
   }
   return listed( list );
}

/// The agent that runs, or what a service without one waits for.
std::string
agentText( const Json & status ) {
   if ( !status[ "agent" ].is_null() ) {
      return status[ "agent" ];
   }
   if ( !status.contains( "pid" ) || !status.contains( "state" ) ) {
      return "";
   }
   const Json & state = status[ "state" ];
   const std::string writer = state.value( "writer", "" );
   return "none yet, waits for "
          + ( !state.value( "connected", false ) ? "the database"
              : writer.empty()                   ? "the state to be read"
                                                 : "the end of " + writer );
}

void
runStatus( const LiveOptions & options ) {
   const auto other = caller( options );
   Json status = other->call( "status", Json::object() );
   const bool runs = !status[ "agent" ].is_null();
   // Before an agent has run, nothing may stand where it looks.
   const auto valueAt = [ & ]( const char * path ) {
      try {
         return other->call( "get", { { "path", path } } )[ "value" ];
      } catch ( const std::runtime_error & ) {
         return runs ? throw : Json::object();
      }
   };
   status[ "waits" ] = namesDatabase( *options.app ) ? Json::array() : waitsOf( *other );
   status[ "agentEnabled" ] = valueAt( "te/cspf/agentStatus" ).value( "agentEnabled", false );
   if ( options.json ) {
      std::cout << status.dump() << "\n";
      return;
   }
   std::vector< std::string > served, waiting, throttled;
   const Json clients = valueAt( "te/cspf/client" ).value( "entity", Json::object() );
   for ( const auto & [ name, entry ] : clients.items() ) {
      served.push_back( name );
   }
   for ( const Json & task : status[ "pendingTasks" ] ) {
      waiting.push_back( task.get< std::string >() );
   }
   for ( const Json & wait : status[ "waits" ] ) {
      throttled.push_back( waitText( wait ) );
   }
   const auto line = [ & ]( const char * name, const std::string & text ) {
      std::cout << name << ( text.empty() ? "none" : text ) << "\n";
   };
   line( "agent    ", agentText( status ) );
   line( "enabled  ", status[ "agentEnabled" ].get< bool >() ? "yes" : "no" );
   line( "clients  ", listed( served ) );
   if ( status.contains( "pid" ) ) {
      line( "process  ", status[ "pid" ].dump() );
      line( "callers  ", status[ "clients" ].dump() );
      line( "waiting  ", shortened( waiting, status[ "pendingTaskCount" ] ) );
      line( "throttle ", shortened( throttled, throttled.size() ) );
   }
   if ( status.contains( "state" ) ) {
      line( "state    ", stateText( status[ "state" ] ) );
   }
}

void
runMetrics( const LiveOptions & options ) {
   std::cout << Client( options.socket ).call( "metrics", Json::object() ).get< std::string >();
}

void
runTraceLevel( const LiveOptions & options ) {
   Json params = Json::object();
   if ( options.level >= 0 ) {
      params[ "level" ] = options.level;
   }
   if ( !options.files.empty() ) {
      params[ "files" ] = options.files;
   }
   Client( options.socket ).call( "traceLevel", params );
}

void
runPaths( const LiveOptions & options ) {
   const auto other = caller( options );
   if ( options.json ) {
      std::cout << other->call( "get", { { "path", "te/cspf/status/vrf" } } ).dump() << "\n";
   } else {
      printPaths( liveSnapshot( *other ), std::cout, Text::terminalWidth() );
   }
}

template< class Run >
CLI::App *
add( CLI::App & app, const char * name, const char * about,
     const std::shared_ptr< LiveOptions > & options, Run run ) {
   CLI::App * command = app.add_subcommand( name, about );
   command->add_option( "--socket", options->socket, "control socket of the agentrunner" )
      ->capture_default_str();
   command->fallthrough();
   command->callback( [ options, run ] {
      const Text::PlainOutput plain( std::cout );
      run( *options );
   } );
   return command;
}

CLI::App *
withJson( CLI::App * command, LiveOptions & options ) {
   command->add_flag( "--json", options.json, "print JSON, one document a line" );
   return command;
}

}

void
addLiveCommands( CLI::App & app, int & status ) {
   const auto options = std::make_shared< LiveOptions >();
   addStateOptions( app );
   options->app = &app;
   withJson( add( app, "get", "Show the state at a path of a running agent", options, runGet ),
             *options )
      ->add_option( "path", options->path, "state path; all tables and the state tree without" );
   CLI::App * patch =
      add( app, "patch", "Change the state at a path by a JSON merge patch", options, runPatch );
   patch->add_option( "path", options->path, "state path" )->required();
   patch->add_option( "patch", options->patch, "the patch; @FILE, or - for standard input" )
      ->required();
   add( app, "load", "Write the state of a lab around a running agent", options,
        [ &status ]( const LiveOptions & given ) { status = runLoad( given ); } )
      ->add_option( "lab", options->path, "lab file; its events are left out" )
      ->required();
   add( app, "save", "Print live state as a lab, on which an agent would publish the same", options,
        runSave )
      ->add_option( "--names", options->path,
                    "lab that says what routers, links and paths are called" );
   withJson( add( app, "watch", "Show the state at paths, then each change", options, runWatch ),
             *options )
      ->add_option( "paths", options->paths, "state paths" )
      ->required();
   add( app, "dump", "Print the agent's internal state", options, runDump );
   withJson( add( app, "status", "Show whether the agent runs and what it is busy with", options,
                  runStatus ),
             *options );
   add( app, "metrics", "Print counters and gauges in Prometheus' text form", options, runMetrics );
   CLI::App * traceLevel =
      add( app, "trace-level", "Choose what a running agent traces", options, runTraceLevel );
   CLI::Option * level =
      traceLevel
         ->add_option( "level", options->level,
                       "levels up to this one are traced, 0 to 9; without, as at the start" )
         ->check( CLI::Range( 0, 9 ) );
   traceLevel
      ->add_option( "--files", options->files,
                    "only in source files that match, such as \"View.cc\"; without, in all, "
                    "and earlier patterns are forgotten" )
      ->needs( level );
   withJson( add( app, "paths", "Show the published paths", options, runPaths ), *options );
}
