// `cspfctl whatif LAB`: what a change of a lab would do to its paths.

#include "tools/cspfctl/LabCommands.h"
#include "tools/cspfctl/PatchText.h"
#include "tools/lab/LabWhatIf.h"
#include "tools/text/Plain.h"
#include "tools/text/Table.h"

#include <iostream>
#include <memory>

namespace {

struct Options {
   std::string lab;
   std::string patch;
   std::size_t event = 0;  ///< from 1; 0: none
   std::string each;
   double at = Lab::atTheEnd;
   std::uint32_t seed = 1;
   bool json = false;
};

const std::map< std::string, Lab::FailureKind > kinds{ { "link", Lab::FailureKind::link },
                                                       { "router", Lab::FailureKind::router },
                                                       { "srlg", Lab::FailureKind::srlg } };

/// The moment at which the change comes, and the change.
Lab::LabJson
changeOf( Options & options, const Lab::LabFile & lab ) {
   if ( options.event > 0 ) {
      if ( options.event > lab.events().size() ) {
         throw std::runtime_error( "--event " + std::to_string( options.event ) + ": the lab has "
                                   + std::to_string( lab.events().size() ) );
      }
      const Lab::LabEvent & event = lab.events()[ options.event - 1 ];
      options.at = event.at;
      return event.patch;
   }
   return options.each.empty() ? Lab::LabJson::parse( patchText( options.patch ) ) : Lab::LabJson();
}

int
whatIf( Options options ) {
   try {
      const Lab::LabFile lab = Lab::LabFile::load( options.lab );
      const Lab::LabJson change = changeOf( options, lab );
      Lab::RunOptions run;
      run.seed = options.seed;
      bool ok = true;
      const unsigned width = Text::terminalWidth();
      Lab::visitLab(
         lab, run, options.at,
         [ & ]( const Lab::LabMoment & moment ) {
            if ( options.each.empty() ) {
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
      std::cerr << "cspfctl: " << Text::plain( options.lab + ": " + error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
}

}

void
addWhatIfCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< Options >();
   CLI::App * command =
      app.add_subcommand( "whatif", "Show what a change of a lab would do to its paths" );
   command->add_option( "lab", options->lab, "lab file" )->required();
   CLI::Option * patch = command->add_option(
      "patch", options->patch, "JSON merge patch of the lab; @FILE, or - for standard input" );
   CLI::Option * event =
      command->add_option( "--event", options->event, "what this event of the lab does, from 1" )
         ->check( CLI::PositiveNumber )
         ->excludes( patch );
   command
      ->add_option( "--each", options->each,
                    "every link, router or srlg fails in turn, each alone, on all cores" )
      ->check( CLI::IsMember( { "link", "router", "srlg" } ) )
      ->excludes( patch )
      ->excludes( event );
   command
      ->add_option( "--at", options->at,
                    "seconds of the lab, before what happens then, not its end" )
      ->check( CLI::NonNegativeNumber )
      ->excludes( event );
   command->add_option( "--seed", options->seed, "of the choice among equal-cost links" )
      ->capture_default_str();
   command->add_flag( "--json", options->json, "print JSON, one document a change" );
   command->callback( [ options, &status ] {
      if ( options->patch.empty() && options->event == 0 && options->each.empty() ) {
         throw CLI::RequiredError( "a patch, --event or --each" );
      }
      status = whatIf( *options );
   } );
}
