// Paths in use and paths with explicit hops, as their clients see them: what moves a published path
// and what does not, and what becomes of hops that an operator wrote down. Stitched paths are held
// against segments that are put together here, each the cheapest that the oracle knows.

#include "Cspf/Hops/PathValidator.h"
#include "Cspf/Runs/Run.h"
#include "tests/Lab.h"
#include "tests/LabOracle.h"
#include "tests/LabText.h"
#include "tests/TopoStorm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// A constraint: the hops to pass, parted by blanks, a loose one marked "~".
Json
through( const std::string & text, bool allExplicit = false ) {
   Json hops = Json::array();
   std::istringstream words( text );
   for ( std::string hop; words >> hop; ) {
      const bool loose = hop[ 0 ] == '~';
      hops.push_back( { { "addr", hop.substr( loose ) }, { "loose", loose } } );
   }
   return { { "includeHop", hops }, { "includeHopAllExplicit", allExplicit } };
}

Json
router( const std::string & name, const Json & change ) {
   return { { "topologies", { { "core", { { "routers", { { name, change } } } } } } } };
}

/// The host prefix that include hops name is on that router, or no more.
Json
prefix( const std::string & name, bool present = true ) {
   return router( name, { { "prefixes", { { "10.9.9.9/32", present ? Json( 0 ) : Json() } } } } );
}

/// A topology of other routers, one of which has the address 10.64.0.5, too.
Json
stranger() {
   Json stranger = labTopology( "E -10- F" );
   stranger[ "numbers" ] = { 1, 0 };
   stranger[ "routers" ][ "E" ][ "teRouterId" ] = "10.7.0.1";
   stranger[ "routers" ][ "F" ][ "teRouterId" ] = "10.7.0.2";
   stranger[ "links" ][ "E-F" ][ "aAddr" ] = "10.64.0.5";
   stranger[ "links" ][ "E-F" ][ "bAddr" ] = "10.7.1.1";
   return stranger;
}

/// "10.64.0.3 10.64.0.5 "
std::string
hops( const TestLab & lab, const std::string & client, const std::string & name ) {
   std::string text;
   for ( const auto & hop : lab.status( client, name )->pathList() ) {
      text += hop.stringValue() + " ";
   }
   return text;
}

std::string
includeIps( const TestLab & lab, const std::string & name ) {
   std::string text;
   for ( const Cspf::IncludeIp & ip : lab.status( "rsvp", name )->includeIpList() ) {
      text += ip.addr().stringValue() + "@" + ip.teRouterId().stringValue() + " ";
   }
   return text;
}

void
askAgain( TestLab & lab, const std::string & name ) {
   lab.patch( { { "paths", { { "rsvp", { { name, { { "refreshReqSeq", 1 } } } } } } } } );
   lab.settle();
}

/// The path of a request as its segments by themselves: each the cheapest under the constraint.
class Composition {
 public:
   explicit Composition( TestLab & lab ) : document_( lab.document() ) {
      const auto addresses = Lum::cast< Cspf::IntfIpToRouterIdTable >(
         lab.tables().table( "te/cspf/intfIpToRouterId/vrf/default/ipv4" ) );
      for ( const auto & [ address, owner ] : addresses->intfIpToRouterIdColl() ) {
         owners[ address.stringValue() ] = owners[ owner.stringValue() ] = owner.stringValue();
      }
   }

   /// The cost of all, and the router at which each include hop was met; nothing where a segment
   /// has no path.
   std::optional< std::uint64_t > cost( const Json & path,
                                        std::vector< std::string > & met ) const {
      Json plain = path[ "constraint" ];
      Json segments = plain[ "includeHop" ];
      const std::size_t asked = segments.size();
      plain.erase( "includeHop" );
      if ( segments.back()[ "addr" ] != path[ "dst" ] ) {
         segments.push_back( { { "addr", path[ "dst" ] }, { "loose", true } } );
      }
      std::string at = "10.0.0.1";
      std::uint64_t total = 0;
      for ( const Json & hop : segments ) {
         Json document = document_;
         document[ "te" ][ "routerId" ] = at;
         LabOracle oracle( document, "default" );
         at = nearest( oracle, hop[ "addr" ], plain );
         const auto step =
            hop[ "loose" ] ? oracle.cost( at, plain ) : strictCost( oracle, hop[ "addr" ], plain );
         if ( !step ) {
            return std::nullopt;
         }
         total += step->metric;
         met.push_back( at );
      }
      met.resize( asked );
      return total;
   }

   std::map< std::string, std::string > owners;  ///< TE router ids by all addresses of one router

 private:
   /// The router that is meant by the address, which several may have.
   std::string nearest( LabOracle & oracle, const std::string & address,
                        const Json & constraint ) const {
      if ( const auto owner = owners.find( address ); owner != owners.end() ) {
         return owner->second;
      }
      std::map< OracleCost, std::string > ends;
      for ( const Json & router : document_[ "topologies" ][ "core" ][ "routers" ] ) {
         if ( router[ "prefixes" ].contains( address + "/32" ) ) {
            const std::string end = router[ "teRouterId" ];
            if ( const auto cost = oracle.cost( end, constraint ) ) {
               ends[ *cost ] = end;
            }
         }
      }
      return ends.empty() ? std::string() : ends.begin()->second;
   }
   /// The cheapest single way; where the hop is the address of one, that one.
   std::optional< OracleCost > strictCost( LabOracle & oracle, const std::string & hop,
                                           const Json & constraint ) const {
      const std::string & to = owners.at( hop );
      const auto over = [ & ]( const std::string & address ) -> Json {
         return { { "path", { address } }, { "pathTeRouterId", { to } } };
      };
      const bool isNamed = !oracle.hops( over( hop ) ).empty();
      std::optional< OracleCost > least;
      for ( const auto & [ address, owner ] : owners ) {
         std::string complaint;
         const auto cost = oracle.walk( over( address ), to, constraint, complaint );
         if ( ( !isNamed || address == hop ) && cost && ( !least || cost < least ) ) {
            least = cost;
         }
      }
      return least;
   }

   const Json & document_;
};

/// Eight routers, parallel links and two LANs; metrics up to that.
std::string
randomTopology( std::mt19937 & random, unsigned largest ) {
   const auto attributes = [ & ]() {
      return std::to_string( 1 + random() % largest ) + "{back "
             + std::to_string( 1 + random() % largest ) + ( random() % 4 ? "}" : " group 1}" );
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

std::string
randomHop( std::mt19937 & random, const std::map< std::string, std::string > & owners ) {
   const auto & [ address, owner ] = *std::next( owners.begin(), random() % owners.size() );
   return std::string( random() % 3 ? "~" : "" ) + ( random() % 3 ? address : owner ) + " ";
}

/// The hops that were found, given one by one, are the same path; with one more that is nowhere
/// they are refused, and what is published stays.
void
giveHopByHop( std::mt19937 & random, TestLab & lab, const std::string & client,
              const std::string & name ) {
   const std::string all = hops( lab, client, name );
   const auto give = [ & ]( const std::string & hops ) {
      lab.request( client, "given", lab.document()[ "paths" ][ client ][ name ][ "dst" ],
                   through( hops, true ), { { "id", 99 } } );
      lab.settle();
      return lab.error( client, "given" );
   };
   ASSERT_EQ( give( all ), "" );
   const std::size_t at = random() % 3 ? all.find( ' ' ) : random() % 2 ? 0 : all.size();
   ASSERT_EQ( give( std::string( all ).insert( at, " 10.77.0.1 " ) ),
              "The specified explicit path is not valid: Hop not found: 10.77.0.1" );
   ASSERT_EQ( hops( lab, client, "given" ), all );
   lab.withdraw( client, "given" );
}

}

TEST( PathInUse, StaysUnwrittenWhileItIsValid ) {
   TestLab lab( "A -10- B -10- D; A -20- C -20- D; A -1- D; C -5- E" );
   Json level1 = lab.document()[ "topologies" ][ "core" ];
   level1[ "numbers" ] = { 1, 0 };
   for ( Json & router : level1[ "routers" ] ) {
      router.erase( "teRouterId" );  // the same routers, with TE in the other level alone
   }
   lab.patch( { { "topologies", { { "level1", level1 } } } } );
   lab.down( "A-D" );
   lab.request( "rsvp", "p", "D", { { "excludeAdminGroup", 4 }, { "excludeIntf", "A-C.a" } } );
   lab.settle();
   ASSERT_EQ( lab.path( "rsvp", "p" ), "A B D" );
   const auto runs = lab.runs();
   auto writes = Lum::make< WriteCount >( *lab.statusTable( "rsvp" ) );
   lab.up( "A-D" );
   lab.settle();
   lab.link( "A-B", { { "metric", 500 }, { "srlg", { 7 } } } );
   lab.down( "C-E" );
   lab.patch( router( "C", { { "overload", true } } ) );
   lab.patch( { { "interfaces", { { "A-C.a", { { "srlg", { 7 } } } } } } } );
   lab.settle();
   EXPECT_EQ( writes->writes(), 0u );
   EXPECT_EQ( lab.runs(), runs );
   askAgain( lab, "p" );
   EXPECT_EQ( lab.path( "rsvp", "p" ), "A D" );
}

TEST( PathInUse, MovesAtOnceWhenItDoesNotHold ) {
   const Json constraint{
      { "excludeAdminGroup", 4 }, { "bandwidth", 100 }, { "excludeLinkWithIp", { "10.99.0.1" } } };
   const auto linkChange = []( const Json & change ) -> Json {
      return { { "topologies", { { "core", { { "links", { { "B-D", change } } } } } } } };
   };
   const std::map< std::string, Json > changes{
      { "link is gone", linkChange( { { "up", false } } ) },
      { "direction is gone", linkChange( { { "ba", false } } ) },
      { "address is another", linkChange( { { "bAddr", "10.70.0.1" } } ) },
      { "administrative group", linkChange( { { "adminGroup", 4 } } ) },
      { "excluded address", linkChange( { { "aAddr", { "10.64.0.4", "10.99.0.1" } } } ) },
      { "overload", router( "B", { { "overload", true } } ) },
      { "ambiguous address", { { "topologies", { { "level1", stranger() } } } } },
      { "destination moved", prefix( "D", false ) } };
   for ( const auto & [ what, change ] : changes ) {
      SCOPED_TRACE( what );
      TestLab lab( "A -10{bw 1000}- B -10{bw 1000}- D; A -1{bw 1000}- D; A -50{bw 1000}- G" );
      lab.patch( prefix( "D" ) );
      lab.patch( prefix( "G" ) );
      lab.down( "A-D" );
      lab.request( "rsvp", "p", "10.9.9.9", constraint );
      lab.settle();
      ASSERT_EQ( lab.path( "rsvp", "p" ), "A B D" );
      lab.up( "A-D" );
      lab.settle();
      ASSERT_EQ( lab.path( "rsvp", "p" ), "A B D" );
      lab.patch( change );
      lab.settle();
      EXPECT_EQ( lab.path( "rsvp", "p" ), what == "destination moved" ? "A G" : "A D" )
         << lab.error( "rsvp", "p" );
   }
}

/// Whether it reserves or not.
TEST( PathInUse, DoesNotHoldOverAnAddressThatTwoRoutersHadWhenItWasComputed ) {
   for ( const unsigned bandwidth : { 0, 100 } ) {
      TestLab lab(
         "A -9{bw 1000}- B -9{bw 1000}- D; A -5{bw 1000}- G -99{bw 1000}- H -5{bw 1000}- D",
         { { "topologies", { { "level1", stranger() } } } } );
      lab.request( "rsvp", "p", "D", { { "bandwidth", bandwidth } } );
      lab.settle();
      ASSERT_EQ( lab.path( "rsvp", "p" ), "A B D" );
      lab.link( "G-H", { { "metric", 1 } } );
      lab.settle();
      EXPECT_EQ( lab.path( "rsvp", "p" ), "A G H D" );
   }
}

TEST( PathInUse, MetadataThatMovedIsPublishedAndTheHopsStay ) {
   TestLab lab( "A -10- B -10- C -10- D; A -90- D" );
   lab.patch( prefix( "B" ) );
   lab.request( "rsvp", "p", "D", through( "~10.9.9.9" ) );
   lab.settle();
   ASSERT_EQ( includeIps( lab, "p" ), "10.9.9.9@10.0.0.2 " );
   const std::string before = hops( lab, "rsvp", "p" );
   const auto changes = lab.status( "rsvp", "p" )->changeCount();

   lab.patch( router( "B", { { "teRouterId", "10.0.0.22" } } ) );
   lab.settle();
   EXPECT_EQ( lab.status( "rsvp", "p" )->pathTeRouterIdList()[ 0 ].stringValue(), "10.0.0.22" );
   EXPECT_EQ( includeIps( lab, "p" ), "10.9.9.9@10.0.0.22 " );
   lab.patch( prefix( "B", false ) );
   for ( const auto & [ owner, id ] : { std::pair{ "C", "10.0.0.3" }, { "A", "10.0.0.1" } } ) {
      lab.patch( prefix( owner ) );
      lab.settle();
      EXPECT_EQ( includeIps( lab, "p" ), std::string( "10.9.9.9@" ) + id + " " );
      lab.patch( prefix( owner, false ) );
      lab.settle();
      EXPECT_EQ( includeIps( lab, "p" ), "" );
   }
   EXPECT_EQ( hops( lab, "rsvp", "p" ), before );
   EXPECT_EQ( lab.status( "rsvp", "p" )->changeCount(), changes + 5 );

   // Another request is another path, though the hop that it drops is not listed any more.
   lab.link( "A-D", { { "metric", 1 } } );
   lab.request( "rsvp", "p", "D" );
   lab.settle();
   EXPECT_EQ( lab.path( "rsvp", "p" ), "A D" );
}

/// A published path in a bare store, and when it was last found valid.
struct InUse {
   Cspf::InternalPathConstraint constraint;
   Cspf::PathInfoKey key;
   Cspf::PathStatus status;
   Cspf::PathValidity validity;
   std::vector< Cspf::AllTopoNeighborKey > links;
};

/// The routers that a packet may be at after one more hop, over any link that carries the hop's
/// address and passes the tests of single links.
std::set< Cspf::NodeId >
oneHop( const Cspf::AllTopoDbView & view, const Cspf::NodeId & from,
        const Kivnet::IpGenAddr & hop ) {
   std::set< Cspf::NodeId > reached;
   const auto carries = [ & ]( const Cspf::AllTopoNeighborKey & back ) {
      const auto * record = view.neighbor( back );
      return record && std::ranges::count( record->interfaceAddrList(), hop ) > 0;
   };
   const auto allowed = [ & ]( const auto &... link ) {
      return view.neighborAndTepAllowedForTe( link... ).neighborAllowed();
   };
   const Cspf::AllTopoRouter router = view.router( from );
   for ( const auto & link : router.neighborSet() ) {
      const auto * record = view.neighbor( link );
      if ( !record || record->teMetric().value_or( record->metric() ) == 0 ) {
         continue;
      }
      if ( !link.isLan() && allowed( link ) && carries( view.getReverseNeighborKeyP2P( link ) ) ) {
         reached.insert( link.neighborId() );
      }
      const auto members = link.isLan() ? view.network( link.allTopoNetworkId() ).routerSet()
                                        : Lum::Set< Cspf::NodeId >{};
      for ( const Cspf::NodeId & member : members ) {
         const auto onLan = [ & ]( const Cspf::AllTopoNeighborKey & back ) {
            return back.isLan() && back.allTopoNetworkId() == link.allTopoNetworkId()
                   && carries( back );
         };
         const Cspf::AllTopoRouter far = view.router( member );
         if ( allowed( link, member ) && std::ranges::any_of( far.neighborSet(), onLan ) ) {
            reached.insert( member );
         }
      }
   }
   return reached;
}

/// Whether the published hops lead from the source over links that the constraint lets them use.
bool
leadsOn( const Cspf::AllTopoDbView & view, const Cspf::PathStatus & path ) {
   std::set< Cspf::NodeId > at{ view.spfRoot() };
   for ( const Kivnet::IpGenAddr & hop : path.pathList() ) {
      std::set< Cspf::NodeId > next;
      for ( const Cspf::NodeId & node : at ) {
         next.merge( oneHop( view, node, hop ) );
      }
      at = next;
   }
   return !at.empty();
}

/// A path that a run finds; without hops where it finds none.
InUse
newPath( const TopoStorm::Store & store, TopoStorm::Storm & storm ) {
   InUse path;
   path.constraint = storm.constraint();
   path.constraint.bwSetupPriorityIs( 7 );
   path.constraint.includeHopIs( 0, { TopoStorm::teId( storm.below( 4 ) ), true } );
   const auto tep = TopoStorm::teId( storm.below( 5 ) );
   path.key.pathKeyIs( { Cspf::Destination( tep ), 0 } );
   const auto view = store.view( path.constraint );
   const auto data = Lum::make< Cspf::CspfData >();
   data->sourceIs( view->spfRoot() );
   data->useTeMetricIs( true );
   data->tepIs( tep );
   if ( view->hasRouter( data->source() ) ) {
      Cspf::CspfRunMemory memory;
      const Cspf::CspfRun run( memory, *data, view );
      Cspf::CspfPathResult result;
      const Cspf::PathArray::Hops none;
      const auto noOldPath = [ & ]() -> Cspf::CspfOldPath { return { none, none }; };
      if ( data->routerWithTepHas( tep )
           && data->fillHopByHopPathForTep( tep, noOldPath, result ) ) {
         path.status.path_ = result.path->path();
      }
   }
   return path;
}

TEST( PathInUse, IsValidWhereItsHopsLeadOnAndIsNotLookedAtOnlyWhereAWholeCheckFindsItAsItWas ) {
   constexpr auto npos = std::string::npos;
   std::size_t untouched = 0, changed = 0;
   for ( unsigned seed = 0; seed < 100; ++seed ) {
      TopoStorm::Store store;
      TopoStorm::Storm storm( seed );
      Cspf::PathValidationMemory memory( store.status );
      std::vector< InUse > paths;
      std::vector< Lum::Ptr< Cspf::BwUsageDeduped > > reserved;
      const auto stillValid = [ & ]( InUse & path ) {
         const auto view = store.view( path.constraint );
         const bool holds =
            path.validity.holds( store.topology(), memory, path.constraint.bwUsageId() );
         Cspf::PathValidationMemory fresh( store.status );
         Cspf::RsvpPathValidator whole( path.key, path.status, false, *view,
                                        holds ? fresh : memory );
         whole.validatePathAndUpdateMetadata();
         const bool judged = whole.valid() || whole.reason().find( "failed constraint" ) != npos
                             || whole.reason().find( "not continuous" ) != npos;
         EXPECT_TRUE( !judged || whole.valid() == leadsOn( *view, path.status ) )
            << seed << " " << whole.reason();
         if ( !whole.valid() ) {
            EXPECT_FALSE( holds ) << seed << " " << whole.reason();
            changed += !path.links.empty();
            return false;
         }
         const auto byKey = Cspf::pathAsTopoDbLinks( store.te(), whole.links() );
         std::vector< Cspf::AllTopoNeighborKey > links;
         for ( const Cspf::CspfPathHop & hop : whole.links() ) {
            const Cspf::HopIndex i( links.size() );
            const Cspf::CspfPathHop again = Cspf::pathHop( store.te(), *byKey, i );
            EXPECT_EQ( again.end( store.te().graph() ), hop.end( store.te().graph() ) );
            links.push_back( store.te().neighborKey( hop.link ) );
         }
         const bool asItWas =
            !whole.pathTeRouterIdChanged() && !whole.includeIpsChanged() && links == path.links;
         EXPECT_TRUE( !holds || asItWas ) << seed;
         untouched += holds;
         changed += !asItWas && !path.links.empty();
         if ( !holds ) {
            path.validity = whole.validity();
            path.links = links;
            path.status.includeIp_ = whole.includeIps()->includeIp();
         }
         if ( whole.pathTeRouterIdChanged() ) {
            path.status.pathTeRouterId_ = whole.pathTeRouterId()->pathTeRouterId();
         }
         return true;
      };
      for ( int step = 0; step < 500; ++step ) {
         if ( storm.below( 50 ) == 0 ) {
            const Cspf::NodeId source( TopoStorm::teId( 1 + storm.below( 2 ) ) );
            store.sources->vrfClientSourceIdIs( Cspf::cspf(), { Cspf::cspf(), source, 1 } );
         } else if ( storm.below( 20 ) == 0 && !paths.empty() ) {
            reserved.push_back( store.bandwidth->updateReservedBandwidth(
               { paths.back().links.back(), { "cli", 0, 1 } }, 7, storm.below( 80 ) ) );
            reserved.erase( reserved.begin(), reserved.end() - 1 );
         } else {
            storm.strike( store );
         }
         std::erase_if( paths, [ & ]( InUse & path ) { return !stillValid( path ); } );
         if ( InUse path = newPath( store, storm ); paths.size() < 6 && stillValid( path ) ) {
            paths.push_back( path );
         }
      }
   }
   EXPECT_GT( untouched, 1000u );
   EXPECT_GT( changed, 100u );
}

TEST( PathInUse, LosesItsErrorWhereItsDestinationBecomesThisRouter ) {
   TestLab lab( "A -10- B -10- C", { { "throttle", { { "initialInt", 0 } } } } );
   lab.request( "rsvp", "p", "10.9.9.9" );
   lab.request( "cli", "of one constraint", "C" );
   lab.settle();
   EXPECT_NE( lab.error( "rsvp", "p" ), "" );
   lab.patch( prefix( "A" ) );
   lab.settle();
   EXPECT_EQ( lab.error( "rsvp", "p" ), "" );
}

TEST( PathInUse, HearsOfEachChangeOfOneInstant ) {
   TestLab lab( "A -10- B -10- C -10- D" );
   lab.request( "rsvp", "p", "C" );
   lab.settle();
   ASSERT_EQ( lab.path( "rsvp", "p" ), "A B C" );
   lab.link( "C-D", { { "metric", 20 } } );
   lab.advance( 0 );
   lab.patch( { { "te", { { "routerId", "10.0.0.2" } } } } );
   lab.settle();
   EXPECT_EQ( lab.path( "rsvp", "p" ), "A C" ) << "it starts at B now";
}

TEST( ExplicitPath, IsThatOfItsSegmentsPutTogether ) {
   std::mt19937 random( 5 );
   std::size_t found = 0, missing = 0;
   for ( int round = 0; round < 60; ++round ) {
      const bool isUnlike = round % 2;  // no two ways cost the same
      TestLab lab( randomTopology( random, isUnlike ? 1'000'000 : 20 ) );
      lab.patch( prefix( std::string( 1, "BDF"[ random() % 3 ] ) ) );  // not both on one LAN
      lab.patch( prefix( std::string( 1, "CEH"[ random() % 3 ] ) ) );
      lab.settle();
      const auto owners = Composition( lab ).owners;
      for ( int i = 0; i < 6; ++i ) {
         std::string hops;
         for ( auto count = 1 + random() % 4; count > 0; --count ) {
            hops += isUnlike && random() % 3 == 0 ? "~10.9.9.9 " : randomHop( random, owners );
         }
         Json constraint = through( hops );
         constraint[ "reversePath" ] = random() % 3 == 0;
         constraint[ "excludeAdminGroup" ] = random() % 2;
         lab.request( i % 2 ? "rsvp" : "cli", "p" + std::to_string( i ),
                      std::string( 1, static_cast< char >( 'B' + random() % 7 ) ), constraint,
                      { { "id", i } } );
      }
      lab.settle();
      for ( int i = 0; i < 6; ++i ) {
         const char * client = i % 2 ? "rsvp" : "cli";
         const std::string name = "p" + std::to_string( i );
         const Json path = lab.document()[ "paths" ][ client ][ name ];
         std::vector< std::string > met, published;
         const auto expected = Composition( lab ).cost( path, met );
         SCOPED_TRACE( path.dump() + lab.path( client, name ) + lab.error( client, name ) );
         ASSERT_EQ( lab.cost( client, name ), expected );
         ASSERT_EQ( lab.error( client, name ).empty(), expected.has_value() );
         ( expected ? found : missing )++;
         if ( expected ) {
            for ( const Cspf::IncludeIp & ip : lab.status( client, name )->includeIpList() ) {
               published.push_back( ip.teRouterId().stringValue() );
            }
            ASSERT_EQ( published, met );
            giveHopByHop( random, lab, client, name );
         }
      }
   }
   EXPECT_GT( found, 100u );
   EXPECT_GT( missing, 50u );
}

TEST( ExplicitPath, FailuresLeaveWhatIsPublishedAndSayWhy ) {
   const Json nameless{ { "core", { { "routers", { { "F", { { "teRouterId", nullptr } } } } } } } };
   TestLab lab( "A -10- B -10- C -10- D; A -90- D; A -99{group 4}- C; E -1- F",
                { { "topologies", nameless } } );
   const std::string refused = "The specified explicit path is not valid: ";
   const std::vector< std::pair< std::string, Json > > failures{
      { "No path for pathSegmentIndex 0", through( "~10.0.0.5 ~10.0.0.2" ) },
      { "No path for pathSegmentIndex 0", through( "~10.77.0.1" ) },
      { "No path for pathSegmentIndex 2", through( "~10.0.0.2 10.0.0.3 ~10.0.0.6" ) },
      { "Destination TE router id not found for includeHop 10.77.0.1",
        through( "~10.0.0.2 10.77.0.1" ) },
      { "Destination 10.0.0.4 is not found as an immediate neighbor from source 10.0.0.2",
        through( "~10.0.0.2 10.0.0.4" ) },
      { "Destination 10.0.0.3 is not found as an immediate neighbor from source 10.0.0.1: link to "
        "10.64.0.11: has an excluded administrative group",
        through( "10.0.0.3" ) },
      { refused + "Hop not found: 10.0.0.2", through( "10.0.0.2 10.64.0.5", true ) },
      { refused + "Cannot find TE router id for 10.64.0.13", through( "10.64.0.13", true ) },
      { refused + "path not continuous", through( "10.64.0.3 10.64.0.7", true ) },
      { refused + "path destination 10.0.0.4", through( "10.64.0.3 10.64.0.5", true ) },
      { refused + "hop 10.64.0.5 is not behind", through( "10.64.0.5 10.64.0.7", true ) },
      { refused + "it has no hops", through( "", true ) } };
   for ( const char * client : { "cli", "rsvp" } ) {
      for ( const Json & good : { through( "~10.0.0.2 10.0.0.3" ),
                                  through( "10.64.0.3 10.64.0.5 10.64.0.7", true ) } ) {
         lab.request( client, "p", "D", good );
         lab.settle();
         ASSERT_EQ( lab.error( client, "p" ), "" );
         ASSERT_EQ( lab.path( client, "p" ), "A B C D" );
         const auto changes = lab.status( client, "p" )->changeCount();
         for ( const auto & [ reason, asked ] : failures ) {
            Json constraint = asked;
            constraint[ "excludeAdminGroup" ] = 4;
            lab.request( client, "p", "D", constraint );
            lab.settle();
            EXPECT_THAT( lab.error( client, "p" ), StartsWith( reason ) );
            EXPECT_EQ( lab.path( client, "p" ), "A B C D" );
            EXPECT_EQ( lab.status( client, "p" )->changeCount(), changes );
         }
         lab.request( client, "p", "D", good );
         lab.settle();
         lab.down( "B-C" );
         lab.settle();
         EXPECT_NE( lab.error( client, "p" ), "" );
         EXPECT_EQ( lab.path( client, "p" ), "A B C D" );
         lab.up( "B-C" );
         lab.settle();
         EXPECT_EQ( lab.error( client, "p" ), "" );
      }
   }
}

TEST( ExplicitPath, FromTheSourceToItselfHasNoHops ) {
   TestLab lab( "A -10- B" );
   lab.request( "rsvp", "p", "A", through( "10.0.0.1", true ) );
   lab.settle();
   lab.link( "A-B", { { "metric", 20 } } );
   lab.settle();
   EXPECT_EQ( lab.error( "rsvp", "p" ), "" );
   EXPECT_EQ( lab.status( "rsvp", "p" )->paths(), 0u );
   EXPECT_EQ( includeIps( lab, "p" ), "10.0.0.1@10.0.0.1 " );
}

TEST( ExplicitPath, AStrictHopKeepsItsLinkAndAnAddressNamesOne ) {
   TestLab lab( "A -10- B; A -20- B; B -1- C" );
   lab.down( "A-B" );
   lab.request( "rsvp", "kept", "C", through( "10.0.0.2" ) );
   lab.request( "rsvp", "named", "C", through( "10.64.0.5" ), { { "id", 2 } } );
   lab.settle();
   lab.up( "A-B" );
   lab.request( "rsvp", "twice", "C", through( "10.64.0.5 10.0.0.1 10.0.0.2" ), { { "id", 3 } } );
   lab.settle();
   const std::map< std::string, std::string > expected{
      { "kept", "10.64.0.5 10.64.0.7 " },
      { "named", "10.64.0.5 10.64.0.7 " },
      { "twice", "10.64.0.5 10.64.0.2 10.64.0.3 10.64.0.7 " } };
   for ( const auto & [ name, way ] : expected ) {
      EXPECT_EQ( hops( lab, "rsvp", name ), way );
      askAgain( lab, name );
      EXPECT_EQ( hops( lab, "rsvp", name ), way );
   }
   for ( const char * first : { "ab", "ba" } ) {  // of the ends that withdraw it
      lab.link( "A-B:2", { { first, false } } );
      lab.settle();
      EXPECT_EQ( hops( lab, "rsvp", "named" ), expected.at( "named" ) );
      EXPECT_THAT( lab.error( "rsvp", "named" ), HasSubstr( "10.64.0.5" ) );
      lab.link( "A-B:2", { { first, {} } } );
      lab.settle();
      EXPECT_EQ( lab.error( "rsvp", "named" ), "" );
   }
   lab.down( "A-B:2" );
   lab.settle();
   EXPECT_EQ( hops( lab, "rsvp", "kept" ), "10.64.0.3 10.64.0.7 " );
   EXPECT_THAT( lab.error( "rsvp", "named" ), HasSubstr( "10.64.0.5" ) );
}

TEST( ExplicitPath, ARoutersOwnIdNamesNoLinkAlsoWhereAnInterfaceBorrowsIt ) {
   TestLab lab( "A -10- B; A -20- B; B -1- C" );
   lab.link( "A-B:2", { { "bAddr", "10.0.0.2" }, { "ab", false } } );
   lab.request( "rsvp", "p", "C", through( "10.0.0.2" ) );
   lab.settle();
   EXPECT_EQ( hops( lab, "rsvp", "p" ), "10.64.0.3 10.64.0.7 " );
}

TEST( ExplicitPath, AnAddressOnALanNamesTheLan ) {
   TestLab lab( "A -10- B; A =lan 20= B C; B -1- D" );
   lab.request( "rsvp", "p", "D", through( "10.128.1.2" ) );
   lab.settle();
   const std::string way = "10.128.1.2 10.64.0.5 ";
   EXPECT_EQ( hops( lab, "rsvp", "p" ), way );
   const auto attach = [ & ]( const char * router, bool attached ) {
      lab.patch(
         { { "topologies",
             { { "core",
                 { { "lans",
                     { { "lan",
                         { { "members",
                             { { router, { { "attached", attached } } } } } } } } } } } } } } );
      lab.settle();
   };
   for ( const char * router : { "A", "B" } ) {
      attach( router, false );
      EXPECT_EQ( hops( lab, "rsvp", "p" ), way );
      EXPECT_THAT( lab.error( "rsvp", "p" ), HasSubstr( "10.128.1.2" ) ) << router;
      attach( router, true );
      EXPECT_EQ( lab.error( "rsvp", "p" ), "" );
   }
}

TEST( ExplicitPath, OnlySegmentsNextToAChangedHopAreTouched ) {
   TestLab lab( "A -10- B -10- C -10- D -10- E; B -10- F -10- D" );
   const auto ask = [ & ]( const std::string & middle ) {
      lab.request( "rsvp", "p", "E", through( "~10.0.0.2 ~" + middle + " ~10.0.0.4" ) );
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
