// Pictures: what Graphviz is told, what of it comes out as SVG, and what the page does in a
// browser.

#include "tests/LabText.h"
#include "tests/RunnerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

using nlohmann::json;
using testing::HasSubstr;

namespace {

/// B and C are neighbours of A by ways of equal cost to D; E is behind D on a LAN. The link A-B
/// goes down, and it is what a repair protects.
struct Draw : testing::Test {
   Draw() {
      json topology =
         labTopology( "A -10{bw 125000}- B -10{bw 31250}- D; A -20{bw 125000 back 30}- C "
                      "-20{bw 125000}- D; D =lan1= E" );
      topology[ "routers" ][ "A" ][ "at" ] = { -1, 2.5 };
      const json serves{ { "vrf", { { "default", true } } },
                         { "addressFamily", { { "ipv4", true } } } };
      const json up{
         { "topologies", { { "net", { { "links", { { "A-B", { { "up", false } } } } } } } } } };
      const json lab{ { "router", "A" },
                      { "topologies", { { "net", topology } } },
                      { "clients", { { "rsvp", serves }, { "tilfa", serves } } },
                      { "paths",
                        { { "rsvp", { { "to-e", { { "dst", "10.0.0.5" } } } } },
                          { "tilfa",
                            { { "d",
                                { { "dst", "0000.0000.0003" },
                                  { "constraint", { { "excludeIntf", "A-B.a" } } } } } } } } },
                      { "events", { { { "at", 5 }, { "patch", up } } } } };
      std::ofstream( file ) << lab.dump();
   }
   /// What stands in the file that is drawn.
   std::string drawn( const std::string & name, std::vector< std::string > more ) {
      more.insert( more.begin(), { "draw", file, "-o", directory / name } );
      const ProgramResult result = runProgram( "cspfctl", more );
      EXPECT_EQ( result.exitStatus, 0 ) << result.err;
      std::ifstream in( directory / name );
      return { std::istreambuf_iterator< char >( in ), {} };
   }
   /// The line of the text for Graphviz that has this label.
   static std::string line( const std::string & dot, const std::string & holds ) {
      std::smatch found;
      std::regex_search( dot, found, std::regex( "[^\n]*" + holds + "[^\n]*" ) );
      return found.str();
   }

   const TemporaryDirectory directory;
   const std::string file = directory / "lab.json";
};

}

TEST_F( Draw, showsPathsRepairsAndWhatIsDown ) {
   const std::string before =
      drawn( "x.dot", { "--at", "5", "--path", "rsvp/to-e", "--path", "tilfa/d" } );
   const std::string path = "color=\"#0072b2\"", repair = "color=\"#009e73\"";
   EXPECT_THAT( line( before, "A-B \\(net\\)" ), HasSubstr( path ) );
   EXPECT_THAT( line( before, "A-B \\(net\\)" ), HasSubstr( "dir=forward" ) );
   EXPECT_THAT( line( before, "D at LAN" ), HasSubstr( path ) );
   EXPECT_THAT( line( before, "E at LAN" ), HasSubstr( "dir=back" ) );
   EXPECT_THAT( line( before, "A-C \\(net\\)" ), HasSubstr( repair ) );
   EXPECT_THAT( line( before, "A-C \\(net\\)" ), HasSubstr( "label=\"20/30\"" ) );
   EXPECT_THAT( line( before, "A-C \\(net\\)" ), HasSubstr( "style=dashed" ) );
   EXPECT_THAT( line( before, "A-C \\(net\\)" ), HasSubstr( "bandwidth 1M, 1M free" ) );
   EXPECT_THAT( line( before, "label=\"A\"" ), HasSubstr( "!\"" ) ) << "its place is given";
   const std::string after = drawn( "x.dot", {} );
   EXPECT_THAT( line( after, "A-B \\(net\\)" ), HasSubstr( "color=\"#d62728\"" ) );
   EXPECT_THAT( line( after, "B-D \\(net\\)" ), HasSubstr( "penwidth=2.40" ) )
      << "a quarter is free";
   EXPECT_THAT( line( after, "A-C \\(net\\)" ), HasSubstr( "penwidth=4.00" ) );
}

TEST_F( Draw, holdsWhateverThingsAreCalled ) {
   const std::string name = "x\x07\n\"\\<&>\xc2\x9b\xef\xbf\xbf";
   json lab = json::parse( std::ifstream( file ) );
   lab[ "topologies" ] = { { name, labTopology( "A -10- B" ) } };
   json & net = lab[ "topologies" ][ name ];
   net[ "routers" ][ name ] = net[ "routers" ][ "B" ];
   net[ "routers" ].erase( "B" );
   net[ "links" ] = { { name, net[ "links" ][ "A-B" ] } };
   net[ "links" ][ name ][ "b" ] = name;
   lab[ "paths" ] = { { "rsvp", { { name, { { "dst", "10.0.0.2" } } } } } };
   lab.erase( "events" );
   std::ofstream( file ) << lab.dump();
   const std::string dot = drawn( "x.dot", { "--path", "rsvp/" + name } );
   const std::string shown = R"(x\\u0007\\u000a\"\\<&>\\u009b\\uffff)";
   EXPECT_THAT( dot, HasSubstr( "label=\"" + shown + "\"" ) );
   EXPECT_THAT( dot, HasSubstr( R"(<B>rsvp/x\u0007\u000a"\&lt;&amp;&gt;\u009b\uffff</B>)" ) );
   std::string all = dot;
   if ( std::filesystem::exists( "/usr/bin/neato" ) ) {
      all += drawn( "x.html", { "--path", "rsvp/" + name } )
             + drawn( "x.svg", { "--path", "rsvp/" + name } );
   }
   for ( const char c : all ) {
      ASSERT_TRUE( c == '\n' || c == '\t' || c == '\r' || c < 0 || c >= ' ' ) << int( c );
   }
}

TEST_F( Draw, makesAPageThatABrowserShows ) {
   if ( !std::filesystem::exists( "/usr/bin/neato" ) ) {
      const ProgramResult result = runProgram( "cspfctl", { "draw", file } );
      EXPECT_THAT( result.err, HasSubstr( "Graphviz is not installed" ) );
      GTEST_SKIP() << "Graphviz is not installed";
   }
   EXPECT_THAT( drawn( "x.svg", {} ), HasSubstr( "TE router id 10.0.0.2" ) );
   const std::string page = drawn( "x.html", { "--path", "rsvp/to-e" } );
   EXPECT_EQ( page.find( "src=" ), page.npos );
   EXPECT_EQ( page.find( "href=\"http" ), page.npos );
   if ( !std::filesystem::exists( "/usr/bin/chromium" ) ) {
      GTEST_SKIP() << "no browser is installed";
   }
   // What a hand would do is done by a script behind the page's own.
   const auto shown = [ & ]( const std::string & behind, const std::string & script ) {
      std::ofstream( directory / "y.html" ) << page << "<script>" << script << "</script>";
      return runProgram( "/usr/bin/chromium",
                         { "--headless", "--no-sandbox", "--disable-gpu", "--dump-dom",
                           "--user-data-dir=" + ( directory / "browser" ),
                           "file://" + ( directory / "y.html" ) + behind } )
         .out;
   };
   const std::string first = shown( "", "" );
   EXPECT_THAT( first, HasSubstr( ">at the start<" ) );
   EXPECT_THAT( first, HasSubstr( "B, D, E; metric 30" ) );
   EXPECT_THAT( first, HasSubstr( "data-path=\"rsvp/to-e\"" ) );
   EXPECT_EQ( first.find( "class=\"edge down\"" ), first.npos );
   const std::string second =
      shown( "#path=none", "when.value = 1; when.oninput();"
                           "[...document.querySelectorAll('nav button')].at(-1).click();" );
   EXPECT_THAT( second, HasSubstr( "/topologies/net/links/A-B/up: false<" ) );
   EXPECT_THAT( second, HasSubstr( "class=\"edge down\"" ) );
   EXPECT_THAT( second, HasSubstr( "C, D, E; metric 50" ) );
   EXPECT_THAT( second, HasSubstr( "data-path=\"tilfa/d\"" ) );
   EXPECT_EQ( second.find( "data-path=\"rsvp/to-e\"" ), second.npos );
}
