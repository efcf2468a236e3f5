// The program for people: labs through an agent of its own, and the state of a running agent.

#include "tools/cspfctl/CommandLine.h"
#include "tools/cspfctl/CompleteCommand.h"
#include "tools/cspfctl/LabCommands.h"
#include "tools/cspfctl/LiveCommands.h"
#include "tools/text/Output.h"
#include "tools/text/Plain.h"

#include <iostream>

namespace {

void
addCommands( CLI::App & app, int & status ) {
   addRunCommand( app, status );
   addRepairsCommand( app, status );
   addCheckCommand( app, status );
   addImportCommand( app, status );
   addProveCommand( app, status );
   addExplainCommand( app, status );
   addWhatIfCommand( app, status );
   addDrawCommand( app, status );
   addReplayCommand( app, status );
   addLiveCommands( app, status );
   addWaitCommand( app, status );
   addTraceCommand( app );
   addSupportCommand( app );
}

void
parse( CLI::App & app, std::vector< std::string > words ) {
   std::ranges::reverse( words );  // as CLI11 takes them
   app.parse( words );
   if ( app.get_subcommands().empty() ) {
      std::cout << app.help();
   }
   Text::flushOutput();
}

}

int
main( int argc, char ** argv ) {
   CLI::App app{ "Runs labs through the CSPF agent, and looks into a running one" };
   app.require_subcommand( 0, 1 );
   int status = 0;
   addCommands( app, status );
   describeCommands( app );
   const std::vector< std::string > words = wordsOf( argc, argv );
   if ( !words.empty() && words.front() == completeCommand ) {
      complete( app, { words.begin() + 1, words.end() }, std::cout );
      return 0;
   }
   try {
      parse( app, words );
   } catch ( const CLI::Success & asked ) {
      return app.exit( asked );
   } catch ( const CLI::ParseError & error ) {
      std::cerr << Text::plain( complaint( app, words, error ) ) << std::endl;
      return 1;
   } catch ( const std::exception & error ) {
      std::cerr << "cspfctl: " << Text::plain( error.what() ) << std::endl;
      return 1;
   }
   return status;
}
