// What is saved starts an agent that publishes the same, and what is recorded is done again.

#include "tests/Lab.h"
#include "tests/RandomLab.h"
#include "tests/RunnerProcess.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabOfState.h"
#include "tools/record/Recorder.h"
#include "tools/record/Replay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

extern "C" AgentRunner::Agent * agentFactory( const char * name );

using testing::HasSubstr;

namespace {

using Json = nlohmann::json;

/// Whether hops are published beside an error: what was granted to them is known to nobody else.
bool
hasRefused( const TestLab & lab ) {
   for ( const auto & [ client, services ] : lab.outcome().clients ) {
      for ( const auto & [ where, service ] : services ) {
         if ( std::ranges::any_of( service.pathStatus, []( const auto & path ) {
                 return !path.error.empty() && path.status.paths() > 0;
              } ) ) {
            return true;
         }
      }
   }
   return false;
}

/// All state but how often the agent ran, for which constraint of which number, and why there is no
/// repair (of an interface that is away, that is the reason of before).
Json
keptOf( const TestLab & lab ) {
   const Json all = lab.snapshot();
   const std::string unknown = hasRefused( lab ) ? "te/cspf/bwUsage" : "te/cspf/constraintStatus";
   Json kept = Json::object();
   for ( const auto & [ path, table ] : all.items() ) {
      Json one = table;
      Json & value = one[ "value" ];
      if ( path.starts_with( "te/cspf/status" ) && path.ends_with( "/tilfa" ) ) {
         value.erase( "pathError" );
      }
      const bool empty = std::ranges::all_of(
         value, []( const Json & part ) { return part.is_structured() && part.empty(); } );
      if ( !path.starts_with( "te/cspf/constraintStatus" ) && !path.starts_with( unknown )
           && !empty ) {
         kept[ path ] = one;
      }
   }
   return kept;
}

/// Lets some random events happen, and a link have what no lab says.
void
live( TestLab & lab, RandomLab & random, unsigned events ) {
   for ( unsigned i = 0; i < events; ++i ) {
      try {
         lab.patch( random.event( lab.document() ) );
      } catch ( const Lab::LabError & ) {
         continue;
      }
      lab.advance( 0.02 * random.below( 20 ) );
   }
   lab.settle();
}

std::string
recordIn( const std::string & file ) {
   std::ifstream in( file );
   return { std::istreambuf_iterator< char >( in ), {} };
}

Record::Replayed
replayed( const std::string & text, std::string & printed ) {
   std::istringstream in( text );
   std::ostringstream out, err;
   const auto result = Record::replay( in, ::agentFactory, { true, false }, out, err );
   printed = out.str();
   return result;
}

}

TEST( Save, startsAnAgentThatPublishesTheSame ) {
   std::size_t paths = 0;
   for ( unsigned seed = 1; seed <= 80; ++seed ) {
      SCOPED_TRACE( seed );
      Json before, document;
      {
         RandomLab random( seed, RandomLab::Kind( seed % 3 ) );
         auto lab = TestLab::of( random.document() );
         live( lab, random, seed % 8 );
         document = Json::parse( Lab::labOf( lab.state(), lab.tables() ).dump() );
         before = keptOf( lab );
      }
      auto again = TestLab::of( document );
      again.settle();
      EXPECT_EQ( Json::diff( before, keptOf( again ) ), Json::array() );
      for ( const auto & [ path, table ] : before.items() ) {
         paths +=
            path.starts_with( "te/cspf/status" ) ? table[ "value" ][ "pathStatus" ].size() : 0;
      }
   }
   EXPECT_GT( paths, 200u );
}

/// Repairs keep their numbers, and a network in which links fail is the same as a lab.
TEST( Save, keepsRepairsAndTheNamesOfALab ) {
   TestLab lab( "A -10{bw 9}- B -10{bw 9}- C -10- D -10- A; B -50{back 7 te 3}- D; A =lan1= C D",
                { { "clients",
                    { { "tilfa",
                        { { "vrf", { { "default", true } } },
                          { "addressFamily", { { "ipv4", true } } } } } } } } );
   lab.request( "tilfa", "t1", "C", { { "excludeIntf", "A-B.a" } } );
   lab.request( "tilfa", "t2", "B", { { "excludeIntf", "A-B.a" } } );
   lab.request( "rsvp", "r", "C", { { "bandwidth", 5 } } );
   lab.request( "rsvp", "s", "B" );
   lab.settle();
   const auto names = Lab::namesOf( Lab::LabFile::parse( lab.document().dump() ).document() );
   const Json saved = Json::parse( Lab::labOf( lab.state(), lab.tables(), names ).dump() );
   EXPECT_FALSE( saved.contains( "state" ) ) << saved[ "state" ];
   EXPECT_TRUE( saved[ "topologies" ][ "core" ][ "links" ].contains( "B-D" ) );
   EXPECT_TRUE( saved[ "paths" ][ "tilfa" ].contains( "t1" ) );
   const Json before = keptOf( lab );
   lab.stop();
   auto again = TestLab::of( saved );
   again.settle();
   EXPECT_EQ( Json::diff( before, keptOf( again ) ), Json::array() );
   EXPECT_EQ( again.cost( "rsvp", "r" ), 20u );
   again.down( "A-B" );
   again.settle();
   EXPECT_EQ( again.cost( "rsvp", "r" ), std::nullopt );
   EXPECT_EQ( again.cost( "rsvp", "s" ), 13u );
}

/// Rows that no IGP would write stay as they are.
TEST( Save, keepsWhatTheWordsOfALabDoNotSay ) {
   TestLab lab( "A -10- B -10- C" );
   lab.request( "cli", "t", "C" );
   lab.settle();
   const std::string path = "routing/isis/topodb/ip/2/default";
   const auto table = Lum::cast< Routing::Topology::TopoDb >( lab.tables().table( path ) );
   const auto key = Lum::sortedKeys( table->neighborColl() ).back();
   auto link = *table->neighborFind( key );
   link.neighborAddrDelAll();
   table->neighborIs( key, link );
   lab.settle();
   const Json saved = Json::parse( Lab::labOf( lab.state(), lab.tables() ).dump() );
   const Json before = keptOf( lab );
   lab.stop();
   auto again = TestLab::of( saved );
   again.settle();
   EXPECT_EQ( Json::diff( before, keptOf( again ) ), Json::array() );
}

/// It is as if it had been there from the start.
TEST( Save, aLabThatPatchesStateTakesAwayWhatWasThere ) {
   TestLab lab( "A -10- B" );
   lab.request( "cli", "t", "B" );
   lab.settle();
   lab.patch(
      { { "paths", { { "cli", nullptr } } },
        { "state",
          { { "te/cspf/cliConfig",
              { { "type", "Cspf::CspfCliConfig" }, { "value", { { "holdInt", 300 } } } } } } } } );
   lab.settle();
   const Json after = keptOf( lab );
   lab.stop();
   auto fresh = TestLab::of( lab.document() );
   fresh.settle();
   EXPECT_EQ( Json::diff( keptOf( fresh ), after ), Json::array() );
}

TEST( Record, isPlayedAgainToTheSameBytes ) {
   const TemporaryDirectory directory;
   std::size_t publications = 0;
   for ( unsigned seed = 1; seed <= 40; ++seed ) {
      SCOPED_TRACE( seed );
      const std::string file = directory / "record";
      {
         RandomLab random( seed, RandomLab::Kind( seed % 3 ) );
         auto lab = TestLab::of( random.document() );
         lab.stop();
         Record::Recorder recorder( file, lab.loop(), lab.runner(), lab.state(), lab.tables(),
                                    []( const std::string & ) {} );
         std::srand( 1 );
         recorder.agentStarts();
         lab.start();
         live( lab, random, 6 );
      }
      const std::string record = recordIn( file );
      std::string printed, published;
      const auto result = replayed( record, printed );
      EXPECT_EQ( result.difference, "" );
      EXPECT_FALSE( result.cutOff );
      std::istringstream lines( record );
      for ( std::string line; std::getline( lines, line ); ) {
         published += line.find( "\"published\":" ) == line.npos ? "" : line + "\n";
      }
      EXPECT_EQ( printed, published );
      publications += result.published;
      // Cut off anywhere, it is played as far as it goes.
      const auto part = replayed( record.substr( 0, record.size() * seed / 41 ), printed );
      EXPECT_EQ( part.difference, "" );
      EXPECT_TRUE( part.cutOff );
   }
   EXPECT_GT( publications, 200u );
}

TEST( Record, aBadLineIsNamed ) {
   const std::string header = "{\"record\": 1}\n";
   const auto complaint = []( const std::string & text ) -> std::string {
      std::string printed;
      try {
         replayed( text, printed );
      } catch ( const Record::Error & error ) {
         return error.what();
      }
      return "";
   };
   EXPECT_THAT( complaint( "" ), HasSubstr( "line 0: expected a record" ) );
   EXPECT_THAT( complaint( "\x7f"
                           "ELF" ),
                HasSubstr( "line 1: expected a record" ) );
   EXPECT_THAT( complaint( "{\"record\": 2}\n" ), HasSubstr( "version 1, found 2" ) );
   EXPECT_THAT( complaint( header + "{\"at\": 0,,}\n" ), HasSubstr( "line 2: " ) );
   EXPECT_THAT( complaint( header + "[]\n" ), HasSubstr( "line 2: expected an object" ) );
   EXPECT_THAT( complaint( header + "{\"at\": -1}\n" ), HasSubstr( "line 2: expected as \"at\"" ) );
   EXPECT_THAT( complaint( header + "{\"at\": 0, \"path\": \"te/none\"}\n" ),
                HasSubstr( "line 2: expected the path of state" ) );
   EXPECT_THAT( complaint( header + "{\"at\": 0, \"path\": \"te/config\", \"field\": \"none\"}\n" ),
                HasSubstr( "line 2: " ) );
   EXPECT_THAT( complaint( header + "{\"at\": 0, \"path\": \"te/config\", \"value\": 5}\n" ),
                HasSubstr( "line 2: " ) );
}
