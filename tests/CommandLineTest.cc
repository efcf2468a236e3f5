// cspfctl's command line as a person meets it: what it offers, what it says of mistakes, and what
// it completes.

#include "tests/LabText.h"
#include "tests/RunnerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;

namespace {

std::vector< std::string >
linesOf( const std::string & text ) {
   std::vector< std::string > lines;
   std::istringstream in( text );
   for ( std::string line; std::getline( in, line ); ) {
      lines.push_back( line );
   }
   return lines;
}

struct CommandLine : testing::Test {
   CommandLine() {
      const nlohmann::json json{
         { "router", "A" },
         { "topologies", { { "net", labTopology( "A -- B -- C" ) } } },
         { "paths", { { "rsvp", { { "t1", { { "dst", "10.0.0.3" } } } } } } },
         { "events",
           { { { "at", 1 },
               { "patch",
                 { { "paths",
                     { { "rsvp", { { "late", { { "dst", "10.0.0.2" } } } } } } } } } } } } };
      std::ofstream( lab ) << json.dump();
   }
   static std::vector< std::string > completed( std::vector< std::string > words ) {
      words.insert( words.begin(), "complete" );
      return linesOf( runProgram( "cspfctl", words ).out );
   }
   static std::string complaint( const std::vector< std::string > & words ) {
      const ProgramResult result = runProgram( "cspfctl", words );
      EXPECT_NE( result.exitStatus, 0 );
      EXPECT_EQ( result.out, "" );
      return result.err;
   }

   const TemporaryDirectory directory;
   const std::string lab = directory / "lab.json";
};

}

TEST_F( CommandLine, showsEachCommandWithAnExample ) {
   const ProgramResult alone = runProgram( "cspfctl", {} );
   EXPECT_EQ( alone.exitStatus, 0 );
   EXPECT_EQ( alone.out, runProgram( "cspfctl", { "--help" } ).out );
   const auto commands = completed( { "" } );
   EXPECT_GE( commands.size(), 19u );
   for ( const std::string & command : commands ) {
      EXPECT_THAT( alone.out,
                   testing::ContainsRegex( "\n  " + command + " [^\n]*\n +cspfctl " + command ) );
   }
   EXPECT_THAT( runProgram( "cspfctl", { "--version" } ).out, HasSubstr( "cspfctl 1." ) );
}

TEST_F( CommandLine, isWholeInItsManualPage ) {
   std::ifstream in( CSPF_SOURCE_DIR "/docs/man/cspfctl.1" );
   std::vector< std::set< std::string > > synopses( 1 );  // the words of each
   std::string line;
   while ( line != ".SH SYNOPSIS" && std::getline( in, line ) ) {
   }
   while ( std::getline( in, line ) && line != ".SH DESCRIPTION" ) {
      if ( line == ".br" ) {
         synopses.emplace_back();
      }
      std::istringstream words( std::regex_replace( line, std::regex( R"([\\{}|\[\]])" ), "" ) );
      for ( std::string word; words >> word; ) {
         synopses.back().insert( word );
      }
   }
   const auto has = [ & ]( const std::string & command, const std::string & word ) {
      return std::ranges::any_of( synopses, [ & ]( const auto & words ) {
         return words.contains( command ) && words.contains( word );
      } );
   };
   const std::regex option( "\n  (?:(-.),)?(--[a-z-]+)" );
   for ( const std::string & command : completed( { "" } ) ) {
      std::vector< std::string > asked{ command, "--help" };
      if ( command == "import" ) {
         asked.insert( asked.begin() + 1, "isis" );
      }
      const std::string help = runProgram( "cspfctl", asked ).out;
      EXPECT_TRUE( has( command, command ) );
      for ( std::sregex_iterator at( help.begin(), help.end(), option ), end; at != end; ++at ) {
         EXPECT_TRUE( ( *at )[ 2 ] == "--help" || has( command, ( *at )[ 1 ] )
                      || has( command, ( *at )[ 2 ] ) )
            << command << ( *at )[ 0 ];
      }
   }
}

TEST_F( CommandLine, complainsByItsNameAndInOrder ) {
   EXPECT_EQ(
      complaint( { "ptahs" } ),
      "cspfctl: there is no command \"ptahs\"; did you mean \"paths\"? See cspfctl --help\n" );
   EXPECT_EQ( complaint( { "import", "isi", "f" } ),
              "cspfctl: import: there is no command \"isi\"; did "
              "you mean \"isis\"? See cspfctl import --help\n" );
   EXPECT_EQ( complaint( { "status", "b", "a", "--jsn" } ),
              "cspfctl: status: not expected: b a --jsn; see cspfctl status --help\n" );
   EXPECT_EQ( complaint( { "run", "--jsn", "f" } ),
              "cspfctl: run: not expected: --jsn; did you mean "
              "\"--json\"? See cspfctl run --help\n" );
   EXPECT_THAT( complaint( { "prove", "--socket", "s", "lab.json" } ),
                HasSubstr( "prove: --socket does not go with lab;" ) );
   EXPECT_THAT( complaint( { "--socket", "s", "prove", "lab.json" } ),
                HasSubstr( "prove: --socket does not go with lab;" ) );
   EXPECT_THAT( complaint( { "prove", "lab.json", "--socket", "s" } ),
                HasSubstr( "prove: lab does not go with --socket;" ) );
   EXPECT_THAT( complaint( { "load" } ), HasSubstr( "cspfctl: load: lab is required; see" ) );
   EXPECT_THAT(
      complaint( { "draw", lab, "--path", "rsvp/t" } ),
      HasSubstr( "cspfctl: --path rsvp/t: there is no such path; did you mean \"rsvp/t1\"?" ) );
}

TEST_F( CommandLine, refusesWhatCannotApplyAndWhatIsNoNumber ) {
   const std::pair< std::vector< std::string >, std::string > cases[] = {
      { { "explain", "--at", "1", "rsvp/t1" }, "--at requires a lab" },
      { { "explain", "--seed", "1", "rsvp/t1" }, "--seed requires a lab" },
      { { "explain", lab, "rsvp/t1", "--socket", "s" }, "--socket does not go with a lab" },
      { { "whatif", "{}", "--at", "1" }, "--at requires a lab" },
      { { "whatif", "--each", "link", "--seed", "1" }, "--seed requires a lab" },
      { { "whatif", lab, "{}", "--names", lab }, "--names does not go with a lab" },
      { { "whatif", lab, "{}", "--socket", "s" }, "--socket does not go with a lab" },
      { { "whatif", lab, "{}", "--state", "unix:s" }, "--state does not go with a lab" },
      { { "--state", "unix:s", "draw", lab }, "--state does not go with a lab" },
      { { "--state", "unix:s", "--socket", "s", "get" }, "--state does not go with --socket" },
      { { "--state-password", "f", "status" }, "--state-password requires --state" },
      { { "wait", "--vrf", "x" }, "--vrf requires --for" },
      { { "wait", "--for", "settled", "--vrf", "x" }, "--vrf is of a path" },
      { { "trace-level", "--files", "x" }, "--files requires level" },
      { { "run", "--state", "unix:s", lab }, "run: not expected: --state " + lab + "; see" },
      { { "whatif", lab, "[]" }, "the patch: expected an object, found []" },
   };
   for ( const auto & [ words, text ] : cases ) {
      EXPECT_THAT( complaint( words ), HasSubstr( text ) );
   }
   for ( const std::vector< std::string > & words :
         { std::vector< std::string >{ "draw", lab, "--at" },
           { "explain", lab, "p", "--at" },
           { "whatif", lab, "{}", "--at" },
           { "prove", lab, "--at" },
           { "prove", "--timeout" },
           { "wait", "--timeout" } } ) {
      for ( const char * number : { "nan", "inf", "-1", "1e300", "1x", "" } ) {
         std::vector< std::string > typed = words;
         typed.emplace_back( number );
         EXPECT_THAT( complaint( typed ),
                      HasSubstr( "expected a number from 0 to 1000000000, found "
                                 "\""
                                 + std::string( number ) + "\"" ) );
      }
   }
   const std::pair< std::vector< std::string >, std::string > services[] = {
      { { "agentrunner", "--standby" }, "--standby requires --state" },
      { { "agentrunner", "--state-password", "f" }, "--state-password requires --state" },
      { { "igpfeed", "isis", "--state-password", "f" }, "--state-password requires --state" },
      { { "/usr/bin/env", "STATE=", "STATE_PASSWORD=f", CSPF_BINARY_DIR "/bin/agentrunner",
          "--socket", directory / "s", "--library", "/nowhere" },
        "agentrunner: /nowhere" },
      { { "/usr/bin/env", "STATE=unix:s", CSPF_BINARY_DIR "/bin/igpfeed", "isis", "--socket", "s",
          "--state-password", "f" },
        "--state-password requires --state" },
      { { "igpfeed", "isis", "--state", "unix:s", "--socket", "s" }, "excludes --state" },
      { { "igpfeed", "isis", "--grace", "nan" }, "expected a number from 0 to 86400" },
      { { "igpfeed", "isis", "--interval", "inf" }, "expected a number from 10 to 60000" },
   };
   for ( const auto & [ words, text ] : services ) {
      const ProgramResult result = runProgram( words[ 0 ], { words.begin() + 1, words.end() } );
      EXPECT_EQ( result.exitStatus, 1 );
      EXPECT_THAT( result.err, HasSubstr( text ) );
   }
}

TEST_F( CommandLine, readsStandardInput ) {
   const std::string program = CSPF_BINARY_DIR "/bin/cspfctl ";
   const auto typed = [ & ]( const std::string & command ) {
      return runProgram( "/bin/sh", { "-c", program + command + " < " + lab } );
   };
   EXPECT_THAT( typed( "check -" ).out, HasSubstr( "3 routers" ) );
   EXPECT_EQ( typed( "run --json -" ).out, runProgram( "cspfctl", { "run", "--json", lab } ).out );
   EXPECT_THAT( typed( "whatif - -" ).err, HasSubstr( "standard input has been read already" ) );
   EXPECT_THAT( typed( "trace -" ).err, HasSubstr( "cspfctl: -: is no trace ring" ) );
}

TEST_F( CommandLine, completesWhatIsThere ) {
   EXPECT_THAT( completed( { "pa" } ), ElementsAre( "patch", "paths" ) );
   EXPECT_THAT( completed( { "run", "--s" } ), ElementsAre( "--seed" ) );
   EXPECT_THAT( completed( { "import", "" } ), ElementsAre( "isis", "ospf" ) );
   EXPECT_THAT( completed( { "whatif", lab, "--each", "" } ),
                ElementsAre( "link", "router", "srlg" ) );
   EXPECT_THAT( completed( { "run", "" } ), ElementsAre() ) << "files";
   EXPECT_THAT( completed( { "draw", lab, "--path", "" } ), ElementsAre( "rsvp/late", "rsvp/t1" ) );
   EXPECT_THAT( completed( { "explain", lab, "rsvp/t" } ), ElementsAre( "rsvp/t1" ) );
   EXPECT_THAT( completed( { "explain", lab, "rsvp/t1", "--why-not", "B,A" } ),
                ElementsAre( "B,A", "B,A-B" ) );
   EXPECT_THAT( completed( { "get", "te/c" } ), ElementsAre( "te/config", "te/cspf/" ) );

   const RunnerProcess runner( directory, { "--lab", lab } );
   const std::string socket = runner.socket();
   EXPECT_THAT( completed( { "--socket", socket, "get", "te/cspf/config/vrf/default/ipv4/" } ),
                ElementsAre( "te/cspf/config/vrf/default/ipv4/rsvp" ) );
   EXPECT_THAT( completed( { "explain", "--socket", socket, "rs" } ),
                ElementsAre( "rsvp/10.0.0.3#1" ) );
   EXPECT_THAT( runProgram( "cspfctl", { "--socket=" + socket, "status" } ).out,
                HasSubstr( "process" ) );
   // As bash has it, down to the colon that ends a word there.
   const ProgramResult bash = runProgram(
      "/bin/bash", { "-c", "source " CSPF_SOURCE_DIR "/packaging/cspfctl.bash; compopt() { :; }; "
                           "COMP_LINE='cspfctl explain --socket "
                              + socket
                              + " rsvp/'; "
                                "COMP_POINT=${#COMP_LINE}; _cspfctl " CSPF_BINARY_DIR
                                "/bin/cspfctl; echo \"${COMPREPLY[@]}\"" } );
   EXPECT_EQ( bash.out, "rsvp/10.0.0.3#1\n" ) << bash.err;
}
