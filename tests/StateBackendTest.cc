// State on either back end, as those who share it see it: whatever one member writes, the others
// have, in order, with nothing told that did not change; and with a database behind it, whatever
// happens to that.

#include "schema/CspfStatus.h"
#include "tests/RandomValue.h"
#include "tests/StateBackends.h"
#include "tools/service/StateView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using State::Json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

/// Changes anything: entities and tables of all types come, change, go and come again, then or in
/// the same turn.
void
changeSomething( Member & member, RandomValue & random, const std::string & top ) {
   const std::string name = top + "/" + std::to_string( random.below( 3 ) );
   unsigned skip = random.below( 27 );
   Schema::forEachEntityType( [ & ]< class E >( Schema::Is< E > ) {
      if constexpr ( !std::same_as< E, Lum::Dir > ) {
         const std::string path = name + "/" + E::lumTypeName;
         if ( skip-- != 0 ) {
            return;
         }
         const bool table = random.below( 2 ) == 0;
         if ( random.below( 10 ) == 0 ) {
            table ? member.tables.cleanup( path ) : member.state.entityDel( path );
            if ( random.below( 2 ) == 0 ) {
               return;
            }
         }
         const auto entity =
            Lum::cast< E >( table ? member.tables.alwaysIs( path, E::lumTypeName )
                                  : member.state.entityIs( path, E::lumTypeName ) );
         random.fillEntity( *entity );
         if ( random.below( 4 ) == 0 ) {
            State::Json patch = State::toJson( *entity );
            for ( auto & [ field, value ] : patch.items() ) {
               value = random.below( 3 ) ? value : State::Json();
            }
            State::merge( *entity, patch );
         }
      }
   } );
}

struct StateBackendTest : testing::TestWithParam< bool > {
   void SetUp() override {
      if ( !state.isThere() ) {
         GTEST_SKIP() << "no redis-server here";
      }
   }

   StateBackend state{ GetParam(), 2 };
};

INSTANTIATE_TEST_SUITE_P( Embedded, StateBackendTest, testing::Values( true ) );
INSTANTIATE_TEST_SUITE_P( Redis, StateBackendTest, testing::Values( false ) );

struct RedisStateTest : testing::Test {
   void SetUp() override {
      if ( !state.isThere() ) {
         GTEST_SKIP() << "no redis-server here";
      }
   }
   /// Everybody has the same, those who come now included.
   void expectAgreement( const char * when ) {
      state.settle();
      const auto content = state[ 0 ].content();
      for ( std::size_t i = 1; i < state.size(); ++i ) {
         EXPECT_THAT( differences( state[ i ].content(), content ), IsEmpty() )
            << when << ", member " << i;
      }
      state.restart( state.size() - 1 );
      state.settle();
      EXPECT_THAT( differences( state[ state.size() - 1 ].content(), content ), IsEmpty() )
         << when << ", a new member";
   }

   StateBackend state{ false, 3 };
};

/// Has an answer while there are a client and a question.
struct Answerer : Lum::Reactor {
   LUM_ENTITY( Test, Answerer );
   explicit Answerer( Corvdb::StateStore & store )
      : state( store ),
        dir( Lum::cast< Lum::Dir >( store.entityIs( "c", "Lum::Dir" ) ) ) {}
   void handleInitialized() override { LUM_WATCH_KEYS( dir, entity, handleEntry ); }
   void handleEntry( const Lum::String & ) {
      if ( dir->entityHas( "client" ) && dir->entityHas( "question" ) ) {
         state.entityIs( "z/answer", "Cspf::Client" );
      } else {
         state.entityDel( "z/answer" );
      }
   }
   Corvdb::StateStore & state;
   const Lum::Ptr< Lum::Dir > dir;
};

}

TEST_P( StateBackendTest, whatOneWritesTheOtherHas ) {
   RandomValue random( 7 );
   for ( int round = 0; round < 40; ++round ) {
      for ( int i = 0; i < 20; ++i ) {
         changeSomething( state[ 0 ], random, "a" );
         changeSomething( state[ 1 ], random, "b/c" );
      }
      if ( round % 4 == 0 ) {
         state.settle();
         ASSERT_THAT( differences( state[ 0 ].content(), state[ 1 ].content() ), IsEmpty() );
      } else {
         state.turns( round % 3 );
      }
   }
   ASSERT_GT( state[ 0 ].content().size(), 50u );
   EXPECT_THAT( state[ 1 ].log, IsEmpty() );
}

TEST_F( RedisStateTest, whateverHappensToTheDatabaseAllMembersAgree ) {
   RandomValue random( 11 );
   // The first two write what is theirs; of the third nothing is its own.
   state[ 0 ].replica->leaseIs( { "a" }, false, {} );
   state[ 1 ].replica->leaseIs( { "b" }, false, {} );
   state.settle();
   const auto storm = [ & ]( int turns ) {
      for ( int i = 0; i < turns; ++i ) {
         changeSomething( state[ 0 ], random, "a" );
         changeSomething( state[ 1 ], random, "b" );
         state.turns( static_cast< int >( random.below( 2 ) ) );
      }
   };
   RedisServer & server = state.server();
   storm( 100 );
   expectAgreement( "quiet" );
   server.kill();
   storm( 100 );
   server.start();
   storm( 10 );
   expectAgreement( "killed with its data" );
   server.kill();
   server.forget();
   storm( 100 );
   server.start();
   expectAgreement( "killed without its data" );
   storm( 50 );
   server.cli( { "FLUSHALL" } );
   storm( 50 );
   expectAgreement( "emptied" );
   for ( int i = 0; i < 10; ++i ) {
      storm( 10 );
      server.cli( { "CLIENT", "KILL", "TYPE", "normal" } );
   }
   expectAgreement( "connections cut" );
   for ( int i = 0; i < 10; ++i ) {
      storm( 10 );
      server.cli( { "XTRIM", "log", "MAXLEN", "0" } );
   }
   expectAgreement( "log trimmed" );
   server.stopAndContinue( true );
   for ( int i = 0; i < 2000; ++i ) {
      changeSomething( state[ 0 ], random, "a" );
      changeSomething( state[ 1 ], random, "b" );
   }
   for ( const Lum::Seconds end = Lum::now() + 60;
         state[ 0 ].replica->status().connected && Lum::now() < end; ) {
      state.turns( 1 );
   }
   EXPECT_FALSE( state[ 0 ].replica->status().connected );
   server.stopAndContinue( false );
   expectAgreement( "without an answer for long" );
   EXPECT_GT( state[ 0 ].replica->status().resyncs, 2u );
}

TEST_F( RedisStateTest, whatIsSentBeforeTheLeaseIsGrantedIsKept ) {
   state.server().stopAndContinue( true );
   state[ 0 ].replica->leaseIs( { "a" }, false, {} );
   for ( const char * path : { "a/b", "a/c" } ) {
      state[ 0 ].state.entityIs( path, "Cspf::Client" );
   }
   state.turns( 500 );  // in which the lease is claimed several times
   state.server().stopAndContinue( false );
   expectAgreement( "granted" );
   EXPECT_TRUE( state[ 0 ].replica->status().holdsLease );
   EXPECT_TRUE( state[ 1 ].content().contains( "e:a/b" ) );
   EXPECT_TRUE( state[ 1 ].content().contains( "e:a/c" ) );
}

TEST_F( RedisStateTest, whatAServerFindsOnAnEarlierConnectionIsOvertaken ) {
   RedisServer & server = state.server();
   state[ 0 ].replica->leaseIs( { "a" }, false, {} );
   for ( const char * path : { "a/b", "c" } ) {
      for ( const char * vrf : { "x", "y" } ) {
         state[ 0 ].state.entityIs< Cspf::Client >( path )->vrfIs( L3::VrfName( vrf ), true );
      }
   }
   state.settle();
   const Content content = state[ 0 ].content();
   const auto firstWord = []( const std::string & text ) {
      return text.substr( 0, text.find_first_of( " \n" ) );
   };
   const std::string last = server.cli( { "XREVRANGE", "log", "+", "-", "COUNT", "1" } );
   const std::string writer = firstWord( last.substr( last.find( "@by\n" ) + 4 ) );
   const std::string epoch = firstWord( server.cli( { "GET", "epoch" } ) );
   const std::string fence = firstWord( server.cli( { "GET", "lease:a" } ) );
   server.cli( { "CLIENT", "KILL", "TYPE", "normal" } );
   expectAgreement( "on new connections" );
   const std::string changes = "\x92\xa6vrf[x]\xa5"
                               "false\x90";  // packed
   for ( const bool ends : { false, true } ) {
      for ( const bool changesIt : { false, true } ) {
         std::vector< std::string > call{ "FCALL", "state_write", "0", epoch, writer, fence };
         for ( const char * key : { "e:a/b", "e:c" } ) {
            if ( ends ) {
               call.insert( call.end(), { key, "", "" } );
            }
            if ( changesIt ) {
               call.insert( call.end(), { key, "Cspf::Client", changes } );
            }
         }
         server.cli( call );
         expectAgreement( "found late" );
         EXPECT_THAT( differences( state[ 0 ].content(), content ), IsEmpty() );
      }
   }
}

TEST_F( RedisStateTest, whatEndsAndComesAgainInOneGoIsToldByWhatDiffers ) {
   const auto rowsAre = [ & ]( const std::vector< unsigned > & ids ) {
      const auto rows = Lum::cast< Cspf::Status >(
         state[ 0 ].tables.alwaysIs( "a/rows", Cspf::Status::lumTypeName ) );
      for ( const unsigned id : ids ) {
         rows->pathErrorIs( { Cspf::Destination( *Kivnet::IpGenAddr::parse( "10.0.0.1" ) ), id },
                            "error" );
      }
   };
   rowsAre( { 1, 2, 3 } );
   state.settle();
   std::vector< std::string > told;
   const auto watch = Lum::make< Service::StateWatch >(
      "a/rows", state[ 1 ].tables.table( "a/rows" ),
      [ & ]( const Json & change ) { told.push_back( change.dump() ); } );
   state[ 0 ].tables.cleanup( "a/rows" );
   rowsAre( { 1, 3, 4 } );
   expectAgreement( "in the end" );
   EXPECT_THAT( told, ElementsAre( AllOf( HasSubstr( "10.0.0.1#2" ), Not( HasSubstr( "value" ) ) ),
                                   HasSubstr( "10.0.0.1#4" ) ) );
}

TEST_F( RedisStateTest, oneHoldsTheLeaseThoughAllTraceOfItWasLost ) {
   state[ 0 ].replica->leaseIs( { "a" }, false, {} );
   state.settle();
   ASSERT_TRUE( state[ 0 ].replica->status().holdsLease );
   const auto claim = [ & ]( const std::string & fence, const std::string & who ) {
      return state.server().cli(
         { "FCALL", "state_claim", "0", fence, "10000", "", "1 run " + who, "a" } );
   };
   state.server().cli( { "FLUSHALL" } );
   EXPECT_THAT( claim( "0", "another" ), testing::Not( HasSubstr( "HELD" ) ) );
   state.settle();
   EXPECT_FALSE( state[ 0 ].replica->status().holdsLease );
   EXPECT_THAT( state.server().cli( { "GET", "lease:a" } ), HasSubstr( "another" ) );
   EXPECT_THAT( claim( "0", "a third" ), HasSubstr( "HELD" ) );
}

TEST_F( RedisStateTest, whatIsRefusedTakesNothingElseWithIt ) {
   RandomValue random( 13 );
   state[ 0 ].replica->leaseIs( { "a" }, false, {} );
   state[ 1 ].replica->leaseIs( { "b" }, false, {} );
   state.settle();
   for ( int i = 0; i < 1000; ++i ) {
      changeSomething( state[ 0 ], random, "a" );
      changeSomething( state[ 1 ], random, "b" );
      if ( random.below( 3 ) == 0 ) {
         changeSomething( state[ 0 ], random, "b" );  // not its own
      }
      state.turns( static_cast< int >( random.below( 3 ) ) );
   }
   expectAgreement( "in the end" );
   EXPECT_GT( state[ 0 ].replica->status().refused, 50u );
}

TEST_F( RedisStateTest, whatEndsWithAnotherKeyWhileAllIsReadAgainIsGone ) {
   state[ 0 ].replica->leaseIs( { "z" }, false, {} );
   const auto answerer = Lum::make< Answerer >( state[ 0 ].state );
   state[ 2 ].state.entityIs( "c/client", "Cspf::Client" );
   state.settle();
   // Written by hand past the log: the question is read before it is seen that the client is gone.
   RedisServer & server = state.server();
   server.cli( { "HSET", "e:c/question", "@type", "Cspf::Client" } );
   server.cli( { "DEL", "e:c/client" } );
   server.cli( { "INCR", "rev" } );
   for ( const Lum::Seconds end = Lum::now() + 60;
         state[ 0 ].content().contains( "e:c/client" ) && Lum::now() < end; ) {
      state.turns( 1 );
   }
   EXPECT_TRUE( state[ 0 ].content().contains( "e:c/question" ) );
   EXPECT_FALSE( state[ 0 ].content().contains( "e:z/answer" ) );
   expectAgreement( "in the end" );
}

TEST_F( RedisStateTest, whatIsMoreThanOneBatchGoesOnWhileItChanges ) {
   const auto table = [ & ] {
      return Lum::cast< Cspf::Status >(
         state[ 0 ].tables.alwaysIs( "a/rows", Cspf::Status::lumTypeName ) );
   };
   const auto end = [ & ] {
      state[ 0 ].tables.cleanup( "a/rows" );
      EXPECT_EQ( state[ 0 ].replica->status().pending, 1u );  // however much was in it
   };
   auto rows = table();
   RandomValue random( 13 );
   const Cspf::Destination dst( *Kivnet::IpGenAddr::parse( "10.0.0.1" ) );
   for ( unsigned round = 0; round < 20; ++round ) {
      if ( round < 12 && random.below( 3 ) == 0 ) {
         end();
         rows = table();
      }
      for ( unsigned i = 0; i < 4'000; ++i ) {
         const Cspf::PathKey key{ dst, random.below( 15'000 ) };
         if ( random.below( 4 ) ) {
            rows->pathErrorIs( key, std::to_string( round ) );
         } else {
            rows->pathErrorDel( key );
         }
      }
      state.turns( static_cast< int >( random.below( 3 ) ) );
      if ( round % 5 == 4 ) {  // others are in the midst of taking it over
         state.server().cli( { "CLIENT", "KILL", "TYPE", "normal" } );
      }
   }
   ASSERT_GT( rows->pathErrors(), 8'000u );
   expectAgreement( "in the end" );
   end();
   expectAgreement( "ended" );
   EXPECT_FALSE( state[ 1 ].content().contains( "t:a/rows" ) );
}

TEST_F( RedisStateTest, whoeverEndsACommonTableAllAgree ) {
   RandomValue random( 5 );
   for ( int i = 1; i <= 500; ++i ) {
      Member & member = state[ random.below( 3 ) ];
      if ( random.below( 4 ) == 0 ) {
         member.tables.cleanup( "a" );
      }
      if ( random.below( 4 ) != 0 ) {
         random.fillEntity( *Lum::cast< Cspf::Status >(
            member.tables.alwaysIs( "a", Cspf::Status::lumTypeName ) ) );
      }
      state.turns( static_cast< int >( random.below( 3 ) ) );
      if ( i % 100 == 0 ) {
         expectAgreement( "after some turns" );
      }
   }
}

TEST_F( RedisStateTest, readingAllAgainTellsNothingOfWhatIsAsItWas ) {
   RandomValue random( 3 );
   state[ 0 ].replica->leaseIs( { "a" }, false, {} );
   for ( int i = 0; i < 300; ++i ) {
      changeSomething( state[ 0 ], random, "a" );
   }
   state.settle();
   std::vector< std::string > told;
   std::vector< Lum::Ptr< Service::StateWatch > > watches;
   Service::StateView view( state[ 1 ].state, state[ 1 ].tables );
   for ( const auto & [ key, content ] : state[ 1 ].content() ) {
      watches.push_back( Lum::make< Service::StateWatch >(
         key.substr( 2 ), view.find( key.substr( 2 ) ),
         [ & ]( const Json & change ) { told.push_back( change.dump() ); } ) );
   }
   ASSERT_GT( watches.size(), 20u );
   for ( const bool forgets : { false, true } ) {
      state.server().kill();
      if ( forgets ) {
         state.server().forget();
      }
      state.server().start();
      expectAgreement( forgets ? "without its data" : "with its data" );
   }
   state.server().cli( { "FLUSHALL" } );
   expectAgreement( "emptied" );
   EXPECT_GE( state[ 1 ].replica->status().resyncs, 3u );
   EXPECT_THAT( told, IsEmpty() );
   // What nobody writes again is gone when its writers had time to.
   state[ 2 ].tables.alwaysIs( "c", "Cspf::BwUsageTable" );
   state[ 2 ].state.entityIs( "d", "Cspf::Client" );
   expectAgreement( "before" );
   state.server().cli( { "FLUSHALL" } );
   for ( const Lum::Seconds end = Lum::now() + 60;
         state[ 1 ].content().contains( "e:d" ) && Lum::now() < end; ) {
      state.turns( 1 );
   }
   EXPECT_FALSE( state[ 1 ].content().contains( "e:d" ) );
   expectAgreement( "after" );
}
