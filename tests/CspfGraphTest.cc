// The compact graph, link filters, shortest-path trees and hop lists: small topologies as text for
// what an operator would ask, random ones judged by the checker for everything else.

#include "Cspf/Graph/HopList.h"
#include "Cspf/Graph/LabelTree.h"
#include "Cspf/Graph/TreeRepair.h"
#include "Cspf/Graph/TreeRun.h"
#include "tests/GraphText.h"
#include "tests/TreeChecker.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <set>

using namespace Cspf;

namespace {

/// A topology, a constraint and options; runs on demand, checked by the judges each time.
struct Question {
   explicit Question( std::string_view topology, const std::string & source = "A" )
      : g( topology ) {
      options.source = constraint.root = constraint.ownSource = g.at( source );
   }

   const CspfTree & tree() {
      filter.apply( g.graph, constraint );
      run.run( g.graph, filter, options, result );
      EXPECT_EQ( ( TreeChecker{ g.graph, filter, result }.fault() ), "" );
      return result;
   }
   /// "A B C", or "-" without a path; the `choice`-th of equal last links.
   std::string path( const std::string & to, size_t choice = 0, uint32_t maxHops = 255 ) {
      std::vector< CspfEdge > hops;
      const auto choose = [ & ]( CspfVertex, auto links ) { return choice % links.size(); };
      const auto status = hopList( g.graph, tree(), g.at( to ), maxHops, choose, hops );
      return status == CspfHopListStatus::found    ? g.path( hops )
             : status == CspfHopListStatus::noPath ? "-"
                                                   : "too long";
   }
   CspfRefusal refusal( const std::string & from, const std::string & to ) {
      tree();
      return CspfArcs::refusal( g.graph, filter, g.edge( from, to ), options );
   }

   GraphText g;
   CspfLinkConstraint constraint;
   CspfRunOptions options;
   CspfLinkFilter filter;
   CspfTreeRun run;
   CspfTree result;
};

TEST( CspfTree, cheapestPathWinsAndEqualOnesAreAllKept ) {
   Question q( "A -10- B -20- C; A -30{srlg 7}- C; C -5- D; A =lan1= D E" );
   EXPECT_EQ( q.path( "C" ), "A lan1 D C" );
   EXPECT_EQ( q.tree().metric( q.g.at( "E" ) ), 10u );
   q.constraint.excludedVertices = { q.g.at( "D" ) };
   EXPECT_EQ( q.path( "C", 0 ), "A B C" );
   EXPECT_EQ( q.path( "C", 1 ), "A C" );
   EXPECT_EQ( q.path( "C", 0, 1 ), "too long" );
   EXPECT_EQ( q.path( "C", 1, 1 ), "A C" );
   EXPECT_EQ( q.path( "A" ), "" );
   EXPECT_EQ( q.path( "D" ), "-" );
   EXPECT_EQ( q.refusal( "C", "D" ), CspfRefusal::excludedNode );

   Question lans( "A =lan1= B; B =lan2= C; C -- D" );
   EXPECT_EQ( lans.path( "D", 0, 3 ), "A lan1 B lan2 C D" );
   EXPECT_EQ( lans.path( "D", 0, 2 ), "too long" );  // crossing a LAN is one hop
}

TEST( CspfTree, metricsOutsideTheirBoundsAreNotUsed ) {
   Question q( "A -0- B; A -16777214- C; A -16777215- D; A -0{te 3}- E" );
   EXPECT_EQ( q.path( "B" ), "-" );
   EXPECT_EQ( q.path( "C" ), "A C" );
   EXPECT_EQ( q.refusal( "A", "B" ), CspfRefusal::zeroMetric );
   EXPECT_EQ( q.refusal( "A", "D" ), CspfRefusal::maximumMetric );
   q.options.useLinksWithMaxMetric = q.options.useTeMetric = true;
   EXPECT_EQ( q.path( "D" ), "A D" );
   EXPECT_EQ( q.path( "E" ), "A E" );

   Question far( "A -4261412862- B -1- C -1- D; A -4261412864- E" );
   far.options.useLinksWithMaxMetric = true;
   EXPECT_EQ( far.tree().metric( far.g.at( "C" ) ), CspfTreeRun::maxPathMetric );
   EXPECT_EQ( far.path( "D" ), "-" );
   EXPECT_EQ( far.path( "E" ), "-" );
   far.constraint.excludedSrlgs = { 1 };  // the same bounds when SRLG counts rank paths
   EXPECT_EQ( far.path( "C" ), "A B C" );
   EXPECT_EQ( far.path( "D" ), "-" );
}

TEST( CspfTree, srlgsOutrankTheMetricUnlessStrict ) {
   Question q( "A -1{srlg 7}- B -1- C; A -500- C -500- D; A -1{srlg 7}- D" );
   q.constraint.excludedSrlgs = { 7 };
   EXPECT_EQ( q.path( "D" ), "A C D" );
   EXPECT_EQ( q.refusal( "A", "B" ), CspfRefusal::none );
   q.constraint.ownSource = q.g.at( "C" );
   q.constraint.srlgOnlyLocal = true;
   EXPECT_EQ( q.path( "D" ), "A D" );
   q.constraint.srlgStrict = true;
   EXPECT_EQ( q.path( "D" ), "A D" );
   q.constraint.ownSource = q.g.at( "A" );
   EXPECT_EQ( q.path( "D" ), "A C D" );
   EXPECT_EQ( q.refusal( "A", "B" ), CspfRefusal::srlg );
   q.constraint.excludedSrlgs = {};
   q.constraint.includedSrlgs = { 7, 7 };
   EXPECT_EQ( q.path( "C" ), "A B C" );
   EXPECT_EQ( q.tree().cost( q.g.at( "C" ) ), ( CspfCost{ 0, 1, 2 } ) );
}

TEST( CspfTree, overloadedRoutersAreAvoidedOrOnlyEnded ) {
   Question q( "A -1- B -1- C; A -9- C; overload B" );
   EXPECT_EQ( q.path( "B" ), "-" );
   q.constraint.overloadRule = CspfOverloadRule::mayEnd;
   EXPECT_EQ( q.path( "B" ), "A B" );
   EXPECT_EQ( q.path( "C" ), "A C" );
   q.options.source = q.constraint.root = q.g.at( "B" );
   EXPECT_EQ( q.path( "C" ), "B C" );
}

TEST( CspfTree, reverseTreesUseTheMetricTowardsTheSource ) {
   Question q( "A -1{back 50}- B; A -9{back 8}- C -1{back 2}- B; A =lan1 7= D" );
   q.options.reverse = true;
   EXPECT_EQ( q.tree().metric( q.g.at( "B" ) ), 10u );
   EXPECT_EQ( q.path( "B" ), "A C B" );
   EXPECT_EQ( q.tree().metric( q.g.at( "lan1" ) ), 0u );
   EXPECT_EQ( q.tree().metric( q.g.at( "D" ) ), 7u );
}

TEST( CspfTree, singleHopEndsAtTheFirstRouter ) {
   Question q( "A -1- B -1- C; A =lan1 5= D; D -1- E; A -9- C" );
   q.options.singleHop = true;
   EXPECT_EQ( q.path( "C" ), "A C" );
   EXPECT_EQ( q.path( "D" ), "A lan1 D" );
   EXPECT_EQ( q.path( "E" ), "-" );
}

TEST( CspfLinkFilter, oneDirectionIsNoLinkAndOwnBandwidthCounts ) {
   Question q( "A -10> B; A -10{bw 100 group 5}- C; A -1- D" );
   EXPECT_EQ( q.refusal( "A", "B" ), CspfRefusal::twoWayCheck );
   q.constraint.bandwidth = 100;
   EXPECT_EQ( q.refusal( "A", "C" ), CspfRefusal::none );
   q.constraint.bandwidth = 101;
   EXPECT_EQ( q.refusal( "A", "C" ), CspfRefusal::bandwidth );
   q.constraint.ownReservations = { { q.g.edge( "A", "C" ), 1 } };
   EXPECT_EQ( q.refusal( "A", "C" ), CspfRefusal::none );
   q.constraint.bandwidth = std::numeric_limits< uint64_t >::max();
   EXPECT_EQ( q.refusal( "A", "C" ), CspfRefusal::bandwidth );
   q.constraint.bandwidth = 0;
   q.constraint.includeAllAdminGroup = q.constraint.excludeAdminGroup = 4;
   EXPECT_EQ( q.refusal( "A", "C" ), CspfRefusal::excludeAdminGroup );
   EXPECT_EQ( q.refusal( "A", "D" ), CspfRefusal::includeAllAdminGroup );
}

TEST( CspfLinkFilter, bandwidthIsComparedInWholeNumbersHoweverLarge ) {
   for ( const uint64_t wanted : { ( 1ULL << 24 ) + 1, ( 1ULL << 53 ) + 1, 1ULL << 63 } ) {
      Question q( "A -- B; A -- C" );
      const auto offer = [ & ]( const char * to, float bandwidth ) {
         CspfEdgeRecord record = q.g.graph.record( q.g.edge( "A", to ) );
         record.unreserved.fill( bandwidth );
         q.g.graph.updateEdge( q.g.edge( "A", to ), record );
      };
      const float nearest = static_cast< float >( wanted );
      offer( "B", nearest );
      offer( "C", std::nextafter( nearest, 0.0F ) );
      q.constraint.bandwidth = wanted;
      EXPECT_EQ( q.path( "B" ) != "-", static_cast< uint64_t >( nearest ) >= wanted );
      EXPECT_EQ( q.path( "C" ), "-" );
   }
}

/// A random graph that is changed, one event at a time.
class Storm {
 public:
   explicit Storm( uint32_t seed ) : random( seed ) {}

   uint32_t pick( uint32_t below ) { return static_cast< uint32_t >( random() % below ); }
   bool chance( uint32_t percent ) { return pick( 100 ) < percent; }

   void addVertex() {
      const bool network = !routers.empty() && chance( 25 );
      if ( network ) {
         networks.push_back( graph.addNetwork() );
         return;
      }
      routers.push_back( graph.addRouter( random() ) );
      graph.overloadedIs( routers.back(), chance( 8 ) );
   }

   void addLink() { addLinkOf( routers[ pick( uint32_t( routers.size() ) ) ] ); }

   void addLinkOf( CspfVertex from ) {
      const bool lan = !networks.empty() && chance( 40 );
      const auto & others = lan ? networks : routers;
      const CspfVertex to = others[ pick( uint32_t( others.size() ) ) ];
      if ( from == to ) {
         return;
      }
      const CspfEdge edge = add( from, to );
      if ( chance( 93 ) ) {
         graph.pairIs( edge, add( to, from ), chance( 95 ) );
      }
   }

   void changeLink() {
      if ( links.empty() ) {
         return;
      }
      const CspfEdge edge = anyLink();
      if ( chance( 60 ) ) {
         const auto list = srlgs();
         graph.updateEdge( edge, record( list ) );
      } else if ( chance( 50 ) ) {
         forget( edge );
      } else if ( graph.reverse( edge ) != noEdge ) {
         const CspfEdge reverse = graph.reverse( edge );
         graph.unpair( edge );
         if ( chance( 70 ) ) {
            graph.pairIs( edge, reverse, chance( 80 ) );
         }
      }
   }

   /// The vertex loses all its links.
   void cutOff( CspfVertex vertex ) {
      while ( !graph.out( vertex ).empty() ) {
         forget( CspfEdge{ graph.out( vertex )[ 0 ] } );
      }
      while ( !graph.in( vertex ).empty() ) {
         forget( CspfEdge{ graph.in( vertex )[ 0 ] } );
      }
   }

   void changeRouter() {
      const CspfVertex router = routers[ pick( uint32_t( routers.size() ) ) ];
      graph.overloadedIs( router, !graph.overloaded( router ) );
      auto & kind = chance( 60 ) || networks.empty() ? routers : networks;
      if ( kind.size() > 2 && chance( 30 ) ) {
         removeVertex( kind, pick( uint32_t( kind.size() ) ) );
      }
   }

   void event() {
      const uint32_t kind = pick( 10 );
      kind == 0 ? addVertex() : kind == 1 ? changeRouter() : kind < 6 ? addLink() : changeLink();
   }

   CspfLinkConstraint constraint() {
      CspfLinkConstraint c;
      c.root = routers[ pick( uint32_t( routers.size() ) ) ];
      c.ownSource = chance( 80 ) ? c.root : routers[ pick( uint32_t( routers.size() ) ) ];
      c.overloadRule = chance( 50 ) ? CspfOverloadRule::avoid : CspfOverloadRule::mayEnd;
      c.topology = chance( 70 ) ? CspfGraph::anyTopology : 1;
      c.includeAllAdminGroup = chance( 15 ) ? 1 << pick( 4 ) : 0;
      c.includeAnyAdminGroup = chance( 20 ) ? pick( 16 ) : 0;
      c.excludeAdminGroup = chance( 20 ) ? 1 << pick( 4 ) : 0;
      c.excludedSrlgs = chance( 40 ) ? srlgs() : c.excludedSrlgs;
      c.includedSrlgs = chance( 30 ) ? srlgs() : c.includedSrlgs;
      c.srlgStrict = chance( 30 );
      c.srlgOnlyLocal = chance( 30 );
      c.bandwidth = chance( 30 ) ? 1 + pick( 3000 ) : 0;
      c.setupPriority = static_cast< uint8_t >( pick( 8 ) );
      if ( !links.empty() && chance( 30 ) ) {
         c.ownReservations = { { anyLink(), pick( 3000 ) } };
         c.excludedEdges = { anyLink() };
         c.excludedInterfaces = { graph.interface( anyLink() ) };
         c.excludedVertices = { routers[ pick( uint32_t( routers.size() ) ) ] };
      }
      return c;
   }

   CspfRunOptions options( CspfVertex source ) {
      return { source, chance( 50 ), chance( 50 ), chance( 40 ), chance( 10 ) };
   }

   CspfEdge anyLink() { return *std::next( links.begin(), pick( uint32_t( links.size() ) ) ); }

   CspfGraph graph;
   std::vector< CspfVertex > routers, networks;
   uint32_t widestMetric = 4;

 private:
   std::vector< uint32_t > srlgs() {
      std::vector< uint32_t > list( pick( 4 ) );
      for ( uint32_t & srlg : list ) {
         srlg = pick( 6 );
      }
      return list;
   }

   uint32_t metric() {
      const uint32_t rare[] = { 0, 0xFFFFFE, 0xFFFFFF, 0xF0000000 };
      return chance( 6 ) ? rare[ pick( 4 ) ] : 1 + pick( widestMetric );
   }

   CspfEdgeRecord record( const std::vector< uint32_t > & srlgs ) {
      CspfEdgeRecord r;
      r.igpMetric = metric();
      r.teMetric = chance( 50 ) ? std::optional( metric() ) : std::nullopt;
      r.adminGroup = pick( 16 );
      r.srlgs = srlgs;
      for ( float & bandwidth : r.unreserved ) {
         bandwidth = static_cast< float >( pick( 4000 ) ) + 0.5F;
      }
      r.topology = static_cast< uint16_t >( chance( 85 ) ? 1 : 2 );
      r.interface = 1 + pick( 50 );
      r.keyRank = random();
      return r;
   }

   CspfEdge add( CspfVertex from, CspfVertex to ) {
      const auto list = chance( 40 ) ? srlgs() : std::vector< uint32_t >();
      return *links.insert( graph.addEdge( from, to, record( list ) ) ).first;
   }

   void forget( CspfEdge edge ) {
      graph.removeEdge( edge );
      links.erase( edge );
   }

   void removeVertex( std::vector< CspfVertex > & kind, uint32_t at ) {
      cutOff( kind[ at ] );
      graph.removeVertex( kind[ at ] );
      kind.erase( kind.begin() + at );
   }

   std::mt19937_64 random;
   std::set< CspfEdge > links;
};

/// A vertex has changed where it, a link that leaves it, or the pair of such a link has.
TEST( CspfGraph, tellsWhichVerticesChanged ) {
   std::mt19937 random( 3 );
   CspfGraph graph;
   std::vector< CspfVertex > routers;
   for ( uint64_t rank = 1; rank <= 6; ++rank ) {
      routers.push_back( graph.addRouter( rank ) );
   }
   std::vector< CspfEdge > links;
   const auto expect = [ & ]( std::set< CspfVertex > changed, auto && operation ) {
      const uint64_t before = graph.lastChange(), version = graph.version();
      operation();
      EXPECT_GT( graph.version(), version );
      for ( const CspfVertex router : routers ) {
         EXPECT_EQ( graph.changedAt( router ) > before, changed.contains( router ) );
      }
   };
   for ( int step = 0; step < 2000; ++step ) {
      const CspfVertex router = routers[ random() % 6 ], other = routers[ random() % 6 ];
      const CspfEdge link = links.empty() ? noEdge : links[ random() % links.size() ];
      CspfEdgeRecord record;
      record.keyRank = step;
      const uint32_t kind = links.empty() ? 0 : random() % 7;
      if ( step % 50 == 0 ) {
         const uint64_t before = graph.lastChange(), version = graph.version();
         const CspfGraph::Renumbering to = graph.renumber( router );
         EXPECT_GT( graph.version(), version );
         for ( CspfVertex & each : routers ) {
            each = to.vertex[ index( each ) ];
            EXPECT_GT( graph.changedAt( each ), before );
         }
         for ( CspfEdge & each : links ) {
            each = to.edge[ index( each ) ];
         }
      } else if ( kind == 0 && links.size() < 30 ) {
         expect( { router }, [ & ] { links.push_back( graph.addEdge( router, other, record ) ); } );
      } else if ( kind == 1 ) {
         expect( { router }, [ & ] { graph.overloadedIs( router, !graph.overloaded( router ) ); } );
      } else if ( kind == 2 ) {
         expect( { router }, [ & ] { graph.nodeRankIs( router, graph.nodeRank( router ) ); } );
      } else if ( kind == 3 ) {
         expect( { graph.from( link ) }, [ & ] { graph.updateEdge( link, record ); } );
      } else if ( kind == 4 ) {
         expect( {}, [ & ] { graph.keyRankIs( link, step ); } );
      } else if ( graph.reverse( link ) != noEdge ) {
         std::set< CspfVertex > ends{ graph.from( link ), graph.to( link ) };
         expect( ends, [ & ] { kind == 5 ? graph.unpair( link ) : graph.removeEdge( link ); } );
         std::erase_if( links, [ & ]( CspfEdge edge ) { return !graph.has( edge ); } );
      } else {
         const auto back = std::ranges::find_if( links, [ & ]( CspfEdge edge ) {
            return edge != link && graph.from( edge ) == graph.to( link )
                   && graph.to( edge ) == graph.from( link ) && graph.reverse( edge ) == noEdge;
         } );
         if ( back != links.end() ) {
            expect( { graph.from( link ), graph.to( link ) },
                    [ & ] { graph.pairIs( link, *back, random() % 2 ); } );
         }
      }
   }
   EXPECT_EQ( graph.inconsistency(), "" );
}

/// Bandwidth is kept for as many priorities as differ, from none to all of them, and TE metrics
/// from the first link that has one; in any order.
TEST( CspfGraph, attributesAreThoseOfEachLinkWhateverOthersHave ) {
   std::mt19937 random( 7 );
   for ( uint32_t round = 0; round < 50; ++round ) {
      CspfGraph graph;
      const CspfVertex root = graph.addRouter( 1 ), far = graph.addRouter( 2 );
      std::map< uint64_t, std::pair< std::array< float, 8 >, std::optional< uint32_t > > >
         links;  // by rank
      for ( uint64_t change = 1; change <= 40; ++change ) {
         CspfEdgeRecord record;
         record.unreserved.fill( static_cast< float >( random() % 3 ) );
         for ( uint32_t steps = random() % ( 1 + round % 4 ); steps > 0; --steps ) {
            std::fill( record.unreserved.begin() + 1 + random() % 7, record.unreserved.end(),
                       static_cast< float >( random() % 3 ) );
         }
         const CspfEdge edge{ static_cast< uint32_t >( random() % ( graph.edges() + 1 ) ) };
         const bool known = index( edge ) < graph.edges();
         record.keyRank = known ? graph.keyRank( edge ) : change;
         record.igpMetric = random() % 3;
         record.teMetric = change > round % 40 ? std::optional( random() % 3 ) : std::nullopt;
         links[ record.keyRank ] = { record.unreserved, record.teMetric };
         if ( known ) {
            graph.updateEdge( edge, record );
         } else {
            graph.addEdge( root, far, record );
         }
         if ( random() % 10 == 0 ) {
            graph.renumber( root );
         }
         for ( uint32_t e = 0; e < graph.edges(); ++e ) {
            const CspfEdgeRecord known = graph.record( CspfEdge{ e } );
            EXPECT_EQ( std::pair( known.unreserved, known.teMetric ), links.at( known.keyRank ) );
            EXPECT_EQ( graph.columns().metric( true )[ e ],
                       known.teMetric.value_or( known.igpMetric ) );
         }
      }
   }
}

/// Counts of a path may need more bits than those of any link.
TEST( CspfTree, srlgsOfLongPathsAreCountedInFull ) {
   constexpr uint32_t hops = 5000;
   std::vector< uint32_t > srlgs( 16 ), wanted( 40 );
   std::iota( srlgs.begin(), srlgs.end(), 1 );
   std::iota( wanted.begin(), wanted.end(), 100 );
   CspfGraph graph;
   const CspfVertex source = graph.addRouter( 0 );
   CspfVertex end = source;
   for ( uint32_t hop = 1; hop <= hops; ++hop ) {
      const CspfVertex next = graph.addRouter( hop );
      CspfEdgeRecord record;
      record.igpMetric = 1;
      record.srlgs = srlgs;
      record.keyRank = 2 * hop;
      const CspfEdge there = graph.addEdge( end, next, record );
      record.keyRank = 2 * hop + 1;
      graph.pairIs( there, graph.addEdge( next, end, record ), true );
      end = next;
   }
   CspfLinkFilter filter;
   CspfTree tree;
   for ( const bool includes : { false, true } ) {
      CspfLinkConstraint constraint;
      constraint.excludedSrlgs = srlgs;
      constraint.includedSrlgs = includes ? wanted : constraint.includedSrlgs;
      filter.apply( graph, constraint );
      CspfTreeRun().run( graph, filter, { .source = source }, tree );
      EXPECT_EQ( tree.cost( end ), ( CspfCost{ hops * 16, includes ? hops * 40 : 0, hops } ) );
   }
}

/// One run object and one tree serve all: what a run leaves behind must not reach the next. Who
/// hears of a run gets the same tree.
TEST( CspfTree, randomGraphsAreJudgedRight ) {
   struct Listener : CspfNoObserver {};
   CspfTreeRun run;
   CspfTree tree;
   CspfLinkFilter filter;
   uint32_t reached = 0, tied = 0;
   for ( uint32_t seed = 1; seed <= 1500; ++seed ) {
      Storm storm( seed );
      const uint32_t widths[] = { 2, 6, 1000, 70000, 0xFFFFFE };
      storm.widestMetric = widths[ seed % 5 ];
      const uint32_t vertices = seed % 3 ? 8 : 40;
      while ( storm.graph.vertices() < vertices ) {
         storm.addVertex();
      }
      for ( uint32_t link = 0; link < vertices * 2; ++link ) {
         storm.addLink();
      }
      for ( int question = 0; question < 4; ++question ) {
         filter.apply( storm.graph, storm.constraint() );
         for ( int repeat = 0; repeat < 2; ++repeat ) {
            const CspfRunOptions options = storm.options( filter.constraint().root );
            if ( question == 3 ) {
               run.run( storm.graph, filter, options, tree, Listener() );
            } else {
               run.run( storm.graph, filter, options, tree );
            }
            ASSERT_EQ( ( TreeChecker{ storm.graph, filter, tree }.fault() ), "" )
               << "seed " << seed << " question " << question;
            reached += uint32_t( tree.reachedVertices().size() );
            for ( CspfVertex vertex : tree.reachedVertices() ) {
               tied += tree.lastLinks( vertex ).size() > 1;
            }
         }
         storm.event();
         ASSERT_EQ( storm.graph.inconsistency(), "" ) << "seed " << seed;
      }
   }
   EXPECT_GT( reached, 50000u );  // the questions are not all refusals
   EXPECT_GT( tied, 2000u );
}

/// A constraint that follows a storm, by labels, the links that it refuses besides, and those on
/// which it holds bandwidth.
struct Follower {
   Follower( Storm & storm, CspfLabelMemory & memory ) : storm( storm ), memory( memory ) {
      constraint = storm.constraint();
      constraint.excludedEdges = {};
      constraint.excludedInterfaces = {};
      constraint.excludedVertices = {};
      constraint.ownReservations = {};
      options = storm.options( constraint.root );
      options.singleHop = false;
   }

   /// False where nothing is left to follow.
   bool follow() {
      const CspfGraph & graph = storm.graph;
      std::vector< CspfVertex > moved;
      touched = {};
      concerned = all = !labels || epoch != graph.changes().epoch();
      if ( all ) {
         epoch = graph.changes().epoch();
         labels.emplace( constraint, options );
      }
      labels->advance( graph, memory );
      all = all || !labels->touchedSince( steps, graph.vertexBound(), touched );
      const auto isGone = [ & ]( CspfEdge edge ) { return !graph.has( edge ); };
      if ( all || std::ranges::any_of( refused, isGone ) ) {
         refused = { storm.anyLink(), storm.anyLink() };
         overlay = CspfOverlay( refused );
         all = true;
      }
      std::erase_if( held, [ & ]( const auto & entry ) { return isGone( entry.first ); } );
      if ( const CspfEdge edge = storm.anyLink();
           std::ranges::count( held, edge, &std::pair< CspfEdge, uint64_t >::first ) == 0 ) {
         held.emplace_back( edge, constraint.bandwidth );
      }
      const bool regranted = overlay.heldIs( graph, *labels, held );
      concerned = all || regranted || overlay.isConcerned( touched );
      steps = labels->steps();
      return !concerned || overlay.compute( graph, *labels, memory, differs );
   }
   /// Whether the vertex may have other last links than before.
   bool tellsOf( CspfVertex vertex ) const {
      return all || touched.isTouched( vertex )
             || ( concerned
                  && ( touched.isNear( vertex ) || std::ranges::count( differs, vertex ) > 0 ) );
   }

   Storm & storm;
   CspfLabelMemory & memory;
   CspfLinkConstraint constraint;
   CspfRunOptions options;
   std::vector< CspfEdge > refused;
   std::vector< std::pair< CspfEdge, uint64_t > > held;
   std::optional< CspfLabels > labels;
   CspfOverlay overlay;
   CspfTouched touched;
   std::vector< CspfVertex > differs;
   uint64_t epoch = 0, steps = 0;
   bool all = false, concerned = false;
};

/// A tree that follows beside.
struct FollowedTree {
   using Picture =
      std::vector< std::tuple< CspfCost, std::vector< CspfEdge >, std::vector< CspfVertex > > >;

   /// By vertex: cost, last links, and where these come from; then all that are reached.
   static Picture picture( const CspfGraph & graph, const CspfTree & tree ) {
      Picture picture;
      for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
         const auto links = tree.lastLinks( CspfVertex{ v } );
         std::vector< CspfVertex > from;
         for ( const CspfEdge link : links ) {
            from.push_back( graph.from( link ) );
         }
         picture.emplace_back( tree.cost( CspfVertex{ v } ),
                               std::vector( links.begin(), links.end() ), std::move( from ) );
      }
      const auto all = tree.reachedVertices();
      std::vector< CspfVertex > reached( all.begin(), all.end() );
      std::ranges::sort( reached );
      picture.emplace_back( CspfCost(), std::vector< CspfEdge >(), std::move( reached ) );
      return picture;
   }

   void follow( const CspfGraph & graph, const CspfLinkConstraint & constraint,
                const CspfRunOptions & options ) {
      filter.apply( graph, constraint );
      run.run( graph, filter, options, whole );
      const bool reshaped = graph.reshapedAt() > position;
      const auto changes =
         graph.changes().since( std::exchange( position, graph.changes().end() ) );
      const uint64_t serial = kept.serial();
      const Picture before = std::exchange( last, picture( graph, whole ) );
      const bool follows = changes && repair.follow( graph, filter, *changes, reshaped, kept );
      if ( !follows ) {
         run.run( graph, filter, options, kept );
      }
      ASSERT_TRUE( picture( graph, kept ) == last );
      ASSERT_EQ( kept.graphVersion(), graph.version() );
      if ( !follows ) {
         ++runs;
         return;
      }
      const bool isSame = kept.serial() == serial;
      ASSERT_TRUE( last == before ? isSame || reshaped : !isSame );
      ( isSame ? stayed : moved ) += 1;
   }

   CspfTreeRun run;
   CspfTreeRepair repair;
   CspfLinkFilter filter;
   CspfTree whole, kept;
   Picture last;
   uint64_t position = 0;
   uint32_t stayed = 0, moved = 0, runs = 0;
};

TEST( CspfLabels, whatFollowsIsWhatARunFinds ) {
   CspfLabelMemory memory;
   FollowedTree followed;
   CspfTreeRun run;
   CspfTree tree;
   CspfLinkFilter filter;
   uint32_t told = 0, spared = 0;
   for ( uint32_t seed = 1; seed <= 300; ++seed ) {
      SCOPED_TRACE( seed );
      Storm storm( seed );
      const uint32_t widths[] = { 2, 6, 1000, 0xFFFFFE }, vertices = seed % 3 ? 90 : 20;
      storm.widestMetric = widths[ seed % 4 ];
      while ( storm.graph.vertices() < vertices ) {
         storm.addVertex();
      }
      while ( storm.graph.edges() < vertices * 4 ) {
         storm.addLink();
      }
      Follower follower( storm, memory );
      followed.position = 0;
      std::vector< std::vector< CspfEdge > > before;
      for ( int step = 0; step < 60 && storm.graph.isRouter( follower.constraint.root ); ++step ) {
         for ( uint32_t events = storm.pick( 4 ); events > 0; --events ) {
            const uint32_t kind = storm.pick( 40 );
            kind == 0 ? storm.changeRouter() : kind < 14 ? storm.addLink() : storm.changeLink();
         }
         if ( step % 20 == 10 ) {
            storm.cutOff( follower.constraint.root );
         }
         for ( int links = step % 20 == 11 ? 6 : 0; links > 0; --links ) {
            storm.addLinkOf( follower.constraint.root );
         }
         if ( !storm.graph.has( follower.constraint.root ) || !follower.follow() ) {
            break;
         }
         ASSERT_NO_FATAL_FAILURE(
            followed.follow( storm.graph, follower.constraint, follower.options ) );
         CspfLinkConstraint whole = follower.constraint;
         whole.excludedEdges = follower.refused;
         whole.ownReservations = follower.held;
         filter.apply( storm.graph, whole );
         run.run( storm.graph, filter, follower.options, tree );
         const CspfLabelTree kept( storm.graph, *follower.labels, follower.overlay );
         before.resize( storm.graph.vertexBound() );
         CspfVertex last = whole.root;
         for ( const CspfVertex vertex : tree.reachedVertices() ) {
            if ( storm.graph.isRouter( vertex ) ) {
               ASSERT_EQ( kept.finalBefore( storm.graph, last, vertex ),
                          tree.finalBefore( storm.graph, last, vertex ) );
               last = vertex;
            }
         }
         for ( uint32_t v = 0; v < storm.graph.vertexBound(); ++v ) {
            const CspfVertex vertex{ v };
            if ( !storm.graph.has( vertex ) ) {
               continue;
            }
            ASSERT_EQ( kept.metric( vertex ), tree.metric( vertex ) ) << v << " at step " << step;
            ASSERT_TRUE( !kept.reached( vertex ) || kept.cost( vertex ) == tree.cost( vertex ) );
            const auto links = kept.lastLinks( vertex );
            ASSERT_TRUE( std::ranges::equal( links, tree.lastLinks( vertex ) ) ) << v;
            const bool same = std::ranges::equal( links, before[ v ] );
            ASSERT_TRUE( same || follower.tellsOf( vertex ) ) << v << " at step " << step;
            ( follower.tellsOf( vertex ) ? told : spared ) += 1;
            before[ v ] = { links.begin(), links.end() };
         }
      }
   }
   EXPECT_GT( spared, told );
   EXPECT_GT( followed.stayed, 1000u );
   EXPECT_GT( followed.moved, 1000u );
   EXPECT_GT( followed.runs, 300u );
}

}
