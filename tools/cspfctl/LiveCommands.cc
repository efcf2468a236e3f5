// Commands for a running agent, over its control socket. Each reads and writes state by path;
// nothing here knows the agent.

#include "tools/cspfctl/LiveCommands.h"

#include "tools/service/Client.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Table.h"

#include <fstream>
#include <iostream>
#include <memory>

namespace {

using Service::Client;
using Service::Json;

struct Options {
   std::string socket = Service::defaultSocketPath();
   std::string path;
   std::vector< std::string > paths;
   std::string patch;
   bool json = false;
};

/// "te/cspf/status/vrf/default/ipv4/rsvp" -> default, ipv4, rsvp.
std::vector< std::string >
lastComponents( const std::string & path, std::size_t count ) {
   std::vector< std::string > parts;
   std::string rest = path;
   while ( parts.size() < count ) {
      const auto slash = rest.rfind( '/' );
      parts.insert( parts.begin(), rest.substr( slash + 1 ) );
      rest.resize( slash == rest.npos ? 0 : slash );
   }
   return parts;
}

std::string
joined( const Json & list ) {
   std::string text;
   for ( const Json & element : list ) {
      text.append( text.empty() ? "" : " " ).append( element.get< std::string >() );
   }
   return text;
}

std::string
contentOf( const std::string & fileName ) {
   std::ifstream in( fileName );
   std::string content( std::istreambuf_iterator< char >( in ), {} );
   if ( !in.is_open() || in.bad() ) {
      throw std::runtime_error( fileName + ": cannot be read" );
   }
   return content;
}

Json
parsed( const std::string & what, const std::string & text ) {
   try {
      return Json::parse( text );
   } catch ( const Json::exception & error ) {
      throw std::runtime_error( what + " is no JSON: " + error.what() );
   }
}

Json
readPatch( const std::string & text ) {
   if ( text == "-" ) {
      return parsed( "the patch", std::string( std::istreambuf_iterator< char >( std::cin ), {} ) );
   }
   return parsed( "the patch", text.starts_with( '@' ) ? contentOf( text.substr( 1 ) ) : text );
}

void
runGet( const Options & options ) {
   const Json state = Client( options.socket ).call( "get", { { "path", options.path } } );
   std::cout << state.dump( options.json ? -1 : 2 ) << "\n";
}

void
runPatch( const Options & options ) {
   const Json patch = readPatch( options.patch );
   Client( options.socket ).call( "patch", { { "path", options.path }, { "patch", patch } } );
}

void
runLoad( const Options & options ) {
   const Json lab = parsed( options.path, contentOf( options.path ) );
   Client( options.socket ).call( "load", { { "lab", lab } } );
}

void
printChange( const Json & change ) {
   std::cout << change[ "path" ].get< std::string >() << " "
             << change[ "attribute" ].get< std::string >();
   if ( change.contains( "key" ) ) {
      std::cout << "[" << change[ "key" ].dump() << "]";
   }
   std::cout << ( change.contains( "value" ) ? " = " + change[ "value" ].dump() : " deleted" )
             << std::endl;
}

void
runWatch( const Options & options ) {
   Client client( options.socket );
   const auto notified = [ & ]( const std::string & method, const Json & params ) {
      if ( method == "cutOff" ) {
         throw std::runtime_error( "cut off: " + params.value( "reason", "" ) );
      }
      if ( options.json ) {
         std::cout << params.dump() << std::endl;
      } else {
         printChange( params );
      }
   };
   const Json states = client.call( "watch", { { "paths", options.paths } }, notified );
   std::cout << states.dump( options.json ? -1 : 2 ) << std::endl;
   client.listen( notified );
}

void
runDump( const Options & options ) {
   Client( options.socket )
      .call( "command", { { "name", "CspfDump" }, { "text", "DUMP_CSPF_STATE" } },
             []( const std::string & method, const Json & params ) {
                if ( method == "output" ) {
                   std::cout << params.value( "text", "" );
                }
             } );
}

void
runStatus( const Options & options ) {
   Client client( options.socket );
   Json status = client.call( "status", Json::object() );
   const Json agent = client.call( "get", { { "path", "te/cspf/agentStatus" } } );
   status[ "agentEnabled" ] = agent[ "value" ][ "agentEnabled" ];
   if ( options.json ) {
      std::cout << status.dump() << "\n";
      return;
   }
   std::cout << "agent     " << status.value( "agent", Json() ).dump() << "\n"
             << "process   " << status[ "pid" ] << "\n"
             << "enabled   " << ( status[ "agentEnabled" ].get< bool >() ? "yes" : "no" ) << "\n"
             << "callers   " << status[ "clients" ] << "\n"
             << "waiting   " << status[ "pendingTasks" ].size() << " tasks\n";
}

void
runPaths( const Options & options ) {
   const Json tables = Client( options.socket ).call( "get", { { "path", "te/cspf/status/vrf" } } );
   if ( options.json ) {
      std::cout << tables.dump() << "\n";
      return;
   }
   Text::Table table( { "VRF", "FAMILY", "CLIENT", "PATH", "HOPS", "REMARK" } );
   for ( const auto & [ path, status ] : tables.items() ) {
      const auto where = lastComponents( path, 3 );
      const Json & errors = status[ "value" ][ "pathError" ];
      for ( const auto & [ key, published ] : status[ "value" ][ "pathStatus" ].items() ) {
         table.row( { where[ 0 ], where[ 1 ], where[ 2 ], key, joined( published[ "path" ] ),
                      errors.value( key, "" ) } );
      }
   }
   table.print( std::cout );
}

CLI::App *
add( CLI::App & app, const char * name, const char * about,
     const std::shared_ptr< Options > & options, void ( *run )( const Options & ) ) {
   CLI::App * command = app.add_subcommand( name, about );
   command->add_option( "--socket", options->socket, "control socket of the agentrunner" )
      ->capture_default_str();
   command->add_flag( "--json", options->json, "print JSON, one document a line" );
   command->callback( [ options, run ] { run( *options ); } );
   return command;
}

}

void
addLiveCommands( CLI::App & app ) {
   const auto options = std::make_shared< Options >();
   add( app, "get", "Show the state at a path of a running agent", options, runGet )
      ->add_option( "path", options->path, "state path; all tables and the state tree without" );
   CLI::App * patch =
      add( app, "patch", "Change the state at a path by a JSON merge patch", options, runPatch );
   patch->add_option( "path", options->path, "state path" )->required();
   patch->add_option( "patch", options->patch, "the patch; @FILE, or - for standard input" )
      ->required();
   add( app, "load", "Write the state of a lab around a running agent", options, runLoad )
      ->add_option( "lab", options->path, "lab file; its events are left out" )
      ->required();
   add( app, "watch", "Show the state at paths, then each change", options, runWatch )
      ->add_option( "paths", options->paths, "state paths" )
      ->required();
   add( app, "dump", "Print the agent's internal state", options, runDump );
   add( app, "status", "Show whether the agent runs and what it is busy with", options, runStatus );
   add( app, "paths", "Show the published paths", options, runPaths );
}
