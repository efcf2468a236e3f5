// Whatever has happened to an agent, it publishes what one does that starts on the state as it is,
// and keeps no more than that.
// No two ways of these networks cost the same, and there is bandwidth for all, so that all that can
// be seen follows from the state, but for what is said here to be history.

#include "tests/Answering.h"
#include "tests/Lab.h"
#include "tests/RandomLab.h"
#include "tests/Seeds.h"
#include "tools/lab/LabJson.h"
#include "tools/lab/LabOutput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <utility>

using Json = nlohmann::json;

namespace {

/// One more of those.
void
count( Json & counts, const Json & one ) {
   Json & number = counts[ one.dump() ];
   number = number.is_null() ? 1 : number.get< int >() + 1;
}

/// What is published for the paths of one service, with the repairs that they name.
Json
answers( Json service ) {
   std::map< Json, Json > repairs;
   for ( const Json & repair : service[ "pqInfo" ] ) {
      repairs[ repair[ "idx" ] ] = repair;
      repairs[ repair[ "idx" ] ].erase( "idx" );
   }
   Json answers = Json::object();
   for ( Json path : service[ "pathStatus" ] ) {
      path.erase( "changeCount" );
      path[ "repairPathIdx" ] = repairs[ path[ "repairPathIdx" ] ];
      const std::string name = path[ "name" ];
      // What stands beside an error is what once was right.
      answers[ name ] = path.contains( "error" ) ? path[ "error" ] : path;
   }
   for ( const Json & path : service.value( "unanswered", Json::array() ) ) {
      answers[ std::string( path[ "name" ] ) ] = path[ "error" ];
   }
   return answers;
}

const std::string numbered = "tilfa trees";

/// All that can be seen, by which numbers it goes and how often things were done left out.
Json
allSeen( TestLab & lab ) {
   Json outcome = Json::parse( Lab::outcomeJson( lab.outcome() ) );
   Json seen{ { "paths", Json::object() }, { "addresses", outcome[ "intfIpToRouterId" ] } };
   for ( const auto & [ client, services ] : outcome[ "clients" ].items() ) {
      for ( const auto & [ where, service ] : services.items() ) {
         seen[ "paths" ][ client ][ where ] = answers( service );
      }
   }
   for ( Json constraint : outcome[ "constraints" ] ) {
      for ( const char * history : { "cspfCount", "cspfSkippedCount", "cspfCurrentDelay" } ) {
         constraint.erase( history );
      }
      for ( Json & path : constraint[ "paths" ] ) {
         if ( path.get< std::string >().starts_with( numbered ) ) {
            path = numbered;
         }
      }
      std::sort( constraint[ "paths" ].begin(), constraint[ "paths" ].end() );
      count( seen[ "constraints" ], constraint );
   }
   for ( Json reservation : outcome[ "bandwidth" ] ) {
      reservation[ "localId" ] = reservation[ "localId" ] != 0;
      count( seen[ "bandwidth" ], reservation );
   }
   for ( const Json state = lab.snapshot(); const auto & [ path, entity ] : state.items() ) {
      if ( path.find( "/export/topodb/client/" ) != path.npos || path.starts_with( "te/bwm/" )
           || path == "te/cspf/agentStatus" ) {
         seen[ "state" ][ path ] = entity;
      }
   }
   return seen;
}

/// What the agent says of itself, line by line and in no order, but for when, how often, and by
/// which numbers it goes.
Json
inside( TestLab & lab ) {
   static const auto history = std::to_array< const char * >(
      { "Value(", " ago", "never", "ount:", "ChangedAt:", "needs SPF:", "delay:", "interval:",
        "Sequence:", "Constraint #", "localId:", "in use:", "=<, id=", "dx:", "Reason:", " 0x" } );
   Json lines;
   std::istringstream text( lab.dump() );
   for ( std::string line; std::getline( text, line ); ) {
      if ( std::ranges::none_of(
              history, [ & ]( const char * word ) { return line.find( word ) != line.npos; } ) ) {
         count( lines, line );
      }
   }
   return lines;
}

/// The machines and rows that there are, less those of before.
Json
machines( const std::map< std::string, std::size_t > & before = {} ) {
   static const std::regex kinds( ".*(Sm|Replacing|ConfigInfo|StatusInfo|ConstraintInfo|Cache)" );
   Json machines = Json::object();
   for ( const auto & [ type, number ] : Lum::census() ) {
      const auto at = before.find( type );
      const std::size_t more = number - ( at == before.end() ? 0 : at->second );
      if ( more != 0 && std::regex_match( type, kinds ) ) {
         machines[ type ] = more;
      }
   }
   return machines;
}

/// How much there is to be compared.
struct Census {
   std::size_t paths = 0, repairs = 0, errors = 0, reservations = 0, answers = 0;

   void add( const Json & seen ) {
      for ( const Json & services : seen[ "paths" ] ) {
         for ( const Json & service : services ) {
            for ( const Json & answer : service ) {
               errors += answer.is_string();
               paths += answer.is_object() && !answer[ "path" ].empty();
               repairs += answer.is_object() && !answer[ "repairPathIdx" ].is_null();
            }
         }
      }
      reservations += seen.value( "bandwidth", Json::object() ).size();
   }
};

/// A strict hop stays on its link, where there are several.
bool
keepsLinks( const Json & asked ) {
   const Json none = Json::object();
   const Json hops = asked.value( "constraint", none ).value( "includeHop", Json::array() );
   return std::ranges::any_of( hops, []( const Json & hop ) { return hop[ "loose" ] == false; } );
}

/// Who holds bandwidth may use links that have none left for others.
bool
holdsBandwidth( const Json & asked ) {
   return asked.value( "/constraint/bandwidth"_json_pointer, 0.0 ) > 0;
}

/// What follows every change, whoever asks.
Json
followed( const Json & document, Json seen ) {
   seen.erase( "state" );
   seen.erase( "bandwidth" );
   seen.erase( "constraints" );
   seen[ "paths" ].erase( "rsvp" );
   seen[ "paths" ].erase( "tilfa" );
   const Json asked = document.value( "/paths/cli"_json_pointer, Json::object() );
   for ( const auto & [ name, path ] : asked.items() ) {
      for ( Json & service : seen[ "paths" ][ "cli" ] ) {
         service.erase( keepsLinks( path ) ? name : "" );
      }
   }
   return seen;
}

/// Whether the router still has the interface of a repair.
bool
isProtected( const Json & document, const Json & request ) {
   const std::string intf = request[ "constraint" ].value( "excludeIntf", std::string() );
   const std::string link = intf.substr( 0, intf.rfind( '.' ) );
   const auto isOfLan = [ & ]( const Json & lan ) {
      return lan.value( "/members/R0/intf"_json_pointer, std::string() ) == intf;
   };
   return std::ranges::any_of( document[ "topologies" ], [ & ]( const Json & topology ) {
      return topology.value( "exportReady", true )
             && ( topology[ "links" ].contains( link )
                  || std::ranges::any_of( topology.value( "lans", Json::object() ), isOfLan ) );
   } );
}

/// Every own link is there, or nobody asks for a repair of it (while it is away, that stays what it
/// was); or all is well with routers and clients, too.
Json
mended( const Json & document, bool isAll ) {
   const Json none = Json::object();
   Json change;
   for ( const Json asked = document.value( "/paths/tilfa"_json_pointer, none );
         const auto & [ name, request ] : asked.items() ) {
      if ( !isProtected( document, request ) ) {
         change[ "paths" ][ "tilfa" ][ name ] = nullptr;
      }
   }
   for ( const auto & [ name, topology ] : document[ "topologies" ].items() ) {
      Json & mended = change[ "topologies" ][ name ];
      for ( const auto & [ link, ends ] : topology[ "links" ].items() ) {
         if ( isAll || ends[ "a" ] == "R0" || ends[ "b" ] == "R0" ) {
            mended[ "links" ][ link ] = { { "up", nullptr }, { "ab", nullptr }, { "ba", nullptr } };
         }
      }
      for ( const Json lans = topology.value( "lans", none );
            const auto & [ lan, shared ] : lans.items() ) {
         for ( const auto & [ member, attributes ] : shared[ "members" ].items() ) {
            mended[ "lans" ][ lan ][ "members" ][ member ][ "attached" ] = true;
         }
      }
      for ( const auto & [ router, attributes ] : topology[ "routers" ].items() ) {
         mended[ "routers" ][ router ][ "overload" ] =
            !isAll && attributes.value( "overload", false );
      }
   }
   change[ "te" ][ "enabled" ] = true;
   change[ "segmentRouting" ] = nullptr;
   for ( const char * client : { "cli", "rsvp", "tilfa" } ) {
      if ( isAll ) {
         change[ "clients" ][ client ] = {
            { "vrf", { { "default", true }, { "red", true } } },
            { "addressFamily", { { "ipv4", true }, { "ipv6", true } } } };
      }
   }
   return change;
}

/// How one differs from the other, with both.
std::string
difference( const Json & one, const Json & other ) {
   std::string text;
   for ( const Json & step : Json::diff( one, other ) ) {
      const Json::json_pointer at( step[ "path" ] );
      text += step[ "path" ].dump() + ": " + ( one.contains( at ) ? one[ at ].dump() : "" ) + " / "
              + ( other.contains( at ) ? other[ at ].dump() : "" ) + "\n";
   }
   return text;
}

/// Asks anew for what is kept while it is valid; what was refused, or holds what it was granted
/// once, has never been asked for.
void
askAnew( TestLab & lab ) {
   Json again = Json::object(), withdrawn = again;
   const Json seen = allSeen( lab ), asked = lab.document()[ "paths" ];
   for ( const auto & [ client, services ] : seen[ "paths" ].items() ) {
      for ( const auto & [ where, paths ] : services.items() ) {
         for ( const auto & [ name, answer ] : paths.items() ) {
            const Json & request = asked[ client ][ name ];
            if ( answer.is_string() || keepsLinks( request ) || holdsBandwidth( request ) ) {
               withdrawn[ client ][ name ] = nullptr;
               again[ client ][ name ] = request;
            } else if ( client != "cli" ) {
               again[ client ][ name ][ "refreshReqSeq" ] = request.value( "refreshReqSeq", 0 ) + 1;
            }
         }
      }
   }
   lab.patch( { { "paths", withdrawn } } );
   lab.settle();
   lab.patch( { { "paths", again } } );
   lab.settle();
}

/// Whatever is published for them leads somewhere when it is published.
class Witness : public Lum::Reactor {
   LUM_ENTITY( Test, Witness );
   explicit Witness( TestLab & lab ) : lab_( lab ) {
      watchAny< &Witness::handleChange >( *lab.statusTable( "cli" ), this );
   }

 private:
   void handleChange( const Lum::AnyChange & ) {
      const auto outcome = lab_.outcome();
      for ( const auto & path : outcome.clients.at( "cli" ).begin()->second.pathStatus ) {
         std::uint32_t & known = known_[ *path.name ];
         if ( std::exchange( known, path.status.changeCount() ) != path.status.changeCount()
              && path.status.paths() > 0 ) {
            EXPECT_TRUE( path.cost ) << *path.name;
         }
      }
   }
   TestLab & lab_;
   std::map< std::string, std::uint32_t > known_;
};

}

TEST( FromScratch, whateverHasHappened ) {
   Census census;
   for ( unsigned seed = 1; seed <= seedsOf( 60 ) && !HasFailure(); ++seed ) {
      SCOPED_TRACE( seed );
      RandomLab random( seed, RandomLab::Kind::everything );
      auto lab = TestLab::of( random.document() );
      lab.slicesOf( 1 + seed % 4 );
      bool happening = false;
      const auto happen = [ & ]( const Json & event ) {
         happening = true;
         try {
            lab.patch( event );
         } catch ( const Lab::LabError & ) {  // no lab any more
         }
         happening = false;
      };
      Json answer;
      const auto answering = Lum::make< Answering >( lab, [ & ] {
         if ( !answer.is_null() && !happening && random.oneIn( 3 ) ) {
            ++census.answers;
            happen( std::exchange( answer, {} ) );
         }
      } );
      for ( int event = 0; event < 40; ++event ) {
         if ( event % 18 == 15 ) {
            happen( mended( lab.document(), true ) );
         }
         if ( random.oneIn( 12 ) ) {
            happening = true;
            lab.restart();  // it looks when the event is over
            happening = false;
         }
         Json next = random.event( lab.document() );
         if ( random.oneIn( 3 ) ) {
            answer = std::move( next );  // inside of what is told next
         } else {
            happen( next );
         }
         lab.advance( random.oneIn( 2 ) ? 0.001 * random.below( 400 ) : 0 );
         lab.work( random.below( 8 ) );
      }
      answer = {};
      lab.patch( mended( lab.document(), false ) );
      lab.settle();
      const Json before = followed( lab.document(), allSeen( lab ) );
      askAnew( lab );
      {
         const Json all = machines();
         const auto others = Lum::census();
         auto fresh = TestLab::of( lab.document() );
         fresh.settle();
         EXPECT_EQ( difference( machines( others ), all ), "" );
         const Json now = allSeen( fresh );
         EXPECT_EQ( difference( followed( lab.document(), now ), before ), "" );
         EXPECT_EQ( difference( now, allSeen( lab ) ), "" );
         EXPECT_EQ( difference( inside( fresh ), inside( lab ) ), "" );
         census.add( now );
      }
      lab.patch( { { "paths", nullptr }, { "clients", nullptr } } );
      lab.settle();
      const Json left = machines();
      const auto others = Lum::census();
      auto fresh = TestLab::of( lab.document() );
      fresh.settle();
      EXPECT_EQ( difference( allSeen( fresh ), allSeen( lab ) ), "" );
      EXPECT_EQ( difference( inside( fresh ), inside( lab ) ), "" );
      EXPECT_EQ( difference( machines( others ), left ), "" );
   }
   EXPECT_GT( census.answers, 100u );
   EXPECT_GT( census.paths, 40u );
   EXPECT_GT( census.repairs, 12u );
   EXPECT_GT( census.errors, 100u );
   EXPECT_GT( census.reservations, 15u );
}

/// Segments have runs of their own, each held down for as long as its own past says: a path is put
/// together of old and new ones, and a change meets it at any moment of that.
TEST( FromScratch, pathsThroughHopsAtAnyMoment ) {
   for ( unsigned seed = 1; seed <= seedsOf( 60 ) && !HasFailure(); ++seed ) {
      SCOPED_TRACE( seed );
      std::mt19937 engine( seed );
      const auto below = [ & ]( unsigned n ) { return static_cast< unsigned >( engine() % n ); };
      std::string mesh;
      for ( const std::string ends :
            { "AB", "AC", "AD", "AE", "BC", "BD", "BE", "CD", "CE", "DE" } ) {
         const std::string metric = std::to_string( 1 + below( 1'000'000 ) );
         mesh += ends.substr( 0, 1 ) + " -" + metric + "- " + ends[ 1 ] + "; ";
      }
      TestLab lab( mesh );
      lab.settle();
      const Witness witness( lab );
      const Json links = lab.document()[ "topologies" ][ "core" ][ "links" ];
      const auto router = [ & ] { return "10.0.0." + std::to_string( 2 + below( 4 ) ); };
      for ( unsigned event = 0; event < 25; ++event ) {
         lab.advance( 0.01 * below( 10 ) * below( 10 ) );
         if ( below( 3 ) ) {
            lab.link( std::next( links.begin(), below( 10 ) ).key(),
                      { { "metric", 1 + below( 1'000'000 ) }, { "up", below( 4 ) > 0 } } );
            continue;
         }
         Json hops = Json::array();
         for ( unsigned n = below( 3 ); n > 0; --n ) {
            hops.push_back( { { "addr", router() }, { "loose", true } } );
         }
         lab.request( below( 2 ) ? "cli" : "rsvp", std::to_string( event ), router(),
                      { { "includeHop", hops } }, { { "id", event } } );
      }
      Json last{ { "topologies", { { "core", { { "links", links } } } } } };
      for ( Json & link : last[ "topologies" ][ "core" ][ "links" ] ) {
         link = { { "metric", 1 + below( 1'000'000 ) } };
      }
      for ( const Json kept = lab.document().value( "/paths/rsvp"_json_pointer, Json::object() );
            const auto & [ name, path ] : kept.items() ) {
         last[ "paths" ][ "rsvp" ][ name ][ "refreshReqSeq" ] = 1;
      }
      lab.patch( last );
      lab.settle();
      auto fresh = TestLab::of( lab.document() );
      fresh.settle();
      EXPECT_EQ( difference( allSeen( fresh ), allSeen( lab ) ), "" );
   }
}
