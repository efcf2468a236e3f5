// `cspfctl whatif [LAB]`: what a change of a lab would do to its paths, or of a running agent's
// state to what that publishes, found out on a copy.

#include "tools/cspfctl/CommandLine.h"
#include "tools/cspfctl/LabCommands.h"
#include "tools/cspfctl/LiveLab.h"
#include "tools/cspfctl/PatchText.h"
#include "tools/lab/LabWhatIf.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Number.h"
#include "tools/text/Plain.h"
#include "tools/text/Table.h"

#include <climits>
#include <iostream>
#include <memory>
#include <optional>

namespace {

struct WhatIfOptions {
   std::string first, second;
   std::vector< std::string > words;  ///< [LAB] [PATCH]: those of both that were given
   std::string names;
   std::size_t event = 0;  ///< from 1; 0: none
   std::string each;
   double at = Lab::atTheEnd;
   std::uint32_t seed = 1;
   std::string socket = Service::defaultSocketPath();
   bool json = false;

   bool changesByPatch() const { return event == 0 && each.empty(); }
   /// No lab is named.
   bool isLive() const { return words.size() == ( changesByPatch() ? 1 : 0 ); }
   /// The lab to which the event belongs.
   std::string lab() const { return isLive() ? names : words.front(); }
   /// For people: where the network comes from, and the change.
   std::string labName() const { return lab().empty() ? "the running agent" : lab(); }
   std::string changeName() const {
      return changesByPatch() ? patchName( words.back() ) : labName();
   }
};

const std::map< std::string, Lab::FailureKind > kinds{ { "link", Lab::FailureKind::link },
                                                       { "router", Lab::FailureKind::router },
                                                       { "srlg", Lab::FailureKind::srlg } };

/// The change, and where it is an event of a lab, the moment at which it comes.
Lab::LabJson
changeOf( WhatIfOptions & options ) {
   if ( options.event > 0 ) {
      const auto events = Lab::LabFile::load( options.lab() ).events();
      if ( options.event > events.size() ) {
         throw std::runtime_error( "--event " + std::to_string( options.event ) + ": the lab has "
                                   + std::to_string( events.size() ) );
      }
      options.at = options.isLive() ? options.at : events[ options.event - 1 ].at;
      return events[ options.event - 1 ].patch;
   }
   return options.each.empty() ? Lab::LabJson::parse( patchText( options.words.back() ) )
                               : Lab::LabJson();
}

int
whatIf( const CLI::App & app, WhatIfOptions options ) {
   std::string blamed = options.changeName();  // for what is no lab
   try {
      const Lab::LabJson change = changeOf( options );
      blamed = options.labName();
      const Lab::LabFile lab =
         options.isLive() ? Lab::LabFile::parse(
            liveLab( *liveCaller( app, options.socket ), options.names ).dump() )
                          : Lab::LabFile::load( options.lab() );
      Lab::RunOptions run;
      run.seed = options.seed;
      bool ok = true;
      const unsigned width = Text::terminalWidth();
      Lab::visitLab(
         lab, run, options.at,
         [ & ]( const Lab::LabMoment & moment ) {
            if ( options.each.empty() ) {
               blamed = options.changeName();
               Lab::printWhatIf( moment, change, options.json, width, std::cout );
            } else {
               ok = Lab::printWhatIfEach(
                  moment, Lab::failuresOf( moment.document, kinds.at( options.each ) ),
                  options.json, width, std::cout );
            }
         },
         std::cerr );
      return ok ? Lab::exitOk : Lab::exitBrokenInvariant;
   } catch ( const Lab::LabError & error ) {
      std::cerr << "cspfctl: " << Text::plain( blamed + ": " + error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
}

}

void
addWhatIfCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< WhatIfOptions >();
   CLI::App * command = app.add_subcommand(
      "whatif",
      "Show what a change of a lab, or of a running agent's state, would do to its paths" );
   // As one list, they could not hold a word "[...]".
   CLI::Option * first = command->add_option( "lab", options->first,
                                              "lab file; without one, a running agent is asked" );
   CLI::Option * second = command->add_option(
      "patch", options->second,
      "JSON merge patch of the lab, or of what `save` would print of a running agent; @FILE, or - "
      "for standard input; none with --event or --each" );
   CLI::Option * event =
      command->add_option( "--event", options->event, "what this event of the lab does, from 1" )
         ->check( Text::numberFrom( 1, INT_MAX ) );
   command
      ->add_option( "--each", options->each,
                    "every link, router or srlg fails in turn, each alone, on all cores" )
      ->check( CLI::IsMember( { "link", "router", "srlg" } ) )
      ->excludes( event );
   CLI::Option * at = command
                         ->add_option( "--at", options->at,
                                       "seconds of the lab, before what happens then, not its end" )
                         ->check( Text::numberFrom( 0, Text::longestTime ) )
                         ->excludes( event );
   CLI::Option * seed =
      command
         ->add_option( "--seed", options->seed, "of the choice among equal-cost links of a lab" )
         ->capture_default_str();
   command->add_flag( "--json", options->json, "print JSON, one document a change" );
   CLI::Option * names =
      command->add_option( "--names", options->names,
                           "lab that says what the routers, links and paths of a running agent are "
                           "called, and has the event" );
   CLI::Option * socket =
      command->add_option( "--socket", options->socket, "control socket of the agentrunner" )
         ->capture_default_str();
   command->fallthrough();
   command->callback( [ &app, first, second, at, seed, names, socket, options, &status ] {
      if ( first->count() > 0 ) {
         options->words.push_back( options->first );
      }
      if ( second->count() > 0 ) {
         options->words.push_back( options->second );
      }
      if ( options->words.size() > ( options->changesByPatch() ? 2 : 1 ) ) {
         throw CLI::ValidationError( "a patch, --event and --each exclude each other" );
      }
      if ( options->changesByPatch() && options->words.empty() ) {
         throw CLI::RequiredError( "a patch, --event or --each" );
      }
      if ( options->event > 0 && options->lab().empty() ) {
         throw CLI::RequiredError( "the lab of the event, or --names" );
      }
      checkOptions( !options->isLive(), { at, seed },
                    { names, socket, app.get_option( "--state" ) } );
      status = whatIf( app, *options );
   } );
}
