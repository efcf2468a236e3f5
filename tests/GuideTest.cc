// The guide as a reader types it: its lab, its commands, and what it says they print; but for what
// takes a router.

#include "tests/RedisServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

/// The blocks of the guide from one heading to another one, in order.
std::vector< std::string >
blocks( const std::string & from, const std::string & to ) {
   std::ifstream in( CSPF_SOURCE_DIR "/docs/guide.md" );
   std::vector< std::string > found;
   bool inside = false;
   std::string line;
   while ( line != from && std::getline( in, line ) ) {
   }
   while ( std::getline( in, line ) && line != to ) {
      if ( line.starts_with( "```" ) ) {
         inside = !inside;
         if ( inside ) {
            found.emplace_back();
         }
      } else if ( inside ) {
         found.back() += line + "\n";
      }
   }
   return found;
}

/// All that the shell prints for the commands, in that directory.
std::string
typed( const TemporaryDirectory & directory, const std::string & commands ) {
   std::ofstream( directory / "typed" )
      << "exec 2>&1; unset VELOTRACE_DISABLE; set -e -o pipefail; cd " << directory.path()
      << "; PATH=" CSPF_BINARY_DIR "/bin:$PATH\n"
      << commands;
   FILE * const pipe = popen( ( "bash " + directory / "typed" ).c_str(), "r" );
   std::string out;
   for ( int c = std::fgetc( pipe ); c != EOF; c = std::fgetc( pipe ) ) {
      out += static_cast< char >( c );
   }
   return pclose( pipe ) == 0 ? out : out + "failed\n";
}

}

TEST( Guide, printsWhatItSays ) {
   const TemporaryDirectory directory;
   std::filesystem::create_directory_symlink( CSPF_SOURCE_DIR "/examples", directory / "examples" );
   const auto all = blocks( "# Guide", "## Operating a live agent" );
   ASSERT_GE( all.size(), 7u );
   std::string lab = all[ 1 ];
   std::ofstream( directory / "small.json" ) << lab;
   EXPECT_EQ( all[ 2 ], "cspfctl run small.json\n" );
   EXPECT_EQ( typed( directory, all[ 2 ] ), all[ 3 ] );

   const std::string right = R"("b": "cph", "aAddr": "10.1.0.5")";
   lab.replace( lab.find( right ), right.size(), R"("b": "berlin", "aAddr": "10.1.0.5")" );
   std::ofstream( directory / "small.json" ) << lab;
   EXPECT_EQ( typed( directory, "cspfctl check small.json" ), all[ 4 ] + "failed\n" );

   const auto isCommand = []( const std::string & block ) {
      return block.starts_with( "./run " ) || block.starts_with( "cspfctl " );
   };
   for ( std::size_t i = 5; i < all.size(); ++i ) {
      ASSERT_TRUE( isCommand( all[ i ] ) ) << all[ i ];
      // `./run LAB` builds the product and runs the lab.
      const bool runs = all[ i ].starts_with( "./run " );
      const std::string out =
         typed( directory, runs ? "cspfctl " + all[ i ].substr( 2 ) : all[ i ] );
      EXPECT_THAT( out, testing::Not( testing::AnyOf( "", testing::HasSubstr( "failed\n" ) ) ) );
      if ( i + 1 < all.size() && !isCommand( all[ i + 1 ] ) ) {
         EXPECT_EQ( out, all[ ++i ] );
      }
   }
}

TEST( Guide, operatesALiveAgent ) {
   if ( !RedisServer::isInstalled() ) {
      GTEST_SKIP() << "no redis-server here";
   }
   const TemporaryDirectory directory;
   std::filesystem::create_directory_symlink( CSPF_SOURCE_DIR "/examples", directory / "examples" );
   std::string commands = "trap 'kill $(jobs -p) || true' EXIT; less() { cat; }\n";
   for ( std::string block : blocks( "## Operating a live agent", "## Your own network" ) ) {
      if ( block.starts_with( "cspfctl watch " ) ) {
         block.insert( block.size() - 1, " &" );  // in another terminal
      }
      commands += block;
   }
   const std::string there = "/tmp";
   for ( std::size_t at = 0; ( at = commands.find( there, at ) ) != commands.npos;
         at += directory.path().size() ) {
      commands.replace( at, there.size(), directory.path() );
   }
   const std::string out = typed( directory, commands );
   EXPECT_THAT( out, testing::Not( testing::EndsWith( "failed\n" ) ) );
   const std::size_t shared = out.rfind( "agentrunner: serving" );  // the last one, on a database
   ASSERT_NE( shared, out.npos );
   EXPECT_THAT( out.substr( 0, shared ), testing::Not( testing::HasSubstr( "no answer" ) ) );
   EXPECT_THAT( out, testing::ContainsRegex( "rsvp +washington-dc .10.0.0.3. +9 +[0-9]" ) );
   EXPECT_THAT( out, testing::HasSubstr( ": all holds\n" ) );
   EXPECT_THAT( out, testing::ContainsRegex( "Not adding neighbor .* to tent list" ) );
   EXPECT_THAT( out.substr( shared ),
                testing::ContainsRegex( "rsvp +new-york .10.0.0.1. +1 +[0-9]" ) );
}
