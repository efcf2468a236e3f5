// The agent end to end: what clients read after they asked, after the network changed, and after
// the agent itself came back. An oracle that shares nothing with the agent judges what it
// published.

#include "tests/Lab.h"
#include "tests/LabJudge.h"
#include "tests/RandomLab.h"
#include "tests/RunnerProcess.h"
#include "tools/lab/LabJson.h"
#include "tools/lab/LabOutput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

using Json = nlohmann::json;

namespace {

Json
published( TestLab & lab ) {
   return Json::parse( Lab::outcomeJson( lab.outcome() ) );
}

/// What is the same whatever happened before: where paths lead does not depend on history, which
/// of several equal ones is published does.
Json
essence( TestLab & lab ) {
   Json outcome = published( lab ), essence;
   for ( const Json cli = outcome[ "clients" ].value( "cli", Json::object() );
         const auto & [ where, service ] : cli.items() ) {
      for ( const Json & path : service[ "pathStatus" ] ) {
         if ( !path.contains( "error" ) ) {  // else it is what it once was
            essence[ "costs" ][ where ].push_back(
               { path[ "name" ], path[ "cost" ], path[ "dst" ] } );
         }
      }
   }
   for ( Json & constraint : outcome[ "constraints" ] ) {
      for ( const char * history : { "cspfCount", "cspfSkippedCount", "cspfCurrentDelay" } ) {
         constraint.erase( history );
      }
      std::sort( constraint[ "paths" ].begin(), constraint[ "paths" ].end() );
      const Json inUse = lab.document().value( "/paths/rsvp"_json_pointer, Json::object() );
      if ( std::ranges::all_of( constraint[ "paths" ], [ & ]( const std::string path ) {
              return inUse.contains( path );
           } ) ) {
         constraint.erase( "sourceMissing" );  // at the last run; a valid one asks for none
      }
   }
   std::sort( outcome[ "constraints" ].begin(), outcome[ "constraints" ].end() );
   essence[ "constraints" ] = outcome[ "constraints" ];
   essence[ "addresses" ] = outcome[ "intfIpToRouterId" ];
   return essence;
}

/// `--seeds=N` of the command line; else the default.
unsigned
seeds( unsigned byDefault ) {
   for ( const std::string & argument : testing::internal::GetArgvs() ) {
      if ( argument.starts_with( "--seeds=" ) ) {
         return static_cast< unsigned >( std::stoul( argument.substr( 8 ) ) );
      }
   }
   return byDefault;
}

/// What is published or held for requests that nobody makes.
std::string
answersNobody( TestLab & lab ) {
   std::string found;
   if ( !lab.document().value( "te", Json::object() ).value( "enabled", true ) ) {
      return found;  // nobody is there who could take it back
   }
   for ( const auto & path : lab.tables().list( "te/cspf/status" ) ) {
      std::string configPath = path;
      configPath.replace( 8, 6, "config" );
      const auto status = Lum::cast< Cspf::Status >( lab.tables().table( path ) );
      const auto config = Lum::cast< Cspf::Config >( lab.tables().table( configPath ) );
      for ( const auto & [ key, answer ] : status->pathStatusColl() ) {
         found +=
            config && config->pathConfigHas( key ) ? "" : path + " " + Lum::valueString( key );
      }
      for ( const auto & [ key, reason ] : status->pathErrorColl() ) {
         found +=
            config && config->pathConfigHas( key ) ? "" : path + " " + Lum::valueString( key );
      }
   }
   return found;
}

/// Applies a random event; gives false where it would leave no lab.
bool
tryEvent( TestLab & lab, RandomLab & random ) {
   try {
      lab.patch( random.event( lab.document() ) );
      return true;
   } catch ( const Lab::LabError & ) {
      return false;
   }
}

}

TEST( PathService, EveryPathIsTheBestThatItsConstraintAllows ) {
   std::size_t found = 0, missing = 0;
   for ( unsigned seed = 1; seed <= 150; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      RandomLab random( seed );
      auto lab = TestLab::of( random.document() );
      lab.settle();
      const Judgement judgement = judge( lab.document(), published( lab ), true );
      ASSERT_EQ( judgement.complaints, "" ) << lab.document().dump();
      found += judgement.paths;
      missing += judgement.missing;
   }
   EXPECT_GT( found, 300u );
   EXPECT_GT( missing, 100u );
}

TEST( PathService, AfterAStormOfEventsStateIsAsFromScratch ) {
   for ( unsigned seed = 1; seed <= 60; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      RandomLab random( seed );
      std::mt19937 engine( seed );
      Json document, after;
      {
         auto lab = TestLab::of( random.document() );
         lab.slicesOf( 1 + seed % 4 );
         for ( int event = 0; event < 40; ++event ) {
            if ( tryEvent( lab, random ) && engine() % 3 == 0 ) {
               lab.advance( 0.001 * static_cast< double >( engine() % 400 ) );
            }
            lab.work( engine() % 8 );
            if ( engine() % 12 == 0 ) {
               lab.settle();
               ASSERT_EQ( judge( lab.document(), published( lab ), false ).complaints, "" )
                  << lab.document().dump();
            }
         }
         lab.settle();
         document = lab.document();
         after = essence( lab );
         ASSERT_EQ( judge( document, published( lab ), false ).complaints, "" ) << document.dump();
      }
      auto fresh = TestLab::of( document );
      fresh.settle();
      ASSERT_EQ( after, essence( fresh ) ) << document.dump();
   }
}

/// An hour of everything at once. With `--seeds=N` on the command line: N hours.
TEST( PathService, AfterAnHourOfEverythingPathsAreAsFromScratch ) {
   for ( unsigned seed = 1; seed <= seeds( 12 ); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      RandomLab random( seed, RandomLab::Kind::withHops );
      Json document, after;
      {
         auto lab = TestLab::of( random.document() );
         lab.slicesOf( seed % 3 ? seed : 1000 );
         for ( double now = 0; now < 3600; ) {
            tryEvent( lab, random );
            if ( random.oneIn( 30 ) ) {
               lab.restart();
            }
            const double pause =
               random.oneIn( 3 ) ? random.below( 60 ) : 0.001 * random.below( 700 );
            lab.advance( pause );
            now += pause;
            ASSERT_EQ( answersNobody( lab ), "" ) << lab.document().dump();
         }
         lab.advance( 60 );
         document = lab.document();
         after = essence( lab );
         ASSERT_EQ( judge( document, published( lab ), false ).complaints, "" ) << document.dump();
      }
      auto fresh = TestLab::of( document );
      fresh.settle();
      ASSERT_EQ( after, essence( fresh ) ) << document.dump();
   }
}

TEST( PathService, PathsThroughHopsFollowAChangeWhileTheTopologyKeepsChanging ) {
   for ( const char * client : { "cli", "rsvp" } ) {
      for ( const unsigned period : { 150, 400, 700 } ) {
         SCOPED_TRACE( std::string( client ) + " " + std::to_string( period ) );
         TestLab lab( "A -10- B -10- C; A -40- C; A -20- D -20- B; X -10- Y" );
         lab.request( "cli", "near", "B" );
         const auto churn = [ & ]( double duration ) {
            for ( double left = duration; left > 0; left -= 0.001 * period ) {
               lab.link( "X-Y", { { "metric", 10 + static_cast< int >( left * 1000 ) % 50 } } );
               lab.advance( 0.001 * period );
            }
         };
         churn( 21.9 );
         lab.request( client, "hops", "C",
                      { { "includeHop", { { { "addr", "10.0.0.2" }, { "loose", true } } } } },
                      { { "id", 7 } } );
         churn( 5.5 );
         EXPECT_EQ( lab.path( client, "hops" ), "A B C" );
         churn( 13.3 );
         lab.down( "A-B" );
         churn( 5.5 );
         EXPECT_EQ( lab.path( client, "hops" ), "A D B C" );
      }
   }
}

/// The first segment has its result 11 s after the first change, as its constraint is held down,
/// the second one after 8.5 s, before the last change.
TEST( PathService, APathOfResultsOfDifferentMomentsIsPublishedWhereItHolds ) {
   for ( const char * client : { "cli", "rsvp" } ) {
      TestLab lab( "A -10- B -10- C; X -10- Y",
                   { { "throttle",
                       { { "initialInt", 1000 }, { "holdInt", 10000 }, { "maxInt", 10000 } } } } );
      const auto change = [ & ]( int metric, double pause ) {
         lab.link( "X-Y", { { "metric", metric } } );
         lab.advance( pause );
      };
      lab.request( "cli", "near", "B" );
      lab.settle();
      change( 20, 2.5 );
      lab.request( client, "hops", "C",
                   { { "includeHop", { { { "addr", "10.0.0.2" }, { "loose", true } } } } },
                   { { "id", 7 } } );
      lab.advance( 3 );
      change( 30, 2 );
      change( 40, 2 );
      change( 50, 2 );
      EXPECT_EQ( lab.path( client, "hops" ), "A B C" );
   }
}

TEST( PathService, AChangeReachesAPathWhoeverElseAsksAtThatMoment ) {
   TestLab lab( "A -10- B; A -20- B" );
   lab.request( "cli", "p", "B" );
   lab.settle();
   lab.request( "rsvp", "q", "B" );
   lab.down( "A-B" );
   lab.settle();
   EXPECT_EQ( lab.cost( "cli", "p" ), 20u );
}

TEST( PathService, APathAvoidsTheRisksOfAnInterfaceAsTheyAreSaidToBe ) {
   TestLab lab( "A -1- B; A -1{srlg 7}- C -1- B; A -50- D -1- B" );
   lab.request( "cli", "p", "B", { { "excludeIntf", "A-B.a" }, { "excludeSrlg", true } } );
   const auto te = lab.state().entityIs< TrafficEngineering::Config >( "te/config" );
   Lum::Set< TrafficEngineering::SrlgId > seven;
   seven.insert( 7 );
   for ( int round = 0; round < 2; ++round ) {
      te->intfSrlgIs( "A-B.a", seven );
      lab.settle();
      EXPECT_EQ( lab.path( "cli", "p" ), "A D B" );
      round ? te->intfSrlgDel( "A-B.a" ) : te->intfSrlgIs( "A-B.a", {} );
      lab.settle();
      EXPECT_EQ( lab.path( "cli", "p" ), "A C B" );
   }
}

TEST( PathService, AHopThatTwoRoutersHaveIsTheOneThatTheWayMeets ) {
   const Json prefix{ { "20.0.0.9/32", 0 } };
   TestLab lab( "A -50- B -10- E; A -10- C -40- E",
                { { "topologies",
                    { { "core",
                        { { "routers",
                            { { "B", { { "prefixes", prefix } } },
                              { "C", { { "prefixes", prefix } } } } } } } } } } );
   lab.request( "cli", "p", "E",
                { { "includeHop", { { { "addr", "20.0.0.9" }, { "loose", true } } } } } );
   lab.settle();
   EXPECT_EQ( lab.path( "cli", "p" ), "A C E" );
   lab.down( "A-C" );
   lab.settle();
   EXPECT_EQ( lab.path( "cli", "p" ), "A B E" );
}

TEST( PathService, ABurstOfChangesCostsOneRunAndNoWriteWherePathsStay ) {
   TestLab lab( "A -10- B -10- C -10- D; A -15- C; C -90- E; D -90- E; A -10- E" );
   lab.request( "cli", "near", "B" );
   lab.request( "cli", "far", "D", { { "excludeIntf", "A-B.a" } } );
   lab.request( "rsvp", "kept", "D" );
   lab.settle();
   ASSERT_EQ( lab.path( "cli", "far" ), "A C D" );
   const auto near = lab.runs( "cli", "near" ), all = lab.runs();
   auto cli = Lum::make< WriteCount >( *lab.statusTable( "cli" ) );
   auto rsvp = Lum::make< WriteCount >( *lab.statusTable( "rsvp" ) );
   for ( std::uint32_t change = 0; change < 1000; ++change ) {
      lab.link( change % 2 ? "D-E" : "C-E", { { "metric", 50 + change % 40 } } );
      lab.advance( 0.00004 );
   }
   lab.settle();
   EXPECT_EQ( lab.runs( "cli", "near" ), near + 1 );
   EXPECT_EQ( lab.runs(), all + 2 ) << "a path in use that is still valid asks for no run";
   EXPECT_EQ( cli->writes(), 0u );
   EXPECT_EQ( rsvp->writes(), 0u );

   lab.link( "C-D", { { "metric", 1000 } } );
   lab.settle();
   EXPECT_EQ( lab.path( "cli", "far" ), "A E D" );
   EXPECT_EQ( lab.path( "rsvp", "kept" ).back(), 'D' );
   EXPECT_EQ( cli->writes(), 1u );
   EXPECT_EQ( rsvp->writes(), 0u );
   lab.down( "C-D" );
   lab.settle();
   EXPECT_EQ( lab.path( "rsvp", "kept" ), "A E D" );
}

TEST( PathService, RequestsForNowhereAreAnsweredAndHarmNobody ) {
   using namespace Cspf;
   TestLab lab( "A -10- B -10- C" );
   lab.request( "cli", "good", "C" );
   for ( const char * client : { "cli", "rsvp" } ) {
      lab.request( client, "nothing", "C", { { "noSpf", true } }, { { "id", 9 } } );
      lab.settle();
      EXPECT_EQ( lab.error( client, "nothing" ), "no computation asked for, and no hops given" );
   }
   const auto config =
      Lum::cast< Config >( lab.tables().table( "te/cspf/config/vrf/default/ipv4/cli" ) );
   PathConfig nowhere, router;
   nowhere.constraint_.excludeIntfIs( Kivnet::IntfId( "A-B.a" ) );
   nowhere.constraint_.includeHopIs( 0, { *Kivnet::IpGenAddr::parse( "10.0.0.2" ), true } );
   nowhere.constraint_.includeHopIs( 1, { {}, true } );
   router.pathKeyIs( { Destination( VertexType::isisRouter, "0000.0000.0002" ), 1 } );
   config->pathConfigIs( nowhere );
   config->pathConfigIs( router );
   lab.settle();
   Lum::Set< TrafficEngineering::SrlgId > srlgs;
   srlgs.insert( 5 );
   lab.state().entityIs< TrafficEngineering::Config >( "te/config" )->intfSrlgIs( "A-B.a", srlgs );
   lab.settle();
   EXPECT_EQ( lab.path( "cli", "good" ), "A B C" );
   const auto status = lab.statusTable( "cli" );
   EXPECT_EQ( status->pathError( nowhere.pathKey() ), "No path for pathSegmentIndex 0" );
   EXPECT_EQ( status->pathError( router.pathKey() ), "no path found for tep 0000.0000.0002" );
}

TEST( PathService, APrefixThatMovesIsAnsweredWhileRunsAreHeldDown ) {
   TestLab lab( "A -10- B -10- C -10- D -10- A", Json::parse( R"( { "clients": { "tilfa": {
                   "vrf": { "default": true }, "addressFamily": { "ipv4": true } } } } )" ) );
   const auto originator = [ & ]( const char * name, const Json & metric ) {
      Json core;
      core[ "routers" ][ name ][ "prefixes" ][ "10.9.0.0/16" ] = metric;
      lab.patch( { { "topologies", { { "core", core } } } } );
   };
   const auto repair = [ & ] {
      return lab.statusTable( "tilfa" )->pqInfo( lab.status( "tilfa", "p" )->repairPathIdx() );
   };
   originator( "B", 0 );
   lab.request( "tilfa", "p", "10.9.0.0/16", { { "excludeIntf", "A-B.a" } } );
   lab.settle();
   for ( int metric = 11; metric < 20; ++metric ) {
      lab.link( "B-C", { { "metric", metric } } );
      for ( const auto runs = lab.runs(); lab.runs() == runs; ) {
         lab.advance( 0.01 );
      }
   }
   EXPECT_EQ( lab.outcome().constraints[ 0 ].cspfCurrentDelay, 5000 );
   for ( int i = 0; i < 4; ++i ) {
      EXPECT_GT( repair().paths(), 0u );
      originator( "D", 0 );
      lab.advance( 0.2 );
      EXPECT_EQ( repair().paths(), 0u ) << "D is the next hop";
      EXPECT_NE( repair().idx(), 0u );
      originator( "D", nullptr );
      lab.advance( 0.2 );
   }
}

TEST( PathService, ARestartKeepsWhatIsValidAndClearsWhatIsStale ) {
   for ( unsigned seed = 1; seed <= 40; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      RandomLab random( seed );
      Json document, after;
      {
         auto lab = TestLab::of( random.document() );
         lab.slicesOf( 1 + seed % 30 );
         for ( int event = 0; event < 6; ++event ) {
            tryEvent( lab, random );
            lab.settle();
         }
         const Json before = published( lab );
         lab.restart();
         std::vector< Lum::Ptr< WriteCount > > writes;
         for ( const auto & path : lab.tables().list( "te/cspf/status" ) ) {
            writes.push_back( Lum::make< WriteCount >( *lab.tables().table( path ) ) );
         }
         lab.settle();
         ASSERT_EQ( before[ "clients" ], published( lab )[ "clients" ] ) << lab.document().dump();
         for ( const auto & count : writes ) {
            ASSERT_EQ( count->writes(), 0u ) << lab.document().dump();
         }

         // What changes while no agent runs is found by the next one.
         lab.restart();
         const bool which = random.oneIn( 2 );
         lab.patch( { { "clients",
                        { { which ? "cli" : "rsvp", nullptr },
                          { which ? "rsvp" : "cli",
                            { { "vrf", { { "red", random.oneIn( 2 ) } } } } } } } } );
         for ( int event = 0; event < 6; ++event ) {
            tryEvent( lab, random );
         }
         lab.patch( { { "te", { { "enabled", true } } } } );
         lab.settle();
         document = lab.document();
         after = essence( lab );
         ASSERT_EQ( judge( document, published( lab ), false ).complaints, "" ) << document.dump();
      }
      auto fresh = TestLab::of( document );
      fresh.settle();
      ASSERT_EQ( after, essence( fresh ) ) << document.dump();
   }
}

TEST( PathService, SegmentsKeepToThePathInUseOverARestartAndAnotherHop ) {
   TestLab lab( "A -10- B -10- D; A -10- C -10- D; D -10- E -10- G; D -10- F -10- G; G -10- H" );
   const auto ask = [ & ]( std::initializer_list< const char * > hops ) {
      Json constraint;
      for ( const char * hop : hops ) {
         constraint[ "includeHop" ].push_back( { { "addr", hop }, { "loose", true } } );
      }
      lab.request( "cli", "p", "H", constraint );
      lab.settle();
   };
   ask( { "10.0.0.4" } );
   const std::string path = lab.path( "cli", "p" );
   ASSERT_EQ( path.size(), 11u );
   for ( int i = 0; i < 5; ++i ) {
      lab.restart();
      lab.settle();
      ASSERT_EQ( lab.path( "cli", "p" ), path );
      ASSERT_EQ( lab.status( "cli", "p" )->changeCount(), 1u );
   }
   ask( { "10.0.0.4", "10.0.0.7" } );
   ASSERT_EQ( lab.path( "cli", "p" ), path );
}

TEST( PathService, SegmentsKeepToWhatTheyWereAmongEquals ) {
   for ( const char * used : { "B", "C" } ) {
      const std::string other = *used == 'B' ? "C" : "B";
      TestLab lab( "A -10- B; A -10- C; B -10- D; C -10- D; D -10- E" );
      const auto asked = [ & ]( const std::string & name, const std::string & dst ) {
         lab.request( "cli", name, dst,
                      { { "includeHop", { { { "addr", "10.0.0.4" }, { "loose", true } } } } } );
      };
      // A way there and another one back; a path that is not published yet, since it ends nowhere.
      lab.link( used + std::string( "-D" ), { { "ba", { { "metric", 11 } } } } );
      lab.link( other + "-D", { { "ab", { { "metric", 11 } } } } );
      lab.down( "D-E" );
      asked( "back", "A" );
      asked( "away", "E" );
      lab.settle();
      const std::string there = std::string( "A " ) + used + " D ";
      ASSERT_EQ( lab.path( "cli", "back" ), there + other + " A" );
      for ( const std::string & link : { used + std::string( "-D" ), other + "-D" } ) {
         lab.link( link, { { "ab", nullptr }, { "ba", nullptr } } );
         lab.settle();
      }
      lab.up( "D-E" );
      lab.settle();
      EXPECT_EQ( lab.path( "cli", "back" ), there + other + " A" );
      EXPECT_EQ( lab.path( "cli", "away" ), there + "E" );
   }
}

TEST( PathService, ExamplesRunAndHoldWhatTheyAsk ) {
   std::size_t examples = 0;
   for ( const auto & file : std::filesystem::directory_iterator( CSPF_SOURCE_DIR "/examples" ) ) {
      if ( file.path().extension() != ".json" ) {
         continue;
      }
      SCOPED_TRACE( file.path().string() );
      ++examples;
      const auto run = runProgram( "cspfctl", { "run", "--json", file.path().string() } );
      ASSERT_EQ( run.exitStatus, 0 ) << run.err;
      Json document = Json::parse( std::ifstream( file.path() ) );
      Json events = document.value( "events", Json::array() );
      document.erase( "events" );
      events.push_back( Json::object() );
      std::istringstream lines( run.out );
      std::string line;
      for ( const Json & event : events ) {
         ASSERT_TRUE( std::getline( lines, line ) );
         document.merge_patch( event.value( "patch", Json::object() ) );
      }
      const Json last = Json::parse( line );
      document[ "te" ][ "routerId" ] = last[ "teRouterId" ];
      EXPECT_EQ( judge( document, last, false ).complaints, "" );
      EXPECT_FALSE( std::getline( lines, line ) ) << line;
   }
   EXPECT_GE( examples, 2u );
}
