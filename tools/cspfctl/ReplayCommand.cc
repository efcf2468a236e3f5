// `cspfctl replay FILE`: what an agent did once, done again.

#include "platform/AgentRunner/Runner.h"
#include "tools/cspfctl/LabCommands.h"
#include "tools/lab/AgentLibrary.h"
#include "tools/lab/LabRunner.h"
#include "tools/record/Replay.h"
#include "tools/text/Plain.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

namespace {

constexpr int exitDiffers = 1;

struct ReplayOptions {
   std::string file;
   Record::ReplayOptions replay;
};

int
replayFile( const ReplayOptions & options ) {
   const bool piped = options.file == "-";
   std::ifstream file( options.file, std::ios::binary );
   if ( !piped && ( !file || file.peek() == std::ifstream::traits_type::eof() ) ) {
      throw std::runtime_error( options.file + ": expected a record, found: "
                                + ( file.is_open() ? "nothing" : std::strerror( errno ) ) );
   }
   try {
      const AgentRunner::Library library( Lab::agentLibraryPath() );
      const Record::Replayed result = Record::replay( piped ? std::cin : file, library.factory(),
                                                      options.replay, std::cout, std::cerr );
      std::cerr << result.changes << " changes, " << result.runs << " pieces of work, "
                << result.published << " fields published in " << result.seconds << " s"
                << ( result.cutOff ? "; the record is cut off" : "" ) << "\n";
      if ( !result.difference.empty() ) {
         std::cerr << "cspfctl: " << Text::plain( options.file + ": " + result.difference )
                   << std::endl;
         return exitDiffers;
      }
   } catch ( const Record::Error & error ) {
      std::cerr << "cspfctl: " << Text::plain( options.file + ": " + error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
   return Lab::exitOk;
}

}

void
addReplayCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< ReplayOptions >();
   CLI::App * command = app.add_subcommand(
      "replay", "Play what agentrunner --record wrote again, and compare what is published" );
   command->add_option( "record", options->file, "the record; - for standard input" )->required();
   command->add_flag( "--print", options->replay.print,
                      "print what is published, a line of JSON each, as it stands in the record" );
   command->add_flag( "-v,--verbose", options->replay.verbose,
                      "print the agent's traces with the time of the record" );
   command->callback( [ options, &status ] { status = replayFile( *options ); } );
}
