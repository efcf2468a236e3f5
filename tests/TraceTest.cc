// Traces as an operator meets them: texts in the two sinks, the ring read back from its file in
// order, and rings that a crash or a bad disk has damaged. Toggles stand here as well.

#include "platform/Trace/Trace.h"
#include "platform/Kivnet/IpGenAddr.h"
#include "platform/Lum/Clock.h"
#include "platform/Toggle/Toggle.h"
#include "platform/Trace/Gemtrace.h"
#include "platform/Trace/Velotrace.h"
#include "schema/CspfKeys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <unistd.h>

using testing::ElementsAre;

namespace {

struct Line {
   int level;
   std::string text;
   double time = 0;
   double utc = 0;

   bool operator==( const Line & other ) const {
      return level == other.level && text == other.text;
   }
};

std::ostream &
operator<<( std::ostream & out, const Line & line ) {
   return out << line.level << " " << line.text;
}

struct Decoded {
   bool ok;
   std::vector< Line > lines;
   std::size_t damaged = 0;
   std::string error;
};

Decoded
decoded( std::string_view bytes ) {
   Decoded result{};
   result.ok = Velotrace::decodeBytes(
      bytes,
      [ & ]( const Velotrace::Record & record ) {
         result.lines.push_back(
            { record.level, std::string( record.text ), record.time, record.utc } );
      },
      result.damaged, result.error );
   return result;
}

std::string
bytesOf( const std::string & path ) {
   std::ifstream in( path, std::ios::binary );
   std::ostringstream bytes;
   bytes << in.rdbuf();
   return bytes.str();
}

/// A ring in a directory of its own, on a virtual clock.
class TraceTest : public testing::Test {
 protected:
   TraceTest() {
      std::string name = testing::TempDir() + "traceXXXXXX";
      directory_ = mkdtemp( name.data() );
      setenv( "VELOTRACEDIR", directory_.c_str(), 1 );
      Lum::currentClockIs( &clock_ );
   }
   ~TraceTest() override {
      Velotrace::close();
      Velotrace::maxLevelIs( 7 );
      Trace::levelDel();
      Gemtrace::sinkIs( nullptr );
      Trace::logSinkIs( nullptr );
      Lum::currentClockIs( nullptr );
      unsetenv( "VELOTRACEDIR" );
      std::filesystem::remove_all( directory_ );
   }

   /// Room for about thirty records of 100 bytes.
   static bool openSmall() {
      return Velotrace::initialise( "small.qt", "4K", 0, 24, Velotrace::singleThreaded, true, 512 );
   }
   static Decoded ring() { return decoded( bytesOf( Velotrace::path() ) ); }

   std::string directory_;
   Lum::VirtualClock clock_;
};

struct Subject {
   void creates( const Kivnet::IpGenAddr & address ) const {
      TRACE7( "Creating subject at " << address );
   }
   void looks( int times ) const { TRACE9( "looked " << times << " times" ); }
};

LUM_BOUNDED( SlotIndex, std::uint8_t, 0, 9 );

/// A field of each kind.
struct Everything {
   LUM_VALUE( Tests, Everything );
   LUM_FIELD( is, bool );
   LUM_FIELD( number, std::int64_t );
   LUM_FIELD( share, double );
   LUM_FIELD( name, Lum::String );
   LUM_FIELD( kind, Routing::Topology::NeighborType );
   LUM_FIELD( family, Kivnet::AddressFamily );
   LUM_FIELD( address, Kivnet::IpGenAddr );
   LUM_FIELD( path, Cspf::PathKey );
   LUM_FIELD( interface, Kivnet::IntfId );
   LUM_LIST( slot, SlotIndex, Cspf::IncludeHop );
   LUM_SET( group, std::uint32_t );
   LUM_FURTHER_FIELD( router, Cspf::NodeId );
   LUM_FURTHER_FIELD( loud, bool );
};

Everything
everything( std::mt19937 & random ) {
   Everything value;
   const auto address = [ & ] {
      return Kivnet::IpGenAddr::parse( random() % 2 ? "10.0.255.1" : "2001:db8::7" ).value();
   };
   value.isIs( random() % 2 );
   value.numberIs( static_cast< std::int64_t >( std::uint64_t( random() ) << random() % 40 )
                   * ( random() % 2 ? 1 : -1 ) );
   value.shareIs( double( random() ) / 1000 );
   value.nameIs( std::string( random() % 400, '\1' ) );
   value.kindIs( static_cast< Routing::Topology::NeighborType >( random() % 4 ) );
   value.familyIs( static_cast< Kivnet::AddressFamily >( random() % 3 ) );
   if ( random() % 2 ) {
      value.addressIs( address() );
      value.pathIs( { Cspf::Destination( address() ), std::uint32_t( random() ) } );
      value.interfaceIs( Kivnet::IntfId( "et1" ) );
      value.slotIs( 1, { address(), true } );
      value.groupIs( 7 );
      value.groupIs( 5 );
      value.routerIs( Cspf::NodeId( Routing::Isis::SystemId{ { 1, 2, 3, 4, 5, 6 } } ) );
   }
   value.loudIs( random() % 2 );
   return value;
}

int evaluations = 0;

std::string
costly() {
   ++evaluations;
   return "costly";
}

}

TEST_F( TraceTest, bothSinksHearTheSameMessageAfterTheFunctionsSignature ) {
   std::vector< Line > heard;
   Gemtrace::sinkIs(
      [ & ]( int level, std::string_view text ) {
         heard.push_back( { level, std::string( text ) } );
      },
      7 );
   ASSERT_TRUE( openSmall() );
   clock_.nowIs( 1234.5 );
   Subject().creates( *Kivnet::IpGenAddr::parse( "10.0.0.1" ) );
   Subject().looks( 3 );

   ASSERT_EQ( heard.size(), 1u );
   EXPECT_EQ( heard[ 0 ].level, 7 );
   EXPECT_THAT( heard[ 0 ].text,
                testing::MatchesRegex( ".*Subject::creates\\(const (Kivnet::)?IpGenAddr ?&\\) "
                                       "const: Creating subject at 10.0.0.1" ) );
   EXPECT_EQ( heard[ 0 ].text.find( "void" ), std::string::npos );
   const Decoded read = ring();
   EXPECT_EQ( read.lines, heard );
   EXPECT_DOUBLE_EQ( read.lines.at( 0 ).time, 1234.5 );
   EXPECT_GT( read.lines.at( 0 ).utc, 1e9 );
}

TEST_F( TraceTest, theRingTellsEachKindOfValueAsItsText ) {
   std::mt19937 random( 4 );
   std::string heard;
   Gemtrace::sinkIs( [ & ]( int, std::string_view text ) { heard = text; }, 7 );
   const auto traced = [ & ]( const auto & value ) {
      Trace::Message message;
      message << "before " << value << ", behind";
      Trace::emit( 7, message );
      EXPECT_EQ( ring().lines.back().text, heard.substr( 0, 512 ) );
      return heard.substr( 7, heard.size() - 15 );
   };
   ASSERT_TRUE( openSmall() );
   for ( int i = 0; i < 300; ++i ) {
      const Everything value = everything( random );
      EXPECT_EQ( traced( value ), Lum::valueString( value ) );
      EXPECT_EQ( traced( value.number() ), std::to_string( value.number() ) );
      EXPECT_EQ( traced( value.path().dst() ), value.path().dst().stringValue() );
      EXPECT_EQ( traced( value.share() ), Lum::valueString( value.share() ) );
      EXPECT_EQ( traced( value.name() + value.name() + value.name() ).size(),
                 3 * value.name().size() );
   }
   for ( const std::int64_t edge : { INT64_MIN, INT64_MAX, std::int64_t( 0 ) } ) {
      EXPECT_EQ( traced( edge ), std::to_string( edge ) );
   }
   EXPECT_EQ( traced( UINT64_MAX ), std::to_string( UINT64_MAX ) );
   EXPECT_EQ( traced( true ) + traced( 'c' ) + traced( std::uint8_t( 65 ) ), "1c65" );
   EXPECT_EQ( traced( Kivnet::IpGenAddr() ) + traced( Kivnet::Ip6Addr() ), "::" );
}

/// Whatever a file has in place of a message.
TEST_F( TraceTest, piecesThatNobodyWroteDoNoHarm ) {
   std::mt19937 random( 8 );
   const Trace::Name deep( std::string( 3, Trace::pieceHere ) );
   std::size_t read = 0;
   for ( int round = 0; round < 20'000; ++round ) {
      Trace::Message message;
      for ( int i = round % 40; i > 0; --i ) {
         message << deep;
      }
      message << everything( random ) << "end";
      std::string pieces( message.pieces() );
      for ( int i = round % 4; i > 0; --i ) {
         pieces[ random() % pieces.size() ] = static_cast< char >( random() );
      }
      pieces.resize( pieces.size() - ( round % 3 ? random() % 20 : 0 ) );
      const auto some = std::make_unique< char[] >( pieces.size() );  // ends where the memory ends
      pieces.copy( some.get(), pieces.size() );
      std::string text;
      read +=
         Trace::appendText( { some.get(), pieces.size() },
                            Trace::names().substr( 0, random() % Trace::namesSize ), 300, text );
      ASSERT_LE( text.size(), 300u );
   }
   EXPECT_GT( read, 100u );
   EXPECT_LT( read, 19'000u );
}

TEST_F( TraceTest, textIsMadeOnlyWhenASinkWantsIt ) {
   evaluations = 0;
   TRACE0( costly() );
   TRACE9( costly() );
   EXPECT_EQ( evaluations, 0 );
   ASSERT_TRUE( openSmall() );
   TRACE9( costly() );
   EXPECT_EQ( evaluations, 0 );
   TRACE7( costly() );
   EXPECT_EQ( evaluations, 1 );
   Velotrace::maxLevelIs( 9 );
   TRACE9( costly() );
   EXPECT_EQ( evaluations, 2 );
   EXPECT_EQ( ring().lines.size(), 2u );
}

TEST_F( TraceTest, levelsAreChosenAtRunTimeAndForSourceFiles ) {
   std::size_t text = 0;
   Gemtrace::sinkIs( [ & ]( int, std::string_view ) { ++text; }, 7 );
   ASSERT_TRUE( openSmall() );
   const auto traced = [ & ] {
      const std::size_t before = text, inRing = ring().lines.size();
      TRACE0( "zero" );
      TRACE7( "seven" );
      TRACE9( "nine" );
      EXPECT_EQ( ring().lines.size() - inRing, text - before );
      return text - before;
   };
   EXPECT_EQ( traced(), 2u );
   Trace::levelIs( 9, "No*.cc" );
   EXPECT_EQ( traced(), 2u );
   Trace::levelIs( 0 );
   EXPECT_EQ( traced(), 1u );
   Trace::levelIs( 9, "tests/Trace*.cc" );
   EXPECT_EQ( traced(), 3u );
   Trace::levelIs( 8 );
   EXPECT_EQ( traced(), 2u );
   Trace::levelDel();
   Gemtrace::sinkIs( nullptr );
   TRACE7( "seven" );
   EXPECT_EQ( text, 10u ) << "a sink that is closed stays so";
}

TEST_F( TraceTest, aRingWhoseFileIsCutBeginsANewOne ) {
   ASSERT_TRUE( openSmall() );
   Trace::emit( 7, "before" );
   for ( int i = 0; i < 3; ++i ) {
      std::filesystem::resize_file( Velotrace::path(), 0 );
      Trace::emit( 7, "into the gap" );
      Trace::emit( 7, "behind it" );
      const Decoded read = ring();
      ASSERT_EQ( read.lines.size(), 1u );
      EXPECT_EQ( read.lines[ 0 ].text, "behind it" );
   }
}

TEST_F( TraceTest, fileIsNamedAfterTheProcessAndStandsWhereTheEnvironmentSays ) {
   ASSERT_TRUE( Velotrace::initialise( "agent-%d.qt", nullptr, 0, 24, true, true, 512 ) );
   EXPECT_EQ( Velotrace::path(), directory_ + "/agent-" + std::to_string( getpid() ) + ".qt" );
   EXPECT_TRUE( std::filesystem::exists( Velotrace::path() ) );

   setenv( "VELOTRACEDIR", ( directory_ + "/none" ).c_str(), 1 );
   EXPECT_FALSE( Velotrace::initialise( "agent.qt", nullptr, 0, 24, true, true, 512 ) );
   EXPECT_EQ( Velotrace::path(), "" );
}

TEST_F( TraceTest, anEarlierRingIsReplacedOnlyWhereAskedForAndStaysWholeWhereMovedAway ) {
   ASSERT_TRUE( openSmall() );
   TRACE7( "before" );
   const std::string moved = directory_ + "/moved.qt";
   std::filesystem::rename( Velotrace::path(), moved );
   ASSERT_TRUE( Velotrace::reopen() );
   TRACE7( "after" );
   EXPECT_EQ( ring().lines.size(), 1u );
   const Decoded before = decoded( bytesOf( moved ) );
   ASSERT_EQ( before.lines.size(), 1u );
   EXPECT_THAT( before.lines[ 0 ].text, testing::EndsWith( ": before" ) );
   Velotrace::close();
   EXPECT_FALSE( Velotrace::initialise( "small.qt", "4K", 0, 24, true, false, 512 ) );
   EXPECT_EQ( decoded( bytesOf( directory_ + "/small.qt" ) ).lines.size(), 1u );
   ASSERT_TRUE( openSmall() );
   EXPECT_TRUE( ring().lines.empty() );
}

TEST_F( TraceTest, theRingKeepsTheNewestInOrderHoweverOftenItWraps ) {
   std::mt19937 random( 5 );
   ASSERT_TRUE( openSmall() );
   std::vector< Line > written;
   for ( int i = 0; i < 3000; ++i ) {
      // Now and then a text that is cut, and one without any.
      const std::size_t length = i % 50 == 0 ? 600 : i % 50 == 1 ? 0 : random() % 300;
      const std::string text( length, static_cast< char >( 'a' + i % 26 ) );
      Trace::emit( i % 8, text );
      written.push_back( { i % 8, text.substr( 0, 512 ) } );
      if ( i % 7 == 0 ) {
         const Decoded read = ring();
         ASSERT_EQ( read.damaged, 0u ) << i;
         ASSERT_LE( read.lines.size(), written.size() );
         ASSERT_TRUE( std::equal( read.lines.begin(), read.lines.end(),
                                  written.end() - static_cast< long >( read.lines.size() ) ) )
            << i;
         std::size_t bytes = 0;
         for ( const Line & line : read.lines ) {
            bytes += line.text.size() + 32;
         }
         ASSERT_GT( bytes, std::min< std::size_t >( written.size() * 24, 4096 - 2 * 544 ) ) << i;
      }
   }
}

TEST_F( TraceTest, aDamagedRingGivesWhatIsWholeInOrder ) {
   std::mt19937 random( 6 );
   ASSERT_TRUE( openSmall() );
   const Trace::Name label( { Trace::pieceHere, '.' } );
   std::vector< Line > written;
   for ( int i = 0; i < 200; ++i ) {
      const std::string more( random() % 100, '.' );
      written.push_back( { 7, std::to_string( 1000 + i ) + "." + more } );
      Trace::Message message;
      Trace::emit( 7, message << label << 1000 + i << more );
   }
   const std::string bytes = bytesOf( Velotrace::path() );
   const Decoded whole = ring();
   const auto numberOf = []( const Line & line ) { return std::stoi( line.text.substr( 0, 4 ) ); };
   for ( int round = 0; round < 2000; ++round ) {
      std::string damaged = bytes;
      const bool amongNames = round % 8 >= 4;
      const std::size_t ringBegin = 64 + Trace::namesSize;
      const std::size_t from =
         amongNames ? 64 + random() % Trace::names().size() : ringBegin + random() % 4096;
      std::size_t length = 1 + random() % 200;
      if ( round % 4 == 0 ) {
         damaged.resize( from );
         length = damaged.size();
      }
      for ( std::size_t i = from; i < std::min( from + length, damaged.size() ); ++i ) {
         damaged[ i ] = round % 4 == 1 ? '\0' : static_cast< char >( random() );
      }
      const Decoded read = decoded( damaged );
      ASSERT_TRUE( read.ok );
      for ( std::size_t i = 0; i < read.lines.size(); ++i ) {
         ASSERT_TRUE( std::ranges::find( written, read.lines[ i ] ) != written.end() )
            << round << " " << read.lines[ i ];
         ASSERT_TRUE( i == 0 || numberOf( read.lines[ i - 1 ] ) < numberOf( read.lines[ i ] ) );
      }
      if ( round % 4 != 0 && !amongNames ) {
         ASSERT_GE( read.lines.size() + 12, whole.lines.size() ) << "damage spread";
      }
      // The oldest may be gone unnoticed, as if overwritten, and the last before the ring's end, as
      // if it had not fitted; a hole elsewhere may not.
      const bool atEnd = from + length > bytes.size() - 300;
      const int newest = numberOf( whole.lines.back() );
      const bool hole = !read.lines.empty()
                        && newest - numberOf( read.lines.front() ) + 1 != int( read.lines.size() );
      ASSERT_TRUE( !hole || atEnd || read.damaged > 0 ) << round;
   }
}

TEST_F( TraceTest, whatIsNoRingIsSaidSo ) {
   EXPECT_EQ( decoded( "" ).error, "is no trace ring" );
   EXPECT_EQ( decoded( std::string( 5000, 'x' ) ).error, "is no trace ring" );
   ASSERT_TRUE( openSmall() );
   std::string bytes = bytesOf( Velotrace::path() );
   bytes[ 15 ] = 1;  // a capacity that no file has
   EXPECT_EQ( decoded( bytes ).error, "is no trace ring" );
   std::size_t damaged = 0;
   std::string error;
   const auto ignore = []( const Velotrace::Record & ) {};
   EXPECT_FALSE( Velotrace::decode( directory_ + "/none", ignore, damaged, error ) );
   EXPECT_EQ( error, "cannot be read" );
}

TEST_F( TraceTest, logMessagesReachTheOperatorAndTheTraces ) {
   static std::string logged;
   Trace::logSinkIs( []( const Trace::LogMessage & message, std::string_view text ) {
      logged = Trace::logLine( message, text );
   } );
   Trace::logMessage( { "LINK_FLAPS", Trace::Severity::warning, "A link is not stable" }, "et1" );
   EXPECT_EQ( logged, "LINK_FLAPS: et1 (warning: A link is not stable)" );
}

TEST( Toggle, theFileDecidesAndTheDefaultFillsIn ) {
   std::string directory = testing::TempDir() + "toggleXXXXXX";
   ASSERT_TRUE( mkdtemp( directory.data() ) );
   setenv( "TOGGLEDIR", directory.c_str(), 1 );
   const auto state = [ & ]( const char * json, bool defaultState ) {
      std::ofstream( directory + "/gated.json" ) << json;
      return Toggle::getToggleState( "Wanted", "gated.json", defaultState );
   };
   EXPECT_TRUE( Toggle::getToggleState( "Wanted", "gated.json", true ) );
   EXPECT_FALSE( Toggle::getToggleState( "Wanted", "gated.json", false ) );
   EXPECT_FALSE( state( R"({ "note": "Wanted", "Wanted": false })", true ) );
   EXPECT_TRUE( state( "{\"NotWanted\":false,\n \"Wanted\" : true}", false ) );
   for ( const char * json : { "", "{", "noise", "{\"Wanted\"", "{\"Wanted\":", "{\"Wanted\": 1}",
                               "{\"Wanted\": falsehood}", "{\"Wanted\": \"false\"}" } ) {
      EXPECT_TRUE( state( json, true ) ) << json;
   }

   Toggle::toggleOverrideIs( "Wanted", true );
   EXPECT_TRUE( state( R"({"Wanted": false})", false ) );
   Toggle::toggleOverrideIs( "Wanted", std::nullopt );
   EXPECT_FALSE( state( R"({"Wanted": false})", true ) );
   unsetenv( "TOGGLEDIR" );
   std::filesystem::remove_all( directory );
}
