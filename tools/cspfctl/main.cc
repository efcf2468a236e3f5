// The program for people: labs through an agent of its own, and the state of a running agent.

#include "tools/cspfctl/LabCommands.h"
#include "tools/cspfctl/LiveCommands.h"
#include "tools/text/Plain.h"

#include <iostream>
#include <sstream>

namespace {

/// Prints help, or what is wrong with the command line, in which anything may stand.
int
exitStatus( const CLI::App & app, const CLI::ParseError & error ) {
   std::ostringstream complaint;
   const int status = app.exit( error, std::cout, complaint );
   const Text::PlainOutput plainErrors( std::cerr );
   std::cerr << complaint.view() << std::flush;
   return status == 0 ? 0 : 1;
}

}

int
main( int argc, char ** argv ) {
   CLI::App app{ "Runs labs through the CSPF agent, and looks into a running one" };
   app.require_subcommand( 1 );
   int status = 0;
   addRunCommand( app, status );
   addRepairsCommand( app, status );
   addCheckCommand( app, status );
   addImportCommand( app, status );
   addProveCommand( app, status );
   addExplainCommand( app, status );
   addWhatIfCommand( app, status );
   addLiveCommands( app, status );
   addTraceCommand( app );
   addSupportCommand( app );
   const auto isNamed = [ & ]( const CLI::App * command ) {
      return command->check_name( argv[ 1 ] );
   };
   if ( argc > 1 && *argv[ 1 ] != '-' && app.get_subcommands( isNamed ).empty() ) {
      std::cerr << "cspfctl: there is no command \"" << Text::plain( argv[ 1 ] )
                << "\"; see cspfctl --help" << std::endl;
      return 1;
   }
   try {
      app.parse( argc, argv );
      if ( !std::cout.flush() ) {
         throw std::runtime_error( "standard output cannot be written" );
      }
   } catch ( const CLI::ParseError & error ) {
      return exitStatus( app, error );
   } catch ( const std::exception & error ) {
      std::cerr << "cspfctl: " << Text::plain( error.what() ) << std::endl;
      return 1;
   }
   return status;
}
