// What would be, as an operator reads it.

#include "tests/LabText.h"
#include "tests/RunnerProcess.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

using Json = nlohmann::json;

struct WhatIf : testing::Test {
   /// What `cspfctl whatif` says of the lab, a document for each line.
   std::vector< Json > whatIf( const Json & lab, const std::vector< std::string > & more ) {
      const std::string file = directory / "lab.json";
      std::ofstream( file ) << lab.dump();
      std::vector< std::string > arguments{ "whatif", file, "--json" };
      arguments.insert( arguments.end(), more.begin(), more.end() );
      const ProgramResult result = runProgram( "cspfctl", arguments );
      EXPECT_EQ( result.exitStatus, 0 ) << result.err;
      std::vector< Json > documents;
      std::istringstream lines( result.out );
      for ( std::string line; std::getline( lines, line ); ) {
         documents.push_back( Json::parse( line ) );
      }
      return documents;
   }

   const TemporaryDirectory directory;
   const Json lab{
      { "router", "A" },
      { "topologies",
        { { "net", labTopology( "A -10{bw 100 srlg 7}- B -10{bw 100}- D; A -20{bw 60}- C "
                                "-20{bw 60 srlg 7}- D; D -5{bw 100}- E" ) } } },
      { "clients",
        { { "rsvp",
            { { "vrf", { { "default", true } } }, { "addressFamily", { { "ipv4", true } } } } } } },
      { "paths",
        { { "rsvp",
            { { "thin", { { "dst", "10.0.0.3" }, { "constraint", { { "bandwidth", 50 } } } } },
              { "thick",
                { { "dst", "10.0.0.3" },
                  { "id", 2 },
                  { "constraint", { { "bandwidth", 80 } } } } } } } } },
      { "events", { { { "at", 5 }, { "patch", { { "te", { { "enabled", false } } } } } } } } };
};

/// "A-B lost=1 longer=1 moved=0 bandwidth=80"
std::string
summary( const Json & one ) {
   return one[ "failure" ].get< std::string >() + " lost=" + one[ "lost" ].dump()
          + " longer=" + one[ "longer" ].dump() + " moved=" + one[ "moved" ].dump()
          + " bandwidth=" + one[ "bandwidthLost" ].dump();
}

}

TEST_F( WhatIf, everyFailureFindsTheSameNetwork ) {
   const auto summaries = [ & ]( const char * kind ) {
      std::string all;
      for ( const Json & one : whatIf( lab, { "--at", "5", "--each", kind } ) ) {
         all += summary( one ) + "\n";
      }
      return all;
   };
   EXPECT_EQ( summaries( "link" ), "A-B lost=1 longer=1 moved=0 bandwidth=80\n"
                                   "A-C lost=0 longer=0 moved=0 bandwidth=0\n"
                                   "B-D lost=1 longer=1 moved=0 bandwidth=80\n"
                                   "C-D lost=0 longer=0 moved=0 bandwidth=0\n"
                                   "D-E lost=0 longer=0 moved=0 bandwidth=0\n" );
   EXPECT_EQ( summaries( "router" ), "B lost=1 longer=1 moved=0 bandwidth=80\n"
                                     "C lost=0 longer=0 moved=0 bandwidth=0\n"
                                     "D lost=2 longer=0 moved=0 bandwidth=130\n"
                                     "E lost=0 longer=0 moved=0 bandwidth=0\n" );
   EXPECT_EQ( summaries( "srlg" ), "SRLG 7 lost=2 longer=0 moved=0 bandwidth=130\n" );
}

TEST_F( WhatIf, aPatchOrAnEventIsFollowed ) {
   const auto off = whatIf( lab, { "--event", "1" } );
   ASSERT_EQ( off.size(), 1u );
   EXPECT_EQ( off[ 0 ][ "lost" ], 2 );
   const auto dear = whatIf(
      lab, { "--at", "5", R"({"topologies": {"net": {"links": {"B-D": {"up": false}}}}})" } );
   ASSERT_EQ( dear.size(), 1u );
   EXPECT_EQ( dear[ 0 ][ "paths" ].size(), 2u );
   EXPECT_EQ( dear[ 0 ][ "paths" ][ 0 ][ "after" ][ "metric" ], "40" );
   const std::string file = directory / "lab.json";
   EXPECT_EQ( runProgram( "cspfctl", { "whatif", file, R"({"router": "nobody"})" } ).exitStatus,
              2 );
   EXPECT_EQ( runProgram( "cspfctl", { "whatif", file, "--event", "2" } ).exitStatus, 1 );
}

TEST_F( WhatIf, saysWhetherTheLabIsWrongOrTheChange ) {
   const std::string good = directory / "good.json", bad = directory / "bad.json";
   std::ofstream( good ) << lab.dump();
   std::ofstream( bad ) << "{";
   const auto blamed = [ & ]( const std::vector< std::string > & words ) {
      std::vector< std::string > arguments{ "whatif" };
      arguments.insert( arguments.end(), words.begin(), words.end() );
      const ProgramResult result = runProgram( "cspfctl", arguments );
      EXPECT_EQ( result.exitStatus, 2 );
      return result.err.substr( 0, result.err.find( ": ", result.err.find( ": " ) + 1 ) );
   };
   EXPECT_EQ( blamed( { good, "{" } ), "cspfctl: the patch" );
   EXPECT_EQ( blamed( { good, "@" + bad } ), "cspfctl: " + bad );
   EXPECT_EQ( blamed( { good, R"({"te": {"enabled": 1}})" } ), "cspfctl: the patch" );
   EXPECT_EQ( blamed( { bad, "{}" } ), "cspfctl: " + bad );
   EXPECT_EQ( blamed( { bad, "--event", "1" } ), "cspfctl: " + bad );
   EXPECT_EQ( blamed( { bad, "--each", "link" } ), "cspfctl: " + bad );
}
