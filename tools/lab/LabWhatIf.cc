// What would be. The agent has come to rest on the lab; each change is made in a copy of the
// process, which goes on from there and ends, so that every failure finds the same network and the
// same paths in use.

#include "tools/lab/LabWhatIf.h"

#include "tools/lab/LabRows.h"
#include "tools/text/Bandwidth.h"
#include "tools/text/Plain.h"
#include "tools/text/Table.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <ostream>
#include <set>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Lab {

namespace {

using nlohmann::json;

/// What fails of one topology.
class Losses {
 public:
   explicit Losses( std::string topology ) : topology_( std::move( topology ) ) {}

   void link( const std::string & name ) { at( "links" )[ name ][ "up" ] = false; }
   void member( const std::string & lan, const std::string & router ) {
      at( "lans" )[ lan ][ "members" ][ router ][ "attached" ] = false;
   }
   void addTo( json & patch ) const {
      if ( !lost_.empty() ) {
         patch[ "topologies" ][ topology_ ] = lost_;
      }
   }

 private:
   json & at( const char * what ) { return lost_[ what ]; }

   const std::string topology_;
   json lost_;
};

bool
carries( const LabLinkAttributes & attributes, TrafficEngineering::SrlgId srlg ) {
   return std::ranges::count( attributes.srlg, srlg ) > 0;
}

/// The patch by which all links and LAN members go of which the tests hold.
template< class OfLink, class OfMember >
json
lossOf( const LabDocument & document, OfLink && ofLink, OfMember && ofMember ) {
   json patch = json::object();
   for ( const auto & [ topologyName, topology ] : document.topologies ) {
      Losses losses( topologyName );
      for ( const auto & [ name, link ] : topology.links ) {
         if ( ofLink( link ) ) {
            losses.link( name );
         }
      }
      for ( const auto & [ name, lan ] : topology.lans ) {
         for ( const auto & [ router, member ] : lan.members ) {
            if ( ofMember( router, member ) ) {
               losses.member( name, router );
            }
         }
      }
      losses.addTo( patch );
   }
   return patch;
}

void
addLinks( const LabDocument & document, std::map< std::string, json > & failures ) {
   const bool several = document.topologies.size() > 1;
   for ( const auto & [ topologyName, topology ] : document.topologies ) {
      const std::string prefix = several ? topologyName + "/" : "";
      for ( const auto & [ name, link ] : topology.links ) {
         Losses losses( topologyName );
         losses.link( name );
         losses.addTo( failures[ prefix + name ] );
      }
      for ( const auto & [ name, lan ] : topology.lans ) {
         Losses losses( topologyName );
         for ( const auto & [ router, member ] : lan.members ) {
            losses.member( name, router );
         }
         losses.addTo( failures[ prefix + name ] );
      }
   }
}

void
addRouters( const LabDocument & document, std::map< std::string, json > & failures ) {
   for ( const auto & [ topologyName, topology ] : document.topologies ) {
      for ( const auto & [ name, record ] : topology.routers ) {
         if ( name != document.router && !failures.contains( name ) ) {
            failures[ name ] = lossOf(
               document,
               [ &name = name ]( const LabLink & link ) {
                  return link.a.router == name || link.b.router == name;
               },
               [ &name = name ]( const std::string & router, const LabLanMember & ) {
                  return router == name;
               } );
         }
      }
   }
}

void
addSrlgs( const LabDocument & document, std::map< TrafficEngineering::SrlgId, json > & failures ) {
   const auto note = [ & ]( const LabLinkAttributes & attributes ) {
      for ( const auto srlg : attributes.srlg ) {
         failures[ srlg ];
      }
   };
   for ( const auto & [ topologyName, topology ] : document.topologies ) {
      for ( const auto & [ name, link ] : topology.links ) {
         note( link.ab.attributes );
         note( link.ba.attributes );
      }
      for ( const auto & [ name, lan ] : topology.lans ) {
         for ( const auto & [ router, member ] : lan.members ) {
            note( member.attributes );
         }
      }
   }
   for ( auto & [ srlg, patch ] : failures ) {
      patch = lossOf(
         document,
         [ srlg = srlg ]( const LabLink & link ) {
            return carries( link.ab.attributes, srlg ) || carries( link.ba.attributes, srlg );
         },
         [ srlg = srlg ]( const std::string &, const LabLanMember & member ) {
            return carries( member.attributes, srlg );
         } );
   }
}

/// What becomes of one path.
const char *
effect( const Row & before, const Row & after ) {
   if ( before.up != after.up ) {
      return after.up ? "found" : "lost";
   }
   if ( before.metric == noMetric || after.metric == noMetric ) {
      return before.route == after.route ? "" : "moved";
   }
   const auto was = std::stoull( before.metric ), is = std::stoull( after.metric );
   return is > was ? "longer" : is < was ? "shorter" : before.route == after.route ? "" : "moved";
}

std::uint64_t
bandwidthOf( const LabDocument & document, const RowKey & key, const Row & row ) {
   const auto client = document.paths.find( key.client );
   const auto path = client == document.paths.end()
                        ? std::map< std::string, LabPath >::const_iterator()
                        : client->second.find( row.name );
   return client == document.paths.end() || path == client->second.end()
             ? 0
             : path->second.constraint.bandwidth;
}

/// {"paths": [{"client", "path", "effect", ...}], "lost": 1, ...}
json
whatIf( const LabMoment & moment, const LabJson & patch ) {
   const Rows before = rowsOf( moment.document, moment.outcome() );
   const LabDocument document = moment.document;
   const Outcome after = moment.after( patch );
   json result{ { "paths", json::array() }, { "lost", 0 },  { "longer", 0 },       { "moved", 0 },
                { "shorter", 0 },           { "found", 0 }, { "bandwidthLost", 0 } };
   const auto change = [ & ]( const RowKey & key, const Row & was, const Row & is ) {
      const std::string what = effect( was, is );
      if ( what.empty() ) {
         return;
      }
      result[ what ] = result[ what ].get< int >() + 1;
      if ( what == "lost" ) {
         result[ "bandwidthLost" ] =
            result[ "bandwidthLost" ].get< std::uint64_t >() + bandwidthOf( document, key, was );
      }
      const auto side = []( const Row & row ) {
         return json{ { "metric", row.metric }, { "route", row.route } };
      };
      result[ "paths" ].push_back(
         { { "effect", what },
           { "where", key.where.text() },
           { "client", key.client },
           { "path", was.name.empty() ? is.name : was.name },
           { "destination", was.destination.empty() ? is.destination : was.destination },
           { "before", side( was ) },
           { "after", side( is ) } } );
   };
   diffMaps(
      before, rowsOf( moment.document, after ),
      [ & ]( const RowKey & key, const Row & row ) { change( key, Row(), row ); }, change,
      [ & ]( const RowKey & key, const Row & row ) { change( key, row, Row() ); } );
   return result;
}

/// A copy of the process that makes one change and writes what came of it into a pipe.
class Copy {
 public:
   Copy( const LabMoment & moment, const LabFailure & failure ) : failure_( failure ) {
      int ends[ 2 ];
      if ( pipe( ends ) != 0 ) {
         throw std::runtime_error( "no pipe to be had" );
      }
      pid_ = fork();
      if ( pid_ < 0 ) {
         throw std::runtime_error( "no process to be had" );
      }
      if ( pid_ == 0 ) {
         close( ends[ 0 ] );
         work( moment, failure, ends[ 1 ] );
      }
      close( ends[ 1 ] );
      from_ = fdopen( ends[ 0 ], "r" );
   }

   /// Waits for it; null where it broke off.
   json result() {
      std::string text;
      for ( int c; ( c = std::fgetc( from_ ) ) != EOF; ) {
         text += static_cast< char >( c );
      }
      std::fclose( from_ );
      int status = 0;
      waitpid( pid_, &status, 0 );
      json one =
         WIFEXITED( status ) && WEXITSTATUS( status ) == exitOk ? json::parse( text ) : json();
      if ( one.is_object() ) {
         one[ "failure" ] = failure_.name;
      }
      return one;
   }

 private:
   [[noreturn]] static void work( const LabMoment & moment, const LabFailure & failure, int to ) {
      int status = exitOk;
      try {
         const std::string text = whatIf( moment, failure.patch ).dump();
         std::FILE * const out = fdopen( to, "w" );
         std::fputs( text.c_str(), out );
         std::fclose( out );
      } catch ( const std::exception & error ) {
         std::fprintf( stderr, "cspfctl: %s: %s\n", failure.name.c_str(), error.what() );
         status = exitBrokenInvariant;
      }
      _exit( status );
   }

   const LabFailure & failure_;
   pid_t pid_ = -1;
   std::FILE * from_ = nullptr;
};

void
print( const std::vector< json > & results, unsigned width, std::ostream & out ) {
   Text::Table table( { "FAILURE", "LOST", "LONGER", "MOVED", "BANDWIDTH LOST", "PATHS LOST" } );
   for ( const json & one : results ) {
      std::string lost;
      for ( const json & path : one[ "paths" ] ) {
         if ( path[ "effect" ] == "lost" ) {
            lost += ( lost.empty() ? "" : ", " ) + path[ "client" ].get< std::string >() + "/"
                    + ( path[ "path" ] == "" ? path[ "destination" ] : path[ "path" ] )
                         .get< std::string >();
         }
      }
      table.row( { Text::plain( one[ "failure" ].get< std::string >() ), one[ "lost" ].dump(),
                   one[ "longer" ].dump(), one[ "moved" ].dump(),
                   Text::bandwidthText( one[ "bandwidthLost" ].get< std::uint64_t >() ),
                   Text::plain( lost ) } );
   }
   table.print( out, width );
}

}

std::vector< LabFailure >
failuresOf( const LabDocument & document, FailureKind kind ) {
   std::map< std::string, json > named;
   std::map< TrafficEngineering::SrlgId, json > srlgs;
   if ( kind == FailureKind::link ) {
      addLinks( document, named );
   } else if ( kind == FailureKind::router ) {
      addRouters( document, named );
   } else {
      addSrlgs( document, srlgs );
   }
   std::vector< LabFailure > failures;
   const auto add = [ & ]( const std::string & name, const json & patch ) {
      failures.push_back( { name, LabJson::parse( patch.dump() ) } );
   };
   for ( const auto & [ name, patch ] : named ) {
      add( name, patch );
   }
   for ( const auto & [ srlg, patch ] : srlgs ) {
      add( "SRLG " + std::to_string( srlg ), patch );
   }
   return failures;
}

void
printWhatIf( const LabMoment & moment, const LabJson & patch, bool json, unsigned width,
             std::ostream & out ) {
   const auto result = whatIf( moment, patch );
   if ( json ) {
      out << result.dump() << "\n";
      return;
   }
   Text::Table table( { "EFFECT", "CLIENT", "PATH", "DESTINATION", "METRIC", "WAS", "NOW" } );
   for ( const auto & path : result[ "paths" ] ) {
      const auto text = [ & ]( const char * key ) {
         return Text::plain( path[ key ].get< std::string >() );
      };
      const auto side = [ & ]( const char * when, const char * key ) {
         return path[ when ][ key ].template get< std::string >();
      };
      table.row( { text( "effect" ), text( "client" ), text( "path" ), text( "destination" ),
                   side( "before", "metric" ) + " to " + side( "after", "metric" ),
                   side( "before", "route" ), side( "after", "route" ) } );
   }
   if ( result[ "paths" ].empty() ) {
      out << "no path would change\n";
   } else {
      table.print( out, width );
   }
}

bool
printWhatIfEach( const LabMoment & moment, const std::vector< LabFailure > & failures, bool json,
                 unsigned width, std::ostream & out ) {
   const std::size_t most = std::max( 1u, std::thread::hardware_concurrency() );
   std::deque< Copy > running;
   std::vector< nlohmann::json > results;
   bool ok = true;
   const auto finishOne = [ & ] {
      nlohmann::json one = running.front().result();
      running.pop_front();
      if ( one.is_null() ) {
         ok = false;
      } else if ( json ) {
         out << one.dump() << "\n";
      } else {
         results.push_back( std::move( one ) );
      }
   };
   for ( const LabFailure & failure : failures ) {
      if ( running.size() == most ) {
         finishOne();
      }
      running.emplace_back( moment, failure );
   }
   while ( !running.empty() ) {
      finishOne();
   }
   if ( !json && failures.empty() ) {
      out << "there is none to fail\n";
   } else if ( !json ) {
      print( results, width, out );
   }
   return ok;
}

}
