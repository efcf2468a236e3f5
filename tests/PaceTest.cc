// Long work in slices beside an event loop.

#include "tools/pace/Queue.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

struct PaceTest : testing::Test {
   /// Counts the loop's turns by a timer that is always due.
   void count() {
      ++turns;
      loop.timerIs( loop.deadlineAfter( 0 ), [ this ] { count(); } );
   }
   /// Works until the loop has had that many turns more.
   void work( int more ) {
      for ( const int enough = turns + more; turns < enough; ) {
         Pace::breatheQuietly();
         Pace::breathe();
      }
   }
   /// Runs the job until it is over, and gives what it threw.
   std::exception_ptr run( Pace::Job::Work work ) {
      bool over = false;
      std::exception_ptr thrown;
      const Pace::Job job( loop, std::move( work ), [ & ]( const std::exception_ptr & failure ) {
         over = true;
         thrown = failure;
      } );
      while ( !over ) {
         loop.runOnce( 1 );
      }
      return thrown;
   }

   Lum::ActivityLoop loop{ Lum::ActivityLoop::Time::real };
   int turns = 0;
};

/// It becomes empty when the loop has had that many turns.
struct EmptyInTime {
   const int & turns;
   int enough;

   bool empty() const { return turns >= enough; }
   int begin() const { return 0; }
   void erase( int ) const {}
};

}

TEST_F( PaceTest, theLoopGoesOnBetweenSlices ) {
   count();
   int done = 0;
   EXPECT_EQ( run( [ & ] {
                 for ( ; done < 3; ++done ) {
                    work( 2 );
                 }
              } ),
              nullptr );
   EXPECT_EQ( done, 3 );
   Pace::breathe();  // outside of a job it is nothing
   const auto thrown = run( [ this ] {
      work( 1 );
      throw std::out_of_range( "what went wrong" );
   } );
   EXPECT_THROW( std::rethrow_exception( thrown ), std::out_of_range );
}

TEST_F( PaceTest, whatIsLargeIsTakenApartInSlices ) {
   count();
   run( [ this ] {
      EmptyInTime large{ turns, turns + 3 };
      Pace::takeApart( large );
      EXPECT_TRUE( large.empty() );
   } );
   EmptyInTime left{ turns, turns + 1 };
   Pace::takeApart( left );  // outside of a job it is nothing
   EXPECT_FALSE( left.empty() );
}

TEST_F( PaceTest, aJobThatIsGivenUpIsTakenApartWhereItStands ) {
   count();
   struct Sign {
      bool & gone;
      ~Sign() { gone = true; }
   };
   bool gone = false, ended = false;
   for ( const bool begun : { false, true } ) {
      bool isThere = false;
      {
         const Pace::Job job(
            loop,
            [ & ] {
               const Sign sign{ gone };
               isThere = true;
               work( 1'000'000 );
            },
            [ & ]( const std::exception_ptr & ) { ended = true; } );
         while ( begun && !isThere ) {
            loop.runOnce( 1 );
         }
      }
      EXPECT_EQ( gone, begun );
   }
   EXPECT_FALSE( ended );
}

TEST_F( PaceTest, whatComesBehindLongWorkIsDoneInItsOrderAndWhatIsBriefAtOnceOtherwise ) {
   using enum Pace::Queue::Length;
   count();
   std::string done;
   Pace::Queue queue( loop, [ & ] { done += '!'; } );
   const auto add = [ & ]( char name, int length ) {
      queue.add(
         [ &, name, length ] {
            work( length );
            done += name;
         },
         length == 0 ? brief : unknown );
   };
   loop.runOnce( 1 );  // a turn begins
   add( 'a', 0 );
   EXPECT_EQ( done, "a" );
   EXPECT_TRUE( queue.isEmpty() );
   add( 'b', 2 );
   add( 'c', 0 );
   add( 'd', 1 );
   EXPECT_EQ( done, "a" );
   while ( !queue.isEmpty() ) {
      loop.runOnce( 1 );
   }
   EXPECT_EQ( done, "abcd!" );
   add( 'e', 1'000'000 );
   add( 'f', 0 );
   loop.runOnce( 1 );
   queue.clear();
   loop.runOnce( 1 );
   EXPECT_TRUE( queue.isEmpty() );
   EXPECT_EQ( done, "abcd!" );
}
