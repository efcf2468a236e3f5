// The order of the house: who may include whom, and what the library's own sources may lean on.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

const std::vector< std::string > storeys{ "platform", "schema", "Cspf", "tools" };

int
storeyOf( const std::string & path ) {
   const auto at = std::ranges::find( storeys, path.substr( 0, path.find( '/' ) ) );
   return at == storeys.end() ? -1 : static_cast< int >( at - storeys.begin() );
}

/// The rooms of the agent, from the ground up.
const std::vector< std::string > rooms{ "Records", "Graph",   "Detours", "Topology", "Bandwidth",
                                        "Views",   "Hops",    "Runs",    "Paths",    "Requests",
                                        "Repairs", "Clients", "Agent" };

/// -1: not in a room. A file of the agent that is in none is a face.
int
roomOf( const std::string & path ) {
   const std::filesystem::path parts( path );
   const auto at = std::ranges::find( rooms, parts.parent_path().filename().string() );
   const bool ofAgent = parts.parent_path().parent_path() == "Cspf";
   return !ofAgent || at == rooms.end() ? -1 : static_cast< int >( at - rooms.begin() );
}

bool
isFace( const std::string & path ) {
   return std::filesystem::path( path ).parent_path() == "Cspf";
}

bool
hasWord( const std::string & text, const std::string & word ) {
   const auto letter = []( char c ) {
      return std::isalnum( static_cast< unsigned char >( c ) ) || c == '_';
   };
   for ( std::size_t at = text.find( word ); at != text.npos; at = text.find( word, at + 1 ) ) {
      const std::size_t end = at + word.size();
      if ( ( at == 0 || !letter( text[ at - 1 ] ) )
           && ( end == text.size() || !letter( text[ end ] ) ) ) {
         return true;
      }
   }
   return false;
}

struct Include {
   std::string by;  ///< file, from the root
   std::string what;
   bool angled;
};

/// Calls `look( file, text )` with each line of the sources below a folder of the root.
template< class Look >
void
eachLine( const std::string & folder, Look look ) {
   const std::filesystem::path root = CSPF_SOURCE_DIR;
   for ( const auto & entry : std::filesystem::recursive_directory_iterator( root / folder ) ) {
      const std::string file = std::filesystem::relative( entry.path(), root );
      if ( file.ends_with( ".h" ) || file.ends_with( ".cc" ) ) {
         std::ifstream in( entry.path() );
         for ( std::string text; std::getline( in, text ); ) {
            look( file, text );
         }
      }
   }
}

/// All includes of the product's own sources.
std::vector< Include >
includes() {
   constexpr std::string_view directive = "#include ";
   std::vector< Include > found;
   for ( const std::string & storey : storeys ) {
      eachLine( storey, [ & ]( const std::string & by, const std::string & text ) {
         const std::size_t begin = directive.size() + 1;
         const std::size_t end = text.find_first_of( ">\"", begin );
         if ( text.starts_with( directive ) && end != text.npos ) {
            const bool angled = text[ directive.size() ] == '<';
            found.push_back( { by, text.substr( begin, end - begin ), angled } );
         }
      } );
   }
   return found;
}

}

TEST( Tidy, includesGoDownFromTheRoot ) {
   const auto all = includes();
   ASSERT_GT( all.size(), 500u );
   for ( const Include & include : all ) {
      if ( include.angled ) {
         continue;
      }
      EXPECT_TRUE( std::filesystem::exists( std::string( CSPF_SOURCE_DIR "/" ) + include.what ) )
         << include.by << ": " << include.what << " is not written from the root";
      EXPECT_LE( storeyOf( include.what ), storeyOf( include.by ) ) << include.by;
      // Programs stand on the agent's platform, not on the agent: they load it.
      EXPECT_FALSE( storeyOf( include.by ) == 3 && storeyOf( include.what ) == 2 ) << include.by;
   }
}

TEST( Tidy, roomsLeanOnRoomsBelowThem ) {
   std::set< std::string > faces;
   for ( const Include & include : includes() ) {
      if ( !include.by.starts_with( "Cspf/" ) ) {
         continue;
      }
      if ( isFace( include.by ) ) {
         faces.insert( include.by );
         EXPECT_NE( roomOf( include.what ), -1 )
            << include.by << " is a face: it only includes rooms";
         continue;
      }
      ASSERT_NE( roomOf( include.by ), -1 ) << include.by << " is in no room";
      if ( include.what.starts_with( "Cspf/" ) ) {
         EXPECT_FALSE( isFace( include.what ) )
            << include.by << " includes a face: " << include.what;
         EXPECT_LE( roomOf( include.what ), roomOf( include.by ) )
            << include.by << " leans up on " << include.what;
      }
      const auto isOfNumbers = []( const std::string & path ) {
         return path.starts_with( "Cspf/Graph/" ) || path.starts_with( "Cspf/Detours/" );
      };
      if ( isOfNumbers( include.by ) ) {
         EXPECT_TRUE( include.angled || isOfNumbers( include.what )
                      || include.what.starts_with( "platform/Lum/Assert" ) )
            << include.by << " computes with numbers alone, and includes " << include.what;
      }
   }
   EXPECT_EQ( faces.size(), 15u );
}

TEST( Tidy, nothingBelowTheRootsKnowsTheirOwner ) {
   std::size_t lines = 0;
   eachLine( "Cspf", [ & ]( const std::string & file, const std::string & text ) {
      if ( !file.starts_with( "Cspf/Agent/" ) && roomOf( file ) != -1 ) {
         EXPECT_FALSE( hasWord( text, "VrfRoot" ) ) << file << ": " << text;
         ++lines;
      }
   } );
   EXPECT_GT( lines, 10'000u );
}

TEST( Tidy, theLibraryLeansOnTheStandardLibraryAlone ) {
   for ( const Include & include : includes() ) {
      if ( include.angled && storeyOf( include.by ) < 3 ) {
         const bool ofStandard = include.what.find( '/' ) == std::string::npos
                                 || include.what.starts_with( "sys/" )
                                 || include.what.starts_with( "arpa/" );
         EXPECT_TRUE( ofStandard ) << include.by << " includes " << include.what;
      }
   }
}

TEST( Tidy, versionsComeFromOnePlace ) {
   const auto placeIn = []( const char * file, const std::string & text ) {
      std::ostringstream content;
      content << std::ifstream( std::string( CSPF_SOURCE_DIR "/" ) + file ).rdbuf();
      EXPECT_NE( content.str().find( text ), std::string::npos ) << file << " has no " << text;
      return content.str().find( text );
   };
   EXPECT_EQ( placeIn( "debian/changelog", "cspf-agent (" CSPF_VERSION ") " ), 0u );
   const std::size_t at = placeIn( "CHANGELOG.md", "\n## " CSPF_VERSION "\n" );
   EXPECT_EQ( placeIn( "CHANGELOG.md", "\n## " ), at ) << "another version stands first";
}

TEST( Tidy, theLibrariesShowEveryNamespace ) {
   // Of one that is not shown, program and agent would have two.
   std::ostringstream exports;
   exports << std::ifstream( CSPF_SOURCE_DIR "/packaging/Exports.cmake" ).rdbuf();
   const std::regex opening( R"(^namespace (\w+).*\{$)" );
   const std::set< std::string > inner{ "Detail" };
   std::set< std::string > found;
   for ( const char * storey : { "platform", "schema", "Cspf" } ) {
      eachLine( storey, [ & ]( const std::string &, const std::string & text ) {
         std::smatch match;
         if ( std::regex_match( text, match, opening ) ) {
            found.insert( match[ 1 ] );
         }
      } );
   }
   EXPECT_GT( found.size(), 15u );
   for ( const std::string & name : found ) {
      EXPECT_TRUE( inner.contains( name ) || hasWord( exports.str(), name ) ) << name;
   }
}

TEST( Tidy, noFileIncludesItselfRoundabout ) {
   std::map< std::string, std::vector< std::string > > edges;
   for ( const Include & include : includes() ) {
      if ( !include.angled ) {
         edges[ include.by ].push_back( include.what );
      }
   }
   std::map< std::string, int > state;  // 1: being looked at, 2: done
   const auto visit = [ & ]( const auto & self, const std::string & file ) -> void {
      ASSERT_NE( state[ file ], 1 ) << file << " is part of a circle";
      if ( std::exchange( state[ file ], 1 ) == 0 ) {
         for ( const std::string & next : edges[ file ] ) {
            self( self, next );
         }
      }
      state[ file ] = 2;
   };
   for ( const auto & [ file, next ] : std::map( edges ) ) {
      if ( state[ file ] == 0 ) {
         visit( visit, file );
      }
   }
}
