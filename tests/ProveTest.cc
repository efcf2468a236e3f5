// The judge of what is published, on states that are right, and with one thing put wrong by hand.

#include "schema/BwUsage.h"
#include "tests/Lab.h"
#include "tests/RandomLab.h"
#include "tools/lab/LabFile.h"
#include "tools/prove/Proof.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

std::string
faults( TestLab & lab ) {
   std::string text;
   for ( const Prove::Fault & fault :
         Prove::prove( Prove::Snapshot::of( lab.state(), lab.tables() ) ).faults ) {
      text += fault.client + " " + fault.path + ": " + fault.text + "\n";
   }
   return text;
}

/// Publishes that in place of the path, as an agent that is wrong would.
void
publish( TestLab & lab, const std::string & client, const std::string & name,
         const std::function< void( Cspf::PathStatus & ) > & change ) {
   Cspf::PathStatus status = *lab.status( client, name );
   change( status );
   lab.statusTable( client )->pathStatusIs( status );
}

}

TEST( Prove, findsEachThingThatDoesNotHold ) {
   TestLab lab( "A -10{bw 100}- B -10{bw 100}- C; A -50{bw 100}- C; A -5- D" );
   lab.request( "cli", "best", "C" );
   lab.request( "cli", "direct", "C", { { "excludeIntf", "A-B.a" } }, { { "id", 2 } } );
   lab.request( "rsvp", "paid", "C", { { "bandwidth", 40 } } );
   lab.settle();
   EXPECT_EQ( faults( lab ), "" );
   const Cspf::PathStatus best = *lab.status( "cli", "best" );
   const Cspf::PathStatus direct = *lab.status( "cli", "direct" );
   const auto publishedAs = [ & ]( const std::string & name, const auto & change ) {
      const Cspf::PathStatus before = *lab.status( "cli", name );
      publish( lab, "cli", name, change );
      const std::string found = faults( lab );
      publish( lab, "cli", name, [ & ]( Cspf::PathStatus & status ) { status = before; } );
      return found;
   };
   const auto like = []( const Cspf::PathStatus & other ) {
      return [ other ]( Cspf::PathStatus & status ) {
         status.path_ = other.pathList();
         status.pathTeRouterId_ = other.pathTeRouterIdList();
         status.pathSrlg_ = other.pathSrlgList();
      };
   };
   EXPECT_EQ( publishedAs( "best", like( direct ) ),
              "cli 10.0.0.3#1: costs 50; the least cost is 20\n" );
   EXPECT_EQ( publishedAs( "best", like( {} ) ),
              "cli 10.0.0.3#1: has no hops; a path of cost 20 exists\n" );
   EXPECT_EQ( publishedAs( "direct", like( best ) ),
              "cli 10.0.0.3#2: hop 1, " + best.pathList()[ 0 ].stringValue()
                 + ": the link leaves by the excluded interface A-B.a\n" );
   EXPECT_EQ( publishedAs( "best",
                           []( Cspf::PathStatus & status ) {
                              status.path_.set( Cspf::HopIndex( 1 ), status.pathList()[ 0 ] );
                           } ),
              "cli 10.0.0.3#1: hop 2, " + best.pathList()[ 0 ].stringValue()
                 + ": there is no such hop to 10.0.0.3\n" );

   const auto accounts =
      Lum::cast< Cspf::BwUsageTable >( lab.tables().table( "te/cspf/bwUsage/vrf/default/ipv4" ) );
   const auto key = Lum::sortedKeys( accounts->bandwidthUsageColl() ).front();
   accounts->addBwUsageEntry( key, Cspf::BwPriority( 0 ), 7 );
   EXPECT_NE( faults( lab ).find( "7 at priority 0 are reserved, and no path needs them" ),
              std::string::npos );
   accounts->delBwUsageEntry( key, Cspf::BwPriority( 0 ), 7 );
   accounts->delBwUsageEntry( key, Cspf::BwPriority( 0 ), 40 );
   EXPECT_NE( faults( lab ).find( "40 at priority 0 are not reserved" ), std::string::npos );
   accounts->addBwUsageEntry( key, Cspf::BwPriority( 0 ), 40 );
}

TEST( Prove, sendsPacketsAlongRepairs ) {
   TestLab lab( "A -1- B -1- C -1- D -1- E -1- A; B -1- F",
                { { "clients",
                    { { "tilfa",
                        { { "vrf", { { "default", true } } },
                          { "addressFamily", { { "ipv4", true } } } } } } } } );
   lab.request( "tilfa", "toB", "B", { { "excludeIntf", "A-B.a" } } );
   lab.settle();
   ASSERT_NE( lab.status( "tilfa", "toB" )->repairPathIdx(), 0u );
   EXPECT_EQ( faults( lab ), "" );
   const auto table = lab.statusTable( "tilfa" );
   Cspf::PqInfo info = table->pqInfo( lab.status( "tilfa", "toB" )->repairPathIdx() );
   info.path_.clear();
   info.segment_.clear();
   table->pqInfoIs( info );  // E sends what is for B back through A
   EXPECT_NE( faults( lab ).find( "packets do not arrive" ), std::string::npos ) << faults( lab );
   publish( lab, "tilfa", "toB", []( Cspf::PathStatus & status ) { status.repairPathIdxIs( 0 ); } );
   EXPECT_NE( faults( lab ).find( "has no repair, which would need" ), std::string::npos );
}

TEST( Prove, sendsPacketsAlongRepairsOfLeastRisk ) {
   // Without the link's risk the way from N to V is E - S, from the far side.
   TestLab lab( "S -5{srlg 1}- E -1- D -50- V -1{srlg 1}- S -10- N -1{srlg 1}- E; N -12- V",
                { { "clients",
                    { { "tilfa",
                        { { "vrf", { { "default", true } } },
                          { "addressFamily", { { "ipv4", true } } } } } } },
                  { "router", "S" } } );
   lab.request( "tilfa", "toD", "D", { { "excludeIntf", "S-E.a" }, { "excludeSrlg", true } } );
   lab.settle();
   const std::uint32_t idx = lab.status( "tilfa", "toD" )->repairPathIdx();
   ASSERT_NE( idx, 0u );
   EXPECT_EQ( faults( lab ), "" );
   const auto table = lab.statusTable( "tilfa" );
   const Cspf::PqInfo info = table->pqInfo( idx );
   ASSERT_EQ( info.pathList().size(), 3u );
   Cspf::PqInfo shorter = info;
   shorter.path_.clear();
   shorter.segment_.clear();
   for ( std::size_t i = 1; i < 3; ++i ) {
      shorter.path_.push( info.pathList()[ i ] );
      shorter.segment_.push( i == 1 ? Cspf::RepairSegment() : info.segmentList()[ i ] );
   }
   table->pqInfoIs( shorter );
   EXPECT_NE( faults( lab ).find( "packets do not arrive" ), std::string::npos ) << faults( lab );
}

TEST( Prove, findsNoFaultWhereThereIsNone ) {
   std::size_t best = 0, absent = 0;
   for ( unsigned seed = 1; seed <= 60; ++seed ) {
      RandomLab random( seed );
      auto lab = TestLab::of( random.document() );
      for ( int round = 0; round < 3; ++round ) {
         lab.settle();
         const auto verdict = Prove::prove( Prove::Snapshot::of( lab.state(), lab.tables() ) );
         best += verdict.best;
         absent += verdict.absent;
         ASSERT_EQ( faults( lab ), "" ) << lab.document().dump();
         for ( int event = 0; event < 5; ++event ) {
            try {
               lab.patch( random.event( lab.document() ) );
            } catch ( const Lab::LabError & ) {
            }
         }
      }
   }
   EXPECT_GT( best, 80u );
   EXPECT_GT( absent, 300u );
}

/// A path may cross a link twice, and holds what it held while the router is nowhere.
TEST( Prove, findsNoFaultWithWhatAPathHoldsOnceForAll ) {
   TestLab lab( "A =lan1= B C" );
   const auto core = [ & ]( const Json & change ) {
      lab.patch( { { "topologies", { { "core", change } } } } );
      lab.settle();
   };
   const Json full{ { "bandwidth", 100 } };
   core( { { "lans", { { "lan1", { { "members", { { "A", full }, { "C", full } } } } } } } } );
   lab.request(
      "rsvp", "p", "B",
      { { "bandwidth", 40 },
        { "includeHop", { { { "addr", "10.0.0.3" } }, { { "addr", "10.128.1.1" } } } } } );
   lab.settle();
   ASSERT_EQ( lab.path( "rsvp", "p" ), "A C A B" );
   EXPECT_EQ( faults( lab ), "" );
   for ( const char * away : { "C", "A" } ) {
      core( { { "routers", { { away, { { "teRouterId", nullptr } } } } } } );
      EXPECT_EQ( faults( lab ), "" ) << away;
   }
}

TEST( Prove, findsNoFaultWithAPathOfWhichAStrictHopIsAway ) {
   TestLab lab( "A -10- B -10- C" );
   const auto prefix = [ & ]( const Json & metric ) {
      lab.patch(
         { { "topologies",
             { { "core",
                 { { "routers",
                     { { "B", { { "prefixes", { { "20.0.0.9/32", metric } } } } } } } } } } } } );
      lab.settle();
   };
   prefix( 1 );
   lab.request( "rsvp", "p", "C",
                { { "includeHop",
                    { { { "addr", "20.0.0.9" }, { "loose", false } },
                      { { "addr", "10.0.0.3" }, { "loose", false } } } } } );
   lab.settle();
   ASSERT_EQ( lab.path( "rsvp", "p" ), "A B C" );
   prefix( nullptr );
   ASSERT_EQ( lab.path( "rsvp", "p" ), "A B C" );
   EXPECT_EQ( faults( lab ), "" );
}
