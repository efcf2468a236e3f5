// `cspfctl run LAB`: the lab through the real agent, in this process.

#include "tools/cspfctl/LabCommands.h"
#include "tools/lab/LabRunner.h"
#include "tools/text/Plain.h"
#include "tools/text/Table.h"

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string_view>
#include <unistd.h>

namespace {

struct RunOptions {
   std::string lab;
   Lab::RunOptions run;
};

bool
showsColours() {
   const char * const terminal = std::getenv( "TERM" );
   return terminal && std::string_view( terminal ) != "dumb" && !std::getenv( "NO_COLOR" );
}

int
run( RunOptions options ) {
   options.run.width = Text::terminalWidth();
   options.run.colour = isatty( STDOUT_FILENO ) && showsColours();
   // Traces come down the same terminal, and say enough of where the run is.
   options.run.progress = isatty( STDERR_FILENO ) && !options.run.verbose;
   try {
      return Lab::runLab( Lab::LabFile::load( options.lab ), options.run, std::cout, std::cerr );
   } catch ( const Lab::LabError & error ) {
      std::cerr << "cspfctl: " << Text::plain( options.lab + ": " + error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
}

}

void
addRunCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< RunOptions >();
   CLI::App * command =
      app.add_subcommand( "run", "Run a lab through the agent and print what it publishes" );
   command->add_option( "lab", options->lab, "lab file" )->required();
   command->add_flag( "--json", options->run.json, "print JSON, one document a line" );
   command->add_flag( "-v,--verbose", options->run.verbose,
                      "show the agent's traces, with the time of the lab, on standard error" );
   command->add_option( "--seed", options->run.seed, "of the choice among equal-cost links" )
      ->capture_default_str();
   command->add_flag( "--realtime", options->run.realtime,
                      "use the wall clock instead of the virtual one" );
   command->callback( [ options, &status ] { status = run( *options ); } );
}
