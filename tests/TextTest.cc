// How texts come out for people: bandwidths, tables, words that were mistyped.

#include "tools/text/Bandwidth.h"
#include "tools/text/Nearest.h"
#include "tools/text/Table.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

namespace {

TEST( Text, readsTheBandwidthsThatItWrites ) {
   std::mt19937_64 random( 5 );
   for ( int i = 0; i < 20'000; ++i ) {
      std::uint64_t bandwidth = random() >> random() % 64;
      for ( auto zeros = random() % 12; zeros > 0 && bandwidth < UINT64_MAX / 10; --zeros ) {
         bandwidth *= 10;
      }
      const std::string text = Text::bandwidthText( bandwidth );
      ASSERT_EQ( Text::parseBandwidth( text ), bandwidth ) << text;
   }
   EXPECT_EQ( Text::bandwidthText( 1'250'000'000 ), "10G" );
   EXPECT_EQ( Text::bandwidthText( 50'000'000 ), "400M" );
   EXPECT_EQ( Text::parseBandwidth( "2.5G" ), 312'500'000u );
   for ( const char * text : { "", "G", "10g", "-1M", "1.5", "0.001k", "1e3", "99999999999T" } ) {
      EXPECT_EQ( Text::parseBandwidth( text ), std::nullopt ) << text;
   }
}

TEST( Text, breaksTheLastColumnBehindCommasAtAnyWidth ) {
   const std::string hops = "ams, new york, köln, saint-quentin-en-yvelines, 10.0.0.3";
   for ( unsigned width = 1; width < 90; ++width ) {
      Text::Table table( { "PATH", "HOPS" } );
      table.row( { "t1", hops } );
      table.row( { "t2", "no path: nothing found" } );
      std::ostringstream out;
      table.print( out, width );
      std::istringstream lines( out.str() );
      std::string together, line;
      for ( std::getline( lines, line );
            std::getline( lines, line ) && !line.starts_with( "t2" ); ) {
         ASSERT_GT( line.size(), 5u ) << width;
         const std::string piece = line.substr( 5 );
         together += ( together.empty() ? "" : " " ) + piece;
         const bool whole = piece.find_first_of( ", " ) >= piece.size() - 1;  // cannot be less
         EXPECT_TRUE( line.size() <= width + 1 || whole ) << width << ": " << line;
         EXPECT_TRUE( width < 14 || piece.ends_with( ',' ) || piece.ends_with( "10.0.0.3" ) )
            << width << ": " << line;
      }
      EXPECT_EQ( together, hops ) << width;
   }
}

TEST( Text, knowsWhatWasMeant ) {
   const std::vector< std::string > commands{ "paths", "patch", "status", "trace", "trace-level" };
   EXPECT_EQ( Text::nearest( "ptahs", commands ), "paths" );
   EXPECT_EQ( Text::nearest( "pach", commands ), "patch" );
   EXPECT_EQ( Text::nearest( "stat", commands ), "status" );
   EXPECT_EQ( Text::nearest( "pat", commands ), "" ) << "two are as near";
   EXPECT_EQ( Text::nearest( "frobnicate", commands ), "" );
}

}
