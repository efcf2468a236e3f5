// `cspfctl repairs LAB`: how well repairs cover a network.

#include "tools/cspfctl/LabCommands.h"
#include "tools/lab/LabCoverage.h"
#include "tools/lab/LabRunner.h"
#include "tools/text/Table.h"

#include <iostream>
#include <memory>

namespace {

struct Options {
   std::string lab;
   Lab::CoverageOptions coverage;
};

int
repairs( Options options ) {
   options.coverage.width = Text::terminalWidth();
   try {
      return Lab::printCoverage( Lab::LabFile::load( options.lab ), options.coverage, std::cout,
                                 std::cerr );
   } catch ( const Lab::LabError & error ) {
      std::cerr << "cspfctl: " << options.lab << ": " << error.what() << std::endl;
      return Lab::exitBadLab;
   }
}

}

void
addRepairsCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< Options >();
   CLI::App * command = app.add_subcommand(
      "repairs", "Show for each interface of a lab's router what repairs protect, and what not" );
   command->add_option( "lab", options->lab, "lab file" )->required();
   command->add_flag( "--node", options->coverage.node,
                      "protect against the loss of the router behind each link" );
   command->add_flag( "--every-router", options->coverage.everyRouter,
                      "for each router of the network in turn, on all cores" );
   command->add_flag( "--json", options->coverage.json, "print JSON, one document a router" );
   command->callback( [ options, &status ] { status = repairs( *options ); } );
}
