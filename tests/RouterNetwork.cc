#include "tests/RouterNetwork.h"

#include "tools/igpfeed/Vty.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace {

constexpr const char * script = CSPF_SOURCE_DIR "/tests/network/routers";

std::string
run( const std::string & program, const std::vector< std::string > & arguments ) {
   const ProgramResult result = runProgram( program, arguments );
   if ( result.exitStatus != 0 ) {
      throw std::runtime_error( program + " failed: " + result.err );
   }
   return result.out;
}

std::vector< std::string >
words( const std::string & line ) {
   std::istringstream in( line );
   std::vector< std::string > all;
   for ( std::string word; in >> word; ) {
      all.push_back( word );
   }
   return all;
}

/// "10.0.0.5" for "10.0.0.5/32", "" for anything else than a loopback.
std::string
loopback( const std::string & prefix ) {
   return prefix.starts_with( "10.0.0." ) && prefix.ends_with( "/32" )
             ? prefix.substr( 0, prefix.size() - 3 )
             : std::string();
}

}

std::string
RouterNetwork::missing() {
   if ( geteuid() != 0 ) {
      return "root";
   }
   for ( const char * file : { "/usr/lib/frr/isisd", "/usr/lib/frr/ospfd", "/usr/sbin/ip" } ) {
      if ( !std::filesystem::exists( file ) ) {
         return file;
      }
   }
   // Root of a container may still make no namespace.
   const std::string probe = "cspf-probe-" + std::to_string( getpid() );
   const bool works = runProgram( "/usr/sbin/ip", { "netns", "add", probe } ).exitStatus == 0;
   runProgram( "/usr/sbin/ip", { "netns", "del", probe } );
   return works ? "" : "network namespaces";
}

RouterNetwork::RouterNetwork( bool withVrf ) {
   try {
      run( script, { "up", directory_.path(), withVrf ? "vrf" : "" } );
      prefix_ = std::filesystem::path( directory_.path() ).filename();
   } catch ( ... ) {
      runProgram( script, { "down", directory_.path() } );
      throw;
   }
}

RouterNetwork::~RouterNetwork() {
   down();
}

std::string
RouterNetwork::ask( const std::string & router, const std::string & daemon,
                    const std::string & command ) const {
   try {
      return IgpFeed::Vty( vtyDirectory( router ) + "/" + daemon + ".vty" ).ask( command );
   } catch ( const IgpFeed::VtyError & ) {
      return "";
   }
}

void
RouterNetwork::configure( const std::string & router, const std::string & daemon,
                          const std::vector< std::string > & lines ) const {
   IgpFeed::Vty vty( vtyDirectory( router ) + "/" + daemon + ".vty" );
   vty.ask( "configure terminal" );
   for ( const std::string & line : lines ) {
      vty.ask( line );
   }
}

void
RouterNetwork::interfaceIs( const std::string & router, const std::string & name, bool up ) const {
   run( "/usr/sbin/ip", { "-n", namespaceOf( router ), "link", "set", name, up ? "up" : "down" } );
}

void
RouterNetwork::kill( const std::string & router, const std::string & daemon ) const {
   pid_t pid = 0;
   std::ifstream( vtyDirectory( router ) + "/" + daemon + ".pid" ) >> pid;
   if ( pid <= 0 || ::kill( pid, SIGKILL ) != 0 ) {
      throw std::runtime_error( daemon + " of " + router + " does not run" );
   }
}

void
RouterNetwork::start( const std::string & router, const std::string & daemon ) const {
   run( script, { "start", directory_.path(), router, daemon } );
}

std::string
RouterNetwork::down() {
   if ( prefix_.empty() ) {
      return "";
   }
   std::string left = runProgram( script, { "down", directory_.path() } ).err;
   for ( const auto & entry : std::filesystem::directory_iterator( "/run/netns" ) ) {
      const std::string name = entry.path().filename();
      left += name.starts_with( prefix_ + "-" ) ? name + " is still there\n" : "";
   }
   for ( const auto & entry : std::filesystem::recursive_directory_iterator( directory_.path() ) ) {
      pid_t pid = 0;
      if ( entry.path().extension() == ".pid" && std::ifstream( entry.path() ) >> pid
           && ::kill( pid, 0 ) == 0 ) {
         left += entry.path().string() + " still runs\n";
      }
   }
   prefix_.clear();
   return left;
}

/// " 10.0.0.5/32  30      l14        10.1.4.4  16005", and a further next hop in a line of its own.
std::map< std::string, RouterRoute >
RouterNetwork::isisRoutes() const {
   std::map< std::string, RouterRoute > routes;
   std::istringstream in( ask( "r1", "isisd", "show isis route level-2" ) );
   std::string current;
   for ( std::string line; std::getline( in, line ); ) {
      const auto row = words( line );
      if ( row.size() == 5 && row[ 0 ].find( '/' ) != row[ 0 ].npos ) {
         current = row[ 3 ] == "-" ? "" : loopback( row[ 0 ] );
         if ( !current.empty() ) {
            routes[ current ].cost = static_cast< unsigned >( std::stoul( row[ 1 ] ) );
            routes[ current ].nextHops.insert( row[ 3 ] );
         }
      } else if ( row.size() == 3 && !current.empty() ) {
         routes[ current ].nextHops.insert( row[ 1 ] );
      }
   }
   return routes;
}

/// "N    10.0.0.5/32           [20] area: 0.0.0.0", then a line "via 10.1.4.4, l14" each.
std::map< std::string, RouterRoute >
RouterNetwork::ospfRoutes() const {
   std::map< std::string, RouterRoute > routes;
   std::istringstream in( ask( "r1", "ospfd", "show ip ospf route" ) );
   std::string current;
   for ( std::string line; std::getline( in, line ); ) {
      const auto row = words( line );
      if ( row.size() >= 3 && row[ 0 ] == "N" ) {
         current = loopback( row[ 1 ] );
         if ( !current.empty() ) {
            routes[ current ].cost = static_cast< unsigned >( std::stoul( row[ 2 ].substr( 1 ) ) );
         }
      } else if ( row.size() == 3 && row[ 0 ] == "via" && !current.empty() ) {
         routes[ current ].nextHops.insert( row[ 1 ].substr( 0, row[ 1 ].find( ',' ) ) );
      } else if ( !row.empty() && row[ 0 ] != "via" && row[ 0 ] != "N" ) {
         current.clear();
      }
   }
   std::erase_if( routes, []( const auto & entry ) { return entry.second.nextHops.empty(); } );
   return routes;
}

/// " 10.0.0.2/32  40      l14        10.1.4.4  16005/16002"
std::map< std::string, std::vector< unsigned > >
RouterNetwork::repairLabels() const {
   std::map< std::string, std::vector< unsigned > > labels;
   std::istringstream in( ask( "r1", "isisd", "show isis route level-2 backup" ) );
   for ( std::string line; std::getline( in, line ); ) {
      const auto row = words( line );
      if ( row.size() == 5 && !loopback( row[ 0 ] ).empty() ) {
         std::istringstream list( row[ 4 ] );
         for ( std::string label; std::getline( list, label, '/' ); ) {
            labels[ loopback( row[ 0 ] ) ].push_back(
               static_cast< unsigned >( std::stoul( label ) ) );
         }
      }
   }
   return labels;
}
