// Bandwidth that paths reserve: what a user may have of a link, what it holds, and that it gives
// all of it back.

#include "tests/Lab.h"
#include "tests/LabOracle.h"
#include "tests/RandomLab.h"
#include "tools/lab/LabJson.h"
#include "tools/lab/LabOutput.h"

#include "Cspf/CspfAgent.h"
#include "Cspf/CspfVrfRoot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using Json = nlohmann::json;

namespace {

/// By user, by link, by priority: the values held. Worked out from the published hops alone.
using Ledger = std::map< std::string,
                         std::map< std::string, std::map< unsigned, std::set< std::uint64_t > > > >;

/// One published path that asks for bandwidth.
struct User {
   std::string id, path;
   bool isShared, alwaysBest;
   std::string vrf, dst;
   Json constraint, status;
   unsigned priority() const { return constraint.value( "bwSetupPriority", 0u ); }
};

std::vector< User >
usersOf( const Json & document, const Json & outcome ) {
   std::vector< User > users;
   for ( const auto & [ client, services ] : outcome[ "clients" ].items() ) {
      for ( const auto & [ where, service ] : services.items() ) {
         for ( const Json & status : service[ "pathStatus" ] ) {
            const std::string name = status[ "name" ];
            const Json & path = document[ "paths" ][ client ][ name ];
            const Json constraint = path.value( "constraint", Json::object() );
            if ( constraint.value( "bandwidth", 0 ) > 0 ) {
               const unsigned group = constraint.value( "sharedBwGroupId", 0u );
               const std::string asked = where + " " + client + " path " + name;
               users.push_back(
                  { group ? where + " " + client + " " + std::to_string( group ) : asked, asked,
                    group != 0, client == "cli", path.value( "vrf", "default" ), path[ "dst" ],
                    constraint, status } );
            }
         }
      }
   }
   return users;
}

/// A random lab in which links have little bandwidth and paths ask for some.
struct BandwidthLab {
   explicit BandwidthLab( unsigned seed )
      : random( seed ),
        lab( TestLab::of( withBandwidth( random.document() ) ) ) {}

   Json amounts() {
      return { { "bandwidth", 100 * random.below( 5 ) },
               { "bwSetupPriority", random.below( 8 ) },
               { "sharedBwGroupId", random.oneIn( 2 ) ? 0 : random.below( 3 ) } };
   }

   Json links( const Json & some ) {
      Json links = some;
      for ( auto & link : links ) {
         link[ "bandwidth" ] = 100 * random.below( 9 );
         if ( random.below( 3 ) == 0 ) {
            for ( unsigned left = 800, p = 0; p < 8; ++p ) {
               link[ "unreserved" ].push_back( left -= 50 * random.below( 4 ) % ( left + 1 ) );
            }
         }
      }
      return links;
   }

   Json withBandwidth( Json document ) {
      for ( auto & topology : document[ "topologies" ] ) {
         topology[ "links" ] = links( topology[ "links" ] );
         for ( auto & lan :
               topology.contains( "lans" ) ? topology[ "lans" ] : topology[ "links" ] ) {
            if ( lan.contains( "members" ) ) {
               lan[ "members" ] = links( lan[ "members" ] );
            }
         }
      }
      for ( auto & paths : document[ "paths" ] ) {
         for ( auto & path : paths ) {
            path[ "constraint" ].update( amounts() );
         }
      }
      return document;
   }

   void event() {
      Json patch = random.event( lab.document() );
      for ( auto & [ name, topology ] : lab.document()[ "topologies" ].items() ) {
         if ( random.below( 3 ) == 0 && !topology[ "links" ].empty() ) {
            const auto link =
               std::next( topology[ "links" ].begin(),
                          random.below( static_cast< unsigned >( topology[ "links" ].size() ) ) );
            patch = {
               { "topologies",
                 { { name, { { "links", links( { { link.key(), Json::object() } } ) } } } } } };
         }
      }
      const Json paths = lab.document().value( "paths", Json::object() );
      for ( auto & [ client, asked ] : paths.items() ) {
         if ( random.oneIn( 4 ) && !asked.empty() ) {
            patch[ "paths" ][ client ][ asked.begin().key() ][ "constraint" ] = amounts();
         }
      }
      try {
         lab.patch( patch );
      } catch ( const Lab::LabError & ) {
      }
   }

   /// Judges what is published, where users and paths held what the ledgers say; then holds the
   /// accounts against what the published hops imply.
   void check() {
      lab.settle();
      const Json outcome = Json::parse( Lab::outcomeJson( lab.outcome() ) );
      std::map< std::string, LabOracle > oracles;
      const auto users = usersOf( lab.document(), outcome );
      Ledger now, paths;
      for ( const User & user : users ) {
         auto & oracle = oracles.try_emplace( user.vrf, lab.document(), user.vrf ).first->second;
         for ( const OracleEdge & hop : oracle.hops( user.status ) ) {
            for ( Ledger::mapped_type * holder : { &now[ user.id ], &paths[ user.path ] } ) {
               ( *holder )[ hop.link() ][ user.priority() ].insert(
                  user.constraint[ "bandwidth" ].get< std::uint64_t >() );
            }
         }
      }
      for ( const User & user : users ) {
         LabOracle & oracle = oracles.at( user.vrf );
         oracle.held = heldBy( ledger[ user.id ], user.priority() );
         merge( oracle.held, heldBy( ofPaths[ user.path ], user.priority() ) );
         if ( user.isShared ) {
            merge( oracle.held, heldBy( now[ user.id ], user.priority() ) );
         }
         judge( oracle, user );
      }
      ledger = std::move( now );
      ofPaths = std::move( paths );
      EXPECT_EQ( valuesOf( outcome ), valuesOf( ledger ) );
   }

   using Held = std::map< std::string, std::uint64_t >;

   static Held heldBy( const Ledger::mapped_type & links, unsigned atPriority ) {
      Held held;
      for ( const auto & [ link, priorities ] : links ) {
         for ( const auto & [ priority, values ] : priorities ) {
            held[ link ] = std::max( held[ link ], priority <= atPriority ? *values.rbegin() : 0 );
         }
      }
      return held;
   }

   static void merge( Held & held, const Held & more ) {
      for ( const auto & [ link, bandwidth ] : more ) {
         held[ link ] = std::max( held[ link ], bandwidth );
      }
   }

   void judge( LabOracle & oracle, const User & user ) {
      Json status = user.status;
      if ( !user.alwaysBest ) {
         status.erase( "pathSrlg" );
      }
      std::string complaint;
      const auto cost = oracle.walk( status, user.dst, user.constraint, complaint );
      EXPECT_EQ( complaint, "" ) << user.id << " " << user.constraint << " " << user.status;
      if ( user.alwaysBest && !user.isShared && cost ) {
         const auto best = oracle.cost( user.dst, user.constraint );
         EXPECT_EQ( best ? best->metric : 0, cost->metric ) << user.id << " " << user.status;
      }
      hops += user.status[ "path" ].size();
   }

   /// How many values are held at each priority, by user and amount: local ids and links have no
   /// names that both sides know.
   static std::map< std::string, int > valuesOf( const Json & outcome ) {
      std::map< std::string, int > count;
      for ( const Json & entry : outcome[ "bandwidth" ] ) {
         for ( const Json & value : entry[ "reserved" ] ) {
            ++count[ entry[ "vrf" ].get< std::string >() + "/ipv4 "
                     + entry[ "client" ].get< std::string >() + " "
                     + ( entry[ "localId" ] == 0 ? entry[ "sharedBwGroupId" ].dump() : "path" )
                     + " " + entry[ "priority" ].dump() + " " + value.dump() ];
         }
      }
      return count;
   }
   static std::map< std::string, int > valuesOf( const Ledger & ledger ) {
      std::map< std::string, int > count;
      for ( const auto & [ user, links ] : ledger ) {
         const auto path = user.find( " path " );
         for ( const auto & [ link, priorities ] : links ) {
            for ( const auto & [ priority, values ] : priorities ) {
               for ( const auto value : values ) {
                  ++count[ ( path == user.npos ? user : user.substr( 0, path + 5 ) ) + " "
                           + std::to_string( priority ) + " " + std::to_string( value ) ];
               }
            }
         }
      }
      return count;
   }

   RandomLab random;
   TestLab lab;
   Ledger ledger, ofPaths;  ///< as of the last check, by user and by path
   std::size_t hops = 0;
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

/// The amounts that a client holds, link by link.
std::vector< std::uint64_t >
heldBy( const TestLab & lab, const std::string & client ) {
   std::vector< std::uint64_t > held;
   for ( const auto & entry : lab.outcome().bandwidth ) {
      if ( entry.client == client ) {
         held.insert( held.end(), entry.reserved.begin(), entry.reserved.end() );
      }
   }
   return held;
}

}

TEST( Bandwidth, EveryLinkOfAPathHadTheBandwidthThatThePathHolds ) {
   std::size_t hops = 0;
   for ( unsigned seed = 1; seed <= 60; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      BandwidthLab random( seed );
      random.check();
      for ( int event = 0; event < 15 && !testing::Test::HasFailure(); ++event ) {
         random.event();
         random.check();
      }
      ASSERT_FALSE( testing::Test::HasFailure() ) << random.lab.document().dump();
      hops += random.hops;
      random.lab.patch( { { "paths", nullptr } } );
      random.lab.settle();
      EXPECT_TRUE( random.lab.outcome().bandwidth.empty() );
      EXPECT_EQ( random.lab.dump().find( "local ids in use: " ),
                 random.lab.dump().find( "local ids in use: 0" ) );
   }
   EXPECT_GT( hops, 1000u );
}

TEST( Bandwidth, APathKeepsWhatItHoldsAndMovesWithoutAGap ) {
   TestLab lab( "A -10{bw 100}- B -10{bw 100}- C; A -30{bw 100}- C; A -90{bw 100}- C" );
   const Json hundred{ { "bandwidth", 100 } };
   lab.request( "cli", "first", "C", hundred );
   lab.settle();
   EXPECT_EQ( lab.path( "cli", "first" ), "A B C" );
   // The IGP floods what signalling took: the path's own bandwidth is still its own.
   lab.link( "A-B", { { "unreserved", 0 } } );
   lab.link( "B-C", { { "unreserved", 0 } } );
   lab.request( "cli", "second", "C", hundred, { { "id", 2 } } );
   lab.settle();
   EXPECT_EQ( lab.path( "cli", "first" ), "A B C" );
   EXPECT_EQ( lab.cost( "cli", "second" ), 30u );
   const auto seen = Lum::make< Accounts >( accountsOf( lab ) );
   lab.down( "B-C" );
   lab.settle();
   EXPECT_EQ( lab.path( "cli", "first" ), "A C" );
   EXPECT_EQ( seen->seen, "+--" ) << "the new link is reserved before the old ones are given back";
}

TEST( Bandwidth, AHigherAmountIsHeldOnlyWhereThereIsRoomForIt ) {
   TestLab lab( "A -10{bw 100}- B; A -20{bw 500}- C -20{bw 500}- B" );
   for ( const char * client : { "cli", "rsvp" } ) {
      lab.request( client, "t", "B", { { "bandwidth", 50 } } );
   }
   lab.settle();
   for ( const char * client : { "cli", "rsvp" } ) {
      EXPECT_EQ( lab.path( client, "t" ), "A B" );
      lab.request( client, "t", "B", { { "bandwidth", 80 } } );
      lab.settle();
      EXPECT_EQ( lab.path( client, "t" ), "A B" );
      EXPECT_EQ( heldBy( lab, client ), ( std::vector< std::uint64_t >{ 80 } ) );
      lab.request( client, "t", "B", { { "bandwidth", 300 } } );
      lab.settle();
      EXPECT_EQ( lab.path( client, "t" ), "A C B" );
      EXPECT_EQ( heldBy( lab, client ), ( std::vector< std::uint64_t >{ 300, 300 } ) );
      lab.request( client, "t", "B", { { "bandwidth", 900 } } );
      lab.settle();
      EXPECT_EQ( lab.path( client, "t" ), "" );
      EXPECT_EQ( heldBy( lab, client ), std::vector< std::uint64_t >() );
   }
}

TEST( Bandwidth, AChangeOfOneUserRecomputesItsPathsAlone ) {
   TestLab lab( "A -10{bw 100}- B -10{bw 100}- C; A -30{bw 100}- C" );
   const auto ask = []( unsigned bandwidth, unsigned group ) -> Json {
      return { { "bandwidth", bandwidth }, { "sharedBwGroupId", group }, { "bwSetupPriority", 3 } };
   };
   lab.request( "cli", "one", "C", ask( 10, 1 ) );
   lab.request( "cli", "other", "C", ask( 10, 2 ), { { "id", 2 } } );
   lab.request( "cli", "own", "C", ask( 10, 0 ), { { "id", 3 } } );
   lab.settle();
   const auto other = lab.runs( "cli", "other" ), own = lab.runs( "cli", "own" );
   const auto one = lab.runs( "cli", "one" );
   lab.request( "cli", "more", "C", ask( 20, 1 ), { { "id", 4 } } );
   lab.settle();
   EXPECT_GT( lab.runs( "cli", "one" ), one );
   EXPECT_EQ( lab.runs( "cli", "other" ), other );
   EXPECT_EQ( lab.runs( "cli", "own" ), own );
   // A group holds the largest of its members' amounts, at its priority and at all worse ones.
   for ( const auto & [ key, usage ] : accountsOf( lab )->bandwidthUsageColl() ) {
      if ( key.bwUsageId().sharedBwGroupId() == 1 ) {
         EXPECT_EQ( usage->maxReservedBandwidth( 2 ), 0u );
         EXPECT_EQ( usage->maxReservedBandwidth( 3 ), 20u );
         EXPECT_EQ( usage->maxReservedBandwidth( 7 ), 20u );
      }
   }
}

TEST( Bandwidth, APriorityThatDoesNotExistIsAnsweredAndLeavesNothingBehind ) {
   TestLab lab( "A -10{bw 100}- B -10{bw 100}- C" );
   for ( const char * hop : { "", "10.0.0.2" } ) {
      Json constraint{ { "bandwidth", 50 }, { "bwSetupPriority", 7 } };
      if ( *hop ) {
         constraint[ "includeHop" ] = { { { "addr", hop }, { "loose", true } } };
      }
      for ( const char * client : { "cli", "rsvp" } ) {
         SCOPED_TRACE( std::string( client ) + " " + hop );
         lab.request( client, "t", "C", constraint );
         lab.settle();
         ASSERT_EQ( lab.path( client, "t" ), "A B C" );
         const auto config = Lum::cast< Cspf::Config >(
            lab.tables().table( "te/cspf/config/vrf/default/ipv4/" + std::string( client ) ) );
         const Cspf::PathConfig asked = config->pathConfigColl().begin()->second;
         Cspf::PathConfig wrong = asked;
         wrong.constraint_.bwSetupPriorityIs( 8 );
         wrong.refreshReqSeqIs( 5 );
         config->pathConfigIs( wrong );
         lab.settle();
         EXPECT_EQ( lab.error( client, "t" ),
                    "BwPriority::value < BwPriority::min or > BwPriority::max not allowed" );
         ASSERT_TRUE( lab.status( client, "t" ) );
         EXPECT_EQ( lab.status( client, "t" )->paths(), 0u );
         EXPECT_EQ( lab.status( client, "t" )->refreshRespSeq(), 5u );
         EXPECT_TRUE( lab.outcome().bandwidth.empty() );
         EXPECT_TRUE( lab.outcome().constraints.empty() );
         EXPECT_NE( lab.dump().find( "local ids in use: 0" ), std::string::npos );
         config->pathConfigIs( asked );
         lab.settle();
         EXPECT_EQ( lab.path( client, "t" ), "A B C" );
         EXPECT_EQ( lab.error( client, "t" ), "" );
         EXPECT_EQ( heldBy( lab, client ), ( std::vector< std::uint64_t >{ 50, 50 } ) );
         lab.withdraw( client, "t" );
         lab.settle();
      }
   }
}

TEST( Bandwidth, APathThatGetsExplicitHopsHoldsWhatItHeldUntilItIsAnswered ) {
   using Held = std::vector< std::uint64_t >;
   for ( const char * client : { "cli", "rsvp" } ) {
      SCOPED_TRACE( client );
      TestLab lab( "A -10{bw 100}- B -10{bw 100}- C" );
      const auto ask = [ & ]( unsigned bandwidth, bool explicitHops ) {
         Json constraint{ { "bandwidth", bandwidth } };
         if ( explicitHops ) {
            constraint[ "includeHop" ] = { { { "addr", "10.0.0.2" }, { "loose", true } } };
         }
         lab.request( client, "t", "C", constraint );
         return heldBy( lab, client );
      };
      ask( 50, false );
      lab.settle();
      lab.link( "A-B", { { "unreserved", 50 } } );
      lab.link( "B-C", { { "unreserved", 50 } } );
      lab.settle();
      // There is room for the 50 that are held and 50 more.
      EXPECT_EQ( ask( 120, true ), ( Held{ 50, 50 } ) );
      lab.settle();
      EXPECT_NE( lab.error( client, "t" ), "" );
      EXPECT_EQ( heldBy( lab, client ), ( Held{ 50, 50 } ) );
      EXPECT_EQ( ask( 90, false ), ( Held{ 50, 50 } ) );
      lab.settle();
      EXPECT_EQ( lab.path( client, "t" ), "A B C" );
      EXPECT_EQ( lab.error( client, "t" ), "" );
      EXPECT_EQ( heldBy( lab, client ), ( Held{ 90, 90 } ) );
      EXPECT_EQ( ask( 0, true ), Held() );
   }
}

TEST( Bandwidth, APathThatStaysIsHeldOnTheLinkAsItIsKnownNow ) {
   for ( const char * client : { "cli", "rsvp" } ) {
      SCOPED_TRACE( client );
      TestLab lab( "A -10{bw 100}- B; A -30{bw 500}- B" );
      lab.request( client, "t", "B", { { "bandwidth", 100 } } );
      lab.settle();
      const auto heldLink = [ & ] {
         const auto & accounts = accountsOf( lab )->bandwidthUsageColl();
         return accounts.size() == 1 ? accounts.begin()->first.link() : Cspf::AllTopoNeighborKey();
      };
      const auto before = heldLink();
      const auto changes = lab.status( client, "t" )->changeCount();
      Json same = lab.document()[ "topologies" ][ "core" ][ "links" ][ "A-B" ];
      same[ "unreserved" ] = std::string( client ) == "rsvp" ? 0 : 100;
      lab.patch(
         { { "topologies",
             { { "core", { { "links", { { "A-B", nullptr }, { "again", same } } } } } } } } );
      lab.settle();
      EXPECT_EQ( lab.cost( client, "t" ), 10u );
      EXPECT_EQ( lab.status( client, "t" )->changeCount(), changes );
      EXPECT_NE( heldLink(), before );
      EXPECT_EQ( heldBy( lab, client ), std::vector< std::uint64_t >{ 100 } );
   }
}

TEST( Bandwidth, LocalIdsComeBackAndDoNotRunOut ) {
   TestLab lab( "A -10{bw 100}- B" );
   lab.settle();
   const auto ids = Cspf::Agent::instance()
                       ->v4CspfRoot()
                       ->vrfRoot( L3::VrfName( "default" ) )
                       ->bwUsageManager()
                       ->localIdAllocator();
   std::vector< std::uint64_t > out;
   const auto takeAll = [ & ] {
      for ( auto id = ids->getNumber(); id != ids->invalidNumber(); id = ids->getNumber() ) {
         out.push_back( id );
      }
   };
   takeAll();
   const std::set< std::uint64_t > distinct( out.begin(), out.end() );
   EXPECT_EQ( distinct.size(), 300'000u );
   EXPECT_EQ( *distinct.begin(), 1u );
   EXPECT_EQ( *distinct.rbegin(), 300'000u );
   std::ranges::shuffle( out, std::mt19937( 3 ) );
   for ( const auto id : std::exchange( out, {} ) ) {
      ids->releaseNumber( id );
   }
   takeAll();
   EXPECT_EQ( std::set< std::uint64_t >( out.begin(), out.end() ), distinct );
   EXPECT_DEATH( lab.request( "cli", "t", "B", { { "bandwidth", 1 } } ),
                 "newLocalId64 != bwUsageLocalIdAllocator\\(\\)->invalidNumber\\(\\)" );
}
