// The topology store against the tables that it imports. Storms of random records, half written
// ones included, hit a store that lives on; at any moment it must hold what a store holds that
// reads the tables at that moment, and its graphs must say of each link what plain look-ups say.

#include "platform/Trace/Trace.h"
#include "tests/TopoStorm.h"

#include <gmock/gmock.h>
#include <sstream>

using namespace TopoStorm;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Everything that the graph holds, by key; what depends on its numbers alone is left out.
std::set< std::string >
contents( const TopoGraph & topology ) {
   const CspfGraph & graph = topology.graph();
   EXPECT_EQ( graph.inconsistency(), "" );
   std::set< std::string > lines;
   std::map< AllTopoNeighborKey, std::uint64_t > ranks;
   for ( unsigned v = 0; v < graph.vertexBound(); ++v ) {
      if ( const CspfVertex vertex{ v }; graph.has( vertex ) ) {
         lines.insert( graph.isRouter( vertex )
                          ? topology.nodeId( vertex ).stringValue()
                               + ( graph.overloaded( vertex ) ? " full" : "" )
                          : Lum::valueString( topology.networkId( vertex ) ) );
      }
   }
   for ( unsigned e = 0; e < graph.edgeBound(); ++e ) {
      const CspfEdge edge{ e };
      if ( !graph.has( edge ) ) {
         continue;
      }
      const CspfEdgeRecord record = graph.record( edge );
      std::ostringstream line;
      line << topology.neighborKey( edge ).stringValue() << int( graph.kind( edge ) ) << " "
           << record.igpMetric << " " << record.teMetric.value_or( 0 ) << " " << record.adminGroup
           << " " << record.unreserved[ 7 ] << " " << record.interface << " "
           << ( record.topology
                == topology.topologyNumber( topology.neighborKey( edge ).topoId() ) )
           << " " << graph.twoWay( edge ) << " " << topology.nextHop( edge ).stringValue();
      for ( const auto srlg : record.srlgs ) {
         line << " s" << srlg;
      }
      if ( const CspfEdge reverse = graph.reverse( edge ); reverse != noEdge ) {
         line << " back " << topology.neighborKey( reverse ).stringValue();
      }
      lines.insert( line.str() );
      if ( graph.kind( edge ) != CspfEdgeKind::networkToRouter ) {
         ranks[ topology.neighborKey( edge ) ] = graph.keyRank( edge );
         EXPECT_EQ( topology.edge( topology.neighborKey( edge ) ), edge );
      }
   }
   std::uint64_t last = 0;
   for ( const auto & [ key, rank ] : ranks ) {
      EXPECT_GT( rank, std::exchange( last, rank ) ) << key.stringValue();
   }
   return lines;
}

/// The links that the graph holds.
std::set< AllTopoNeighborKey >
linksOf( const TopoGraph & topology ) {
   std::set< AllTopoNeighborKey > links;
   const CspfGraph & graph = topology.graph();
   for ( unsigned e = 0; e < graph.edgeBound(); ++e ) {
      const CspfEdge edge{ e };
      if ( graph.has( edge ) && graph.kind( edge ) != CspfEdgeKind::networkToRouter ) {
         EXPECT_TRUE( links.insert( topology.neighborKey( edge ) ).second );
      }
   }
   return links;
}

/// Everything that the store holds but its graphs.
std::set< std::string >
contents( const Store & store ) {
   std::set< std::string > lines;
   for ( const auto & [ topoId, map ] : store.status->routerIdMapColl() ) {
      for ( const auto & [ id, te ] : map->teRouterIdColl() ) {
         lines.insert( topoId.stringValue() + id.stringValue() + " is " + te.stringValue() );
         EXPECT_EQ( map->igpRouterId( te ), id );
      }
      EXPECT_EQ( map->igpRouterIds(), map->teRouterIds() );
   }
   for ( const auto & [ topoId, table ] : store.status->pfxOriginatorInfoTableColl() ) {
      for ( const auto & [ prefix, info ] : table->pfxOriginatorInfoColl() ) {
         EXPECT_GT( info->originatorInfos(), 0u );
         for ( const auto & [ node, originator ] : info->originatorInfoColl() ) {
            lines.insert( prefix.stringValue() + topoId.stringValue()
                          + Lum::valueString( originator ) );
         }
      }
   }
   std::set< IpGenAddr > withOwner;
   for ( const auto & [ address, entry ] :
         store.status->intfIpToNeighborTable()->intfIpToNeighborColl() ) {
      lines.insert( address.stringValue() + Lum::valueString( entry.neighborSet() ) );
      std::set< IpGenAddr > owners;
      for ( const AllTopoNeighborKey & link : entry.neighborSet() ) {
         owners.insert( link.teNeighborOf() );
      }
      owners.erase( IpGenAddr() );
      if ( !owners.empty() ) {
         withOwner.insert( address );  // which of several owners is published is open
         EXPECT_TRUE( owners.contains( store.published->intfIpToRouterId( address ) ) );
      }
   }
   EXPECT_EQ( store.published->intfIpToRouterIds(), withOwner.size() );
   return lines;
}

/// The tables as they would be if routers that do not own their TE router id had none. Each id has
/// one owner among those that carry it; all others are parked.
Lum::Ptr< AllTopoDb >
withoutParked( const Store & store ) {
   const auto tables = Lum::make< AllTopoDb >();
   for ( const auto & [ topoId, table ] : store.tables->topoDbColl() ) {
      const auto & map = store.status->routerIdMap( topoId );
      std::map< IpGenAddr, std::set< IgpRouterId > > carriers, known;
      const auto copy = Lum::make< TopoDb >();
      for ( auto [ id, router ] : table->routerColl() ) {
         carriers[ router.teRouterId() ].insert( id );
         router.teRouterIdIs( map->teRouterId( id ) );
         copy->routerIs( id, router );
      }
      carriers.erase( IpGenAddr() );
      for ( const auto & [ te, owner ] : map->igpRouterIdColl() ) {
         known[ te ].insert( owner );
      }
      for ( const auto & [ te, duplicates ] : map->duplicateRoutersColl() ) {
         EXPECT_TRUE( known.contains( te ) );
         for ( const auto & [ id, parked ] : duplicates->routerColl() ) {
            EXPECT_TRUE( known[ te ].insert( id ).second );
         }
      }
      EXPECT_EQ( known, carriers );
      for ( const auto & [ key, entry ] : table->neighborColl() ) {
         copy->neighborIs( key, entry );
      }
      for ( const auto & [ id, network ] : table->networkColl() ) {
         copy->networkIs( id, network );
      }
      for ( const auto & [ id, record ] : table->reachabilityColl() ) {
         copy->reachabilityIs( id, record );
      }
      tables->topoDbIs( topoId, copy );
   }
   return tables;
}

}

/// Tables that come and go do so at once, or by slices while they change.
TEST( TopoStore, IsTheSameAsFromScratchAfterStorms ) {
   std::size_t parked = 0, betweenSlices = 0;
   for ( unsigned seed = 1; seed <= 40; ++seed ) {
      SCOPED_TRACE( seed );
      Storm storm( seed );
      Store store( Lum::make< AllTopoDb >(), Lum::make< IntfIpToRouterIdTable >(), seed % 4 );
      std::shared_ptr< TopoGraph > lfa;
      for ( unsigned round = 0; round < 40; ++round ) {
         for ( unsigned i = 0; i < 12; ++i ) {
            storm.strike( store );
            betweenSlices += store.status->imports() > 0;
            if ( storm.below( 2 ) ) {
               store.loop.runOnce( 0 );
            }
         }
         ASSERT_TRUE( store.loop.settle() );
         ASSERT_EQ( store.status->imports(), 0u );
         const Store fresh( withoutParked( store ) );
         ASSERT_EQ( contents( store ), contents( fresh ) );
         ASSERT_EQ( contents( store.te() ), contents( fresh.te() ) );
         if ( lfa ) {
            ASSERT_EQ( contents( *lfa ), contents( *fresh.status->lfaGraph() ) );
         }
         lfa = storm.below( 3 ) ? store.status->lfaGraph() : nullptr;
         for ( const auto & [ topoId, map ] : store.status->routerIdMapColl() ) {
            parked += map->duplicateRouterss();
         }
      }
   }
   EXPECT_GT( parked, 200u );
   EXPECT_GT( betweenSlices, 200u );
}

/// Whatever the order in which links come, those that always come to the same place included.
TEST( TopoStore, RanksRiseInKeyOrderAndWhoseRankMovesIsTold ) {
   std::mt19937 random( 5 );
   for ( int round = 0; round < 6; ++round ) {
      std::map< const TopoLink *, std::uint64_t > ranks;
      std::size_t moves = 0;
      TopoLinks links( [ & ]( const TopoLink & moved ) {
         ++moves;
         ranks.at( &moved ) = moved.rank;
      } );
      std::map< NeighborKey, const TopoLink * > inOrder;
      for ( unsigned n = 0; n < 1500; ++n ) {
         const unsigned place = round == 0 ? 5000 - n : round == 1 ? n : random() % 5000;
         const unsigned router = round < 3 || round == 5 ? 5 : place % 50;
         NeighborKey key = p2pKey( 1, round == 5 ? 2 : random() % 9 );
         key.routerIdIs( { VertexType::ospfRouter, "9.0.0." + std::to_string( router ) } );
         key.linkIdIs( round == 5 ? 2500 + ( n % 2 ? 1 : -1 ) * int( 1500 - n ) : place );
         Lum::Set< NeighborKey > listed;
         listed.insert( key );
         links.listed( area0, key.routerId(), listed, [ & ]( const TopoLink & made ) {
            ranks[ &made ] = made.rank;
            inOrder[ key ] = &made;
         } );
         if ( random() % 8 == 0 ) {
            const auto gone = std::next( inOrder.begin(), random() % inOrder.size() );
            TopoLink * const link = links.find( area0, gone->first );
            ASSERT_EQ( link, gone->second );
            links.erase( *link );
            ranks.erase( gone->second );
            inOrder.erase( gone );
         }
      }
      std::uint64_t last = 0;
      for ( const auto & [ key, link ] : inOrder ) {
         ASSERT_EQ( link->neighborKey(), key );
         ASSERT_EQ( ranks.at( link ), link->rank );
         ASSERT_GT( link->rank, std::exchange( last, link->rank ) );
      }
      EXPECT_TRUE( moves > 0 || round != 5 );
      while ( !inOrder.empty() ) {
         links.erase( *links.find( area0, inOrder.begin()->first ) );
         inOrder.erase( inOrder.begin() );
      }
      EXPECT_TRUE( links.routersOf( area0 ).empty() );
   }
}

TEST( TopoStore, GraphHasTheLinksOfTheTablesAndJudgesThemAsSingleTestsDo ) {
   unsigned admitted = 0;
   for ( unsigned seed = 1; seed <= 40; ++seed ) {
      SCOPED_TRACE( seed );
      Storm storm( seed );
      Store store;
      for ( unsigned i = 0; i < 400; ++i ) {
         storm.strike( store );
      }
      std::set< AllTopoNeighborKey > wanted, wantedByLfa;
      std::vector< Lum::Ptr< BwUsageDeduped > > reservations;
      for ( const auto & [ topoId, table ] : store.tables->topoDbColl() ) {
         for ( const auto & [ key, entry ] : table->neighborColl() ) {
            const bool loop = key.neighborType() == p2p() && key.neighborId() == key.routerId();
            if ( loop || !table->router( key.routerId() ).neighborHas( key ) ) {
               continue;
            }
            if ( key.neighborType() == lan() || table->routerHas( key.neighborId() ) ) {
               wantedByLfa.insert( { topoId, key, {}, {} } );
            }
            const auto link = store.status->allTopoNeighborKey( topoId, key );
            if ( link.teNeighborOf() && ( link.isLan() || link.teNeighborId() ) ) {
               wanted.insert( link );
               reservations.push_back( store.bandwidth->updateReservedBandwidth(
                  { link, { "cli", 0, 1 } }, 0, storm.below( 60 ) ) );
            }
         }
      }
      std::map< Kivnet::IpGenPrefix, std::map< NodeId, std::uint32_t > > least;
      for ( const auto & [ topoId, table ] : store.tables->topoDbColl() ) {
         for ( const auto & [ router, reachability ] : table->reachabilityColl() ) {
            for ( const PrefixMetric & entry : reachability.prefixSet() ) {
               auto & metric =
                  least[ entry.prefix() ].try_emplace( NodeId( router ), ~0U ).first->second;
               metric = std::min( metric, entry.metric() );
            }
         }
      }
      for ( const auto & [ prefix, originators ] : least ) {
         std::map< NodeId, std::uint32_t > found;
         for ( const OriginatorInfo & originator : store.status->originators( prefix ) ) {
            found[ originator.routerId() ] = originator.metric();
         }
         ASSERT_EQ( found, originators );
      }
      const auto view = store.view( storm.constraint() );
      const CspfGraph & graph = view->graph();
      CspfLinkFilter filter;
      filter.apply( graph, view->linkConstraint( view->spfRoot() ) );
      ASSERT_EQ( linksOf( store.te() ), wanted );
      ASSERT_EQ( linksOf( *store.status->lfaGraph() ), wantedByLfa );
      for ( const AllTopoNeighborKey & key : wanted ) {
         const CspfEdge edge = store.te().edge( key );
         const auto & routers = store.status->routerIdMap( key.topoId() )->igpRouterIdColl();
         for ( const auto & [ te, owner ] : routers ) {
            if ( !key.isLan() ) {
               break;
            }
            const NodeId node( te );
            const bool across =
               std::ranges::any_of( graph.out( graph.to( edge ) ), [ & ]( unsigned e ) {
                  return store.te().nodeId( graph.to( CspfEdge{ e } ) ) == node
                         && filter.admitted( CspfEdge{ e } );
               } );
            ASSERT_EQ( filter.admitted( edge ) && across,
                       view->neighborAndTepAllowedForTe( key, node ).neighborAllowed() );
         }
         const bool allowed = filter.admitted( edge );
         admitted += allowed;
         if ( !key.isLan() ) {
            ASSERT_EQ( allowed, view->neighborAndTepAllowedForTe( key ).neighborAllowed() );
            const AllTopoNeighborKey ofLfa{ key.topoId(), key.neighborKey(), {}, {} };
            ASSERT_EQ( allowed, view->neighborAndTepAllowedForTe( ofLfa ).neighborAllowed() );
            ASSERT_EQ( allowed, filter.reason( graph, edge ) == CspfRefusal::none );
         }
      }
   }
   EXPECT_GT( admitted, 30u );  // not a comparison of refusals alone
}

TEST( TopoStore, FirstOwnerOfATeRouterIdKeepsItAndTheLogSaysWhoIsIgnored ) {
   static std::vector< std::string > log;
   log.clear();
   Trace::logSinkIs( []( const Trace::LogMessage & message, auto text ) {
      log.push_back( std::string( message.id ) + ": " + std::string( text ) + " ("
                     + std::string( message.explanation ) + ")" );
   } );
   Store store;
   store.router( level2, 2, teId( 1 ) );
   store.router( level2, 1, teId( 1 ) );
   store.router( level2, 1, teId( 1 ), {}, true );  // says nothing new of the clash
   Trace::logSinkIs( nullptr );
   EXPECT_THAT( log, ElementsAre( "CSPF_DUPLICATE_TE_ROUTER_ID: TE router ID 1.0.0.1 for IS-IS "
                                  "router 0000.0000.0001 conflicts with IS-IS router "
                                  "0000.0000.0002, IS-IS router 0000.0000.0001 ignored "
                                  "(Router with duplicate TE Router ID is ignored)" ) );
   const auto & map = store.status->routerIdMap( level2 );
   EXPECT_EQ( map->igpRouterId( teId( 1 ) ), routerId( level2, 2 ) );
   store.router( level2, 2, teId( 9 ) );
   EXPECT_EQ( map->igpRouterId( teId( 1 ) ), routerId( level2, 1 ) );
   EXPECT_TRUE( store.te().graph().overloaded( store.te().vertex( NodeId( teId( 1 ) ) ) ) );
   EXPECT_TRUE( store.status->teRouterIdPresent( teId( 9 ) ) );
}

TEST( TopoStore, ParallelLinksPairByTheirAddressesAndOneWayLinksFail ) {
   Store store;
   store.router( level2, 1, teId( 1 ),
                 { p2pKey( 1, 2, 1 ), p2pKey( 1, 2, 2 ), p2pKey( 1, 2, 3 ) } );
   store.router( level2, 2, teId( 2 ), { p2pKey( 2, 1, 1 ), p2pKey( 2, 1, 2 ) } );
   store.link( p2pKey( 1, 2, 1 ), "10.0.1.1", "10.0.1.2" );
   store.link( p2pKey( 1, 2, 2 ), "10.0.2.1", "10.0.2.2" );
   store.link( p2pKey( 1, 2, 3 ), "10.0.3.1", "10.0.3.2" );
   store.link( p2pKey( 2, 1, 1 ), "10.0.2.2", "10.0.2.1" );  // the numbers are crossed
   store.link( p2pKey( 2, 1, 2 ), "10.0.1.2", "10.0.1.1" );
   const auto link = [ & ]( unsigned id ) {
      return store.status->allTopoNeighborKey( level2, p2pKey( 1, 2, id ) );
   };
   EXPECT_EQ( store.view()->getReverseNeighborKeyP2P( link( 1 ) ).neighborKey(),
              p2pKey( 2, 1, 2 ) );
   EXPECT_EQ( store.view()->nexthopOnP2pLink( link( 2 ) ), ipOf( "10.0.2.2" ) );
   EXPECT_TRUE( store.view()->twoWayCheckPassed( link( 2 ) ) );
   EXPECT_FALSE( store.view()->twoWayCheckPassed( link( 3 ) ) );
   store.link( p2pKey( 2, 1, 1 ), "10.0.9.2", "10.0.9.1" );  // shares no address any more
   EXPECT_FALSE( store.view()->twoWayCheckPassed( link( 2 ) ) );
   EXPECT_EQ( store.view()->router( NodeId( teId( 1 ) ) ).teps(), 4u );
}

TEST( TopoStore, PublishedRowsFollowTheLinksAndStaleOnesGo ) {
   const auto rows = Lum::make< IntfIpToRouterIdTable >();
   rows->intfIpToRouterIdIs( ipOf( "10.9.9.9" ), teId( 9 ) );  // an earlier agent's
   Store store( Lum::make< AllTopoDb >(), rows );
   EXPECT_THAT( rows->intfIpToRouterIdColl(), IsEmpty() );
   store.link( p2pKey( 1, 2 ), "10.0.0.1", "" );
   store.link( lanKey( 2, 2 ), "10.0.0.1", "" );
   store.router( level2, 1, teId( 1 ), { p2pKey( 1, 2 ) } );
   store.router( level2, 2, teId( 2 ), { lanKey( 2, 2 ) } );
   EXPECT_EQ( rows->intfIpToRouterId( ipOf( "10.0.0.1" ) ), teId( 2 ) );
   store.table( level2 ).neighborDel( lanKey( 2, 2 ) );
   EXPECT_EQ( rows->intfIpToRouterId( ipOf( "10.0.0.1" ) ), teId( 1 ) );
   store.router( level2, 1, teId( 7 ), { p2pKey( 1, 2 ) } );
   EXPECT_EQ( rows->intfIpToRouterId( ipOf( "10.0.0.1" ) ), teId( 7 ) );
   EXPECT_THAT( store.status->teRouterIdsOfTep( ipOf( "10.0.0.1" ) ), ElementsAre( teId( 7 ) ) );

   const std::vector< NeighborKey > sharing{ p2pKey( 3, 1 ), p2pKey( 3, 2 ), p2pKey( 3, 4 ) };
   for ( const NeighborKey & key : sharing ) {
      store.link( key, "10.0.0.3", "" );
   }
   store.router( level2, 3, teId( 3 ), sharing );
   const auto links = [ & ] {
      return store.status->intfIpToNeighborTable()
         ->intfIpToNeighbor( ipOf( "10.0.0.3" ) )
         .neighborSet();
   };
   const auto all = links();
   ASSERT_EQ( all.size(), 3u );
   for ( int time = 0; time < 2; ++time ) {  // what is not there is not taken out
      deleteNeighborKeyFromIntfIp( store.status, all[ 1 ], ipOf( "10.0.0.3" ) );
      EXPECT_THAT( links(), ElementsAre( all[ 0 ], all[ 2 ] ) );
   }
   addNeighborKeyToIntfIp( store.status, all[ 1 ], ipOf( "10.0.0.3" ) );
   EXPECT_EQ( links(), all );
   store.tables->topoDbDel( level2 );
   EXPECT_THAT( rows->intfIpToRouterIdColl(), IsEmpty() );
   EXPECT_EQ( store.te().graph().vertices(), 0u );
}
