// The entity framework: values that are described once, entities that can be watched. The tests of
// the first fixture stand for the rows of the table at the top of Entity.h, in its order.

#include "platform/Lum/Bounded.h"
#include "platform/Lum/Dir.h"
#include "platform/Lum/PackedVector.h"
#include "platform/Lum/SharedString.h"

#include <array>
#include <functional>
#include <gmock/gmock.h>
#include <random>
#include <set>

namespace LumTest {

using Lum::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;
using Log = std::vector< std::string >;

class Row : public Lum::Entity {
   LUM_ENTITY( LumTest, Row );
   LUM_ATTRIBUTE( level, int );
   LUM_COUNTER( changeCount );
   LUM_COLLECTION( entry, Lum::String, int );
};

/// Writes what it hears to a log, then does what the test told it to do next, once.
class Watcher : public Lum::Reactor {
   LUM_ENTITY( LumTest, Watcher );
   Watcher( Row & row, std::string name, Log & log )
      : row_( row ),
        name_( std::move( name ) ),
        log_( log ) {}

   std::function< void() > then;

   void watchLevel() { LUM_WATCH( Ptr< Row >( &row_ ), level, handleLevel ); }
   void watchEntries() { LUM_WATCH_KEYS( Ptr< Row >( &row_ ), entry, handleEntry ); }
   void watchAll() { watchAny< &Watcher::handleAny >( row_, this ); }

 private:
   void handleLevel() { heard( std::to_string( row_.level() ) ); }
   void handleEntry( const Lum::String & key ) {
      const int * value = row_.entryFind( key );
      heard( key + "=" + ( value ? std::to_string( *value ) : "gone" ) );
      keyAfterwards = key;
   }
   void handleAny( const Lum::AnyChange & change ) { heard( change.name() ); }
   void heard( const std::string & what ) {
      log_.push_back( name_ + " " + what );
      if ( const auto step = std::exchange( then, nullptr ) ) {
         step();
      }
   }

 public:
   Lum::String keyAfterwards;

 private:
   Row & row_;
   const std::string name_;
   Log & log_;
};

struct Delivery : testing::Test {
   Ptr< Watcher > watcher( const std::string & name ) {
      const auto made = Lum::make< Watcher >( *row, name, log );
      made->watchLevel();
      return made;
   }

   Log log;
   Ptr< Row > row = Lum::make< Row >();
   Ptr< Watcher > a = watcher( "a" ), b = watcher( "b" ), c = watcher( "c" );
};

TEST_F( Delivery, GoesInOrderOfSubscriptionAndOnlyOnARealChange ) {
   row->levelIs( 1 );
   row->levelIs( 1 );
   row->changeCountInc();
   EXPECT_THAT( log, ElementsAre( "a 1", "b 1", "c 1" ) );
}

TEST_F( Delivery, WhenAHandlerSetsTheAttributeAgainLaterOnesSeeTheNewestTwice ) {
   b->then = [ this ] { row->levelIs( 2 ); };
   row->levelIs( 1 );
   EXPECT_THAT( log, ElementsAre( "a 1", "b 1", "a 2", "b 2", "c 2", "c 2" ) );
}

TEST_F( Delivery, WhenAHandlerSubscribesTheNewOneHearsTheNextChange ) {
   Ptr< Watcher > d;
   c->then = [ & ] { d = watcher( "d" ); };
   row->levelIs( 1 );
   EXPECT_THAT( log, ElementsAre( "a 1", "b 1", "c 1" ) );
   log.clear();
   row->levelIs( 2 );
   EXPECT_THAT( log, ElementsAre( "a 2", "b 2", "c 2", "d 2" ) );
}

TEST_F( Delivery, WhenAHandlerEndsSubscriptionsTheyHearNoMore ) {
   b->then = [ this ] {
      a->unwatchAll();
      b->unwatch( *row );
      c->unwatchAll();
   };
   row->levelIs( 1 );
   row->levelIs( 2 );
   EXPECT_THAT( log, ElementsAre( "a 1", "b 1" ) );
   b->watchLevel();
   row->levelIs( 3 );
   EXPECT_THAT( log, ElementsAre( "a 1", "b 1", "b 3" ) );
}

TEST_F( Delivery, WhenAHandlerDeletesTheEntityItLivesUntilAllHaveHeard ) {
   a->then = [ this ] { row = nullptr; };
   row->levelIs( 1 );
   EXPECT_THAT( log, ElementsAre( "a 1", "b 1", "c 1" ) );
   EXPECT_EQ( Lum::census().count( "LumTest::Row" ), 0u );
   a->unwatchAll();
}

TEST_F( Delivery, WhenAHandlerDeletesItsOwnerTheDeliveryGoesOn ) {
   const auto other = Lum::make< Row >();
   b->then = [ this ] {
      b = nullptr;
      EXPECT_EQ( Lum::census()[ "LumTest::Watcher" ], 3u );
   };
   row->levelIs( 1 );
   EXPECT_EQ( Lum::census()[ "LumTest::Watcher" ], 2u );
   row->levelIs( 2 );
   EXPECT_THAT( log, ElementsAre( "a 1", "b 1", "c 1", "a 2", "c 2" ) );
}

TEST_F( Delivery, WhenAHandlerChangesTheCollectionTheKeyInHandStaysValid ) {
   for ( const auto & w : { a, b } ) {
      w->unwatchAll();
      w->watchEntries();
   }
   const std::string key = "a key too long to be kept inside of the string object";
   a->then = [ & ] {
      row->entryDelAll();
      for ( int i = 0; i < 100; ++i ) {
         row->entryIs( "x", i );
         row->entryDel( "x" );
      }
      log.clear();
      row->entryIs( "y", 1 );
   };
   row->entryIs( key, 1 );
   EXPECT_THAT( log, ElementsAre( "a y=1", "b y=1", "b " + key + "=gone" ) );
   EXPECT_EQ( a->keyAfterwards, key );
   EXPECT_EQ( b->keyAfterwards, key );
}

TEST_F( Delivery, RemovingAllEntriesOutlivesTheEntitysLastUser ) {
   a->watchEntries();
   row->entryIs( "p", 1 );
   row->entryIs( "q", 2 );
   log.clear();
   a->then = [ this ] { row = nullptr; };
   row->entryDelAll();
   EXPECT_THAT( log, ElementsAre( "a p=gone", "a q=gone" ) );
}

TEST_F( Delivery, WhenAHandlerThrowsTheChangeStandsAndTheNextOneReachesAll ) {
   b->then = [ this ] {
      c = nullptr;
      throw std::range_error( "refused" );
   };
   EXPECT_THROW( row->levelIs( 1 ), std::range_error );
   row->levelIs( 2 );
   EXPECT_THAT( log, ElementsAre( "a 1", "b 1", "a 2", "b 2" ) );
}

TEST_F( Delivery, AWatcherOfEverythingHearsFirst ) {
   c->watchAll();
   row->levelIs( 1 );
   row->entryIs( "k", 5 );
   row->changeCountInc();
   EXPECT_THAT( log, ElementsAre( "c level", "a 1", "b 1", "c 1", "c entry", "c changeCount" ) );
}

/// Handlers subscribe, end and delete each other at random, to a depth of a few nested changes.
class Storm {
 public:
   explicit Storm( unsigned seed ) : random_( seed ) {}

   void run() {
      first_ = permanent();
      for ( int i = 0; i < 8; ++i ) {
         mayComeOrGo();
      }
      last_ = permanent();
      for ( int step = 0; step < 300; ++step ) {
         change();
         mayComeOrGo();
      }
      EXPECT_EQ( heardFirst_, changes_ );
      EXPECT_EQ( heardLast_, changes_ );
   }

 private:
   class Member : public Lum::Reactor {
      LUM_ENTITY( LumTest, Member );
      Member( Storm & storm, int * heard ) : storm_( storm ), heard_( heard ) {
         LUM_WATCH( storm_.row_, level, handleLevel );
      }
      void doPrepareToDie() override { ended_ = true; }

    private:
      void handleLevel() {
         EXPECT_FALSE( ended_ );
         if ( heard_ ) {
            ++*heard_;
         }
         storm_.mayComeOrGo();
         storm_.mayChange();
      }

      Storm & storm_;
      int * heard_;
      bool ended_ = false;
   };

   Ptr< Member > permanent() {
      return Lum::make< Member >( *this, first_ ? &heardLast_ : &heardFirst_ );
   }
   bool chance( int percent ) { return static_cast< int >( random_() % 100 ) < percent; }
   void change() {
      ++depth_;
      ++changes_;
      row_->levelIs( row_->level() + 1 );
      --depth_;
   }
   void mayChange() {
      if ( depth_ < 4 && chance( 15 ) ) {
         change();
      }
   }
   void mayComeOrGo() {
      if ( chance( 50 ) && members_.size() < 40 ) {
         members_.push_back( Lum::make< Member >( *this, nullptr ) );
      } else if ( chance( 60 ) && !members_.empty() ) {
         const auto at = members_.begin() + static_cast< long >( random_() % members_.size() );
         Ptr< Member > leaving = *at;
         members_.erase( at );
         Lum::retire( leaving );
      }
   }

   std::mt19937 random_;
   Ptr< Row > row_ = Lum::make< Row >();
   std::vector< Ptr< Member > > members_;
   Ptr< Member > first_, last_;
   int depth_ = 0, changes_ = 0, heardFirst_ = 0, heardLast_ = 0;
};

TEST( DeliveryStorm, WhoWatchesThroughoutHearsEachChangeAndWhoEndedHearsNone ) {
   const auto before = Lum::census();
   for ( unsigned seed = 1; seed <= 50; ++seed ) {
      SCOPED_TRACE( seed );
      Storm( seed ).run();
   }
   EXPECT_EQ( Lum::census(), before );
}

class Child : public Lum::Reactor {
   LUM_ENTITY( LumTest, Child );
   Child( std::string name, Log & log ) : name_( std::move( name ) ), log_( log ) {}
   void handleInitialized() override { log_.push_back( "start " + name_ ); }
   void doPrepareToDie() override { log_.push_back( "end " + name_ ); }

 private:
   std::string name_;
   Log & log_;
};

class Parent : public Lum::Reactor {
   LUM_ENTITY( LumTest, Parent );
   LUM_CHILD( only, Child );
   LUM_CHILDREN( child, int, Child );
   void refuseChildren() { LUM_WATCH_KEYS( Ptr< Parent >( this ), child, childDel ); }
};

TEST( Children, StartInPlaceAndEndInKeyOrder ) {
   Log log;
   const auto parent = Lum::make< Parent >();
   parent->childIs( 2, new Child( "two", log ) );
   parent->childIs( 1, new Child( "one", log ) );
   parent->childIs( 2, new Child( "newer two", log ) );
   parent->onlyIs( "only", log );
   EXPECT_EQ( Lum::census()[ "LumTest::Child" ], 3u );
   parent->onlyDel();
   parent->childDelAll();
   EXPECT_THAT( log, ElementsAre( "start two", "start one", "end two", "start newer two",
                                  "start only", "end only", "end one", "end newer two" ) );
   parent->refuseChildren();
   log.clear();
   parent->childIs( 3, new Child( "refused", log ) );
   EXPECT_THAT( log, ElementsAre( "end refused" ) );
   EXPECT_EQ( Lum::census().count( "LumTest::Child" ), 0u );
}

LUM_BOUNDED( Index, std::uint8_t, 0, 7 );
LUM_BOUNDED( Delta, int, -3, 3 );
LUM_ENUM( Colour, std::uint8_t, red, green, blue );

struct Leg {
   LUM_VALUE( LumTest, Leg );
   LUM_FIELD( name, Lum::String );
   LUM_FIELD( colour, Colour );
   LUM_FIELD( fast, bool );
};

struct Trip {
   LUM_VALUE( LumTest, Trip );
   LUM_LIST( leg, Index, Leg );
   LUM_SET( tag, std::uint32_t );
   LUM_FIELD( name, Lum::String );
   LUM_FIELD( delay, std::optional< std::uint32_t > );
};

TEST( Values, HaveAStringMadeOfTheirFields ) {
   Trip trip;
   trip.nameIs( "x" );
   trip.tagIs( 9 );
   trip.tagIs( 3 );
   trip.legIs( 1, Leg{ "a", green(), true } );
   EXPECT_EQ( Lum::valueString( trip ),
              "Value('LumTest::Trip', ** {'leg': ["
              "Value('LumTest::Leg', ** {'name': , 'colour': red, 'fast': False}), "
              "Value('LumTest::Leg', ** {'name': a, 'colour': green, 'fast': True})], "
              "'tag': [3, 9], 'name': x, 'delay': None})" );
}

TEST( Values, EqualityOrderAndHashSeeEveryFieldInItsOrder ) {
   // Ascending: a later field counts only where the earlier ones are equal.
   std::vector< Trip > trips( 8 );
   trips[ 1 ].delayIs( 0 );
   trips[ 2 ].nameIs( "b" );
   trips[ 3 ].tagIs( 1 );
   trips[ 4 ].legIs( 0, Leg() );
   trips[ 5 ].legIs( 0, Leg{ "", red(), true } );
   trips[ 6 ].legIs( 0, Leg{ "", blue(), false } );
   trips[ 7 ].legIs( 0, Leg{ "a", red(), false } );
   std::set< std::size_t > hashes;
   for ( std::size_t i = 0; i < trips.size(); ++i ) {
      for ( std::size_t j = 0; j < trips.size(); ++j ) {
         EXPECT_EQ( trips[ i ] <=> trips[ j ], i <=> j ) << i << " " << j;
      }
      hashes.insert( Lum::hashOf( trips[ i ] ) );
      EXPECT_EQ( Lum::hashOf( Trip( trips[ i ] ) ), Lum::hashOf( trips[ i ] ) );
   }
   EXPECT_EQ( hashes.size(), trips.size() );
}

TEST( ListStorm, WhatIsWrittenToACopyShowsThereAlone ) {
   std::mt19937 random( 5 );
   const auto pick = [ & ]( std::size_t below ) { return random() % below; };
   using Peer = std::vector< std::string >;
   std::vector< std::pair< Lum::List< Index, std::string >, Peer > > all( 5 );
   for ( int step = 0; step < 4000; ++step ) {
      auto & [ list, peer ] = all[ pick( all.size() ) ];
      const std::size_t at = pick( Index::max + 1u );
      const std::string text( pick( 40 ), static_cast< char >( 'a' + pick( 3 ) ) );
      switch ( pick( 6 ) ) {
      case 0: all[ pick( all.size() ) ] = { list, peer }; break;
      case 1:
         list.set( at, text );
         peer.resize( std::max( peer.size(), at + 1 ) );
         peer[ at ] = text;
         break;
      case 2:
         list.erase( at );
         peer.erase( peer.begin() + static_cast< long >( std::min( at, peer.size() ) ),
                     peer.begin() + static_cast< long >( std::min( at + 1, peer.size() ) ) );
         break;
      case 3: list.reserve( at ); break;
      case 4:
         if ( pick( 4 ) == 0 ) {
            list.clear();
            peer.clear();
         }
         break;
      default:
         if ( peer.size() <= Index::max ) {
            list.push( text );
            peer.push_back( text );
         }
      }
      const auto & [ other, otherPeer ] = all[ pick( all.size() ) ];
      ASSERT_EQ( list == other, peer == otherPeer );
      ASSERT_EQ( list <=> other, peer <=> otherPeer );
      for ( const auto & [ one, its ] : all ) {
         ASSERT_EQ( Peer( one.begin(), one.end() ), its );
      }
   }
}

TEST( RareMaps, AreOrderedMapsWhoseCopiesAreTheirOwn ) {
   std::mt19937 random( 5 );
   using Peer = std::map< int, std::string >;
   std::vector< std::pair< Lum::RareMap< int, std::string >, Peer > > all( 3 );
   for ( int step = 0; step < 2000; ++step ) {
      auto & [ map, peer ] = all[ random() % all.size() ];
      const int key = static_cast< int >( random() % 4 );
      if ( step % 7 == 0 ) {
         all[ random() % all.size() ] = { map, peer };
      } else if ( random() % 2 ) {
         const auto [ at, fresh ] = map.try_emplace( key );
         ASSERT_EQ( fresh, !peer.contains( key ) );
         at->second = peer[ key ] = std::to_string( step );
      } else {
         const auto node = map.extract( key );
         ASSERT_EQ( node.empty() ? "" : node.mapped(), peer.contains( key ) ? peer[ key ] : "" );
         peer.erase( key );
      }
      for ( const auto & [ one, its ] : all ) {
         ASSERT_EQ( Peer( one.begin(), one.end() ), its );
         ASSERT_EQ( one.empty(), its.empty() );
      }
   }
}

/// The same, whatever is put in and taken out, moved and copied.
template< class T >
void
comparePackedVectors( const std::function< T( unsigned ) > & element ) {
   std::mt19937 random( 5 );
   const auto pick = [ & ]( std::size_t below ) { return static_cast< long >( random() % below ); };
   using Peer = std::vector< T >;
   std::vector< std::pair< Lum::PackedVector< T >, Peer > > all( 3 );
   for ( int step = 0; step < 4000; ++step ) {
      auto & [ vector, peer ] = all[ static_cast< std::size_t >( pick( 3 ) ) ];
      auto & [ other, otherPeer ] = all[ static_cast< std::size_t >( pick( 3 ) ) ];
      const long from = pick( peer.size() + 1 );
      const long to = from + pick( peer.size() - static_cast< std::size_t >( from ) + 1 );
      switch ( pick( 8 ) ) {
      case 0:
         std::swap( vector, other );
         std::swap( peer, otherPeer );
         break;
      case 1:
         vector = Lum::PackedVector< T >( otherPeer );
         peer = Peer( otherPeer );
         break;
      case 2:
      case 3:
         vector.erase( vector.begin() + from, vector.begin() + to );
         peer.erase( peer.begin() + from, peer.begin() + to );
         break;
      case 4:
         vector.clear();
         peer.clear();
         break;
      default:
         peer.insert( peer.begin() + from, element( random() ) );
         vector.insert( vector.begin() + from, peer[ static_cast< std::size_t >( from ) ] );
      }
      for ( const auto & [ one, its ] : all ) {
         ASSERT_EQ( Peer( one.begin(), one.end() ), its );
         ASSERT_EQ( one.empty(), its.empty() );
      }
   }
}

TEST( PackedVectors, HoldWhatVectorsHold ) {
   comparePackedVectors< unsigned >( []( unsigned n ) { return n; } );
   std::array< Row, 3 > rows;
   comparePackedVectors< Row * >( [ & ]( unsigned n ) { return &rows[ n % rows.size() ]; } );
}

TEST( SharedStrings, AreTextsOfWhichEqualOnesAreOne ) {
   std::mt19937 random( 5 );
   std::vector< std::pair< Lum::SharedString, std::string > > all( 6 );
   for ( int step = 0; step < 2000; ++step ) {
      auto & [ text, peer ] = all[ random() % all.size() ];
      const auto & [ other, otherPeer ] = all[ random() % all.size() ];
      if ( random() % 2 ) {
         text = other;
         peer = std::string( otherPeer );
      } else {
         peer = std::string( random() % 3 * 10, static_cast< char >( 'a' + random() % 2 ) );
         text = peer;
      }
      for ( const auto & [ one, its ] : all ) {
         ASSERT_EQ( one.stringValue(), its );
         ASSERT_EQ( one.empty(), its.empty() );
         ASSERT_EQ( one == text, its == peer );
         ASSERT_EQ( one <=> text, its <=> peer );
         ASSERT_EQ( one.hash() == text.hash(), its == peer );
         ASSERT_EQ( &one.stringValue() == &text.stringValue(), its == peer );
      }
   }
}

TEST( BoundedTypes, NameThemselvesWhenOutOfRange ) {
   using testing::ThrowsMessage;
   for ( const int value : { 8, -1, 256 } ) {
      EXPECT_THAT( [ = ] { Index{ value }; },
                   ThrowsMessage< std::range_error >(
                      "Index::value < Index::min or > Index::max not allowed" ) );
   }
   EXPECT_THAT( [] { Delta{ -4 }; }, ThrowsMessage< std::range_error >(
                                        "Delta::value < Delta::min or > Delta::max not allowed" ) );
   EXPECT_EQ( Index( 7 ).value() + Delta( -3 ).value(), 4 );
   Lum::List< Index, int > list;
   list.set( 7, 1 );
   EXPECT_THROW( list.push( 8 ), std::range_error );
}

}
