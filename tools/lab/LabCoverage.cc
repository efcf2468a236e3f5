// The coverage of repairs. A lab becomes one that asks, in the name of one router, for a repair of
// each of its interfaces towards each other router; the agent answers it like any lab. Routers are
// spread over processes, since an agent and its clock are one a process.

#include "tools/lab/LabCoverage.h"

#include "tools/lab/LabRunner.h"
#include "tools/text/Plain.h"
#include "tools/text/Table.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Lab {

namespace {

using nlohmann::json;

/// A router's interface in one topology, and the router behind it ("" behind a LAN).
struct Interface {
   std::string topology, intf, behind;
};

std::vector< Interface >
interfacesOf( const LabDocument & document, const std::string & router ) {
   std::vector< Interface > interfaces;
   for ( const auto & [ name, topology ] : document.topologies ) {
      if ( !visible( document, topology ) || topology.id.igpSource() != Cspf::IgpSource::isis ) {
         continue;
      }
      for ( const auto & [ linkName, link ] : topology.links ) {
         if ( link.a.router == router ) {
            interfaces.push_back( { name, link.a.intf.stringValue(), link.b.router } );
         }
         if ( link.b.router == router ) {
            interfaces.push_back( { name, link.b.intf.stringValue(), link.a.router } );
         }
      }
      for ( const auto & [ lanName, lan ] : topology.lans ) {
         if ( const auto member = lan.members.find( router ); member != lan.members.end() ) {
            interfaces.push_back( { name, member->second.intf.stringValue(), "" } );
         }
      }
   }
   return interfaces;
}

std::string
pathName( const Interface & interface, const std::string & destination ) {
   return json::array( { interface.topology, interface.intf, destination } ).dump();
}

/// The requests for all repairs of one router.
json
pathsOf( const LabDocument & document, const std::string & router, bool node ) {
   json paths = json::object();
   unsigned id = 0;
   for ( const Interface & interface : interfacesOf( document, router ) ) {
      const LabTopology & topology = document.topologies.at( interface.topology );
      ++id;
      json constraint{ { "excludeIntf", interface.intf }, { "topoId", interface.topology } };
      if ( node && !interface.behind.empty() ) {
         constraint[ "excludeNode" ] = { { "node", interface.behind },
                                         { "nexthopIntf", interface.intf } };
      }
      for ( const auto & [ name, destination ] : topology.routers ) {
         if ( name != router ) {
            paths[ pathName( interface, name ) ] = { { "vrf", topology.vrf.stringValue() },
                                                     { "af", Kivnet::text( topology.af ) },
                                                     { "dst", destination.id.stringValue() },
                                                     { "id", id },
                                                     { "constraint", constraint } };
         }
      }
   }
   return paths;
}

/// The lab as it begins, seen from that router, with these requests alone.
LabFile
labOf( const json & root, const LabDocument & document, const std::string & router, bool node ) {
   json lab = root;
   lab[ "router" ] = router;
   for ( const char * own :
         { "events", "interfaces", "segmentRouting", "te", "clients", "paths" } ) {
      if ( router != document.router || std::string( own ) != "interfaces" ) {
         lab.erase( own );
      }
   }
   json vrfs = json::object();
   for ( const auto & [ name, topology ] : document.topologies ) {
      vrfs[ topology.vrf.stringValue() ] = true;
   }
   lab[ "clients" ][ "tilfa" ] = { { "vrf", vrfs },
                                   { "addressFamily", { { "ipv4", true }, { "ipv6", true } } } };
   lab[ "paths" ][ "tilfa" ] = pathsOf( document, router, node );
   return LabFile::parse( lab.dump() );
}

constexpr const char * kinds[] = { "direct", "oneNode", "twoNodes", "more" };

/// Counts the answers, which are one line of a run's output.
json
coverageOf( const json & outcome, const std::string & router,
            const std::vector< Interface > & interfaces ) {
   std::map< std::pair< std::string, std::string >, json > counted;
   for ( const Interface & interface : interfaces ) {
      json & coverage = counted[ { interface.topology, interface.intf } ] = noCoverage();
      coverage[ "topology" ] = interface.topology;
      coverage[ "intf" ] = interface.intf;
   }
   for ( const json & service : outcome[ "clients" ][ "tilfa" ] ) {
      std::map< std::uint32_t, std::size_t > nodes;
      for ( const json & repair : service[ "pqInfo" ] ) {
         nodes[ repair[ "idx" ] ] = repair[ "path" ].size();
      }
      for ( const json & path : service[ "pathStatus" ] ) {
         const json name = json::parse( path[ "name" ].get< std::string >() );
         json & count = counted[ { name[ 0 ], name[ 1 ] } ];
         if ( const auto repair = nodes.find( path[ "repairPathIdx" ] ); repair != nodes.end() ) {
            addProtected( count, repair->second );
         } else {
            addUnprotected( count, name[ 2 ], path.value( "error", "no answer" ) );
         }
      }
   }
   json json{ { "router", router }, { "interfaces", json::array() } };
   for ( const auto & [ key, count ] : counted ) {
      json[ "interfaces" ].push_back( count );
   }
   return json;
}

/// Throws LabError; gives nothing where the agent stopped.
json
coverageOf( const json & root, const LabDocument & document, const std::string & router,
            const CoverageOptions & options, std::ostream & err ) {
   std::ostringstream out;
   RunOptions run;
   run.json = true;
   if ( runLab( labOf( root, document, router, options.node ), run, out, err ) != exitOk ) {
      return {};
   }
   return coverageOf( json::parse( out.str() ), router, interfacesOf( document, router ) );
}

/// "12 r3: no path to ..." for each reason, and whom it concerns.
std::string
unprotectedText( const json & unprotected ) {
   std::map< std::string, std::string > byReason;
   for ( const json & one : unprotected ) {
      std::string & names = byReason[ one[ "error" ] ];
      names += ( names.empty() ? "" : ", " ) + one[ "dst" ].get< std::string >();
   }
   std::string text;
   for ( const auto & [ reason, names ] : byReason ) {
      text.append( text.empty() ? "" : "; " ).append( reason ).append( ": " ).append( names );
   }
   return Text::plain( text );
}

/// One process a core; each writes a line a router into its pipe. Gives an empty list where one
/// of them failed, which has said why.
std::vector< json >
coverageOfAll( const json & root, const LabDocument & document,
               const std::set< std::string > & routers, const CoverageOptions & options ) {
   const unsigned workers = std::max( 1u, std::thread::hardware_concurrency() );
   std::vector< std::pair< pid_t, std::FILE * > > started;
   for ( unsigned worker = 0; worker < workers; ++worker ) {
      int ends[ 2 ];
      if ( pipe( ends ) != 0 ) {
         throw std::runtime_error( "no pipe to be had" );
      }
      const pid_t pid = fork();
      if ( pid == 0 ) {
         close( ends[ 0 ] );
         std::FILE * const to = fdopen( ends[ 1 ], "w" );
         unsigned number = 0;
         bool ok = true;
         for ( const std::string & router : routers ) {
            if ( number++ % workers == worker ) {
               const json one = coverageOf( root, document, router, options, std::cerr );
               ok = ok && !one.is_null();
               std::fprintf( to, "%s\n", one.dump().c_str() );
            }
         }
         std::fclose( to );
         _exit( ok ? exitOk : exitBrokenInvariant );
      }
      close( ends[ 1 ] );
      started.emplace_back( pid, fdopen( ends[ 0 ], "r" ) );
   }
   std::map< std::string, json > byName;
   bool ok = true;
   for ( const auto & [ pid, from ] : started ) {
      std::string text;
      for ( int c; ( c = std::fgetc( from ) ) != EOF; ) {
         text += static_cast< char >( c );
      }
      std::fclose( from );
      std::istringstream lines( text );
      for ( std::string line; std::getline( lines, line ); ) {
         json one = json::parse( line );
         if ( one.is_object() ) {
            byName[ one[ "router" ] ] = one;
         }
      }
      int status = 0;
      waitpid( pid, &status, 0 );
      ok = ok && WIFEXITED( status ) && WEXITSTATUS( status ) == exitOk;
   }
   std::vector< json > all;
   all.reserve( byName.size() );
   for ( const auto & [ name, one ] : byName ) {
      all.push_back( one );
   }
   return ok ? all : std::vector< json >();
}

}

json
noCoverage() {
   return { { "direct", 0 },
            { "oneNode", 0 },
            { "twoNodes", 0 },
            { "more", 0 },
            { "unprotected", json::array() } };
}

void
addProtected( json & coverage, std::size_t repairNodes ) {
   json & count = coverage[ kinds[ std::min( repairNodes, std::size( kinds ) - 1 ) ] ];
   count = count.get< int >() + 1;
}

void
addUnprotected( json & coverage, const std::string & destination, const std::string & reason ) {
   coverage[ "unprotected" ].push_back( { { "dst", destination }, { "error", reason } } );
}

void
printCoverage( std::vector< std::string > columns, const std::vector< CoverageRow > & rows,
               unsigned width, std::ostream & out ) {
   for ( const char * column :
         { "PROTECTED", "DIRECT", "1 NODE", "2 NODES", "MORE", "NOT PROTECTED" } ) {
      columns.emplace_back( column );
   }
   Text::Table table( columns );
   for ( const auto & [ of, coverage ] : rows ) {
      std::vector< std::string > cells = of, counts;
      std::size_t all = 0;
      for ( const char * kind : kinds ) {
         all += coverage[ kind ].get< std::size_t >();
         counts.push_back( coverage[ kind ].dump() );
      }
      const std::size_t asked = all + coverage[ "unprotected" ].size();
      cells.push_back( std::to_string( all ) + "/" + std::to_string( asked ) );
      cells.insert( cells.end(), counts.begin(), counts.end() );
      cells.push_back( unprotectedText( coverage[ "unprotected" ] ) );
      table.row( cells );
   }
   table.print( out, width );
}

int
printCoverage( const LabFile & lab, const CoverageOptions & options, std::ostream & out,
               std::ostream & err ) {
   const LabDocument & document = lab.document();
   const json root = json::parse( lab.text() );
   std::vector< json > routers;
   if ( options.everyRouter ) {
      std::set< std::string > names;
      for ( const auto & [ name, topology ] : document.topologies ) {
         for ( const auto & [ router, record ] : topology.routers ) {
            names.insert( router );
         }
      }
      routers = coverageOfAll( root, document, names, options );
   } else if ( json one = coverageOf( root, document, document.router, options, err );
               !one.is_null() ) {
      routers.push_back( one );
   }
   if ( options.json ) {
      for ( const json & router : routers ) {
         out << router.dump() << "\n";
      }
   } else if ( !routers.empty() ) {
      std::vector< CoverageRow > rows;
      for ( const json & router : routers ) {
         for ( const json & interface : router[ "interfaces" ] ) {
            rows.push_back( { { Text::plain( router[ "router" ].get< std::string >() ),
                                Text::plain( interface[ "intf" ].get< std::string >() ) },
                              interface } );
         }
      }
      printCoverage( { "ROUTER", "INTERFACE" }, rows, options.width, out );
   }
   return routers.empty() ? exitBrokenInvariant : exitOk;
}

}
