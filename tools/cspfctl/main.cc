// The program for people: labs through an agent of its own, and the state of a running agent.

#include "tools/cspfctl/LabCommands.h"
#include "tools/cspfctl/LiveCommands.h"

#include <iostream>

int
main( int argc, char ** argv ) {
   CLI::App app{ "Runs labs through the CSPF agent, and looks into a running one" };
   app.require_subcommand( 1 );
   int status = 0;
   addRunCommand( app, status );
   addCheckCommand( app, status );
   addLiveCommands( app, status );
   addTraceCommand( app );
   const auto isNamed = [ & ]( const CLI::App * command ) {
      return command->check_name( argv[ 1 ] );
   };
   if ( argc > 1 && *argv[ 1 ] != '-' && app.get_subcommands( isNamed ).empty() ) {
      std::cerr << "cspfctl: there is no command \"" << argv[ 1 ] << "\"; see cspfctl --help"
                << std::endl;
      return 1;
   }
   try {
      app.parse( argc, argv );
      if ( !std::cout.flush() ) {
         throw std::runtime_error( "standard output cannot be written" );
      }
   } catch ( const CLI::ParseError & error ) {
      return app.exit( error ) == 0 ? 0 : 1;
   } catch ( const std::exception & error ) {
      std::cerr << "cspfctl: " << error.what() << std::endl;
      return 1;
   }
   return status;
}
