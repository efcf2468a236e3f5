// When a constraint is computed, and what its paths hear of it, on a virtual clock.

#include "Cspf/Runs/ConstraintInfoSm.h"
#include "tests/TopoStore.h"

#include <cmath>

using namespace Cspf;

namespace {

/// One constraint with the paths of a client, served by its machine.
struct Throttled {
   explicit Throttled( const char * topology, const InternalPathConstraint & constraint = {} )
      : store( topology ),
        held( constraints.dedup( constraint ) ),
        info( infoTable->constraintInfo( held ) ) {
      store.view = Lum::make< AllTopoTeDbView >( store.allTopoDb, store.status, constraint );
      machine = Lum::make< ConstraintInfoSm >( info, stats, store.view, context );
   }
   ~Throttled() { Lum::retire( machine ); }

   PathInfoKey pathIs( const std::string & dst ) {
      PathInfoKey key;
      key.clientNameIs( "cli" );
      key.pathKeyIs( { Destination( ip( dst ) ), 1 } );
      const auto path = Lum::make< PathStatusInfo >( key, status );
      path->constraintIs( held );
      path->refreshNeededIs( true );
      statusInfoTable->pathStatusInfoIs( key, path );
      cacheTable->pathStatusCacheIs( key, Lum::make< PathStatusCache >( key ) );
      info->pathIs( key, true );
      return key;
   }
   const PathStatusCache & cache( const PathInfoKey & key ) const {
      return *cacheTable->pathStatusCache( key );
   }
   void request( bool topologyChanged ) {
      if ( topologyChanged ) {
         info->topoInfoChangedAtIs( Lum::now() );
      }
      info->cspfRequestCountInc();
   }
   /// Milliseconds from now to the next run; 0 where the timer stops without one.
   long nextRun() {
      const std::uint32_t before = stats->cspfCount();
      const Lum::Seconds from = Lum::now();
      while ( stats->cspfCount() == before && scheduler->pending() ) {
         store.loop.advance( store.loop.nextDeadline() - Lum::now() );
      }
      return stats->cspfCount() == before ? 0 : std::lround( ( Lum::now() - from ) * 1000 );
   }

   TopoStore store;
   Lum::Ptr< Kiv::TaskScheduler > scheduler = Lum::make< Kiv::TaskScheduler >( store.loop );
   Lum::Ptr< CspfCliConfig > config = Lum::make< CspfCliConfig >();
   Lum::Ptr< ConstraintInfoTable > infoTable = Lum::make< ConstraintInfoTable >();
   DedupConstraintTable constraints{ infoTable };
   Lum::Ptr< DedupConstraint > held;
   Lum::Ptr< ConstraintInfo > info;
   Lum::Ptr< ConstraintStats > stats = Lum::make< ConstraintStats >();
   Lum::Ptr< PathStatusInfoTable > statusInfoTable = Lum::make< PathStatusInfoTable >();
   Lum::Ptr< PathStatusCacheTable > cacheTable = Lum::make< PathStatusCacheTable >();
   Lum::Ptr< Status > status = Lum::make< Status >();
   ConstraintSmContext context{ config, scheduler, statusInfoTable, cacheTable, store.memory };
   Lum::Ptr< ConstraintInfoSm > machine;
};

TEST( ConstraintInfoSm, holdsDownLongerWhileTheTopologyKeepsChanging ) {
   Throttled t( "A -10- B" );
   for ( int i = 0; i < 3; ++i ) {
      t.request( true );
   }
   EXPECT_EQ( t.nextRun(), 50 );
   t.request( false );
   EXPECT_EQ( t.nextRun(), 200 );
   for ( const long delay : { 200, 400, 800, 1600, 3200, 5000, 5000 } ) {
      t.store.loop.advance( 0.05 );
      t.request( true );
      t.request( true );
      EXPECT_EQ( t.nextRun(), delay - 50 );
   }
   EXPECT_EQ( t.stats->cspfCount(), 9u );
   EXPECT_EQ( t.nextRun(), 0 ) << "nobody asks any more";
   EXPECT_FALSE( t.machine->timerRunning() );
   EXPECT_EQ( t.stats->cspfCurrentDelay(), 50 );
   t.request( true );
   EXPECT_EQ( t.nextRun(), 50 );
}

TEST( ConstraintInfoSm, newIntervalsCountFromTheNextExpiry ) {
   Throttled t( "A -10- B" );
   t.config->initialIntIs( 10 );
   t.request( true );
   t.config->initialIntIs( 30 );
   EXPECT_EQ( t.nextRun(), 10 );
   t.request( false );
   EXPECT_EQ( t.nextRun(), 30 );
   EXPECT_EQ( t.nextRun(), 0 );
   t.request( false );
   EXPECT_EQ( t.nextRun(), 30 );
   t.request( false );
   EXPECT_EQ( t.nextRun(), 30 ) << "without a change of the topology the delay stays";
}

TEST( ConstraintInfoSm, changesThatTheRunSawDoNotHoldDownTheNext ) {
   Throttled t( "A -10- B" );
   t.config->initialIntIs( 0 );
   t.request( false );
   t.store.loop.advance( 0 );
   ASSERT_EQ( t.stats->cspfCount(), 1u );
   const Lum::Seconds changedAt = t.store.status->topoChangedAt();
   ASSERT_GT( changedAt, Lum::now() ) << "many changes of one instant";
   t.config->initialIntIs( 50 );
   t.info->topoInfoChangedAtIs( changedAt );
   t.request( false );
   EXPECT_EQ( t.stats->cspfCurrentDelay(), 50 );
}

TEST( ConstraintInfoSm, onePassAnswersAllPathsAndTellsThoseThatWait ) {
   Throttled t( "A -10- B -10- C; A -10> D" );
   const PathInfoKey b = t.pathIs( "10.0.0.2" ), c = t.pathIs( "10.0.0.3" ),
                     d = t.pathIs( "10.0.0.4" );
   t.statusInfoTable->pathStatusInfo( b )->refreshNeededIs( false );
   t.request( true );
   t.nextRun();
   EXPECT_EQ( text( t.cache( b ).path()->path() ), "10.64.0.3" );
   EXPECT_EQ( text( t.cache( c ).path()->path() ), "10.64.0.3 10.64.0.5" );
   EXPECT_EQ( t.cache( d ).path()->hopCount(), 0u );
   EXPECT_EQ( t.cache( b ).refreshedStage1Count(), 0u );
   EXPECT_EQ( t.cache( c ).refreshedStage1Count(), 1u );
   EXPECT_EQ( t.status->pathError( c.pathKey() ), "" );
   EXPECT_EQ( t.status->pathError( d.pathKey() ), "no path found for tep 10.0.0.4" );
   EXPECT_EQ( t.cache( c ).cspfData(), t.info->cspfData() );
   EXPECT_FALSE( t.info->cspfData()->hasTree() ) << "trees are not kept";
   t.info->pathDel( c );
   EXPECT_FALSE( t.cache( c ).cspfData() );

   t.store.sourceId->vrfClientSourceIdDel( PathComputationType::cspf );
   t.request( true );
   t.store.loop.advance( 60 );
   EXPECT_TRUE( t.info->sourceMissing() );
   EXPECT_EQ( t.stats->cspfCount(), 1u );
   EXPECT_EQ( t.cache( b ).path()->hopCount(), 0u );
   EXPECT_FALSE( t.cache( b ).cspfData() );
}

/// Asks once more as soon as it hears of its result.
class Insatiable : public Lum::Reactor {
   LUM_ENTITY( Test, Insatiable );
   Insatiable( Throttled & t, const PathInfoKey & key ) : t_( t ) {
      LUM_WATCH( t.cacheTable->pathStatusCache( key ), refreshedStage1Count, handleRefreshed );
   }
   void handleRefreshed() {
      if ( t_.stats->cspfCount() == 1 ) {
         t_.request( false );
      }
   }

 private:
   Throttled & t_;
};

TEST( ConstraintInfoSm, aRequestMadeByAResultIsServed ) {
   Throttled t( "A -10- B" );
   const auto watcher = Lum::make< Insatiable >( t, t.pathIs( "10.0.0.2" ) );
   t.request( true );
   EXPECT_EQ( t.nextRun(), 50 );
   EXPECT_EQ( t.nextRun(), 200 );
   EXPECT_EQ( t.nextRun(), 0 );
}

}
