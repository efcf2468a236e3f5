// Bandwidth that paths reserve: what a user may have of a link, what it holds, and that it gives
// all of it back.

#include "tests/Lab.h"
#include "tests/LabOracle.h"
#include "tests/RandomLab.h"
#include "tests/TopoStore.h"
#include "tools/lab/LabOutput.h"

#include "Cspf/Agent/Agent.h"
#include "Cspf/Agent/VrfRoot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using Json = nlohmann::json;

namespace {

const char * const localIdsInUse = "local ids in use: [1-9]";

/// What is held, each value once: link, priority, amount.
using Holdings = std::set< std::tuple< std::string, unsigned, std::uint64_t > >;

/// One published path that asks for bandwidth.
struct User {
   std::string client, where, path;
   Json asked, status;
   const Json & constraint() const { return asked.at( "constraint" ); }
   std::string vrf() const { return asked.value( "vrf", "default" ); }
   unsigned priority() const { return constraint().value( "bwSetupPriority", 0u ); }
   unsigned group() const { return constraint().value( "sharedBwGroupId", 0u ); }
   std::string id() const { return group() ? where + client + std::to_string( group() ) : path; }
};

std::vector< User >
usersOf( const Json & document, const Json & outcome ) {
   std::vector< User > users;
   for ( const auto & [ client, services ] : outcome[ "clients" ].items() ) {
      for ( const auto & [ where, service ] : services.items() ) {
         for ( const Json & status : service[ "pathStatus" ] ) {
            const Json & asked = document[ "paths" ][ client ][ std::string( status[ "name" ] ) ];
            if ( asked.value( "/constraint/bandwidth"_json_pointer, 0 ) > 0 ) {
               users.push_back(
                  { client, where, client + status[ "name" ].dump(), asked, status } );
            }
         }
      }
   }
   return users;
}

/// A random lab in which links have little bandwidth and paths ask for some.
struct BandwidthLab {
   explicit BandwidthLab( unsigned seed )
      : random( seed, RandomLab::Kind( seed % 4 == 0 ) ),  // hops where only accounts are judged
        lab( TestLab::of( furnished( random.document() ) ) ) {}

   Json amounts( unsigned least = 0 ) {
      return { { "bandwidth", 100 * std::max( least, random.below( 5 ) ) },
               { "bwSetupPriority", random.below( 8 ) },
               { "sharedBwGroupId", random.oneIn( 2 ) ? 0 : random.below( 3 ) } };
   }

   void offer( Json & link ) {
      link[ "bandwidth" ] = 100 * random.below( 9 );
      for ( unsigned left = 800, p = random.below( 3 ) ? 8 : 0; p < 8; ++p ) {
         link[ "unreserved" ].push_back( left -= 50 * random.below( 4 ) % ( left + 1 ) );
      }
   }

   Json furnished( Json part ) {
      if ( part.contains( "dst" ) ) {
         part[ "constraint" ].update( amounts() );
      } else if ( part.contains( "metric" ) ) {
         offer( part );
      }
      for ( auto & inner : part ) {
         inner = inner.is_object() ? furnished( inner ) : inner;
      }
      return part;
   }

   /// Some paths ask for another amount, and may change their mind before they are answered (one
   /// that asks for none gives all back at once).
   void event() {
      Json change = random.event( lab.document() );
      const Json & links = lab.document()[ "topologies" ][ "core" ][ "links" ];
      if ( random.oneIn( 2 ) && !links.empty() ) {
         change = Json::object();
         const auto nth = random.below( static_cast< unsigned >( links.size() ) );
         offer(
            change[ "topologies" ][ "core" ][ "links" ][ std::next( links.begin(), nth ).key() ] );
      }
      try {
         lab.patch( change );
      } catch ( const Lab::LabError & ) {
      }
      for ( unsigned times = random.below( 3 ); times > 0; --times ) {
         Json paths = lab.document().value( "paths", Json::object() );
         for ( auto & asked : paths ) {
            for ( auto & path : asked ) {
               path = random.oneIn( 4 ) ? Json{ { "constraint", amounts( times > 1 ) } }
                                        : Json::object();
            }
         }
         lab.patch( { { "paths", paths } } );
      }
   }

   /// Judges what is published, where users and paths held what they did at the last check; then
   /// holds the accounts against what the published hops imply.
   void check( bool judges ) {
      lab.settle();
      const Json outcome = Json::parse( Lab::outcomeJson( lab.outcome() ) );
      auto users = usersOf( lab.document(), outcome );
      std::map< std::string, Holdings > now;
      std::multiset< Json > implied, accounted;
      bool isImplied = true;  // not by a link that is away, nor by what once was granted
      for ( const User & user : users ) {
         const auto hops = LabOracle( lab.document(), user.vrf() ).hops( user.status );
         isImplied &= hops.size() == user.status[ "path" ].size()
                      && ( hops.empty() || !user.status.contains( "error" ) );
         for ( const OracleEdge & hop : hops ) {
            const std::uint64_t amount = user.constraint()[ "bandwidth" ];
            const std::tuple value( hop.link(), user.priority(), amount );
            if ( now[ user.id() ].insert( value ).second ) {
               implied.insert(
                  Json{ user.where, user.client, user.group(), user.priority(), amount } );
            }
            now[ user.path ].insert( value );
         }
      }
      for ( User & user : judges ? users : std::vector< User >() ) {
         SCOPED_TRACE( user.asked.dump() + user.status.dump() );
         user.status.erase( "pathSrlg" );
         Holdings own = held[ user.id() ];
         own.merge( held[ user.path ] );
         own.merge( Holdings( now[ user.id() ] ) );
         LabOracle oracle( lab.document(), user.vrf() );
         for ( const auto & [ link, priority, amount ] : own ) {
            auto & most = oracle.held[ link ];
            most = std::max( most, priority <= user.priority() ? amount : 0 );
         }
         std::string complaint;
         const auto cost =
            oracle.walk( user.status, user.asked[ "dst" ], user.constraint(), complaint );
         EXPECT_EQ( complaint, "" );
         if ( user.client == "cli" && !user.group() && cost ) {
            const auto best = oracle.cost( user.asked[ "dst" ], user.constraint() );
            EXPECT_EQ( best ? best->metric : 0, cost->metric );
         }
         hops += user.status[ "path" ].size();
      }
      for ( const Json & entry : outcome[ "bandwidth" ] ) {
         for ( const Json & value : entry[ "reserved" ] ) {
            accounted.insert( Json{ std::string( entry[ "vrf" ] ) + "/ipv4", entry[ "client" ],
                                    entry[ "sharedBwGroupId" ], entry[ "priority" ], value } );
         }
      }
      EXPECT_TRUE( !isImplied || accounted == implied ) << outcome.dump();
      wholeAccounts += isImplied && !implied.empty();
      held = std::move( now );
   }

   RandomLab random;
   TestLab lab;
   std::map< std::string, Holdings > held;  ///< as of the last check, by user and by path
   std::size_t hops = 0, wholeAccounts = 0;
};

/// What happens to the accounts, in order: '+' a user's link comes, '-' it goes.
class Accounts : public Lum::Reactor {
   LUM_ENTITY( Test, Accounts );
   explicit Accounts( Lum::Ptr< Cspf::BwUsageTable > table ) : table_( std::move( table ) ) {}
   void handleInitialized() override { LUM_WATCH_KEYS( table_, bandwidthUsage, handleUsage ); }
   std::string seen;

 private:
   void handleUsage( const Cspf::BwUsageKey & key ) {
      seen += table_->bandwidthUsageHas( key ) ? '+' : '-';
   }
   Lum::Ptr< Cspf::BwUsageTable > table_;
};

Lum::Ptr< Cspf::BwUsageTable >
accountsOf( TestLab & lab ) {
   return Lum::cast< Cspf::BwUsageTable >(
      lab.tables().table( "te/cspf/bwUsage/vrf/default/ipv4" ) );
}

/// The amounts that are held, link by link: when all is done, or now.
using Held = std::vector< std::uint64_t >;

Held
held( TestLab & lab, bool settles = true ) {
   if ( settles ) {
      lab.settle();
   }
   Held held;
   for ( const auto & entry : lab.outcome().bandwidth ) {
      held.insert( held.end(), entry.reserved.begin(), entry.reserved.end() );
   }
   return held;
}

/// A constraint; with hops (routers loosely, interfaces strictly) it is followed under another key.
Json
wanted( unsigned bandwidth, unsigned priority = 0, unsigned group = 0,
        const std::vector< std::string > & hops = {} ) {
   Json constraint{
      { "bandwidth", bandwidth }, { "bwSetupPriority", priority }, { "sharedBwGroupId", group } };
   for ( const std::string & addr : hops ) {
      const bool isRouter = addr.starts_with( "10.0.0." );
      constraint[ "includeHop" ].push_back( { { "addr", addr }, { "loose", isRouter } } );
   }
   return constraint;
}

}

TEST( Bandwidth, EveryLinkOfAPathHadTheBandwidthThatThePathHolds ) {
   std::size_t hops = 0, wholeAccounts = 0;
   for ( unsigned seed = 1; seed <= 60; ++seed ) {
      BandwidthLab random( seed );
      const bool isStorm = seed % 4 == 0;
      random.check( !isStorm );
      for ( int event = 0; event < 15 && !testing::Test::HasFailure(); ++event ) {
         random.event();
         if ( isStorm && event % 5 < 4 ) {
            random.lab.advance( 0.03 * random.random.below( 5 ) );
            continue;
         }
         random.check( !isStorm );
         if ( random.random.oneIn( 6 ) ) {
            random.lab.restart();
            random.check( !isStorm );
         }
      }
      ASSERT_FALSE( testing::Test::HasFailure() ) << seed << random.lab.document().dump();
      hops += random.hops;
      wholeAccounts += random.wholeAccounts;
      random.lab.patch( { { "paths", nullptr } } );
      EXPECT_TRUE( random.lab.outcome().bandwidth.empty() );
      EXPECT_THAT( random.lab.dump(), Not( testing::ContainsRegex( localIdsInUse ) ) );
   }
   EXPECT_GT( hops, 1000u );
   EXPECT_GT( wholeAccounts, 300u );
}

TEST( Bandwidth, APathKeepsWhatItHoldsAndMovesWithoutAGap ) {
   for ( const std::string client : { "cli", "rsvp" } ) {
      for ( const auto & hops : { std::vector< std::string >(), { "10.0.0.2" } } ) {
         SCOPED_TRACE( client + std::to_string( hops.size() ) );
         TestLab lab( "A -10{bw 100}- B -10{bw 100}- C; A -30{bw 100}- C" );
         lab.request( client, "t", "C", wanted( 100, 0, 0, hops ) );
         lab.settle();
         const auto runs = lab.runs();
         // The IGP floods what signalling took: the path's own bandwidth is still its own.
         lab.link( "A-B", { { "ab", { { "unreserved", 0 } } } } );
         lab.link( "B-C", { { "ab", { { "unreserved", 0 } } } } );
         lab.settle();
         EXPECT_EQ( lab.runs() - runs, !hops.empty() ? 2u : client == "cli" ? 1u : 0u );
         EXPECT_EQ( lab.path( client, "t" ) + lab.error( client, "t" ), "A B C" );
         const auto seen = Lum::make< Accounts >( accountsOf( lab ) );
         lab.down( "B-C" );
         lab.settle();
         // First the new links, then the old ones.
         EXPECT_EQ( lab.path( client, "t" ), hops.empty() ? "A C" : "A B A C" );
         EXPECT_EQ( seen->seen, hops.empty() ? "+--" : "++-" );
      }
   }
}

TEST( Bandwidth, AChangedRequestHoldsWhatItHeldUntilItIsAnswered ) {
   for ( const char * client : { "cli", "rsvp" } ) {
      TestLab lab( "A -10{bw 100}- B; A -20{bw 500}- C -20{bw 500}- B" );
      lab.link( "A-B", { { "unreserved", { 100, 100, 100, 100, 100, 100, 100, 50 } } } );
      const auto ask = [ & ]( const Json & constraint, const Held & until, const Held & then,
                              const char * path ) {
         SCOPED_TRACE( client + constraint.dump() );
         lab.request( client, "t", "B", constraint );
         EXPECT_EQ( held( lab, false ), until );
         EXPECT_EQ( held( lab ), then );
         EXPECT_EQ( lab.path( client, "t" ), path );
      };
      ask( wanted( 50, 7 ), {}, { 50 }, "A B" );
      ask( wanted( 90, 7, 1 ), { 50 }, { 90 }, "A B" );
      ask( wanted( 60, 3, 2 ), { 90 }, { 60 }, "A B" );
      ask( wanted( 150, 3 ), { 60 }, { 150 }, "A B" );
      ask( wanted( 260, 3 ), { 150 }, { 260, 260 }, "A C B" );
      ask( wanted( 0 ), {}, {}, "A B" );
      ask( wanted( 40 ), {}, { 40 }, "A B" );
      ask( wanted( 900 ), { 40 }, {}, "" );
      lab.link( "A-B", { { "unreserved", 900 } } );
      EXPECT_EQ( held( lab ), Held{ 900 } );
   }
}

TEST( Bandwidth, ARefusedChangeIsGrantedWhereThereIsRoomForItAndNotByARestart ) {
   for ( const auto & [ client, restarts ] :
         { std::pair( "cli", 0 ), { "cli", 1 }, { "rsvp", 0 }, { "rsvp", 1 } } ) {
      SCOPED_TRACE( std::string( client ) + ( restarts ? " restarted" : "" ) );
      TestLab lab( "A -10{bw 100}- B -10{bw 100}- C" );
      const auto ask = [ &, client = client ]( const Json & constraint ) {
         lab.request( client, "t", "C", constraint );
         return held( lab, false );
      };
      const auto leave = [ & ]( unsigned unreserved ) {
         lab.link( "A-B", { { "unreserved", unreserved } } );
         lab.link( "B-C", { { "unreserved", unreserved } } );
         return held( lab );
      };
      ask( wanted( 50 ) );
      const Held fifty{ 50, 50 }, until = restarts ? Held() : fifty;
      EXPECT_EQ( leave( 50 ), fifty );
      EXPECT_EQ( ask( wanted( 120, 0, 0, { "10.0.0.2", "10.0.0.3" } ) ), fifty );
      lab.settle();
      restarts ? lab.restart() : lab.settle();
      EXPECT_EQ( lab.path( client, "t" ), "A B C" );
      EXPECT_EQ( leave( 69 ), until );
      EXPECT_EQ( leave( restarts ? 120 : 70 ), ( Held{ 120, 120 } ) );
      EXPECT_EQ( ask( wanted( 90 ) ), ( Held{ 120, 120 } ) );
      lab.withdraw( client, "t" );
      EXPECT_EQ( held( lab, false ), Held() );
   }
}

TEST( Bandwidth, AChangeOfOneUserRecomputesItsPathsAlone ) {
   TestLab lab( "A -10{bw 100}- B -10{bw 100}- C; A -30{bw 100}- C" );
   lab.request( "cli", "one", "C", wanted( 10, 3, 1 ) );
   lab.request( "cli", "other", "C", wanted( 10, 3 ), { { "id", 2 } } );
   lab.settle();
   const auto one = lab.runs( "cli", "one" ), all = lab.runs();
   lab.request( "cli", "more", "C", wanted( 20, 3, 1 ), { { "id", 3 } } );
   lab.settle();
   EXPECT_GT( lab.runs( "cli", "one" ), one );
   EXPECT_EQ( lab.runs() - all, lab.runs( "cli", "one" ) - one + lab.runs( "cli", "more" ) );
   // A group holds the largest of its members' amounts, at its priority and at all worse ones.
   for ( const auto & [ key, usage ] : accountsOf( lab )->bandwidthUsageColl() ) {
      const std::uint64_t most = key.bwUsageId().sharedBwGroupId() == 1 ? 20 : 10;
      EXPECT_EQ( usage->maxReservedBandwidth( 2 ), 0u );
      EXPECT_EQ( usage->maxReservedBandwidth( 3 ), most );
      EXPECT_EQ( usage->maxReservedBandwidth( 7 ), most );
   }
   const auto before = lab.runs( "cli", "one" );
   lab.withdraw( "cli", "more" );
   lab.settle();
   EXPECT_GT( lab.runs( "cli", "one" ), before ) << "there is less for the group";
}

TEST( Bandwidth, APriorityThatDoesNotExistIsAnsweredAndLeavesNothingBehind ) {
   for ( const std::string client : { "cli", "rsvp" } ) {
      for ( const auto & hops : { std::vector< std::string >(), { "10.0.0.2", "10.0.0.3" } } ) {
         TestLab lab( "A -10{bw 100}- B -10{bw 100}- C" );
         lab.request( client, "t", "C", wanted( 50, 7, 0, hops ) );
         lab.settle();
         const auto config = Lum::cast< Cspf::Config >(
            lab.tables().table( "te/cspf/config/vrf/default/ipv4/" + client ) );
         const Cspf::PathConfig asked = config->pathConfigColl().begin()->second;
         Cspf::PathConfig wrong = asked;
         wrong.constraint_.bwSetupPriorityIs( 8 );
         wrong.refreshReqSeqIs( 5 );
         config->pathConfigIs( wrong );
         EXPECT_EQ( held( lab ), Held() );
         EXPECT_EQ( lab.path( client, "t" ) + lab.error( client, "t" ),
                    "BwPriority::value < BwPriority::min or > BwPriority::max not allowed" );
         EXPECT_EQ( lab.status( client, "t" )->refreshRespSeq(), 5u );
         EXPECT_TRUE( lab.outcome().constraints.empty() );
         EXPECT_THAT( lab.dump(), Not( testing::ContainsRegex( localIdsInUse ) ) );
         config->pathConfigIs( asked );
         EXPECT_EQ( held( lab ), ( Held{ 50, 50 } ) );
         EXPECT_EQ( lab.path( client, "t" ) + lab.error( client, "t" ), "A B C" );
      }
   }
}

TEST( Bandwidth, APathThatFillsItsLinkKeepsItUnderAnotherNameAndAfterARestart ) {
   for ( const std::string client : { "cli", "rsvp" } ) {
      TestLab lab( "A -10{bw 100}- B; A -30{bw 500}- B" );
      lab.request( client, "t", "10.0.0.2", wanted( 100 ) );
      lab.settle();
      Json same = lab.document()[ "topologies" ][ "core" ][ "links" ][ "A-B" ];
      same[ "unreserved" ] = 0;
      const Json renamed[] = { { { "links", { { "A-B", nullptr }, { "again", same } } } },
                               { { "routers", { { "B", { { "teRouterId", "10.0.0.22" } } } } } } };
      for ( unsigned seq = 0; const Json & change : renamed ) {
         const auto before = accountsOf( lab )->bandwidthUsageColl().begin()->first;
         lab.patch( { { "topologies", { { "core", change } } } } );
         lab.settle();
         EXPECT_FALSE( accountsOf( lab )->bandwidthUsageHas( before ) );
         lab.restart();
         lab.request( client, "t", "10.0.0.2", wanted( 100 ), { { "refreshReqSeq", seq } } );
         EXPECT_EQ( held( lab ), Held{ 100 } );
         EXPECT_EQ( lab.cost( client, "t" ), 10u );
         EXPECT_EQ( lab.status( client, "t" )->refreshRespSeq(), seq++ );
      }
   }
}

/// Hops that cannot be followed for a while leave it published.
TEST( Bandwidth, APathThatFillsItsLinkFindsItUnderAnotherNameAfterItWasAway ) {
   for ( const char * client : { "cli", "rsvp" } ) {
      TestLab lab( "A -10{bw 100}- B" );
      const auto links = [ & ]( const Json & change ) {
         lab.patch( { { "topologies", { { "core", { { "links", change } } } } } } );
         EXPECT_EQ( held( lab ), Held{ 100 } );
      };
      lab.request( client, "t", "B", wanted( 100, 0, 0, { "10.0.0.2" } ) );
      lab.settle();
      Json same = lab.document()[ "topologies" ][ "core" ][ "links" ][ "A-B" ];
      same[ "unreserved" ] = 0;
      links( { { "A-B", nullptr } } );
      EXPECT_NE( lab.error( client, "t" ), "" );
      links( { { "again", same } } );
      EXPECT_EQ( lab.error( client, "t" ), "" );
   }
}

TEST( Bandwidth, APathThatComesToARouterTwiceAcrossALanHoldsBothWays ) {
   TestLab lab( "A -10{bw 100}- B; D -1{bw 100}- F; B =lan1= D F" );
   Json patch, &members = patch[ "topologies" ][ "core" ][ "lans" ][ "lan1" ][ "members" ];
   for ( const char * member : { "B", "D", "F" } ) {
      members[ member ][ "bandwidth" ] = 100;
   }
   lab.patch( patch );
   const std::vector< std::string > hops{ "10.64.0.3", "10.128.1.3", "10.64.0.5", "10.128.1.3" };
   lab.request( "rsvp", "t", "D", wanted( 60, 0, 0, hops ) );
   EXPECT_EQ( held( lab ), ( Held{ 60, 60, 60, 60 } ) ) << lab.error( "rsvp", "t" );
}

TEST( Bandwidth, ASourceThatMovesWithTheTopologyIsGrantedNothingWithoutRoom ) {
   TestLab lab( "A =lan1= B C; A -90{bw 100}- B" );
   Json patch, &members = patch[ "topologies" ][ "core" ][ "lans" ][ "lan1" ][ "members" ];
   for ( const auto & [ member, free ] : { std::pair{ "A", 100 }, { "B", 40 }, { "C", 100 } } ) {
      members[ member ][ "bandwidth" ] = free;
   }
   lab.patch( patch );
   lab.request( "rsvp", "t", "C", wanted( 60 ) );
   lab.settle();
   ASSERT_EQ( lab.path( "rsvp", "t" ), "A C" );
   members[ "C" ][ "metric" ] = 20;
   patch[ "te" ][ "routerId" ] = "10.0.0.2";
   lab.patch( patch );
   lab.settle();
   EXPECT_EQ( lab.path( "rsvp", "t" ), "A A C" ) << "from B by way of A, whose step has the room";
   EXPECT_EQ( held( lab ), ( Held{ 60, 60 } ) );
}

TEST( Bandwidth, LocalIdsComeBackAndDoNotRunOut ) {
   TestLab lab( "A -10{bw 100}- B" );
   lab.settle();
   const auto & root = *Cspf::Agent::instance()->v4CspfRoot()->vrfRoot( L3::VrfName( "default" ) );
   const auto ids = root.bwUsageManager()->localIdAllocator();
   std::vector< std::uint64_t > out;
   for ( int round = 0; round < 2; ++round ) {
      std::ranges::shuffle( out, std::mt19937( 3 ) );
      for ( const auto id : std::exchange( out, {} ) ) {
         ids->releaseNumber( id );
      }
      for ( auto id = ids->getNumber(); id != ids->invalidNumber(); id = ids->getNumber() ) {
         out.push_back( id );
      }
      EXPECT_EQ( std::set( out.begin(), out.end() ).size(), 300'000u );
      EXPECT_EQ( std::ranges::min( out ), 1u );
   }
   EXPECT_DEATH( lab.request( "cli", "t", "B", wanted( 1 ) ),
                 "newLocalId64 != bwUsageLocalIdAllocator\\(\\)->invalidNumber\\(\\)" );
}

// ---- Which link is held ----

namespace {

/// Links with what is held of them, by router names and link ids: "A-B#1 60".
std::multiset< std::string >
heldLinks( TestLab & lab ) {
   std::multiset< std::string > links;
   for ( const auto & [ key, usage ] : accountsOf( lab )->bandwidthUsageColl() ) {
      const auto & link = key.link().neighborKey();
      const std::string from = link.routerId().stringValue(), to = link.neighborId().stringValue();
      links.insert( std::string( 1, static_cast< char >( 'A' + from[ 13 ] - '1' ) ) + "-"
                    + static_cast< char >( 'A' + to[ 13 ] - '1' ) + " "
                    + std::to_string( usage->maxReservedBandwidth( Cspf::BwPriority( 7 ) ) ) );
   }
   return links;
}

}

TEST( Bandwidth, IsHeldOnEveryLinkOfAPathThatGoesThereAndBack ) {
   TestLab lab( "A -10{bw 50}- B" );
   const auto hop = []( const char * addr ) {
      return Json{ { "addr", addr }, { "loose", false } };
   };
   lab.request( "rsvp", "p", "B",
                { { "bandwidth", 50 },
                  { "includeHop", { hop( "10.0.0.2" ), hop( "10.0.0.1" ), hop( "10.0.0.2" ) } } } );
   lab.settle();
   EXPECT_EQ( heldLinks( lab ), ( std::multiset< std::string >{ "A-B 50", "B-A 50" } ) );
   lab.link( "A-B", { { "unreserved", 0 } } );
   lab.link( "A-B", { { "metric", 11 } } );
   lab.settle();
   EXPECT_EQ( lab.error( "rsvp", "p" ), "" );
}

TEST( Bandwidth, StandsOnTheParallelLinkThatWasComputed ) {
   TestLab lab( "A -10{bw 20}- B; A -10{bw 100}- B" );
   const auto table = Lum::cast< Routing::Topology::TopoDb >(
      lab.tables().table( "routing/isis/topodb/ip/2/default" ) );
   const auto unreserved = [ & ]( const Cspf::AllTopoNeighborKey & link ) {
      return table->neighbor( link.neighborKey() ).unreservedBandwidth()[ 0 ];
   };
   for ( const auto & key : Lum::sortedKeys( table->neighborColl() ) ) {
      auto neighbor = table->neighbor( key );  // borrowed addresses at both ends
      const bool fromA = key.routerId().stringValue() == "0000.0000.0001";
      neighbor.interfaceAddrIs( 0, Cspf::ip( fromA ? "10.200.0.1" : "10.200.0.2" ) );
      neighbor.neighborAddrIs( 0, Cspf::ip( fromA ? "10.200.0.2" : "10.200.0.1" ) );
      table->neighborIs( key, neighbor );
   }
   lab.settle();
   const auto config =
      Lum::cast< Cspf::Config >( lab.tables().table( "te/cspf/config/vrf/default/ipv4/rsvp" ) );
   Cspf::PathConfig request;
   request.pathKeyIs( { Cspf::Destination( Cspf::ip( "10.0.0.2" ) ), 1 } );
   Cspf::PathConstraint constraint;
   constraint.bandwidthIs( 60 );
   request.constraintIs( constraint );
   config->pathConfigIs( request );
   lab.settle();
   ASSERT_EQ( accountsOf( lab )->bandwidthUsages(), 1u );
   const Cspf::AllTopoNeighborKey link =
      accountsOf( lab )->bandwidthUsageColl().begin()->first.link();
   EXPECT_EQ( unreserved( link ), 100 );

   auto full = table->neighbor( link.neighborKey() );  // the IGP floods it; the path stays there
   full.unreservedBandwidthIs( { 40, 40, 40, 40, 40, 40, 40, 40 } );
   table->neighborIs( link.neighborKey(), full );
   lab.settle();
   ASSERT_EQ( accountsOf( lab )->bandwidthUsages(), 1u );
   EXPECT_EQ( accountsOf( lab )->bandwidthUsageColl().begin()->first.link(), link );
}

TEST( Bandwidth, IsKeptWhileTheAddressOfAHopIsAway ) {
   TestLab lab( "A -20{bw 100}- B -10{bw 100}- C; A -10{bw 100}- B" );
   const std::string away = lab.document()[ "topologies" ][ "core" ][ "links" ][ "A-B" ][ "bAddr" ];
   lab.request(
      "rsvp", "p", "C",
      { { "bandwidth", 60 }, { "includeHop", { { { "addr", away }, { "loose", true } } } } } );
   lab.settle();
   const auto before = heldLinks( lab );
   ASSERT_EQ( before.size(), 2u );
   lab.down( "A-B" );
   for ( int restart = 0; restart < 2; ++restart ) {
      lab.settle();
      lab.restart();
   }
   lab.settle();
   EXPECT_EQ( heldLinks( lab ), before );
   EXPECT_EQ( lab.error( "rsvp", "p" ), "" );
}

/// A full link may be used by who holds some of it, but not where it leads to an overloaded router.
TEST( Bandwidth, IsNoGroundToEndAtARouterThatBecomesOverloaded ) {
   for ( const char * topology :
         { "A -10{bw 100}- B; A -5{bw 100}- C", "A =lan1= B C; C -5- D" } ) {
      TestLab lab( topology );
      const bool isLan = lab.document()[ "topologies" ][ "core" ][ "links" ].size() == 1;
      const auto change = [ & ]( const Json & core ) {
         lab.patch( { { "topologies", { { "core", core } } } } );
         lab.settle();
      };
      const auto available = [ & ]( double bandwidth ) {
         const Json own{ { "unreserved", bandwidth } };
         change( isLan ? Json{ { "lans", { { "lan1", { { "members", { { "A", own } } } } } } } }
                       : Json{ { "links", { { "A-B", own } } } } );
      };
      available( 100 );
      lab.request( "cli", "t", "B", wanted( 100 ) );
      lab.settle();
      available( 0 );
      ASSERT_EQ( lab.path( "cli", "t" ), "A B" );
      change( { { "routers", { { "B", { { "overload", true } } } } } } );
      EXPECT_EQ( lab.path( "cli", "t" ) + lab.error( "cli", "t" ),
                 "no path found for tep 10.0.0.2" );
   }
}

/// ... nor where what the link costs in the direction that counts is no metric any more.
TEST( Bandwidth, IsNoGroundToUseALinkThatHasNoMetric ) {
   for ( const bool reverse : { false, true } ) {
      TestLab lab( "A -10{bw 100}- B; A -30{bw 100}- C -30{bw 100}- B" );
      Json constraint = wanted( 100 );
      constraint[ "reversePath" ] = reverse;
      lab.request( "cli", "t", "B", constraint );
      lab.settle();
      lab.link( "A-B", { { "ab", { { "unreserved", 0 } } } } );
      lab.settle();
      ASSERT_EQ( lab.path( "cli", "t" ), "A B" );
      lab.link( "A-B", { { reverse ? "ba" : "ab", { { "metric", 0 } } } } );
      lab.settle();
      EXPECT_EQ( lab.path( "cli", "t" ), "A C B" );
      lab.link( "A-B", { { reverse ? "ba" : "ab", { { "metric", 10 } } } } );
      lab.settle();
      EXPECT_EQ( lab.path( "cli", "t" ), "A C B" );
   }
}
