// `cspfctl check LAB...`: whether labs are valid, and what is in them.

#include "tools/cspfctl/LabCommands.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabRunner.h"
#include "tools/text/Plain.h"

#include <iostream>
#include <memory>

namespace {

std::string
counted( std::size_t count, const char * one, const char * many ) {
   return std::to_string( count ) + " " + ( count == 1 ? one : many );
}

std::string
summary( const Lab::LabFile & lab ) {
   std::size_t routers = 0, links = 0, lans = 0, paths = 0;
   for ( const auto & [ name, topology ] : lab.document().topologies ) {
      routers += topology.routers.size();
      links += topology.links.size();
      lans += topology.lans.size();
   }
   for ( const auto & [ client, asked ] : lab.document().paths ) {
      paths += asked.size();
   }
   return counted( lab.document().topologies.size(), "topology", "topologies" ) + " with "
          + counted( routers, "router", "routers" ) + ", " + counted( links, "link", "links" )
          + " and " + counted( lans, "LAN", "LANs" ) + "; " + counted( paths, "path", "paths" )
          + ", " + counted( lab.events().size(), "event", "events" );
}

int
check( const std::vector< std::string > & files ) {
   int status = Lab::exitOk;
   for ( const std::string & file : files ) {
      try {
         const std::string found = summary( Lab::LabFile::load( file ) );
         std::cout << file << ": " << found << std::endl;
      } catch ( const Lab::LabError & error ) {
         std::cerr << "cspfctl: " << Text::plain( file + ": " + error.what() ) << std::endl;
         status = Lab::exitBadLab;
      }
   }
   return status;
}

}

void
addCheckCommand( CLI::App & app, int & status ) {
   const auto files = std::make_shared< std::vector< std::string > >();
   CLI::App * command = app.add_subcommand( "check", "Only say whether labs are valid" );
   command->add_option( "labs", *files, "lab files" )->required();
   command->callback( [ files, &status ] { status = check( *files ); } );
}
