// Repairs of links and nodes: a few that an operator would draw by hand, and random networks on
// which packets prove every repair of every link and node towards every router and prefix.

#include "Cspf/CspfTreeRun.h"
#include "tests/GraphText.h"
#include "tests/RepairWalker.h"

#include <gtest/gtest.h>

#include <map>

using namespace Cspf;

namespace {

/// The repairs of one link or node, as the agent works them out: four trees and a table.
class Repairs {
 public:
   Repairs( const CspfGraph & graph, const RepairWalker::Resource & resource ) : graph_( graph ) {
      const CspfVertex plr = graph.from( resource.link ), node = graph.to( resource.link );
      CspfLinkConstraint without;
      if ( resource.isLink ) {
         without.excludedInterfaces = { graph.interface( resource.link ) };
      } else {
         without.excludedVertices = { node };
      }
      CspfTree forward, fromNode, toResource;
      run( plr, plr, without, false, after_ );
      run( plr, plr, {}, false, forward );
      run( plr, node, {}, false, fromNode );
      run( plr, resource.isLink ? plr : node, {}, true, toResource );
      table_.build( graph, { plr, node, resource.isLink, forward.metric( node ) },
                    { after_, fromNode, toResource } );
   }

   std::optional< CspfRepair > to( const RepairWalker::Originators & destination,
                                   uint64_t key = 1 ) const {
      return table_.repair( graph_, after_, destination, key,
                            [ & ]( CspfVertex v ) { return graph_.nodeRank( v ); } );
   }

 private:
   void run( CspfVertex plr, CspfVertex root, CspfLinkConstraint constraint, bool reverse,
             CspfTree & tree ) {
      constraint.root = root;
      constraint.ownSource = plr;
      constraint.overloadRule = CspfOverloadRule::mayEnd;
      filter_.apply( graph_, constraint );
      CspfRunOptions options;
      options.source = root;
      options.reverse = reverse;
      run_.run( graph_, filter_, options, tree );
   }

   const CspfGraph & graph_;
   CspfLinkFilter filter_;
   CspfTreeRun run_;
   CspfTree after_;
   CspfRepairTable table_;
};

/// "via B: P Q", "via B:" for a plain alternate, "none".
std::string
repairText( std::string_view network, const std::string & from, const std::string & to, bool isLink,
            const std::vector< std::pair< std::string, uint32_t > > & destination ) {
   GraphText text( network );
   const RepairWalker::Resource resource{ text.edge( from, to ), isLink };
   RepairWalker::Originators originators;
   for ( const auto & [ name, metric ] : destination ) {
      originators.push_back( { text.at( name ), metric } );
   }
   const auto repair = Repairs( text.graph, resource ).to( originators );
   RepairWalker walker( text.graph );
   walker.resourceIs( resource );
   EXPECT_EQ( walker.fault( repair, originators, true ), "" ) << network;
   std::string result = repair ? "via " + text.name( repair->firstHop ) + ":" : "none";
   for ( const CspfVertex node : repair ? repair->nodes : std::vector< CspfVertex >() ) {
      result += " " + text.name( node );
   }
   return result;
}

std::string
linkRepair( std::string_view network, const std::string & destination ) {
   return repairText( network, "S", "E", true, { { destination, 0 } } );
}
std::string
nodeRepair( std::string_view network, const std::string & destination ) {
   return repairText( network, "S", "E", false, { { destination, 0 } } );
}

/// All repairs of one network are right; every repair node saved is found where `tryAll`.
void
judge( const RandomNetwork & network, bool tryAll, std::mt19937 & random, uint32_t & repairs ) {
   const GraphText text( network.text() );
   const CspfGraph & graph = text.graph;
   RepairWalker walker( graph );
   for ( uint32_t e = 0; e < graph.edgeBound(); ++e ) {
      if ( graph.kind( CspfEdge{ e } ) != CspfEdgeKind::routerToRouter
           || ( !tryAll && random() % 8 ) ) {
         continue;
      }
      for ( const bool isLink : { true, false } ) {
         const Repairs computed( graph, { CspfEdge{ e }, isLink } );
         walker.resourceIs( { CspfEdge{ e }, isLink } );
         for ( uint32_t v = 0; v < network.routers; ++v ) {
            RepairWalker::Originators destination{ { CspfVertex{ v }, 0 } };
            for ( uint32_t i = v % 3; i > 0 && random() % 2; --i ) {  // a prefix, of several
               const auto router = static_cast< uint32_t >( random() % network.routers );
               destination.front().metric = static_cast< uint32_t >( random() % 5 );
               destination.push_back( { CspfVertex{ router }, uint32_t( random() % 12 ) } );
            }
            const auto repair = computed.to( destination, random() );
            repairs += repair.has_value();
            ASSERT_EQ( walker.fault( repair, destination, tryAll ), "" )
               << ( isLink ? "link " : "node behind link " ) << e << " to " << v << " in "
               << network.text();
         }
      }
   }
}

TEST( RepairWalk, namedCases ) {
   // The neighbour reaches D without S: an alternate as it is.
   EXPECT_EQ( linkRepair( "S -1- E -1- D; S -1- N -1- D", "D" ), "via N:" );
   // A ring of five: M alone is reached by N, and reaches E, without the link.
   EXPECT_EQ( linkRepair( "S -1- E -1- M -1- L -1- N -1- S", "E" ), "via N: M" );
   // No router is both: N reaches P and no farther, Q alone reaches E.
   EXPECT_EQ( linkRepair( "S -1- E; S -1- N -9- P -9- Q -9- E", "E" ), "via N: P Q" );
   // The link into E is so dear that all others reach E across the failure.
   EXPECT_EQ( linkRepair( "S -1- E; S -1- N -1- P -50- E", "E" ), "via N: P E" );
   EXPECT_EQ( linkRepair( "S -1- E -1- D", "D" ), "none" );
}

TEST( RepairWalk, protectsWhatIsAskedFor ) {
   const std::string_view parallel = "S -1- E -1- D; S -3- E; S -9- N -9- D";
   EXPECT_EQ( linkRepair( parallel, "D" ), "via E:" ) << "E itself has not failed";
   EXPECT_EQ( nodeRepair( parallel, "D" ), "via N:" );
   EXPECT_EQ( linkRepair( parallel, "E" ), "via E:" );
   EXPECT_EQ( nodeRepair( parallel, "E" ), "none" ) << "nothing avoids the destination itself";
   // N reaches D across E: good enough for the link, not for the node.
   const std::string_view across = "S -1- E -1- D; S -1- N -1- E; N -9- D";
   EXPECT_EQ( linkRepair( across, "D" ), "via N:" );
   EXPECT_EQ( nodeRepair( across, "D" ), "via N: N D" );
   // An overloaded E is crossed by nobody, an overloaded S by nobody else.
   EXPECT_EQ( nodeRepair( "overload E; S -1- E -1- D; S -1- N -1- E; N -9- D", "D" ), "via N:" );
   EXPECT_EQ( linkRepair( "overload S; S -1- E; S -1- A -9- B -9- E", "E" ), "via A:" );
}

TEST( RepairWalk, prefixesOfSeveralOriginators ) {
   const std::string_view ring = "S -1- E -1- M -1- L -1- N -1- S";
   const auto to = [ & ]( std::vector< std::pair< std::string, uint32_t > > destination ) {
      return repairText( ring, "S", "E", true, destination );
   };
   EXPECT_EQ( to( { { "E", 0 }, { "N", 5 } } ), "via N: M" ) << "N is too dear";
   EXPECT_EQ( to( { { "E", 0 }, { "N", 2 } } ), "via N:" ) << "N delivers it";
   EXPECT_EQ( to( { { "E", 0 }, { "L", 1 } } ), "via N: L" ) << "N would go by S";
   EXPECT_EQ( to( { { "E", 3 }, { "S", 1 } } ), "none" ) << "its own";
   // The protected node originates the prefix, and carries nothing else.
   EXPECT_EQ( repairText( "overload E; S -1- E -1- N -1- S; N -9- D", "S", "E", false,
                          { { "E", 0 }, { "D", 0 } } ),
              "via N: D" );
}

TEST( RepairWalk, equalRepairsAreSpreadAndStay ) {
   const std::string common = "S -1- E -1- D; S -2- A -1- D; S -2- B -1- D; S -2- C -1- D";
   GraphText all( common ), fewer( common.substr( 0, common.rfind( ';' ) ) );
   const Repairs wide( all.graph, { all.edge( "S", "E" ) } );
   const Repairs narrow( fewer.graph, { fewer.edge( "S", "E" ) } );
   std::map< std::string, int > chosen;
   for ( uint64_t key = 0; key < 300; ++key ) {
      const std::string by = all.name( wide.to( { { all.at( "D" ), 0 } }, key )->firstHop );
      ++chosen[ by ];
      if ( by != "C" ) {
         EXPECT_EQ( fewer.name( narrow.to( { { fewer.at( "D" ), 0 } }, key )->firstHop ), by )
            << "a candidate that goes moves only its own destinations";
      }
   }
   EXPECT_GT( chosen[ "A" ], 60 );
   EXPECT_GT( chosen[ "B" ], 60 );
   EXPECT_GT( chosen[ "C" ], 60 );
}

TEST( RepairWalk, noRepairBeyondTheNodeLimit ) {
   // Every router of the chain is close to S and to E, but only in the direction that would use it.
   const auto chain = []( int length ) {
      std::string network = "S -1- E; S -1- A0";
      for ( int i = 1; i < length; ++i ) {
         const std::string name = " A" + std::to_string( i );
         network += " -9-" + name + "; E -1{back 1000}-" + name + " -1{back 1000}- S;" + name;
      }
      return network + " -9- E";
   };
   EXPECT_EQ( linkRepair( chain( 7 ), "E" ), "via A0: A0 A1 A2 A3 A4 A5 A6 E" );
   EXPECT_EQ( linkRepair( chain( 8 ), "E" ), "none" );
}

TEST( RepairWalk, smallRandomNetworksNeedNoFewerNodes ) {
   uint32_t repairs = 0;
   for ( uint32_t seed = 1; seed <= 400 && !testing::Test::HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 random( seed );
      judge( RandomNetwork( 5 + seed % 10, random ), true, random, repairs );
   }
   EXPECT_GT( repairs, 10'000u );
}

TEST( RepairWalk, randomNetworksOfUpTo200Routers ) {
   uint32_t repairs = 0;
   for ( uint32_t seed = 1; seed <= 48 && !testing::Test::HasFailure(); ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 random( 1000 + seed );
      judge( RandomNetwork( 20 + 180 * ( seed % 4 ) / 3, random ), false, random, repairs );
   }
   EXPECT_GT( repairs, 100'000u );
}

}
