// Paths in use and paths with explicit hops, as their clients see them: what moves a published path
// and what does not, and what becomes of hops that an operator wrote down. Stitched paths are held
// against segments that are put together here, each the cheapest that the oracle knows.

#include "tests/Lab.h"
#include "tests/LabOracle.h"
#include "tests/LabText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Json
loose( const std::string & addr ) {
   return { { "addr", addr }, { "loose", true } };
}

Json
strict( const std::string & addr ) {
   return { { "addr", addr }, { "loose", false } };
}

Json
through( const std::vector< Json > & hops, bool allExplicit = false ) {
   return { { "includeHop", Json( hops ) }, { "includeHopAllExplicit", allExplicit } };
}

Json
router( const std::string & name, const Json & change ) {
   return { { "topologies", { { "core", { { "routers", { { name, change } } } } } } } };
}

std::string
hops( const TestLab & lab, const std::string & client, const std::string & name ) {
   const auto * status = lab.status( client, name );
   return status ? Lum::valueString( status->pathList() ) : "none";
}

std::string
includeIps( const TestLab & lab, const std::string & name ) {
   std::string text;
   for ( const Cspf::IncludeIp & ip : lab.status( "rsvp", name )->includeIpList() ) {
      text += ip.addr().stringValue() + "@" + ip.teRouterId().stringValue() + " ";
   }
   return text;
}

/// The path of a request as its segments by themselves: each the cheapest under the constraint.
class Composition {
 public:
   explicit Composition( const Json & document ) : document_( document ) {}

   /// The cost of all, and the router at which each include hop was met; nothing where a segment
   /// has no path.
   std::optional< std::uint64_t > cost( const Json & path,
                                        std::vector< std::string > & met ) const {
      const Json constraint = path[ "constraint" ];
      Json plain = constraint;
      plain.erase( "includeHop" );
      std::string at = "10.0.0.1";
      std::uint64_t total = 0;
      Json segments = constraint[ "includeHop" ];
      if ( segments.back()[ "addr" ] != path[ "dst" ] ) {
         segments.push_back( loose( path[ "dst" ] ) );
      }
      for ( const Json & hop : segments ) {
         const std::string next = owner( hop[ "addr" ] );
         const auto step = hop[ "loose" ] ? looseCost( at, next, plain )
                                          : strictCost( at, next, hop[ "addr" ], plain );
         if ( !step ) {
            return std::nullopt;
         }
         total += *step;
         at = next;
         met.push_back( next );
      }
      met.resize( constraint[ "includeHop" ].size() );
      return total;
   }

 private:
   const Json & core() const { return document_[ "topologies" ][ "core" ]; }
   std::string teOf( const std::string & name ) const {
      return core()[ "routers" ][ name ][ "teRouterId" ];
   }

   std::string owner( const std::string & addr ) const {
      for ( const auto & [ name, link ] : core()[ "links" ].items() ) {
         for ( const char * end : { "a", "b" } ) {
            if ( link[ std::string( end ) + "Addr" ] == addr ) {
               return teOf( link[ end ] );
            }
         }
      }
      for ( const auto & [ name, lan ] : core()[ "lans" ].items() ) {
         for ( const auto & [ member, at ] : lan[ "members" ].items() ) {
            if ( at[ "addr" ] == addr ) {
               return teOf( member );
            }
         }
      }
      return addr;
   }

   std::optional< std::uint64_t > looseCost( const std::string & from, const std::string & to,
                                             const Json & constraint ) const {
      Json document = document_;
      document[ "te" ][ "routerId" ] = from;
      const auto cost = LabOracle( document, "default" ).cost( to, constraint );
      return cost ? std::optional( cost->metric ) : std::nullopt;
   }

   /// The cheapest single way; where the hop is the address of one, that one.
   std::optional< std::uint64_t > strictCost( const std::string & from, const std::string & to,
                                              const std::string & addr,
                                              const Json & constraint ) const {
      std::optional< std::uint64_t > best, named;
      bool isNamed = false;
      const auto way = [ & ]( const Json & link, const Json & far, std::uint64_t metric ) {
         const bool allowed =
            ( link.value( "adminGroup", 0u ) & constraint.value( "excludeAdminGroup", 0u ) ) == 0;
         isNamed = isNamed || far == addr;
         auto & least = far == addr ? named : best;
         if ( allowed && ( !least || metric < *least ) ) {
            least = metric;
         }
      };
      for ( const auto & [ name, link ] : core()[ "links" ].items() ) {
         const std::uint64_t metric = link[ "metric" ];
         if ( teOf( link[ "a" ] ) == from && teOf( link[ "b" ] ) == to ) {
            way( link, link[ "bAddr" ], metric );
         }
         if ( teOf( link[ "b" ] ) == from && teOf( link[ "a" ] ) == to ) {
            way( link, link[ "aAddr" ], metric );
         }
      }
      for ( const auto & [ name, lan ] : core()[ "lans" ].items() ) {
         for ( const auto & [ near, member ] : lan[ "members" ].items() ) {
            for ( const auto & [ far, end ] : lan[ "members" ].items() ) {
               if ( near != far && teOf( near ) == from && teOf( far ) == to ) {
                  way( member, end[ "addr" ], member[ "metric" ] );
               }
            }
         }
      }
      return isNamed ? named : best;
   }

   const Json & document_;
};

/// Eight routers, parallel links and two LANs.
std::string
randomTopology( std::mt19937 & random ) {
   const auto attributes = [ & ]() {
      return std::to_string( 1 + random() % 20 ) + ( random() % 4 ? "" : "{group 1}" );
   };
   std::string text = "A";
   for ( char name = 'B'; name <= 'H'; ++name ) {
      text += " -" + attributes() + "- " + name;
   }
   for ( int i = 0; i < 9; ++i ) {
      const auto a = static_cast< char >( 'A' + random() % 8 );
      const auto b = static_cast< char >( 'A' + ( a - 'A' + 1 + random() % 7 ) % 8 );
      text += std::string( "; " ) + a + " -" + attributes() + "- " + b;
   }
   return text + "; B =lan1 7= D F; A =lan2 4= C G";
}

Json
randomHop( std::mt19937 & random, const Json & core ) {
   std::vector< std::string > addresses;
   for ( const auto & [ name, router ] : core[ "routers" ].items() ) {
      addresses.insert( addresses.end(), 2, router[ "teRouterId" ] );
   }
   for ( const auto & [ name, link ] : core[ "links" ].items() ) {
      addresses.push_back( link[ "aAddr" ] );
      addresses.push_back( link[ "bAddr" ] );
   }
   for ( const auto & [ name, lan ] : core[ "lans" ].items() ) {
      for ( const auto & [ member, at ] : lan[ "members" ].items() ) {
         addresses.push_back( at[ "addr" ] );
      }
   }
   const std::string addr = addresses[ random() % addresses.size() ];
   return random() % 3 ? loose( addr ) : strict( addr );
}

}

TEST( PathInUse, StaysUnwrittenWhileItIsValid ) {
   TestLab lab( "A -10- B -10- D; A -20- C -20- D; A -1- D; C -5- E" );
   lab.down( "A-D" );
   lab.request( "rsvp", "p", "D", { { "excludeAdminGroup", 4 } } );
   lab.settle();
   ASSERT_EQ( lab.path( "rsvp", "p" ), "A B D" );
   const auto runs = lab.runs();
   auto writes = Lum::make< WriteCount >( *lab.statusTable( "rsvp" ) );
   lab.up( "A-D" );
   lab.settle();
   lab.link( "A-B", { { "metric", 500 }, { "srlg", { 7 } } } );
   lab.down( "C-E" );
   lab.patch( router( "C", { { "overload", true } } ) );
   lab.settle();
   EXPECT_EQ( writes->writes(), 0u );
   EXPECT_EQ( lab.runs(), runs );
   lab.request( "rsvp", "p", "D", { { "excludeAdminGroup", 4 } }, { { "refreshReqSeq", 1 } } );
   lab.settle();
   EXPECT_EQ( lab.path( "rsvp", "p" ), "A D" );
}

TEST( PathInUse, StaysWhenAnSrlgChangesThatItsConstraintDoesNotRead ) {
   TestLab lab( "A -10- B -10- D; A -20- C -20- D; A -1- D" );
   for ( const bool reads : { false, true } ) {
      lab.down( "A-D" );
      lab.request( "rsvp", "p", "D", { { "excludeIntf", "A-C.a" }, { "excludeSrlg", reads } } );
      lab.settle();
      ASSERT_EQ( lab.path( "rsvp", "p" ), "A B D" );
      lab.up( "A-D" );
      lab.patch( { { "interfaces", { { "A-C.a", { { "srlg", { 7 + reads } } } } } } } );
      lab.settle();
      EXPECT_EQ( lab.path( "rsvp", "p" ), reads ? "A D" : "A B D" );
   }
}

TEST( PathInUse, MovesAtOnceWhenItDoesNotHold ) {
   const Json constraint{
      { "excludeAdminGroup", 4 }, { "bandwidth", 100 }, { "excludeLinkWithIp", { "10.99.0.1" } } };
   const auto linkChange = []( const Json & change ) -> Json {
      return { { "topologies", { { "core", { { "links", { { "B-D", change } } } } } } } };
   };
   Json stranger = labTopology( "E -10- F" );
   stranger[ "numbers" ] = { 1, 0 };
   stranger[ "routers" ][ "E" ][ "teRouterId" ] = "10.7.0.1";
   stranger[ "routers" ][ "F" ][ "teRouterId" ] = "10.7.0.2";
   stranger[ "links" ][ "E-F" ][ "aAddr" ] = "10.64.0.5";
   stranger[ "links" ][ "E-F" ][ "bAddr" ] = "10.7.1.1";
   const std::map< std::string, Json > changes{
      { "link is gone", linkChange( { { "up", false } } ) },
      { "direction is gone", linkChange( { { "ba", false } } ) },
      { "address is another", linkChange( { { "bAddr", "10.70.0.1" } } ) },
      { "administrative group", linkChange( { { "adminGroup", 4 } } ) },
      { "excluded address", linkChange( { { "aAddr", { "10.64.0.4", "10.99.0.1" } } } ) },
      { "overload", router( "B", { { "overload", true } } ) },
      { "ambiguous address", { { "topologies", { { "level1", stranger } } } } },
      { "destination moved", router( "D", { { "prefixes", { { "10.5.5.5/32", nullptr } } } } ) } };
   for ( const auto & [ what, change ] : changes ) {
      SCOPED_TRACE( what );
      TestLab lab( "A -10{bw 1000}- B -10{bw 1000}- D; A -1{bw 1000}- D; A -50{bw 1000}- G" );
      lab.patch( router( "D", { { "prefixes", { { "10.5.5.5/32", 0 } } } } ) );
      lab.patch( router( "G", { { "prefixes", { { "10.5.5.5/32", 0 } } } } ) );
      lab.down( "A-D" );
      lab.request( "rsvp", "p", "10.5.5.5", constraint );
      lab.settle();
      ASSERT_EQ( lab.path( "rsvp", "p" ), "A B D" );
      lab.up( "A-D" );
      lab.settle();
      ASSERT_EQ( lab.path( "rsvp", "p" ), "A B D" );
      lab.patch( change );
      lab.settle();
      EXPECT_EQ( lab.path( "rsvp", "p" ), what == "destination moved" ? "A G" : "A D" )
         << lab.error( "rsvp", "p" ) << hops( lab, "rsvp", "p" );
   }
}

TEST( PathInUse, MetadataThatMovedIsPublishedAndTheHopsStay ) {
   TestLab lab( "A -10- B -10- C -10- D" );
   lab.patch( router( "B", { { "prefixes", { { "10.9.9.9/32", 0 } } } } ) );
   lab.request( "rsvp", "p", "D", through( { loose( "10.9.9.9" ) } ) );
   lab.settle();
   ASSERT_EQ( includeIps( lab, "p" ), "10.9.9.9@10.0.0.2 " );
   const std::string before = hops( lab, "rsvp", "p" );
   const auto changes = lab.status( "rsvp", "p" )->changeCount();

   lab.patch( router( "B", { { "teRouterId", "10.0.0.22" } } ) );
   lab.settle();
   EXPECT_EQ( lab.status( "rsvp", "p" )->pathTeRouterIdList()[ 0 ].stringValue(), "10.0.0.22" );
   EXPECT_EQ( includeIps( lab, "p" ), "10.9.9.9@10.0.0.22 " );
   lab.patch( router( "B", { { "prefixes", { { "10.9.9.9/32", nullptr } } } } ) );
   lab.patch( router( "C", { { "prefixes", { { "10.9.9.9/32", 0 } } } } ) );
   lab.settle();
   EXPECT_EQ( includeIps( lab, "p" ), "10.9.9.9@10.0.0.3 " );
   lab.patch( router( "C", { { "prefixes", { { "10.9.9.9/32", nullptr } } } } ) );
   lab.settle();
   EXPECT_EQ( includeIps( lab, "p" ), "" );
   EXPECT_EQ( hops( lab, "rsvp", "p" ), before );
   EXPECT_EQ( lab.status( "rsvp", "p" )->changeCount(), changes + 3 );
}

TEST( ExplicitPath, IsThatOfItsSegmentsPutTogether ) {
   std::mt19937 random( 5 );
   std::size_t found = 0, missing = 0;
   for ( int round = 0; round < 60; ++round ) {
      TestLab lab( randomTopology( random ) );
      const Json core = lab.document()[ "topologies" ][ "core" ];
      for ( int i = 0; i < 6; ++i ) {
         std::vector< Json > hops;
         for ( auto count = 1 + random() % 4; count > 0; --count ) {
            hops.push_back( randomHop( random, core ) );
         }
         Json constraint = through( hops );
         constraint[ "excludeAdminGroup" ] = random() % 2;
         lab.request( i % 2 ? "rsvp" : "cli", "p" + std::to_string( i ),
                      std::string( 1, static_cast< char >( 'B' + random() % 7 ) ), constraint,
                      { { "id", i } } );
      }
      lab.settle();
      for ( int i = 0; i < 6; ++i ) {
         const char * client = i % 2 ? "rsvp" : "cli";
         const std::string name = "p" + std::to_string( i );
         const Json & path = lab.document()[ "paths" ][ client ][ name ];
         std::vector< std::string > met, published;
         const auto expected = Composition( lab.document() ).cost( path, met );
         SCOPED_TRACE( path.dump() + lab.path( client, name ) + lab.error( client, name ) );
         ASSERT_EQ( lab.cost( client, name ), expected ) << core.dump();
         ASSERT_EQ( lab.error( client, name ).empty(), expected.has_value() );
         ( expected ? found : missing )++;
         if ( expected ) {
            for ( const Cspf::IncludeIp & ip : lab.status( client, name )->includeIpList() ) {
               published.push_back( ip.teRouterId().stringValue() );
            }
            ASSERT_EQ( published, met );
         }
      }
   }
   EXPECT_GT( found, 100u );
   EXPECT_GT( missing, 50u );
}

TEST( ExplicitPath, GivenHopByHopIsTakenAsItStandsOrRefused ) {
   TestLab lab( "A -10- B -10- C -10- D; A -1- D" );
   const auto ask = [ & ]( const std::vector< std::string > & addresses, const char * dst = "D" ) {
      std::vector< Json > all;
      for ( const std::string & address : addresses ) {
         all.push_back( strict( address ) );
      }
      lab.request( "rsvp", "p", dst, through( all, true ) );
      lab.settle();
      return lab.error( "rsvp", "p" );
   };
   EXPECT_EQ( ask( { "10.64.0.3", "10.64.0.5", "10.64.0.7" } ), "" );
   EXPECT_EQ( lab.path( "rsvp", "p" ), "A B C D" );
   EXPECT_EQ( lab.status( "rsvp", "p" )->includeIps(), 3u );
   const auto changes = lab.status( "rsvp", "p" )->changeCount();
   const std::map< std::string, std::vector< std::string > > broken{
      { "10.64.0.99", { "10.64.0.99", "10.64.0.5", "10.64.0.7" } },
      { "10.64.0.98", { "10.64.0.3", "10.64.0.98", "10.64.0.7" } },
      { "10.64.0.97", { "10.64.0.3", "10.64.0.5", "10.64.0.97" } },
      { "10.0.0.2", { "10.0.0.2", "10.64.0.5", "10.64.0.7" } },
      { "not continuous", { "10.64.0.3", "10.64.0.7" } },
      { "10.0.0.4", { "10.64.0.3", "10.64.0.5" } },
      { "source", { "10.64.0.5", "10.64.0.7" } },
      { "no hops", {} } };
   for ( const auto & [ reason, addresses ] : broken ) {
      const std::string error = ask( addresses );
      EXPECT_THAT( error, StartsWith( "The specified explicit path is not valid" ) );
      EXPECT_THAT( error, HasSubstr( reason ) );
      EXPECT_EQ( lab.path( "rsvp", "p" ), "A B C D" );
      EXPECT_EQ( lab.status( "rsvp", "p" )->changeCount(), changes );
   }
   EXPECT_EQ( ask( { "10.64.0.3", "10.64.0.5", "10.64.0.7" } ), "" );
   lab.down( "B-C" );
   lab.settle();
   EXPECT_THAT( lab.error( "rsvp", "p" ), HasSubstr( "10.64.0.5" ) );
   EXPECT_EQ( lab.path( "rsvp", "p" ), "A B C D" );
   lab.up( "B-C" );
   lab.settle();
   EXPECT_EQ( lab.error( "rsvp", "p" ), "" );

   lab.withdraw( "rsvp", "p" );
   EXPECT_EQ( ask( { "10.0.0.1" }, "A" ), "" );
   EXPECT_EQ( hops( lab, "rsvp", "p" ), "[]" );
   EXPECT_EQ( includeIps( lab, "p" ), "10.0.0.1@10.0.0.1 " );
}

TEST( ExplicitPath, FailuresLeaveWhatIsPublishedAndSayWhy ) {
   TestLab lab( "A -10- B -10- C -10- D; A -90- D; A -99{group 4}- C; E -1- F" );
   const Json good = through( { loose( "10.0.0.2" ), strict( "10.0.0.3" ) } );
   lab.request( "cli", "p", "D", good );
   lab.settle();
   ASSERT_EQ( lab.path( "cli", "p" ), "A B C D" );
   const std::vector< std::pair< std::string, std::vector< Json > > > failures{
      { "No path for pathSegmentIndex 0", { loose( "10.0.0.5" ), loose( "10.0.0.2" ) } },
      { "No path for pathSegmentIndex 0", { loose( "10.77.0.1" ) } },
      { "No path for pathSegmentIndex 2",
        { loose( "10.0.0.2" ), strict( "10.0.0.3" ), loose( "10.0.0.6" ) } },
      { "Destination TE router id not found for includeHop 10.77.0.1",
        { loose( "10.0.0.2" ), strict( "10.77.0.1" ) } },
      { "Destination 10.0.0.4 is not found as an immediate neighbor from source 10.0.0.2",
        { loose( "10.0.0.2" ), strict( "10.0.0.4" ) } },
      { "excluded administrative group", { strict( "10.0.0.3" ) } } };
   const auto changes = lab.status( "cli", "p" )->changeCount();
   for ( const auto & [ reason, asked ] : failures ) {
      Json constraint = through( asked );
      constraint[ "excludeAdminGroup" ] = 4;
      lab.request( "cli", "p", "D", constraint );
      lab.settle();
      EXPECT_THAT( lab.error( "cli", "p" ), HasSubstr( reason ) );
      EXPECT_EQ( lab.path( "cli", "p" ), "A B C D" );
      EXPECT_EQ( lab.status( "cli", "p" )->changeCount(), changes );
   }
   lab.request( "cli", "p", "D", good );
   lab.settle();
   EXPECT_EQ( lab.error( "cli", "p" ), "" );
   EXPECT_EQ( lab.path( "cli", "p" ), "A B C D" );
}

TEST( ExplicitPath, AStrictHopKeepsItsLinkAndAnAddressNamesOne ) {
   TestLab lab( "A -10- B; A -20- B; B -1- C" );
   lab.down( "A-B" );
   lab.request( "rsvp", "kept", "C", through( { strict( "10.0.0.2" ) } ) );
   lab.request( "rsvp", "named", "C", through( { strict( "10.64.0.5" ) } ), { { "id", 2 } } );
   lab.settle();
   lab.up( "A-B" );
   for ( const char * name : { "kept", "named" } ) {
      lab.patch( { { "paths", { { "rsvp", { { name, { { "refreshReqSeq", 1 } } } } } } } } );
      lab.settle();
      EXPECT_EQ( hops( lab, "rsvp", name ), "[10.64.0.5, 10.64.0.7]" );
   }
   lab.down( "A-B:2" );
   lab.settle();
   EXPECT_EQ( hops( lab, "rsvp", "kept" ), "[10.64.0.3, 10.64.0.7]" );
   EXPECT_THAT( lab.error( "rsvp", "named" ), HasSubstr( "10.64.0.5" ) );
}

TEST( ExplicitPath, OnlySegmentsNextToAChangedHopAreTouched ) {
   TestLab lab( "A -10- B -10- C -10- D -10- E; B -10- F -10- D" );
   const auto ask = [ & ]( const char * middle ) {
      lab.request( "rsvp", "p", "E",
                   through( { loose( "10.0.0.2" ), loose( middle ), loose( "10.0.0.4" ) } ) );
      lab.settle();
   };
   ask( "10.0.0.3" );
   ASSERT_EQ( lab.path( "rsvp", "p" ), "A B C D E" );
   ASSERT_EQ( lab.runs(), 4u );
   ask( "10.0.0.6" );
   EXPECT_EQ( lab.path( "rsvp", "p" ), "A B F D E" );
   EXPECT_EQ( lab.runs(), 4u ) << "runs from A and D as before, new ones from B and F";
   lab.withdraw( "rsvp", "p" );
   lab.settle();
   EXPECT_TRUE( lab.outcome().constraints.empty() );
   EXPECT_EQ( lab.statusTable( "rsvp" )->pathStatuss(), 0u );
}
