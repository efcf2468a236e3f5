// Constraints that follow the topology in place of being computed anew. Every answer that the agent
// gives in this program without a run is checked against a run, which stops it at a difference; and
// an agent that is made to run, since every step of it is traced, must look the same at any moment.

#include "Cspf/Runs/KeptAnswers.h"
#include "platform/Trace/Gemtrace.h"
#include "tests/Lab.h"
#include "tests/RandomLab.h"
#include "tests/RepairStorm.h"
#include "tests/TopoStore.h"
#include "tools/lab/LabJson.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <utility>

using Json = nlohmann::json;

namespace {

class Verified : public testing::Environment {
   void SetUp() override { setenv( "CSPF_VERIFY_REPAIR", "1", 1 ); }
};
[[maybe_unused]] const auto * const verified = testing::AddGlobalTestEnvironment( new Verified );

/// The text without the numbers of so many digits that stand behind each mark.
std::string
without( const std::string & text, std::string_view mark, const char * digits,
         std::size_t atLeast ) {
   std::string rest;
   std::size_t done = 0;
   for ( std::size_t at = 0; ( at = text.find( mark, at ) ) != text.npos; ) {
      at += mark.size();
      const std::size_t end = std::min( text.find_first_not_of( digits, at ), text.size() );
      if ( end - at >= atLeast ) {
         rest.append( text, done, at - done );
         done = end;
      }
   }
   return rest.append( text, done );
}

/// Everything that can be seen of an agent, but where it keeps it and which numbers were used up.
std::string
wholeState( TestLab & lab ) {
   Json state = lab.snapshot();
   for ( auto & [ path, table ] : state.items() ) {
      if ( table[ "type" ] == "Cspf::ConstraintStatusTable" ) {
         std::map< unsigned long, Json > bySerial;
         for ( const auto & [ serial, row ] : table[ "value" ][ "constraintStatus" ].items() ) {
            bySerial[ std::stoul( serial ) ] = row;
         }
         Json rows = Json::array();
         for ( const auto & [ serial, row ] : bySerial ) {
            rows.push_back( row );
         }
         table[ "value" ] = rows;
      }
   }
   return state.dump()
          + without( without( lab.dump(), "0x", "0123456789abcdef", 6 ), "Constraint #",
                     "0123456789", 1 );
}

/// A network of sixty routers, some on LANs, with few metrics: many paths are equal. What links
/// have left of their bandwidth is drawn anew all the time, whatever paths hold there.
class WideStorm {
 public:
   explicit WideStorm( unsigned seed ) : engine_( seed ) {}

   std::string text() {
      std::string text;
      for ( unsigned n = 0; n < routers; ++n ) {
         text += link( n, ( n + 1 ) % routers ) + link( n, below( routers ) );
      }
      for ( const unsigned lan : { 1, 2 } ) {
         text += router( 9 * lan + below( 9 ) ) + " =lan" + std::to_string( lan ) + "= "
                 + router( 30 + below( 15 ) ) + " " + router( 45 + below( 15 ) ) + "; ";
      }
      return text + "A -7{bw 100}- R1; A -7{bw 100}- R1; A -9{bw 100}- R30";
   }

   /// Two interfaces of the agent's router have SRLGs, and some links are in two levels.
   static Json more( const std::string & text ) {
      const Json core = labTopology( text );
      Json level1{ { "numbers", { 1, 0 } }, { "routers", core[ "routers" ] } };
      for ( const auto & [ name, link ] : core[ "links" ].items() ) {
         if ( level1[ "links" ].size() < core[ "links" ].size() / 10 ) {
            level1[ "links" ][ name ] = link;
         }
      }
      return {
         { "topologies", { { "level1", level1 } } },
         { "interfaces",
           { { "A-R1.a", { { "srlg", { 1, 2 } } } }, { "A-R30.a", { { "srlg", { 3 } } } } } } };
   }

   void event( TestLab & lab ) {
      const Json & links = lab.document()[ "topologies" ][ "core" ][ "links" ];
      const std::string name = std::next( links.begin(), below( links.size() ) ).key();
      switch ( below( 11 ) ) {
      case 0: ask( lab ); break;
      case 1: ownLinks( lab, links ); break;
      case 2: lab.link( name, { { "up", false } } ); break;
      case 3: lab.link( name, { { "up", true } } ); break;
      case 4: lab.link( name, { { "srlg", { 1 + below( 5 ) } } } ); break;
      case 5: lab.link( name, { { "adminGroup", below( 8 ) } } ); break;
      case 6:
         lab.patch( { { "topologies",
                        { { "core",
                            { { "routers",
                                { { router( below( routers ) ),
                                    { { "overload", below( 2 ) == 0 } } } } } } } } } } );
         break;
      case 7: lab.link( name, { { "unreserved", 10 * below( 11 ) } } ); break;
      case 8:
         lab.link( name, { { "ab", { { "unreserved", { 0, 0, 0, 0, 9, 50, 50, 50 } } } } } );
         break;
      default: lab.link( name, { { "metric", 1 + below( 4 ) } } );
      }
   }

   /// The router's own links are full, or have room again: who holds bandwidth there reaches all.
   void ownLinks( TestLab & lab, const Json & links ) {
      Json change;
      const unsigned left = below( 3 ) ? 0 : 100;
      for ( const auto & [ name, link ] : links.items() ) {
         if ( link[ "a" ] == "A" || link[ "b" ] == "A" ) {
            change[ name ][ "unreserved" ] = left;
         }
      }
      lab.patch( { { "topologies", { { "core", { { "links", change } } } } } } );
   }

   void ask( TestLab & lab ) {
      const unsigned n = paths_ > 20 && below( 4 ) == 0 ? 1 + below( paths_ ) : ++paths_;
      lab.request( n % 9 ? "cli" : "rsvp", "p" + std::to_string( n ), router( below( routers ) ),
                   constraint(), { { "id", n } } );
   }

   Json constraint() {
      Json constraint = Json::object();
      const std::string address = "10.64.0." + std::to_string( 2 + below( 240 ) );
      switch ( below( 11 ) ) {
      case 0: constraint[ "excludeLinkWithIp" ] = { address }; break;
      case 1: constraint[ "excludeIntf" ] = "A-R1.a"; break;
      case 2:
         constraint[ "excludeNode" ] = { { "node", router( below( routers ) ) },
                                         { "nexthopIntf", "A-R1.a" } };
         break;
      case 3: constraint[ "excludeAdminGroup" ] = 1 << below( 3 ); break;
      case 4:
      case 5:
         constraint[ "bandwidth" ] = 10 * ( 1 + below( 6 ) );
         constraint[ "bwSetupPriority" ] = below( 8 );
         constraint[ "sharedBwGroupId" ] = below( 5 );
         break;
      case 6: constraint[ "reversePath" ] = true; break;
      case 7:
      case 8:
         constraint[ "excludeIntf" ] = below( 2 ) ? "A-R1.a" : "A-R30.a";
         constraint[ "excludeSrlg" ] = true;
         break;
      case 9:
         constraint[ "includeHop" ] = {
            { { "addr", "10.0.0." + std::to_string( 2 + below( routers ) ) }, { "loose", true } } };
         break;
      default: break;
      }
      if ( below( 6 ) == 0 ) {
         constraint[ "excludeLinkWithIp" ] = { address };
      }
      return constraint;
   }

   unsigned below( std::size_t n ) { return static_cast< unsigned >( engine_() % n ); }

 private:
   static constexpr unsigned routers = 60;
   std::string router( unsigned n ) const { return "R" + std::to_string( n ); }
   std::string link( unsigned a, unsigned b ) {
      return a == b ? ""
                    : router( a ) + " -" + std::to_string( 1 + below( 4 ) ) + "{bw 100}- "
                         + router( b ) + "; ";
   }

   std::mt19937 engine_;
   unsigned paths_ = 0;
};

/// The states of an agent in a storm, one after the other.
std::vector< std::string >
statesOfWideStorm( unsigned seed ) {
   std::srand( seed );
   WideStorm storm( seed );
   const std::string text = storm.text();
   TestLab lab( text, storm.more( text ) );
   for ( int n = 0; n < 60; ++n ) {
      storm.ask( lab );
   }
   std::vector< std::string > states;
   for ( int event = 0; event < 40; ++event ) {
      storm.event( lab );
      lab.advance( 0.001 * storm.below( 500 ) );
      states.push_back( wholeState( lab ) );
   }
   lab.settle();
   states.push_back( wholeState( lab ) );
   return states;
}

std::vector< std::string >
statesOfRandomLab( unsigned seed ) {
   std::srand( seed );
   RandomLab random( seed, RandomLab::Kind( seed % 3 ) );
   auto lab = TestLab::of( random.document() );
   std::vector< std::string > states;
   for ( int event = 0; event < 30; ++event ) {
      try {
         lab.patch( random.event( lab.document() ) );
      } catch ( const Lab::LabError & ) {
         continue;
      }
      lab.advance( 0.001 * random.below( 400 ) );
      states.push_back( wholeState( lab ) );
   }
   return states;
}

std::vector< std::string >
statesOfRepairStorm( unsigned seed ) {
   RepairStorm storm( seed );
   std::vector< std::string > states;
   for ( int event = 0; event < 30; ++event ) {
      try {
         storm.event();
      } catch ( const Lab::LabError & ) {
         continue;
      }
      storm.lab().advance( 0.001 * storm.below( 700 ) );
      states.push_back( wholeState( storm.lab() ) );
   }
   storm.lab().settle();
   states.push_back( wholeState( storm.lab() ) );
   return states;
}

/// What the storm does while whoever traces every step has every step made.
std::vector< std::string >
whileRunning( const std::function< std::vector< std::string >() > & storm ) {
   Gemtrace::sinkIs( []( int, std::string_view ) {}, 9 );
   auto states = storm();
   Gemtrace::sinkIs( nullptr );
   return states;
}

void
expectSame( const std::vector< std::string > & followed, const std::vector< std::string > & run ) {
   ASSERT_EQ( followed.size(), run.size() );
   for ( std::size_t i = 0; i < run.size(); ++i ) {
      const auto at = std::ranges::mismatch( followed[ i ], run[ i ] ).in1 - followed[ i ].begin();
      const std::size_t from = at < 400 ? 0 : static_cast< std::size_t >( at ) - 400;
      ASSERT_TRUE( followed[ i ] == run[ i ] ) << "state " << i << "\n"
                                               << followed[ i ].substr( from, 600 ) << "\n--- not\n"
                                               << run[ i ].substr( from, 600 );
   }
}

}

TEST( Follow, AnAgentThatFollowsLooksLikeOneThatRuns ) {
   for ( unsigned seed = 1; seed <= 12; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      const auto small = [ = ]() { return statesOfRandomLab( seed ); };
      ASSERT_NO_FATAL_FAILURE( expectSame( small(), whileRunning( small ) ) );
      if ( seed % 4 == 0 ) {
         const auto wide = [ = ]() { return statesOfWideStorm( seed ); };
         ASSERT_NO_FATAL_FAILURE( expectSame( wide(), whileRunning( wide ) ) );
      }
   }
}

TEST( Follow, ARouterThatKeepsItsTreesLooksLikeOneThatRunsThem ) {
   for ( unsigned seed = 1; seed <= 16; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      const auto storm = [ = ]() { return statesOfRepairStorm( seed ); };
      ASSERT_NO_FATAL_FAILURE( expectSame( storm(), whileRunning( storm ) ) );
   }
}

/// Nobody is told of a change that concerns nobody, and it counts as a run all the same.
TEST( Follow, AChangeThatConcernsNobodyTouchesNoPath ) {
   TestLab lab( "A -10- B -10- C -10- D; A -50- D; A -90- C; A -10- B" );
   for ( int n = 0; n < 50; ++n ) {
      lab.request( "cli", "p" + std::to_string( n ), n % 2 ? "C" : "B", Json::object(),
                   { { "id", n } } );
   }
   lab.settle();
   std::size_t stages = 0, resets = 0;
   Gemtrace::sinkIs(
      [ & ]( int, std::string_view text ) {
         stages += text.find( "Trigger stage2" ) != text.npos;
         resets += text.starts_with( "Cspf::PathRefreshSm::handleTopoChanged(): topoChangedAt" );
      },
      8 );
   const std::uint32_t runs = lab.runs();
   lab.link( "A-D", { { "metric", 60 } } );
   lab.settle();
   EXPECT_EQ( stages, 0u );
   EXPECT_EQ( resets, 50u ) << "each is told of all the same";
   EXPECT_EQ( lab.runs(), runs + 1 );
   EXPECT_NE( lab.dump().find( "Path Refresh Stage1 Count: 2" ), std::string::npos );
   lab.link( "B-C", { { "metric", 85 } } );
   lab.settle();
   EXPECT_GE( stages, 25u ) << "the paths to C";
   stages = 0;
   lab.link( "A-C", { { "metric", 95 } } );
   lab.settle();
   EXPECT_LE( stages, 25u ) << "of those to B as much is known as before";
   stages = 0;
   lab.link( "A-C", { { "metric", 96 } } );
   lab.request( "cli", "p0", "B", Json::object(), { { "id", 0 }, { "refreshReqSeq", 1 } } );
   lab.settle();
   EXPECT_LE( stages, 26u ) << "also where one of them asks";
   EXPECT_EQ( lab.status( "cli", "p0" )->refreshRespSeq(), 1u );
   EXPECT_EQ( lab.path( "cli", "p1" ), "A D C" );
   Gemtrace::sinkIs( nullptr );
}

/// Repairs, too, are not worked out again for a change that they do not read; it counts all the
/// same.
TEST( Follow, AChangeThatNoRepairReadsTouchesNone ) {
   const Json clients{
      { "tilfa",
        { { "vrf", { { "default", true } } }, { "addressFamily", { { "ipv4", true } } } } } };
   TestLab lab( "A -1- B -1- C -1- D -1- E -1- A; B -900- D", { { "clients", clients } } );
   const Json link{ { "excludeIntf", "A-B.a" } };
   const Json node{ { "excludeIntf", "A-B.a" },
                    { "excludeNode", { { "node", "B" }, { "nexthopIntf", "A-B.a" } } } };
   for ( int n = 0; n < 20; ++n ) {
      lab.request( "tilfa", std::to_string( n ), n % 2 ? "C" : "D", n % 3 ? link : node,
                   { { "id", n } } );
   }
   lab.settle();
   const std::uint32_t trees = lab.runs();
   std::size_t computed = 0;
   Gemtrace::sinkIs(
      [ & ]( int, std::string_view text ) {
         computed += text.starts_with( "Cspf::Lfa::PqComputeSm::handleCspfData(): called" );
      },
      8 );
   std::uint32_t runs = trees;
   const auto computedAfter = [ & ]( const std::string & name, const Json & change ) {
      computed = 0;
      lab.link( name, change );
      lab.settle();
      runs += trees;
      EXPECT_EQ( lab.runs(), runs ) << name << change;
      return computed;
   };
   EXPECT_EQ( computedAfter( "B-D", { { "metric", 901 } } ), 0u );
   EXPECT_EQ( computedAfter( "B-D", { { "up", false } } ), 0u );
   EXPECT_EQ( computedAfter( "C-D", { { "unreserved", 7 } } ), 0u ) << "of a link of all trees";
   EXPECT_NE( lab.dump().find( "Path Refresh Stage2 Count: 4" ), std::string::npos );
   EXPECT_EQ( computedAfter( "C-D", { { "metric", 2 } } ), 20u );
   EXPECT_EQ( computedAfter( "E-A", { { "adminGroup", 1 } } ), 20u ) << "a link of its own";
   EXPECT_NE( lab.dump().find( "Path Refresh Stage2 Count: 6" ), std::string::npos );
   Gemtrace::sinkIs( nullptr );
}

TEST( Follow, ConstraintsThatRefuseALinkEachShareLabelsWhereMostStaysAsItIs ) {
   std::string chain = "A";
   for ( unsigned n = 1; n < 20; ++n ) {
      chain += " -1- R" + std::to_string( n );
   }
   Cspf::TopoStore store( chain.c_str() );
   Cspf::SharedLabels shared;
   const auto reachesEnd = [ & ]( const char * refused, Cspf::KeptAnswers & kept ) {
      Cspf::InternalPathConstraint constraint;
      constraint.excludeLinkWithIpIs( 0, Cspf::ip( refused ) );
      const Cspf::AllTopoTeDbView view( store.allTopoDb, store.status, constraint );
      EXPECT_TRUE( kept.follow( view, store.us, shared ) );
      const Cspf::CspfVertex end =
         view.topoGraph().vertex( Cspf::NodeId( Cspf::ip( "10.0.0.20" ) ) );
      return kept.tree( view.graph() ).reached( end );
   };
   Cspf::KeptAnswers none, last, nextToLast, first;
   EXPECT_TRUE( reachesEnd( "10.99.0.1", none ) );
   EXPECT_FALSE( reachesEnd( "10.64.0.38", last ) );
   EXPECT_FALSE( reachesEnd( "10.64.0.36", nextToLast ) );
   EXPECT_FALSE( reachesEnd( "10.64.0.2", first ) );
   const Cspf::AllTopoTeDbView plain( store.allTopoDb, store.status, {} );
   const auto labels = shared.labels( plain.graph(), plain.linkConstraint( store.us ), false );
   EXPECT_EQ( labels.use_count(), 4 ) << "of the first three, and here";
}
