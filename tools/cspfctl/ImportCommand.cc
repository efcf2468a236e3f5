// `cspfctl import`: a capture of a routing daemon as a lab.

#include "tools/cspfctl/LabCommands.h"
#include "tools/igp/IsisTopology.h"
#include "tools/igp/LabOfTopologies.h"
#include "tools/igp/OspfText.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabRunner.h"
#include "tools/text/Input.h"
#include "tools/text/Plain.h"

#include <algorithm>
#include <iostream>
#include <memory>

namespace {

struct ImportOptions {
   std::vector< std::string > files;
   std::string router;
   bool bare = false;
};

struct Imported {
   std::vector< Igp::Topology > topologies;
   Igp::Findings findings;
};

std::string
captureIn( const std::string & file ) {
   try {
      return Text::contentOf( file );
   } catch ( const std::runtime_error & error ) {
      throw Igp::CaptureError( file + ": " + error.what() );
   }
}

Imported
importIsis( const std::vector< std::string > & files ) {
   Igp::IsisCapture capture;
   for ( const std::string & file : files ) {
      Igp::readIsis( captureIn( file ), file, capture );
   }
   if ( capture.lsps.empty() ) {
      throw Igp::CaptureError( "no LSP in the capture: expected `show isis database detail`" );
   }
   auto network = Igp::isisNetwork( capture, L3::VrfName::defaultVrf() );
   return { std::move( network.topologies ), std::move( network.findings ) };
}

Imported
importOspf( const std::vector< std::string > & files ) {
   Igp::OspfCapture capture;
   for ( const std::string & file : files ) {
      Igp::readOspf( captureIn( file ), file, capture );
   }
   auto network = Igp::ospfNetwork( capture, 0 );
   if ( std::ranges::all_of( network.topologies, []( const Igp::Topology & topology ) {
           return topology.routers.empty();
        } ) ) {
      throw Igp::CaptureError(
         "no router LSA in the capture: expected `show ip ospf database router`" );
   }
   return { std::move( network.topologies ), std::move( network.findings ) };
}

void
tell( const Igp::Findings & findings ) {
   for ( const std::string & finding : findings ) {
      std::cerr << "cspfctl: " << Text::plain( finding ) << "\n";
   }
}

int
run( const ImportOptions & options, Imported ( *read )( const std::vector< std::string > & ) ) {
   try {
      const Imported imported = read( options.files );
      tell( imported.findings );
      Igp::Findings leftOut;
      const auto lab = Igp::labOf( imported.topologies, options.router, !options.bare, leftOut );
      tell( leftOut );
      const std::string text =
         lab.dump( 2, ' ', false, nlohmann::ordered_json::error_handler_t::replace );
      Lab::LabFile::parse( text );  // what is printed can be run
      std::cout << text << std::endl;
      return Lab::exitOk;
   } catch ( const std::runtime_error & error ) {
      std::cerr << "cspfctl: " << Text::plain( error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
}

void
addProtocol( CLI::App & import, const char * name, const char * about, int & status,
             Imported ( *read )( const std::vector< std::string > & ) ) {
   const auto options = std::make_shared< ImportOptions >();
   CLI::App * command = import.add_subcommand( name, about );
   command->add_option( "files", options->files, "what the commands printed; - for standard input" )
      ->required();
   command->add_option( "--router", options->router,
                        "the router that the lab is of; without it, the one that was asked" );
   command->add_flag( "--bare", options->bare,
                      "the network alone, without a client and its paths" );
   command->callback( [ options, read, &status ] { status = run( *options, read ); } );
}

}

void
addImportCommand( CLI::App & app, int & status ) {
   CLI::App * import =
      app.add_subcommand( "import", "Make a lab of what an operator saved from a routing daemon" );
   import->require_subcommand( 1 );
   addProtocol( *import, "isis", "from `show isis database detail` and `show isis hostname`",
                status, importIsis );
   addProtocol( *import, "ospf", "from `show ip ospf database router`, `network`, `opaque-area`",
                status, importOspf );
}
