// What the agent says of its paths is held against what it publishes when it is asked for that.

#include "tests/Lab.h"
#include "tests/RandomLab.h"
#include "tools/service/CommandStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>

using testing::HasSubstr;
using testing::Not;

namespace {

/// The agent's answer, with blanks for tabs.
std::string
explained( TestLab & lab, const std::string & client, const std::string & key,
           const std::string & by = "", const std::string & vrf = "default" ) {
   const Service::CommandStream stream;
   lab.runner().command( "CspfExplain", stream.fd(),
                         vrf + "\tipv4\t" + client + "\t" + key + ( by.empty() ? "" : "\t" + by ) );
   std::string text;
   stream.forEachPiece( [ & ]( std::string_view piece ) { text += piece; } );
   std::ranges::replace( text, '\t', ' ' );
   return text;
}

/// "existsWithout part=bandwidth and=topoId upTo=7" -> its value of that name; "" without one.
std::string
valueIn( const std::string & line, const std::string & name ) {
   const auto at = line.find( " " + name + "=" );
   const auto begin = at == line.npos ? line.size() : at + name.size() + 2;
   return line.substr( begin, line.find( ' ', begin ) - begin );
}

/// Whether the agent finds a path when it is asked for this.
bool
exists( TestLab::Json document, const std::string & name, const TestLab::Json & constraint ) {
   document[ "paths" ][ "cli" ][ name ][ "constraint" ] = constraint;
   auto lab = TestLab::of( document );
   lab.settle();
   const Cspf::PathStatus * status = lab.status( "cli", name );
   return status && !status->pathList().empty();
}

/// The parts of a request's constraint that may refuse links: one of them and one of them.
std::set< std::pair< std::string, std::string > >
pairsOf( const TestLab::Json & path ) {
   auto constraint = path.value( "constraint", TestLab::Json::object() );
   for ( const char * manner : { "srlgStrictMode", "srlgExcludeOnlyLocalLinks", "reversePath" } ) {
      constraint.erase( manner );
   }
   std::set< std::pair< std::string, std::string > > pairs;
   for ( const auto & one : constraint.items() ) {
      for ( const auto & other : constraint.items() ) {
         pairs.insert( std::minmax( one.key(), other.key() ) );
      }
   }
   return pairs;
}

}

TEST( Explain, tellsEachHopAndWhatRefusesAnotherWay ) {
   TestLab lab( "A -10{bw 100}- B -10{bw 80}- C; A -50{bw 200}- C; A -50{bw 200}- C; D -1- E" );
   lab.request( "cli", "t", "C", { { "bandwidth", 90 }, { "bwSetupPriority", 5 } } );
   lab.request( "cli", "lost", "D" );
   lab.settle();
   const auto before = lab.snapshot();
   const std::string direct = explained( lab, "cli", "10.0.0.3#1" );
   EXPECT_THAT( direct, HasSubstr( "from=10.0.0.1 to=10.0.0.3" ) );
   EXPECT_THAT( direct, HasSubstr( "metric=50 own=90 free=200 bandwidth=200 equal=2\n" ) );
   EXPECT_THAT( direct, HasSubstr( "best metric=50 equalPaths=2\n" ) );
   const std::string byB = explained( lab, "cli", "10.0.0.3#1", "10.0.0.2" );
   EXPECT_THAT( byB, HasSubstr( "whyNot\nby metric=" ) ) << "there and back";
   const std::string byLink =
      explained( lab, "cli", "10.0.0.3#1",
                 lab.document()[ "topologies" ][ "core" ][ "links" ][ "B-C" ][ "bAddr" ] );
   EXPECT_THAT( byLink, HasSubstr( "to=10.0.0.3" ) );
   EXPECT_THAT( byLink, HasSubstr( "test=bandwidth is not available" ) );
   EXPECT_THAT( byLink, HasSubstr( "free=80 bandwidth=80\n" ) );
   EXPECT_THAT( explained( lab, "cli", "10.0.0.4#1" ),
                HasSubstr( "no way leads there, whatever is asked for" ) );
   EXPECT_THAT( explained( lab, "cli", "10.0.0.9#1" ), HasSubstr( "does not follow this path" ) );
   EXPECT_EQ( lab.snapshot(), before );

   TestLab inUse( "A -10- B -10- C; A -10- D -10- C; A -5- C" );
   inUse.request( "rsvp", "t", "C" );
   inUse.settle();
   inUse.link( "A-C", { { "metric", 50 } } );
   inUse.settle();
   const std::string longer = explained( inUse, "rsvp", "10.0.0.3#1" );
   EXPECT_THAT( longer, HasSubstr( "cost metric=50\nbest metric=20 equalPaths=2\n" ) );
   EXPECT_THAT( longer, Not( HasSubstr( " equal=" ) ) );
}

TEST( Explain, holdsForRandomNetworksAndRequests ) {
   using Pair = std::pair< std::string, std::string >;  // one part of a constraint twice: it alone
   std::size_t published = 0, leftOut = 0, refused = 0;
   for ( unsigned seed = 1; seed <= 120; ++seed ) {
      RandomLab random( seed );
      const auto document = random.document();
      auto lab = TestLab::of( document );
      lab.settle();
      const auto none = TestLab::Json::object();
      const auto asked = document.value( "paths", none ).value( "cli", none );
      for ( const auto & [ name, path ] : asked.items() ) {
         SCOPED_TRACE( "seed " + std::to_string( seed ) + " " + path.dump() );
         const Cspf::PathStatus * status = lab.status( "cli", name );
         if ( !status ) {
            continue;
         }
         const std::string key =
            path[ "dst" ].get< std::string >() + "#" + std::to_string( path.value( "id", 1 ) );
         std::istringstream facts(
            explained( lab, "cli", key, "", path.value( "vrf", "default" ) ) );
         std::size_t hops = 0;
         bool hasPath = false;
         std::set< Pair > inTheWay;
         for ( std::string line; std::getline( facts, line ); ) {
            if ( line.starts_with( "hop " ) ) {
               ++hops;
               EXPECT_EQ( valueIn( line, "test" ), "" ) << line;
            } else if ( line.starts_with( "best " ) ) {
               hasPath = true;
               published += hops > 0;
               EXPECT_TRUE( hops == 0
                            || valueIn( line, "metric" )
                                  == std::to_string( *lab.cost( "cli", name ) ) );
            } else if ( line.starts_with( "existsWithout " ) ) {
               ++leftOut;
               const std::string part = valueIn( line, "part" ), other = valueIn( line, "and" );
               inTheWay.insert( std::minmax( part, other.empty() ? part : other ) );
            } else if ( line.starts_with( "refused " ) ) {
               ++refused;
               EXPECT_NE( valueIn( line, "test" ), "" ) << line;
            }
         }
         EXPECT_EQ( hops, status->pathList().size() );
         for ( const Pair & pair : hasPath ? std::set< Pair >() : pairsOf( path ) ) {
            const auto & [ one, other ] = pair;
            auto constraint = path[ "constraint" ];
            constraint.erase( one );
            constraint.erase( other );
            const bool aloneToo =
               one != other
               && ( inTheWay.contains( { one, one } ) || inTheWay.contains( { other, other } ) );
            EXPECT_EQ( inTheWay.contains( pair ),
                       !aloneToo && exists( document, name, constraint ) )
               << one << " " << other;
         }
      }
   }
   EXPECT_GT( published, 100u );
   EXPECT_GT( leftOut, 20u );
   EXPECT_GT( refused, 20u );
}

/// An interface, or the node behind it, stands in the way with the risks that come of it.
TEST( Explain, leavesTheRisksOutWithWhatTheyComeOf ) {
   const TestLab::Json interface = "A-B.a";
   for ( const char * part : { "excludeIntf", "excludeNode" } ) {
      TestLab lab( "A -10{srlg 7}- B -10- C; A -20{srlg 7}- D -20- C" );
      const bool isNode = std::string_view( part ) == "excludeNode";
      const TestLab::Json node{ { "node", "B" }, { "nexthopIntf", interface } };
      lab.request( "cli", "t", "C",
                   { { part, isNode ? node : interface },
                     { "excludeSrlg", true },
                     { "srlgStrictMode", true } } );
      lab.settle();
      const std::string facts = explained( lab, "cli", "10.0.0.3#1" );
      EXPECT_THAT( facts, HasSubstr( std::string( "existsWithout part=" ) + part + "\n" ) );
      EXPECT_THAT( facts, HasSubstr( "existsWithout part=excludeSrlg\n" ) );
   }
}

TEST( Explain, tellsWhichPathsWaitAndHowLongStill ) {
   TestLab lab( "A -10- B -10- C; A -10- D -10- C",
                { { "throttle", { { "initialInt", 50 }, { "holdInt", 200 } } } } );
   lab.request( "cli", "t", "C" );
   lab.settle();
   const auto waits = [ & ] {
      const Service::CommandStream stream;
      lab.runner().command( "CspfWaits", stream.fd(), "" );
      std::string text;
      stream.forEachPiece( [ & ]( std::string_view piece ) { text += piece; } );
      return text;
   };
   EXPECT_EQ( waits(), "" );
   EXPECT_THAT( explained( lab, "cli", "10.0.0.3#1" ), HasSubstr( " equal=2\n" ) );
   lab.request( "cli", "other", "C", { { "excludeAdminGroup", 1 } }, { { "id", 2 } } );
   lab.advance( 0.02 );
   EXPECT_THAT( explained( lab, "cli", "10.0.0.3#2" ), HasSubstr( "waits milliseconds=30\n" ) );
   EXPECT_EQ( waits(), "waits\tmilliseconds=30\tvrf=default\tfamily=ipv4\tpath=cli/10.0.0.3#2\n" );
   lab.settle();
   EXPECT_EQ( waits(), "" );
}

TEST( Explain, findsTheBandwidthThatFits ) {
   const TestLab lab( "A -10{bw 100}- B -10{bw 80}- C; A -50{bw 70}- C" );
   auto document = lab.document();
   document[ "paths" ][ "cli" ][ "t" ] = { { "dst", "10.0.0.3" },
                                           { "constraint", { { "bandwidth", 1000 } } } };
   auto asked = TestLab::of( document );
   asked.settle();
   EXPECT_THAT( explained( asked, "cli", "10.0.0.3#1" ),
                HasSubstr( "existsWithout part=bandwidth upTo=80\n" ) );
   EXPECT_TRUE( exists( document, "t", { { "bandwidth", 80 } } ) );
   EXPECT_FALSE( exists( document, "t", { { "bandwidth", 81 } } ) );
}
