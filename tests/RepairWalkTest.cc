// Repairs of links and nodes: random networks on which packets prove every repair of every link and
// node towards every router and prefix, and what random networks do not show.

#include "bench/RepairRuns.h"
#include "tests/GraphText.h"
#include "tests/RepairWalker.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Cspf;

namespace {

/// All repairs of one network are right.
void
judge( const RandomNetwork & network, bool tryAll, std::mt19937 & random, uint32_t & repairs ) {
   const GraphText text( network.text() );
   const CspfGraph & graph = text.graph;
   RepairWalker walker( graph );
   RepairRuns runs( graph );
   for ( uint32_t e = 0; e < graph.edgeBound(); ++e ) {
      if ( graph.kind( CspfEdge{ e } ) != CspfEdgeKind::routerToRouter
           || ( !tryAll && random() % 8 ) ) {
         continue;
      }
      for ( const bool isLink : { true, false } ) {
         runs.protect( CspfEdge{ e }, isLink );
         walker.resourceIs( { CspfEdge{ e }, isLink } );
         for ( uint32_t v = 0; v < network.routers; ++v ) {
            RepairWalker::Originators destination{ { CspfVertex{ v }, 0 } };
            for ( uint32_t i = v % 3; i > 0 && random() % 2; --i ) {  // a prefix, of several
               const auto router = static_cast< uint32_t >( random() % network.routers );
               destination.front().metric = static_cast< uint32_t >( random() % 5 );
               destination.push_back( { CspfVertex{ router }, uint32_t( random() % 12 ) } );
            }
            const auto found = runs.to( destination, random() );
            repairs += !found.empty();
            ASSERT_EQ( walker.fault( found, destination, tryAll ), "" )
               << ( isLink ? "link " : "node behind link " ) << e << " to " << v << " in "
               << network.text();
         }
      }
   }
}

TEST( RepairWalk, equalRepairsAreSpreadAndStay ) {
   const std::string common = "S -1- E -1- D; S -2- A -1- D; S -2- B -1- D; S -2- C -1- D";
   const auto choose = []( const std::string & network ) {
      GraphText text( network );
      RepairRuns runs( text.graph );
      runs.protect( text.edge( "S", "E" ), true );
      const RepairWalker::Originators destination{ { text.at( "D" ), 0 } };
      std::vector< std::string > chosen;
      for ( uint64_t key = 0; key < 300; ++key ) {
         chosen.push_back( text.name( runs.to( destination, key ).front().firstHop ) );
      }
      return chosen;
   };
   const auto all = choose( common ), fewer = choose( common.substr( 0, common.rfind( ';' ) ) );
   for ( const char * by : { "A", "B", "C" } ) {
      EXPECT_GT( std::ranges::count( all, by ), 60 );
   }
   for ( size_t key = 0; key < all.size(); ++key ) {
      EXPECT_TRUE( all[ key ] == "C" || fewer[ key ] == all[ key ] )
         << "a candidate that goes moves only its own destinations";
   }
}

TEST( RepairWalk, noRepairBeyondTheNodeLimit ) {
   // Every router of the chain is close to S and to E, but only in the direction that would use it.
   for ( const int length : { 7, 8 } ) {
      std::string network = "S -1- E; S -1- A0";
      for ( int i = 1; i < length; ++i ) {
         const std::string name = " A" + std::to_string( i );
         network += " -9-" + name + "; E -1{back 1000}-" + name + " -1{back 1000}- S;" + name;
      }
      GraphText text( network + " -9- E" );
      const RepairWalker::Originators destination{ { text.at( "E" ), 0 } };
      RepairRuns runs( text.graph );
      RepairWalker walker( text.graph );
      runs.protect( text.edge( "S", "E" ), true );
      walker.resourceIs( { text.edge( "S", "E" ), true } );
      const auto repairs = runs.to( destination );
      EXPECT_EQ( walker.fault( repairs, destination, true ), "" );
      EXPECT_EQ( repairs.empty() ? 0 : repairs[ 0 ].nodes.size(), length == 7 ? 8u : 0u );
   }
}

TEST( RepairWalk, randomNetworks ) {
   uint32_t repairs = 0;
   for ( uint32_t seed = 1; seed <= 400 && !HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 random( seed );
      judge( RandomNetwork( 5 + seed % 10, random ), true, random, repairs );
   }
   EXPECT_GT( repairs, 10'000u );
   for ( uint32_t seed = 1; seed <= 48 && !HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( 1000 + seed ) );
      std::mt19937 random( 1000 + seed );
      judge( RandomNetwork( 20 + 180 * ( seed % 4 ) / 3, random ), false, random, repairs );
   }
   EXPECT_GT( repairs, 110'000u );
}

}
