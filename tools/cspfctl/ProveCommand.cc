// `cspfctl prove [LAB]`: whether all that is published holds, judged from state alone. A lab runs
// in this process; without one the state of a running agent is read, all at one moment.

#include "tools/cspfctl/LabCommands.h"
#include "tools/cspfctl/LiveSnapshot.h"
#include "tools/lab/LabRunner.h"
#include "tools/prove/Proof.h"
#include "tools/service/Client.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Number.h"
#include "tools/text/Plain.h"

#include <iostream>
#include <memory>
#include <optional>

namespace {

using Json = nlohmann::json;

constexpr int exitFaults = 1;

struct ProveOptions {
   std::string lab;
   double at = Lab::atTheEnd;
   std::string socket = Service::defaultSocketPath();
   double timeout = 10;
   std::uint32_t seed = 1;
   bool json = false;
};

void
printJson( const Prove::Verdict & verdict, bool settled ) {
   Json json{ { "holds", verdict.faults.empty() },
              { "settled", settled },
              { "faults", Json::array() },
              { "remarks", verdict.remarks } };
   for ( const Prove::Fault & fault : verdict.faults ) {
      json[ "faults" ].push_back( { { "where", fault.where },
                                    { "client", fault.client },
                                    { "path", fault.path },
                                    { "text", fault.text } } );
   }
   for ( const Prove::Count & count : Prove::counts() ) {
      json[ count.name ] = verdict.*count.count;
   }
   std::cout << json.dump() << "\n";
}

void
printText( const Prove::Verdict & verdict, bool settled ) {
   std::cout << Prove::faultsText( verdict );
   if ( !settled ) {
      std::cout << "note: no agent is at rest; what is published may be behind\n";
   }
   std::cout << Prove::sumText( verdict ) << "\n";
}

int
report( const Prove::Verdict & verdict, bool settled, bool json ) {
   const Text::PlainOutput plain( std::cout );
   json ? printJson( verdict, settled ) : printText( verdict, settled );
   return verdict.faults.empty() ? Lab::exitOk : exitFaults;
}

int
proveLab( const ProveOptions & options ) {
   Lab::RunOptions run;
   run.seed = options.seed;
   int status = Lab::exitOk;
   try {
      Lab::visitLab(
         Lab::LabFile::load( options.lab ), run, options.at,
         [ & ]( const Lab::LabMoment & moment ) {
            const auto state = Prove::Snapshot::of( moment.state, moment.tables );
            status = report( Prove::prove( state ), moment.settled, options.json );
         },
         std::cerr );
   } catch ( const Lab::LabError & error ) {
      std::cerr << "cspfctl: " << Text::plain( options.lab + ": " + error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
   return status;
}

int
proveAgent( const ProveOptions & options ) {
   const auto agent = agentCaller( options.socket );
   try {
      const bool settled = settles( *agent, options.timeout );
      return report( Prove::prove( liveSnapshot( options.socket ) ), settled, options.json );
   } catch ( const Service::TimedOut & ) {
      std::cerr << "cspfctl: timed out: the agent does not answer" << std::endl;
      return exitTimedOut;
   }
}

}

void
addProveCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< ProveOptions >();
   CLI::App * command =
      app.add_subcommand( "prove", "Judge all that an agent has published, from state alone" );
   CLI::Option * lab = command->add_option( "lab", options->lab,
                                            "lab file; without one, a running agent is judged" );
   command
      ->add_option( "--at", options->at,
                    "seconds of the lab, before what happens then, not its end" )
      ->needs( lab )
      ->check( Text::numberFrom( 0, Text::longestTime ) );
   command->add_option( "--seed", options->seed, "of the choice among equal-cost links" )
      ->needs( lab )
      ->capture_default_str();
   command->add_option( "--socket", options->socket, "control socket of the agentrunner" )
      ->capture_default_str()
      ->excludes( lab );
   command
      ->add_option( "--timeout", options->timeout, "seconds to wait for a running agent to rest" )
      ->check( Text::numberFrom( 0, Text::longestTime ) )
      ->capture_default_str()
      ->excludes( lab );
   command->add_flag( "--json", options->json, "print one JSON document" );
   command->callback( [ options, &status ] {
      status = options->lab.empty() ? proveAgent( *options ) : proveLab( *options );
   } );
}
