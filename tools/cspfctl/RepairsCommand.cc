// `cspfctl repairs [LAB]`: how well repairs cover a network, or what a running agent has published.
// A running agent is not asked for anything that its client has not asked for.

#include "tools/cspfctl/LabCommands.h"
#include "tools/lab/LabCoverage.h"
#include "tools/lab/LabRunner.h"
#include "tools/service/Client.h"
#include "tools/service/UnixSocket.h"
#include "tools/text/Plain.h"
#include "tools/text/Table.h"

#include <iostream>
#include <map>
#include <memory>

namespace {

using nlohmann::json;

struct RepairsOptions {
   std::string lab;
   std::string socket = Service::defaultSocketPath();
   Lab::CoverageOptions coverage;
};

/// The interface that a request protects against the loss of, and whether of the node behind it.
std::pair< std::string, std::string >
protectedBy( const json & constraint ) {
   const json & node = constraint[ "excludeNode" ];
   const std::string intf = constraint[ "excludeIntf" ];
   const bool isNode = !node[ "nodeId" ].get< std::string >().empty();
   return { intf.empty() ? node[ "nexthopIntf" ].get< std::string >() : intf,
            isNode ? "node" : "link" };
}

/// The requests of one VRF and family, counted by what they protect.
json
publishedCoverage( const json & requests, const json & status ) {
   std::map< std::pair< std::string, std::string >, json > counted;
   for ( const auto & [ key, request ] : requests.items() ) {
      const auto what = protectedBy( request[ "constraint" ] );
      json & count = counted.try_emplace( what, Lab::noCoverage() ).first->second;
      const auto path = status[ "pathStatus" ].find( key );
      const std::string idx =
         path == status[ "pathStatus" ].end() ? "0" : ( *path )[ "repairPathIdx" ].dump();
      if ( const auto repair = status[ "pqInfo" ].find( idx );
           repair != status[ "pqInfo" ].end() ) {
         Lab::addProtected( count, ( *repair )[ "path" ].size() );
      } else {
         Lab::addUnprotected( count, key, status[ "pathError" ].value( key, "no answer" ) );
      }
   }
   json interfaces = json::array();
   for ( auto & [ what, count ] : counted ) {
      count[ "intf" ] = what.first;
      count[ "protects" ] = what.second;
      interfaces.push_back( count );
   }
   return interfaces;
}

/// "te/cspf/config/vrf/default/ipv4/tilfa": one document for each VRF and family.
std::vector< json >
liveCoverage( const std::string & socket ) {
   const std::string configs = "te/cspf/config/vrf", statuses = "te/cspf/status/vrf";
   Service::Client client( socket );
   const json config = client.call( "get", { { "path", configs } } );
   const json status = client.call( "get", { { "path", statuses } } );
   std::vector< json > all;
   for ( const auto & [ path, table ] : config.items() ) {
      const std::string of = path.substr( configs.size() + 1 );
      const std::size_t family = of.find( '/' ), name = of.rfind( '/' );
      const auto published = status.find( std::string( statuses ).append( "/" ).append( of ) );
      if ( of.substr( name + 1 ) == "tilfa" && published != status.end() ) {
         const json & requests = table[ "value" ][ "pathConfig" ];
         all.push_back(
            { { "vrf", of.substr( 0, family ) },
              { "af", of.substr( family + 1, name - family - 1 ) },
              { "interfaces", publishedCoverage( requests, ( *published )[ "value" ] ) } } );
      }
   }
   return all;
}

void
printLive( const RepairsOptions & options ) {
   std::vector< Lab::CoverageRow > rows;
   for ( const json & one : liveCoverage( options.socket ) ) {
      if ( options.coverage.json ) {
         std::cout << one.dump() << "\n";
      }
      for ( const json & interface : one[ "interfaces" ] ) {
         std::vector< std::string > cells;
         for ( const json & cell :
               { one[ "vrf" ], one[ "af" ], interface[ "intf" ], interface[ "protects" ] } ) {
            cells.push_back( Text::plain( cell.get< std::string >() ) );
         }
         rows.push_back( { cells, interface } );
      }
   }
   if ( !options.coverage.json ) {
      Lab::printCoverage( { "VRF", "FAMILY", "INTERFACE", "OF" }, rows, options.coverage.width,
                          std::cout );
   }
}

int
repairs( RepairsOptions options ) {
   options.coverage.width = Text::terminalWidth();
   if ( options.lab.empty() ) {
      const Text::PlainOutput plain( std::cout );
      printLive( options );
      return Lab::exitOk;
   }
   try {
      return Lab::printCoverage( Lab::LabFile::load( options.lab ), options.coverage, std::cout,
                                 std::cerr );
   } catch ( const Lab::LabError & error ) {
      std::cerr << "cspfctl: " << Text::plain( options.lab + ": " + error.what() ) << std::endl;
      return Lab::exitBadLab;
   }
}

}

void
addRepairsCommand( CLI::App & app, int & status ) {
   const auto options = std::make_shared< RepairsOptions >();
   CLI::App * command = app.add_subcommand(
      "repairs",
      "Show for each interface what repairs protect, and what not: of a lab's router, or "
      "as a running agent was asked" );
   CLI::Option * lab =
      command->add_option( "lab", options->lab, "lab file; without, a running agent" );
   command->add_option( "--socket", options->socket, "control socket of the agentrunner" )
      ->capture_default_str()
      ->excludes( lab );
   command
      ->add_flag( "--node", options->coverage.node,
                  "protect against the loss of the router behind each link" )
      ->needs( lab );
   command
      ->add_flag( "--every-router", options->coverage.everyRouter,
                  "for each router of the network in turn, on all cores" )
      ->needs( lab );
   command->add_flag( "--json", options->coverage.json,
                      "print JSON, one document a router, or a VRF and family" );
   command->callback( [ options, &status ] { status = repairs( *options ); } );
}
