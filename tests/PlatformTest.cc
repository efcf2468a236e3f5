// The ground floor as the agent leans on it: the loop and its tasks in order of time, shared
// values that live while somebody holds them, numbers, mounts of state, and a dump that no reader
// can hold up.

#include "platform/Corvdb/EntityManager.h"
#include "platform/Kiv/DedupTable.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Kiv/NumAllocator.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/LumZorch/Mount.h"
#include "schema/CspfStatus.h"
#include "schema/Types.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <random>
#include <set>
#include <unistd.h>

using testing::ElementsAre;

namespace {

/// A shared word.
class Word : public Kiv::DedupHandle {
   LUM_ENTITY( Test, Word );
   explicit Word( std::string text ) : text( std::move( text ) ) {}
   std::size_t hash() const override { return text.size(); }
   std::strong_ordering compare( const Kiv::DedupHandle & other ) const override {
      return text <=> static_cast< const Word & >( other ).text;
   }
   const std::string text;
};

class Diary : public Kiv::DedupLifeTimeNotifiee {
   LUM_ENTITY( Test, Diary );
   void handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) override {
      lines.push_back( "+" + static_cast< const Word & >( *handle ).text );
   }
   void handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) override {
      lines.push_back( "-" + static_cast< const Word & >( *handle ).text );
   }
   std::vector< std::string > lines;
};

struct Platform : testing::Test {
   Platform() { Schema::registerTypes( types ); }

   Lum::ActivityLoop loop{ Lum::ActivityLoop::Time::virtualTime };
   Corvdb::TypeRegistry types;
   Corvdb::StateStore state{ types };
   Zorch::TableStore tables{ types };
   Lum::Ptr< Kiv::TaskScheduler > scheduler = Lum::make< Kiv::TaskScheduler >( loop );
};

}

TEST_F( Platform, tasksRunOnceInOrderOfDeadlineThenOfArming ) {
   std::vector< std::string > ran;
   const auto task = [ & ]( const char * name ) {
      return std::make_unique< Kiv::Task >( scheduler, name,
                                            [ &ran, name ] { ran.push_back( name ); } );
   };
   const auto late = task( "late" ), first = task( "first" ), second = task( "second" ),
              moved = task( "moved" ), dropped = task( "dropped" );
   late->schedule( 2 );
   moved->schedule( 1 );
   first->schedule( 1 );
   second->schedule( 1 );
   dropped->schedule( 1 );
   moved->schedule( 3 );
   dropped->unschedule();
   EXPECT_TRUE( ran.empty() );
   EXPECT_THAT( scheduler->pendingNames(), ElementsAre( "first", "late", "moved", "second" ) );
   loop.advance( 1 );
   EXPECT_THAT( ran, ElementsAre( "first", "second" ) );
   EXPECT_TRUE( loop.settle() );
   EXPECT_THAT( ran, ElementsAre( "first", "second", "late", "moved" ) );
   EXPECT_EQ( scheduler->pending(), 0u );
   EXPECT_DOUBLE_EQ( Lum::now(), Lum::VirtualClock::start + 3 );
}

TEST_F( Platform, aTaskMayScheduleItselfOrEndItself ) {
   int runs = 0;
   std::unique_ptr< Kiv::Task > again, last;
   again = std::make_unique< Kiv::Task >( scheduler, "again", [ & ] {
      if ( ++runs < 5 ) {
         again->schedule( 0 );
      } else {
         again.reset();
      }
   } );
   again->schedule();
   EXPECT_TRUE( loop.settle() );
   EXPECT_EQ( runs, 5 );
   EXPECT_EQ( again, nullptr );
   last = std::make_unique< Kiv::Task >( scheduler, "last", [ & ] { last->schedule( 1 ); } );
   last->schedule();
   EXPECT_FALSE( loop.settle( 100 ) );  // never comes to rest, and is given up
}

TEST( RealLoop, delaysCountFromTheTimeAsItIsAndManyDueTasksLeaveTurnsToDescriptors ) {
   Lum::ActivityLoop real( Lum::ActivityLoop::Time::real );
   const auto realScheduler = Lum::make< Kiv::TaskScheduler >( real );
   int turns = 0, toRun = 20;
   std::vector< std::unique_ptr< Kiv::Task > > tasks;
   Kiv::Task late( realScheduler, "late", [ &real ] { real.stop(); } );
   for ( int i = 0; i < toRun; ++i ) {
      tasks.push_back( std::make_unique< Kiv::Task >( realScheduler, "long", [ & ] {
         const Lum::Seconds begin = Lum::RealClock::read();
         while ( Lum::RealClock::read() < begin + 0.005 ) {
         }
         if ( --toRun == 0 ) {
            late.schedule( 3600 );
            EXPECT_GT( real.nextDeadline(), real.now() + 3600.004 );
            late.schedule();
         }
      } ) );
      tasks.back()->schedule();
   }
   int ends[ 2 ];
   ASSERT_EQ( pipe( ends ), 0 );
   real.fdIs( ends[ 1 ], EPOLLOUT, [ & ]( std::uint32_t ) { ++turns; } );
   real.run();
   EXPECT_GE( turns, 3 );
   real.fdDel( ends[ 1 ] );
   close( ends[ 0 ] );
   close( ends[ 1 ] );
}

TEST_F( Platform, equalValuesAreOneWhileSomebodyHoldsThem ) {
   for ( const bool unordered : { false, true } ) {
      Kiv::DedupTable< Word > table;
      table.DedupHashTableUnorderedSetIs( unordered );
      const auto diary = Lum::make< Diary >();
      table.lifeTimeNotifieeIs( diary );
      auto a = table.dedup( Lum::make< Word >( "path" ) );
      auto b = table.dedup( Lum::make< Word >( "path" ) );
      auto c = table.dedup( Lum::make< Word >( "hops" ) );  // same hash
      EXPECT_EQ( a, b );
      EXPECT_NE( a, c );
      EXPECT_EQ( table.size(), 2u );
      a = nullptr;
      EXPECT_THAT( diary->lines, ElementsAre( "+path", "+hops" ) );
      b = nullptr;
      EXPECT_THAT( diary->lines, ElementsAre( "+path", "+hops", "-path" ) );
      EXPECT_EQ( table.size(), 1u );
      // The same content again is a new one, older than none.
      const auto d = table.dedup( Lum::make< Word >( "path" ) );
      EXPECT_GT( d->serial(), c->serial() );
      table.detach();
      EXPECT_EQ( diary->lines.size(), 4u );
   }
}

TEST_F( Platform, numbersComeFreshFirstAndEachIsOutOnce ) {
   const auto config = Lum::make< Kiv::NumAllocatorConfig >( Kiv::Range{ 5, 104 } );
   const auto status = Lum::make< Kiv::NumAllocatorStatus >();
   Kiv::NumAllocator numbers( config, status );
   std::mt19937 random( 2 );
   std::set< std::uint64_t > out, seen;
   for ( int i = 0; i < 20'000; ++i ) {
      if ( random() % 100 < ( i < 10'000 ? 60u : 40u ) ) {
         const std::uint64_t number = numbers.getNumber();
         ASSERT_EQ( number == numbers.invalidNumber(), out.size() == 100 );
         if ( out.size() < 100 ) {
            // Fresh ones go first, in rising order.
            ASSERT_TRUE( seen.size() == 100 ? seen.contains( number ) : number == 5 + seen.size() );
            ASSERT_TRUE( out.insert( number ).second );
            seen.insert( number );
         }
      } else if ( !out.empty() ) {
         const auto back = std::next( out.begin(), static_cast< long >( random() % out.size() ) );
         numbers.releaseNumber( *back );
         out.erase( back );
      }
      ASSERT_EQ( status->inUse(), out.size() );
   }
   EXPECT_DEATH( numbers.releaseNumber( 1 ), "" );
}

TEST_F( Platform, anAgentSeesWhatItMountedAndStateOutlivesIt ) {
   Corvdb::MountStatus status = Corvdb::MountStatus::badMode;
   auto manager = Lum::make< Corvdb::EntityManager >( state, tables, scheduler );
   state.entityIs< Cspf::AgentStatus >( "te/cspf/agentStatus" )->agentEnabledIs( true );
   const auto & group = manager->mountGroup( "agent" );
   group->mountIs( "te/cspf/agentStatus", "Cspf::AgentStatus", "w" );
   group->mountIs( "te/cspf/client/", "Lum::Dir", "ri" );
   group->closeIs( [ & ]( Corvdb::MountStatus result, const auto & ) { status = result; } );
   EXPECT_EQ( status, Corvdb::MountStatus::badMode );  // not inside of the call
   EXPECT_TRUE( loop.settle() );
   EXPECT_EQ( status, Corvdb::mountSuccess_ );
   EXPECT_TRUE( manager->entity< Cspf::AgentStatus >( "te/cspf/agentStatus" )->agentEnabled() );
   state.entityIs( "te/cspf/client/rsvp", "Cspf::Client" );
   state.entityIs( "te/secret", "Cspf::Client" );
   EXPECT_TRUE( manager->entity( "te/cspf/client/rsvp" ) );
   EXPECT_FALSE( manager->entity( "te/cspf/client/rsvp2" ) );
   EXPECT_FALSE( manager->entity( "te/secret" ) );
   EXPECT_FALSE( manager->entity< Lum::Dir >( "te/cspf/agentStatus" ) );
   manager = nullptr;
   EXPECT_TRUE( state.entity( "te/cspf/client/rsvp" ) );
}

TEST_F( Platform, aMountThatCannotBeIsSaidSo ) {
   const auto statusOf = [ & ]( const char * path, const char * type, const char * mode ) {
      auto manager = Lum::make< Corvdb::EntityManager >( state, tables, scheduler );
      Corvdb::MountStatus status = Corvdb::mountSuccess_;
      manager->mountGroup( "agent" )->mountIs( path, type, mode );
      manager->mountGroup( "agent" )->closeIs(
         [ & ]( Corvdb::MountStatus result, const auto & ) { status = result; } );
      loop.settle();
      EXPECT_EQ( status == Corvdb::mountSuccess_, manager->mountGroup( "agent" )->error().empty() );
      return status;
   };
   state.entityIs( "te/config", "TrafficEngineering::Config" );
   using enum Corvdb::MountStatus;
   EXPECT_EQ( statusOf( "te/config", "TrafficEngineering::Config", "x" ), badMode );
   EXPECT_EQ( statusOf( "te/config", "No::Such", "r" ), unknownType );
   EXPECT_EQ( statusOf( "te/config", "Cspf::Client", "r" ), otherType );
   EXPECT_EQ( statusOf( "te/config", "TrafficEngineering::Config", "r" ), success );
}

TEST_F( Platform, tablesLiveByTheirWritersAndReaders ) {
   const std::string read = "a/read", written = "a/written", stays = "a/stays", other = "ab/other";
   auto manager = Lum::make< Corvdb::EntityManager >( state, tables, scheduler );
   LumZorch::Mount mount( manager );
   tables.alwaysIs( stays, "Cspf::Status" );
   using LumZorch::MountMode;
   EXPECT_TRUE( mount.mount( { read, "Cspf::Status", MountMode::reader } ) );
   EXPECT_TRUE( mount.mount( { read, "Cspf::Status", MountMode::reader } ) );
   EXPECT_TRUE( mount.mount( { written, "Cspf::Status", MountMode::writer } ) );
   EXPECT_TRUE( mount.mount( { stays, "Cspf::Status", MountMode::reader } ) );
   EXPECT_TRUE( mount.mount( { other, "Cspf::Status", MountMode::writer } ) );
   EXPECT_FALSE( mount.mount( { written, "Cspf::Config", MountMode::reader } ) );
   EXPECT_FALSE( mount.mount( { "a/none", "No::Such", MountMode::reader } ) );
   EXPECT_THAT( mount.list( "a" ), ElementsAre( read, stays, written ) );
   mount.unmount( read );
   EXPECT_TRUE( mount.entity< Cspf::Status >( read ) );
   mount.unmount( read );
   EXPECT_THAT( tables.list( "a" ), ElementsAre( stays, written ) );
   manager = nullptr;
   mount = LumZorch::Mount( Lum::make< Corvdb::EntityManager >( state, tables, scheduler ) );
   EXPECT_THAT( tables.list( "a" ), ElementsAre( stays, written ) );  // as an earlier run left it
   EXPECT_FALSE( mount.entity< Cspf::Status >( written ) );
   mount.cleanup( written );
   EXPECT_THAT( tables.list( "" ), ElementsAre( stays, other ) );
}

TEST( Dump, indentsPrintsEachObjectOnceAndGoesOnWithoutAReaderWhoIsSlow ) {
   struct Thing {
      void dumpState( Kiv::DumpContext & context, int indent ) const {
         context.printf( indent, "%*cThing %d of %s\n", 7, "nine" );
      }
   };
   int ends[ 2 ];
   ASSERT_EQ( pipe( ends ), 0 );
   {
      Kiv::DumpContext context( ends[ 1 ] );
      const Thing thing;
      context.dump( thing, 0 );
      context.dump( thing, 2 );
      context.dumpDuplicatesIs( true );
      context.dump( thing, 4 );
      for ( int i = 0; i < 500; ++i ) {
         context.printf( 0, "%s", std::string( 1000, 'x' ).c_str() );
      }
   }
   close( ends[ 1 ] );
   std::string text( 1'000'000, ' ' );
   std::size_t length = 0;
   for ( ssize_t n; ( n = read( ends[ 0 ], &text[ length ], text.size() - length ) ) > 0; ) {
      length += static_cast< std::size_t >( n );
   }
   close( ends[ 0 ] );
   EXPECT_LT( length, 500'000u );
   EXPECT_THAT( text, testing::StartsWith( "Thing 7 of nine\n    Thing 7 of nine\nxxx" ) );
}
