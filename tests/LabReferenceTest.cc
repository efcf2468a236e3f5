// The reference of labs names every key that the readers take and that a run prints.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

namespace {

std::string
sourceText( const std::filesystem::path & file ) {
   std::ifstream in( file );
   return { std::istreambuf_iterator< char >( in ), {} };
}

/// What the first group matches in the sources of the lab whose names end so.
std::set< std::string >
keysIn( const std::string & suffix, const std::regex & pattern ) {
   std::set< std::string > keys;
   const std::filesystem::path sources = CSPF_SOURCE_DIR "/tools/lab";
   for ( const auto & entry : std::filesystem::directory_iterator( sources ) ) {
      const std::string name = entry.path().filename();
      const std::string text = name.ends_with( suffix ) ? sourceText( entry.path() ) : "";
      for ( std::sregex_iterator at( text.begin(), text.end(), pattern ), end; at != end; ++at ) {
         keys.insert( ( *at )[ 1 ] );
      }
   }
   return keys;
}

void
expectNamed( const std::set< std::string > & keys, std::size_t least ) {
   const std::string reference = sourceText( CSPF_SOURCE_DIR "/docs/lab.md" );
   EXPECT_GE( keys.size(), least );
   for ( const std::string & key : keys ) {
      EXPECT_TRUE( reference.find( "`" + key + "`" ) != reference.npos ) << key << " is missing";
   }
}

}

TEST( LabReference, namesEachKeyOfLabsAndOfTheOutput ) {
   const std::regex read( R"re((?:[kK]ey|family)\(\s*"(\w+)")re" );
   auto taken = keysIn( "Reader.cc", read );
   taken.merge( keysIn( "LabFile.cc", read ) );
   expectNamed( taken, 75 );
   expectNamed( keysIn( "OutcomeJson.cc", std::regex( R"re([{\[]\s*"(\w+)"\s*[,\]])re" ) ), 35 );
}
