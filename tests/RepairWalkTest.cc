// Repairs of links and nodes: random networks on which packets prove every repair of every link and
// node towards every router and prefix, and what random networks do not show.

#include "bench/RepairRuns.h"
#include "tests/GraphText.h"
#include "tests/RandomNetwork.h"
#include "tests/Seeds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

using namespace Cspf;

namespace {

/// One protection, as the repairs are asked for and as the walker sees it.
struct Case {
   std::string name;
   RepairRuns::Protected asked;
   GraphWalker::Resource fails;
   bool byMetric = true;  ///< is what paths after the failure are chosen by
};

/// The edges for which the test holds.
template< typename Test >
std::vector< CspfEdge >
edgesWhere( const CspfGraph & graph, Test test ) {
   std::vector< CspfEdge > edges;
   for ( uint32_t e = 0; e < graph.edgeBound(); ++e ) {
      if ( graph.kind( CspfEdge{ e } ) != CspfEdgeKind::networkToRouter && test( CspfEdge{ e } ) ) {
         edges.push_back( CspfEdge{ e } );
      }
   }
   return edges;
}

/// Protection of the link, or of the node behind it, and of something else besides.
class Cases {
 public:
   Cases( const CspfGraph & graph, CspfEdge link, std::mt19937 & random )
      : graph_( graph ),
        link_( link ),
        random_( random ) {
      if ( graph.kind( link ) == CspfEdgeKind::routerToRouter ) {
         for ( const bool isLink : { true, false } ) {
            const Case plain{ isLink ? "link" : "node",
                              { link, isLink },
                              GraphWalker::behind( graph, link, isLink ) };
            cases.push_back( plain );
            addSrlgs( plain );
            addAdminGroup( plain );
            addAddresses( plain );
         }
      } else {
         addLan();
      }
   }

   std::vector< Case > cases;

 private:
   void addSrlgs( const Case & plain ) {
      const auto risks = graph_.srlgs( link_ );
      Case srlg = plain;
      srlg.asked.asked.excludedSrlgs = { risks.begin(), risks.end() };
      for ( const bool local : { false, true } ) {
         srlg.name = plain.name + ", SRLGs if need be";
         srlg.asked.asked.srlgOnlyLocal = local;
         srlg.byMetric = risks.empty();
         cases.push_back( srlg );
      }
      srlg.asked.asked.srlgStrict = srlg.byMetric = true;
      for ( const bool local : { false, true } ) {
         srlg.name = plain.name + ( local ? ", local SRLGs" : ", SRLGs" );
         srlg.asked.asked.srlgOnlyLocal = local;
         srlg.fails.edges = plain.fails.edges;
         add( srlg, [ & ]( CspfEdge e ) {
            return std::ranges::find_first_of( graph_.srlgs( e ), risks ) != graph_.srlgs( e ).end()
                   && ( !local || graph_.from( e ) == plain.fails.plr );
         } );
      }
   }
   void addAdminGroup( Case asked ) {
      asked.name += ", group 2";
      asked.asked.asked.excludeAdminGroup = 2;
      add( asked, [ & ]( CspfEdge e ) { return graph_.record( e ).adminGroup & 2; } );
   }
   void addAddresses( Case asked ) {
      asked.name += ", addresses";
      for ( int i = 0; i < 3; ++i ) {
         const CspfEdge edge{ static_cast< uint32_t >( random_() % graph_.edgeBound() ) };
         for ( const CspfEdge e : { edge, graph_.reverse( edge ) } ) {
            if ( e != noEdge && graph_.kind( edge ) == CspfEdgeKind::routerToRouter ) {
               asked.asked.asked.excludedEdges.push_back( e );
               asked.fails.edges.push_back( e );
            }
         }
      }
      cases.push_back( asked );
   }
   template< typename Test >
   void add( Case asked, Test test ) {
      const auto edges = edgesWhere( graph_, test );
      asked.fails.edges.insert( asked.fails.edges.end(), edges.begin(), edges.end() );
      cases.push_back( asked );
   }
   /// The interface; each neighbour's place on the LAN, and each neighbour.
   void addLan() {
      const CspfVertex plr = graph_.from( link_ );
      const CspfEdge back = graph_.reverse( link_ );
      cases.push_back( { "LAN", { link_, true }, { plr, { link_, back } } } );
      Case risky = cases.back();
      risky.name = "LAN, SRLGs if need be";
      risky.asked.asked.excludedSrlgs = { 1, 2 };
      risky.byMetric = false;
      cases.push_back( risky );
      for ( const uint32_t step : graph_.out( graph_.to( link_ ) ) ) {
         const CspfVertex node = graph_.to( CspfEdge{ step } );
         if ( node == plr || !graph_.twoWay( CspfEdge{ step } ) ) {
            continue;
         }
         const std::vector< CspfEdge > place{ CspfEdge{ step },
                                              graph_.reverse( CspfEdge{ step } ) };
         CspfLinkConstraint asked;
         asked.excludedEdges = place;
         cases.push_back( { "neighbor", { link_, true, node, asked, false }, { plr, place } } );
         cases.push_back( { "node on LAN", { link_, false, node, {}, false }, { plr, {}, node } } );
         cases.push_back(
            { "LAN and node", { link_, false, node }, { plr, { link_, back }, node } } );
      }
   }

   const CspfGraph & graph_;
   const CspfEdge link_;
   std::mt19937 & random_;
};

/// All repairs of one network are right. Counts those that there are, by kind.
void
judge( const RandomNetwork & network, bool tryAll, std::mt19937 & random,
       std::map< std::string, uint32_t > & repairs ) {
   const GraphText text( network.text() );
   const CspfGraph & graph = text.graph;
   GraphWalker walker( graph );
   RepairRuns runs( graph );
   for ( const CspfEdge link :
         edgesWhere( graph, [ & ]( CspfEdge ) { return random() % ( tryAll ? 3 : 24 ) == 0; } ) ) {
      for ( const Case & one : Cases( graph, link, random ).cases ) {
         runs.protect( one.asked );
         walker.resourceIs( one.fails );
         for ( uint32_t v = 0; v < network.routers; ++v ) {
            GraphWalker::Originators destination{ { CspfVertex{ v }, 0 } };
            for ( uint32_t i = v % 3; i > 0 && random() % 2; --i ) {  // a prefix, of several
               const auto router = static_cast< uint32_t >( random() % network.routers );
               destination.front().metric = static_cast< uint32_t >( random() % 5 );
               destination.push_back( { CspfVertex{ router }, uint32_t( random() % 12 ) } );
            }
            const uint32_t maxNodes = v % 4 == 1 ? static_cast< uint32_t >( random() % 3 ) : 8;
            const auto found = runs.to( destination, random(), maxNodes );
            repairs[ one.name ] += !found.repairs.empty();
            // Which of several is nearest is not for the metric alone to say.
            ASSERT_TRUE( ( !one.byMetric && destination.size() > 1 )
                         || walker.arrive( found, destination ) )
               << one.name << " by link " << index( link ) << " to " << v << " in "
               << network.text();
            ASSERT_EQ( one.byMetric ? walker.fault( found, destination, tryAll, maxNodes ) : "",
                       "" )
               << one.name << " by link " << index( link ) << " to " << v << " in "
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
      runs.protect( { text.edge( "S", "E" ) } );
      const GraphWalker::Originators destination{ { text.at( "D" ), 0 } };
      std::vector< std::string > chosen;
      for ( uint64_t key = 0; key < 300; ++key ) {
         chosen.push_back( text.name( runs.to( destination, key ).repairs.front().firstHop ) );
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

TEST( RepairWalk, aPathThatNeedsTooManyNodesIsLeft ) {
   // Every router of the chain is close to S and to E, but only in the direction that would use it.
   for ( const int length : { 7, 8 } ) {
      std::string network = "S -1- E; S -1- A0";
      for ( int i = 1; i < length; ++i ) {
         const std::string name = " A" + std::to_string( i );
         network += " -9-" + name + "; E -1{back 1000}-" + name + " -1{back 1000}- S;" + name;
      }
      GraphText text( network + " -9- E" );
      const GraphWalker::Originators destination{ { text.at( "E" ), 0 } };
      RepairRuns runs( text.graph );
      GraphWalker walker( text.graph );
      runs.protect( { text.edge( "S", "E" ) } );
      walker.resourceIs( GraphWalker::behind( text.graph, text.edge( "S", "E" ), true ) );
      const auto nodes = [ & ]( uint32_t maxNodes ) {
         const auto found = runs.to( destination, 1, maxNodes );
         EXPECT_EQ( walker.fault( found, destination, true, maxNodes ), "" );
         EXPECT_EQ( found.repairs.empty(), found.nodesNeeded > 0 );
         return found.repairs.empty() ? found.nodesNeeded : found.repairs[ 0 ].segments.size();
      };
      EXPECT_EQ( nodes( 8 ), length == 7 ? 8u : 2u ) << "by the last router of the chain";
      EXPECT_EQ( nodes( 2 ), 2u );
      EXPECT_EQ( nodes( 1 ), length + 1u ) << "there is none; so many it would take";
   }
}

TEST( RepairWalk, randomNetworks ) {
   std::map< std::string, uint32_t > repairs;
   for ( uint32_t seed = 1; seed <= seedsOf( 400 ) && !HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 random( seed );
      judge( RandomNetwork( 5 + seed % 10, random ), true, random, repairs );
   }
   for ( uint32_t seed = 1; seed <= seedsOf( 24 ) && !HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( 1000 + seed ) );
      std::mt19937 random( 1000 + seed );
      judge( RandomNetwork( 20 + 180 * ( seed % 4 ) / 3, random ), false, random, repairs );
   }
   for ( const auto & [ kind, count ] : repairs ) {
      EXPECT_GT( count, 1000u ) << kind;
   }
   EXPECT_EQ( repairs.size(), 17u );
}

}
