// The guide's first half as a reader types it: its lab, its commands, and what it says they print.

#include "tests/RunnerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

/// The blocks of the guide that need no service, in order.
std::vector< std::string >
blocks() {
   std::ifstream in( CSPF_SOURCE_DIR "/docs/guide.md" );
   std::vector< std::string > found;
   bool inside = false;
   for ( std::string line; std::getline( in, line ) && line != "## Operating a live agent"; ) {
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
   const std::string shell = "exec 2>&1; set -e; cd " + directory.path()
                             + "; PATH=" CSPF_BINARY_DIR "/bin:$PATH\n" + commands;
   FILE * const pipe = popen( shell.c_str(), "r" );
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
   const auto all = blocks();
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
