// Runs and their results, on a topology store without the rest of the agent. Random networks are
// judged by the algorithm as one would write it down: a tentative list of links in the order of
// their keys, over the records of the view, without any compact graph.

#include "platform/Trace/Gemtrace.h"
#include "tests/RandomLab.h"
#include "tests/TopoStore.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

using namespace Cspf;

namespace {

TEST( CspfRun, hopsAreDescribedLinkByLink ) {
   TopoStore store( "A -10{srlg 3 srlg 9}- B -10- C; C =lan1= D E; A -50- E" );
   EXPECT_EQ( store.path( "10.0.0.4" ), "10.64.0.3 10.64.0.5 10.128.1.4" );
   EXPECT_EQ( text( store.last.pathTeRouterId->pathTeRouterId() ), "10.0.0.2 10.0.0.3 10.0.0.4" );
   ASSERT_EQ( store.last.pathSrlg->hopCount(), 3u );
   EXPECT_EQ( text( store.last.pathSrlg->pathSrlg()[ 0 ].srlgList() ), "3 9" );
   EXPECT_TRUE( store.last.pathSrlg->pathSrlg()[ 1 ].srlgList().empty() );
   EXPECT_TRUE( store.last.includeIps->includeIp().empty() );
   // Unchanged results are the same records.
   const CspfPathResult before = store.last;
   store.path( "10.0.0.4" );
   EXPECT_EQ( store.last.path, before.path );
   EXPECT_EQ( store.last.pathSrlg, before.pathSrlg );
   EXPECT_EQ( store.last.pathTeRouterId, before.pathTeRouterId );
   EXPECT_EQ( store.last.includeIps, before.includeIps );
   // Hops that were given before the path was a run's are gone.
   IncludeIps::List given;
   given.push( { ip( "10.0.0.2" ), ip( "10.0.0.2" ) } );
   store.last.includeIps = Lum::make< const IncludeIps >( std::move( given ) );
   store.path( "10.0.0.4" );
   EXPECT_TRUE( store.last.includeIps->includeIp().empty() );
}

TEST( CspfRun, destinationsAreIdsInterfacesAndHostPrefixes ) {
   nlohmann::json core = labTopology( "A -10- B -10- C; A -30- D -30- C" );
   core[ "routers" ][ "B" ][ "prefixes" ][ "192.0.2.7/32" ] = 0;
   core[ "routers" ][ "D" ][ "prefixes" ][ "192.0.2.7/32" ] = 0;
   core[ "routers" ][ "D" ][ "prefixes" ][ "192.0.3.0/24" ] = 0;
   TopoStore store( nlohmann::json{ { "core", core } } );
   EXPECT_EQ( store.path( "10.64.0.4" ), "10.64.0.3" );  // B, by its address towards C
   EXPECT_EQ( store.path( "192.0.2.7" ), "10.64.0.3" );  // B is nearer than D
   EXPECT_EQ( store.path( "192.0.3.0" ), "-" );
   EXPECT_EQ( store.path( "10.0.0.1" ), "" );
   EXPECT_TRUE( store.last.path->isPathFromSourceToSource() );
   EXPECT_EQ( store.path( "10.0.0.2" ), "10.64.0.3" );
   EXPECT_FALSE( store.last.path->isPathFromSourceToSource() );
   EXPECT_EQ( store.path( "10.64.0.2" ), "" );  // an address of our own
}

TEST( CspfRun, singleHopAndReverse ) {
   TopoStore store( "A -10- B -1- C; A -90- C; A =lan1= D; D -1- E; B -10{back 70}- E" );
   const auto oneHop = store.run( {}, { "10.0.0.3", "10.0.0.4", "10.0.0.5" },
                                  []( CspfData & data ) { data.singleHopCountLimitIs( true ); } );
   EXPECT_EQ( store.path( *oneHop, "10.0.0.3" ), "10.64.0.7" );
   EXPECT_EQ( store.path( *oneHop, "10.0.0.4" ), "10.128.1.4" );
   EXPECT_EQ( store.path( *oneHop, "10.0.0.5" ), "-" );
   const auto back = store.run( {}, {}, []( CspfData & data ) { data.buildReverseSptIs( true ); } );
   const NodeId e( ip( "10.0.0.5" ) );
   ASSERT_TRUE( back->shortestPathHas( e ) );
   EXPECT_EQ( back->shortestPath( e ).metricCost(), 11u );  // E to D, D to the LAN
}

TEST( CspfRun, equalCostChoicesStayAndSpread ) {
   TopoStore store( "A -10- B -10- D; A -10- C -10- D; D =lan1= F G; C =lan2= E; E -10- F" );
   std::map< std::string, int > chosen;
   for ( int i = 0; i < 40; ++i ) {
      store.last = {};
      const std::string first = store.path( "10.0.0.5" );
      ++chosen[ first ];
      for ( int again = 0; again < 10; ++again ) {
         ASSERT_EQ( store.path( "10.0.0.5" ), first );
      }
   }
   EXPECT_EQ( chosen.size(), 3u ) << "all paths of least cost, by and by";
}

TEST( CspfRun, choicesAcrossLansKeepToHopsAlone ) {
   TopoStore store( "A -10- B; A -10- C; B =lan1= C D; D -10- E" );
   store.path( "10.0.0.5" );
   const auto inUse = store.last.path;
   for ( int again = 0; again < 40; ++again ) {
      const auto data = store.run( {}, { "10.0.0.5" }, []( CspfData & ) {} );
      const auto path = Lum::make< PathArray >();
      EXPECT_TRUE(
         data->fillHopByHopPathForTep( ip( "10.0.0.5" ), inUse, path, Lum::make< PathSrlg >(),
                                       Lum::make< PathTeRouterId >(), Lum::make< IncludeIps >() ) );
      ASSERT_EQ( path->path(), inUse->path() );
   }
}

TEST( CspfRun, tellsWhatItDoesToWhoeverListens ) {
   nlohmann::json core =
      labTopology( "A -10- B -0- C; B -16777215- D; B -10{group 4}- E; A =lan1= F H; "
                   "A -5- G; G -5- B; B =lan2= J; plain J; A -30- K; G -5- K" );
   core[ "routers" ][ "H" ][ "overload" ] = true;
   for ( const char * owner : { "B", "G" } ) {
      core[ "routers" ][ owner ][ "prefixes" ][ "192.0.2.7/32" ] = 0;
   }
   TopoStore store( nlohmann::json{ { "core", core } } );
   const auto & table = store.tables.begin()->second;
   for ( const auto & [ id, network ] :
         std::map( table->networkColl().begin(), table->networkColl().end() ) ) {
      Routing::Topology::Network wider = network;  // by a router that does not list it
      wider.routerIs(
         store.status->routerIdMap( TopoId::isisL2() )->igpRouterId( ip( "10.0.0.3" ) ) );
      table->networkIs( id, wider );
   }
   InternalPathConstraint constraint;
   constraint.excludeAdminGroupIs( 4 );
   std::string told;
   Gemtrace::sinkIs( [ & ]( int, std::string_view line ) { told.append( line ).append( "\n" ); } );
   store.path( "10.0.0.2", constraint );
   store.path( "192.0.2.7", constraint );
   Gemtrace::sinkIs( nullptr );
   for ( const char * part :
         { "Starting SPF with sourceNode 10.0.0.1 useTeMetric=1 reverseSpt=0",
           "to shortestPathForNetwork", " No TE router id for ", " No neighbor object found for ",
           "adding router 10.0.0.2 to shortestPath via ",
           "adding another equal cost path for router 10.0.0.2", "as its metric is zero",
           "as its link metric is maximum", "has an excluded administrative group",
           "Path back to self found via ",
           "router 10.0.0.8 is already in shortestPath, skipping...",
           "router 10.0.0.10 is already in shortestPath, skipping...", "0|SE-0|SI-0skipping...",
           "::doSearchAndUpdateForTeps(): found TEP 10.0.0.2",
           "already found TEP 192.0.2.7 on router 10.0.0.8", "Overload bit set for router ",
           "creating path with ", " among 2 links for 10.0.0.2 for TEP 10.0.0.2" } ) {
      EXPECT_NE( told.find( part ), std::string::npos ) << part << " in\n" << told;
   }
   EXPECT_EQ( told.find( "adding router 10.0.0.3" ), std::string::npos );
   std::istringstream lines( told );
   for ( std::string line; std::getline( lines, line ); ) {
      const auto tells = [ & ]( const char * text ) { return line.find( text ) != line.npos; };
      if ( tells( "adding " ) ) {  // whatever helps the run
         const std::string operation = tells( "Not adding network" ) ? "doAddNetworkRoutersToTent("
                                       : tells( "Not adding" )       ? "doAddRouterNeighborsToTent("
                                                                     : "doRunCspf(";
         EXPECT_TRUE( line.starts_with( "Cspf::CspfRun::" + operation ) ) << line;
      }
   }
}

/// The run as the tentative list of links would do it, entry by entry.
class Reference {
 public:
   Reference( const AllTopoDbView & view, const CspfData & data ) : view_( view ), data_( data ) {
      paths[ data.source() ].nodeIdIs( data.source() );
      addRouterNeighborsToTent( data.source(), {}, {} );
      while ( !tent_.empty() ) {
         const auto [ key, intfId ] = *tent_.begin();
         tent_.erase( tent_.begin() );
         key.routerLink() ? router( key, intfId ) : network( key, intfId );
      }
   }

   std::map< NodeId, CspfPath > paths;

 private:
   void network( const CspfLinkInfoKey & key, const Kivnet::IntfId & intfId ) {
      const AllTopoNetworkId id = key.allTopoNeighborKey().allTopoNetworkId();
      if ( !finalNetworks_.insert( id ).second ) {
         return;
      }
      const AllTopoNetwork lan = view_.network( id );
      for ( const NodeId & member : lan.routerSet() ) {
         CspfPathCost cost = key.cost();
         if ( view_.neighborAndTepAllowedForTe( key.allTopoNeighborKey(), member ).neighborAllowed()
              && ( !data_.buildReverseSpt()
                   || add( data_.getReverseMetricNetwork( id, member ), cost ) ) ) {
            tent_.insert( { { key.allTopoNeighborKey(), member, cost }, intfId } );
         }
      }
   }

   /// False where the metric rules refuse that step.
   static bool add( std::uint32_t metric, CspfPathCost & cost ) {
      const std::uint64_t total = std::uint64_t( cost.metricCost() ) + metric;
      cost.metricCostIs( static_cast< std::uint32_t >( total ) );
      return metric != 0 && metric <= 0xFFFFFE && total <= 0xFDFFFFFF;
   }

   void router( const CspfLinkInfoKey & key, const Kivnet::IntfId & intfId ) {
      const NodeId node =
         key.routerInNetwork() ? key.routerInNetwork() : key.allTopoNeighborKey().neighborId();
      const bool fresh = !paths.contains( node );
      CspfPath & path = paths[ node ];
      const auto & known = path.lastLinkSet();
      if ( node != data_.source()
           && ( fresh || known.begin()->cspfLinkInfoKey().equalCost( key ) ) ) {
         path.nodeIdIs( node );
         path.lastLinkIs( { key, intfId } );
      }
      if ( fresh ) {
         addRouterNeighborsToTent( node, key.cost(), intfId );
      }
   }

   void addRouterNeighborsToTent( const NodeId & node, const CspfPathCost & before,
                                  const Kivnet::IntfId & inherited ) {
      const AllTopoRouter near = view_.router( node );
      for ( const AllTopoNeighborKey & link : near.neighborSet() ) {
         const auto * record = view_.neighbor( link );
         if ( !record || !view_.neighborAndTepAllowedForTe( link ).neighborAllowed() ) {
            continue;
         }
         const bool reverse = data_.buildReverseSpt();
         CspfPathCost cost = before;
         if ( reverse && link.isLan()
                 ? data_.getReverseLinkMetric( link ) != 0
                 : !add( reverse ? data_.getReverseLinkMetric( link )
                                 : record->teMetric().value_or( record->metric() ),
                         cost ) ) {
            continue;
         }
         cost.srlgExcludeInfoIs( before.srlgExcludeInfo() + view_.srlgExcludeInfo( link ) );
         cost.srlgIncludeInfoIs( before.srlgIncludeInfo() + view_.srlgIncludeInfo( link ) );
         const bool ours = node == view_.getOurSourceId();
         tent_.insert( { { link, {}, cost }, ours ? record->intfId() : inherited } );
      }
   }

   const AllTopoDbView & view_;
   const CspfData & data_;
   std::set< CspfLinkInfo > tent_;
   std::set< AllTopoNetworkId > finalNetworks_;
};

/// A constraint that refuses some of a random network's links and ranks others.
InternalPathConstraint
randomConstraint( const TopoStore & store, std::mt19937 & random ) {
   InternalPathConstraint c;
   const auto rarely = [ & ]() { return random() % 4 == 0; };
   const auto table = std::next( store.tables.begin(), long( random() % store.tables.size() ) );
   if ( rarely() ) {
      c.topoIdIs( table->first );
   }
   for ( const auto & [ key, link ] : table->second->neighborColl() ) {
      if ( random() % 16 == 0 && link.interfaceAddrs() ) {
         c.excludeLinkWithIp_.push( link.interfaceAddrList()[ 0 ] );
      } else if ( random() % 8 == 0 ) {
         c.excludeIntfIs( link.intfId() );
         c.excludeAdminGroupIs( rarely() ? link.adminGroup() : 0 );
         c.includeAnyAdminGroupIs( rarely() ? ~link.adminGroup() : 0 );
      }
      for ( const auto srlg : link.srlgList() ) {
         if ( rarely() ) {
            random() % 3 ? c.excludeSrlgDerivedIs( srlg ) : c.includeSrlgDerivedIs( srlg );
         }
      }
   }
   c.excludeSrlgIs( rarely() );
   c.srlgStrictModeIs( rarely() );
   c.srlgExcludeOnlyLocalLinksIs( rarely() );
   return c;
}

TEST( CspfRun, isTheTentativeListPlayedOut ) {
   std::size_t reached = 0, tied = 0;
   for ( unsigned seed = 0; seed < 100; ++seed ) {
      std::mt19937 random( seed );
      TopoStore store( RandomLab( seed ).document()[ "topologies" ], "R0" );
      for ( int i = 0; i < 4; ++i ) {
         const InternalPathConstraint constraint = randomConstraint( store, random );
         store.view = Lum::make< AllTopoTeDbView >( store.allTopoDb, store.status, constraint );
         if ( !store.view->router( store.us ).nodeId() ) {
            break;
         }
         const auto data = store.run(
            constraint, {}, [ & ]( CspfData & asked ) { asked.buildReverseSptIs( i % 2 == 1 ); } );
         const auto expected = Reference( *store.view, *data ).paths;
         for ( std::uint32_t v = 0; v < store.view->graph().vertexBound(); ++v ) {
            if ( !store.view->graph().has( CspfVertex{ v } )
                 || !store.view->graph().isRouter( CspfVertex{ v } ) ) {
               continue;
            }
            const NodeId node = store.view->topoGraph().nodeId( CspfVertex{ v } );
            const auto path = expected.find( node );
            ASSERT_EQ( data->shortestPathHas( node ), path != expected.end() )
               << "seed " << seed << " " << node.stringValue() << " "
               << Lum::valueString( constraint );
            if ( path != expected.end() ) {
               ASSERT_EQ( Lum::valueString( data->shortestPath( node ) ),
                          Lum::valueString( path->second ) )
                  << "seed " << seed;
               ++reached;
               tied += path->second.lastLinks() > 1;
            }
         }
      }
   }
   EXPECT_GT( reached, 1000u );
   EXPECT_GT( tied, 20u );
}

}
