// `cspfctl draw LAB|--live`: the network and its paths as a picture, a page, or text for Graphviz.

#include "tools/cspfctl/CommandLine.h"
#include "tools/cspfctl/LabCommands.h"
#include "tools/cspfctl/LiveLab.h"
#include "tools/draw/Dot.h"
#include "tools/draw/Graphviz.h"
#include "tools/draw/Page.h"
#include "tools/lab/LabOfState.h"
#include "tools/lab/LabOutput.h"
#include "tools/lab/LabRunner.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Nearest.h"
#include "tools/text/Number.h"
#include "tools/text/Plain.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

namespace {

struct DrawOptions {
   std::string lab;
   bool live = false;
   std::vector< std::string > paths;
   std::string out = "-";
   double at = Lab::atTheEnd;
   std::string vrf, af;
   std::uint32_t seed = 1;
   std::string socket = Service::defaultSocketPath();

   /// "svg", "html" or "dot". Throws where the name ends in anything else.
   std::string kind() const {
      const std::string extension = std::filesystem::path( out ).extension();
      if ( out != "-" && extension != ".svg" && extension != ".html" && extension != ".dot" ) {
         throw std::runtime_error( "-o " + out
                                   + ": expected a name that ends in .svg, .html or .dot" );
      }
      return out == "-" ? "svg" : extension.substr( 1 );
   }
};

/// What is drawn: what the options say, else the default VRF's IPv4 network, else the first one.
Lab::VrfAf
placeOf( const DrawOptions & options, const Lab::LabDocument * lab ) {
   Lab::VrfAf where{ options.vrf.empty() ? Lab::Vrf::defaultVrf() : Lab::Vrf( options.vrf ),
                     options.af == "ipv6" ? Lab::Af::ipv6 : Lab::Af::ipv4 };
   if ( lab && options.vrf.empty() && options.af.empty() ) {
      const auto isThere = std::ranges::any_of( lab->topologies, [ & ]( const auto & entry ) {
         return entry.second.vrf == where.vrf && entry.second.af == where.af;
      } );
      if ( !isThere && !lab->topologies.empty() ) {
         const Lab::LabTopology & first = lab->topologies.begin()->second;
         where = { first.vrf, first.af };
      }
   }
   return where;
}

void
checkPaths( const Draw::Scene & scene, const std::vector< std::string > & paths ) {
   std::vector< std::string > known;
   for ( const Draw::Moment & moment : scene.moments ) {
      for ( const Draw::Route & route : moment.routes ) {
         known.push_back( route.name );
      }
   }
   std::ranges::sort( known );
   known.erase( std::unique( known.begin(), known.end() ), known.end() );
   for ( const std::string & path : paths ) {
      if ( !std::ranges::binary_search( known, path ) ) {
         throw std::runtime_error( "--path " + path + ": there is no such path"
                                   + Text::didYouMean( path, known ) );
      }
   }
}

std::string
drawing( const DrawOptions & options, const Draw::Scene & scene, const std::string & name ) {
   const Draw::Moment & moment = scene.moments.front();
   const std::string kind = options.kind();
   if ( scene.nodes.empty() ) {
      throw std::runtime_error( name + ": there is no router to be drawn" );
   }
   checkPaths( scene, options.paths );
   if ( kind == "dot" ) {
      return Draw::dotText( scene, moment, options.paths );
   }
   // A page lights paths itself.
   const std::vector< std::string > nothing;
   const std::string dot = Draw::dotText( scene, moment, kind == "html" ? nothing : options.paths );
   const std::string svg = Draw::titled( Draw::svgOf( dot ), scene, moment );
   return kind == "html" ? Draw::pageText( scene, svg, name, options.paths )
                         : "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + svg;
}

void
write( const DrawOptions & options, const std::string & text ) {
   if ( options.out == "-" ) {
      std::cout << text;
   } else if ( !( std::ofstream( options.out ) << text ).flush() ) {
      throw std::runtime_error( options.out + ": cannot be written" );
   } else {
      std::cout << options.out << std::endl;
   }
}

/// What has led to a moment: the event before it.
std::string
textOf( const Lab::LabEvent * since ) {
   if ( !since ) {
      return "at the start";
   }
   std::string text;
   for ( const std::string & line : Lab::eventLines( *since ) ) {
      text += ( text.empty() ? "" : "\n" ) + line;
   }
   return text;
}

Draw::Scene
sceneOf( const Lab::LabFile & lab, const DrawOptions & options ) {
   Draw::SceneMaker scene( placeOf( options, &lab.document() ) );
   const auto take = [ & ]( const Lab::LabMoment & moment, const std::string & text ) {
      scene.add( moment.document, Prove::Snapshot::of( moment.state, moment.tables ), text );
   };
   Lab::RunOptions run;
   run.seed = options.seed;
   if ( options.kind() == "html" && options.at == Lab::atTheEnd ) {
      Lab::tourLab(
         lab, run,
         [ & ]( const Lab::LabMoment & moment, const Lab::LabEvent * since ) {
            take( moment, textOf( since ) );
         },
         std::cerr );
   } else {
      Lab::visitLab(
         lab, run, options.at, [ & ]( const Lab::LabMoment & moment ) { take( moment, "" ); },
         std::cerr );
   }
   return scene.take();
}

int
draw( const CLI::App & app, const DrawOptions & options ) {
   options.kind();  // before there is work
   if ( options.live ) {
      const Lab::VrfAf where = placeOf( options, nullptr );
      const LiveState live( *liveCaller( app, options.socket ) );
      Lab::LabDocument document =
         Lab::documentOf( live.state(), live.tables(), {}, Lab::Shown::all );
      document.paths.clear();  // all are called by destination and number
      Draw::SceneMaker scene( where );
      scene.add( document, Prove::Snapshot::of( live.state(), live.tables() ), "live" );
      write( options, drawing( options, scene.take(), where.text() ) );
      return Lab::exitOk;
   }
   try {
      const Draw::Scene scene = sceneOf( Lab::LabFile::load( options.lab ), options );
      write( options,
             drawing( options, scene,
                      Text::plain( std::filesystem::path( options.lab ).stem().string() ) ) );
      return Lab::exitOk;
   } catch ( const Lab::LabError & error ) {
      std::cerr << "cspfctl: " << Text::plain( options.lab + ": " + error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
}

}

void
addDrawCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< DrawOptions >();
   CLI::App * command = app.add_subcommand( "draw", "Draw a network and its paths" );
   CLI::Option * lab = command->add_option( "lab", options->lab, "lab file" );
   CLI::Option * live =
      command->add_flag( "--live", options->live, "what a running agent sees" )->excludes( lab );
   command
      ->add_option( "--path", options->paths,
                    "CLIENT/PATH to be shown: by its name in the lab, or by DESTINATION#ID" )
      ->allow_extra_args( false );
   command->add_option( "-o,--output", options->out,
                        "the file: .svg, .html or .dot; without, SVG on standard output" );
   command
      ->add_option(
         "--at", options->at,
         "seconds of the lab, before what happens then, not its end, or in HTML all times" )
      ->needs( lab )
      ->check( Text::numberFrom( 0, Text::longestTime ) );
   command->add_option( "--vrf", options->vrf, "VRF to be drawn" );
   command->add_option( "--af", options->af, "family to be drawn" )
      ->check( CLI::IsMember( { "ipv4", "ipv6" } ) );
   command->add_option( "--seed", options->seed, "of the choice among equal-cost links of a lab" )
      ->needs( lab )
      ->capture_default_str();
   command->add_option( "--socket", options->socket, "control socket of the agentrunner" )
      ->needs( live )
      ->capture_default_str();
   command->fallthrough();
   command->callback( [ &app, options, &status ] {
      if ( options->lab.empty() && !options->live ) {
         throw CLI::RequiredError( "a lab, or --live" );
      }
      checkOptions( !options->live, {}, { app.get_option( "--state" ) } );
      std::ranges::transform( options->paths, options->paths.begin(), Text::plain );
      status = draw( app, *options );
   } );
}
