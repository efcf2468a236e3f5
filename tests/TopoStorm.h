#pragma once

#include "Cspf/Bandwidth/BwUsageManager.h"
#include "Cspf/Topology/AllTopoDbSm.h"
#include "Cspf/Views/View.h"

#include <random>

/// A topology store with tables of its own, and storms of random records on it.
namespace TopoStorm {

using namespace Cspf;
using namespace Routing::Topology;
using Kivnet::IpGenAddr;

inline IpGenAddr
ipOf( const std::string & text ) {
   return *IpGenAddr::parse( text );
}

inline IgpRouterId
routerId( const TopoId & topoId, unsigned n ) {
   const bool isis = topoId.igpSource() == IgpSource::isis;
   return isis ? IgpRouterId( VertexType::isisRouter, "0000.0000.000" + std::to_string( n ) )
               : IgpRouterId( VertexType::ospfRouter, "9.0.0." + std::to_string( n ) );
}

inline IpGenAddr
teId( unsigned n ) {
   return ipOf( "1.0.0." + std::to_string( n ) );
}

inline const TopoId level1 = TopoId::isisL1();
inline const TopoId level2 = TopoId::isisL2();
inline const TopoId area0{ IgpSource::ospf, 0, 0 };

/// One VRF's store, and the tables that it imports: by slices of so many rows, or at once.
struct Store {
   explicit Store(
      const Lum::Ptr< AllTopoDb > & tables = Lum::make< AllTopoDb >(),
      const Lum::Ptr< IntfIpToRouterIdTable > & rows = Lum::make< IntfIpToRouterIdTable >(),
      std::size_t slice = 0 )
      : tables( tables ),
        published( rows ) {
      if ( slice > 0 ) {
         scheduler = Lum::make< Kiv::TaskScheduler >( loop );
         scheduler->sliceIs( slice );
         sm = new AllTopoDbSm( tables, status, scheduler );
      }
      sources->vrfClientSourceIdIs( cspf(), { cspf(), NodeId( teId( 1 ) ), 1 } );
      sm->handleInitialized();
   }
   ~Store() { Lum::retire( sm ); }

   TopoDb & table( const TopoId & topoId ) {
      if ( !tables->topoDbHas( topoId ) ) {
         owned[ topoId ] = Lum::make< TopoDb >();
         tables->topoDbIs( topoId, owned[ topoId ] );
      }
      return *owned[ topoId ];
   }
   void router( const TopoId & topoId, unsigned n, const IpGenAddr & te,
                const std::vector< NeighborKey > & links = {}, bool overload = false ) {
      Router router{ routerId( topoId, n ), te, overload, {} };
      for ( const NeighborKey & key : links ) {
         router.neighborIs( key );
      }
      table( topoId ).routerIs( router.id(), router );
   }
   void link( const NeighborKey & key, const std::string & near, const std::string & far ) {
      Neighbor neighbor;
      neighbor.keyIs( key );
      neighbor.metricIs( 10 );
      if ( !near.empty() ) {
         neighbor.interfaceAddrIs( 0, ipOf( near ) );
      }
      if ( !far.empty() ) {
         neighbor.neighborAddrIs( 0, ipOf( far ) );
      }
      table( level2 ).neighborIs( key, neighbor );
   }
   const TopoGraph & te() const { return status->teGraph(); }
   CspfEdge edge( const NeighborKey & key ) const { return te().edge( { level2, key, {}, {} } ); }
   VrfTopology topology() const { return { tables, status, bandwidth }; }
   Lum::Ptr< AllTopoTeDbView > view( const InternalPathConstraint & constraint = {} ) const {
      return Lum::make< AllTopoTeDbView >( topology(), constraint );
   }

   Lum::ActivityLoop loop{ Lum::ActivityLoop::Time::virtualTime };
   Lum::Ptr< Kiv::TaskScheduler > scheduler;
   Lum::Ptr< AllTopoDb > tables;
   Lum::Ptr< IntfIpToRouterIdTable > published;
   Lum::Ptr< VrfSourceId > sources = Lum::make< VrfSourceId >( L3::VrfName( "default" ) );
   Lum::Ptr< BwUsageManager > bandwidth =
      Lum::make< BwUsageManager >( tables, Lum::make< BwUsageTable >() );
   Lum::Ptr< AllTopoDbStatus > status = Lum::make< AllTopoDbStatus >( sources, published );
   Lum::Ptr< AllTopoDbSm > sm{ new AllTopoDbSm( tables, status ) };
   std::map< TopoId, Lum::Ptr< TopoDb > > owned;
};

inline NeighborKey
p2pKey( unsigned from, unsigned to, unsigned id = 1, const TopoId & topoId = level2 ) {
   return { routerId( topoId, from ), p2p(), routerId( topoId, to ), id };
}

inline IgpRouterId
pseudonode( const TopoId & topoId, unsigned n ) {
   return IgpRouterId( routerId( topoId, n ).pseudonode( 1 ) );
}

inline NeighborKey
lanKey( unsigned from, unsigned lanOf, unsigned id = 0, const TopoId & topoId = level2 ) {
   return { routerId( topoId, from ), lan(), pseudonode( topoId, lanOf ), id };
}

/// Random records of three topologies. A router has the same TE router id in all of them, and is
/// the same IGP vertex in two; sometimes it takes that of another router. Links of one pair of
/// routers have the same addresses in all topologies, or those of another router, or addresses that
/// all links share.
class Storm {
 public:
   explicit Storm( unsigned seed ) : random_( seed ) {}
   unsigned below( unsigned n ) { return random_() % n; }
   void strike( Store & store ) {
      const TopoId topologies[] = { level1, level2, level2, area0 };
      const TopoId topoId = topologies[ below( 4 ) ];
      const unsigned n = 1 + below( routers );
      const auto & withdrawn = withdrawn_[ topoId ];
      TopoDb & table = withdrawn && below( 4 ) == 0 ? *withdrawn : store.table( topoId );
      switch ( below( 24 ) ) {
      case 0: table.routerDel( routerId( topoId, n ) ); break;
      case 1: table.neighborDel( key( topoId, n ) ); break;
      case 2: table.networkDel( { pseudonode( topoId, n % 2 ) } ); break;
      case 3: network( table, topoId, n % 2 ); break;
      case 4: reachability( table, routerId( topoId, n ) ); break;
      case 5:
         store.status->forEachGraph(
            [ & ]( TopoGraph & g ) { g.settle( g.vertex( NodeId( teId( n ) ) ) ); } );
         break;
      case 6: anotherTable( store, topoId, below( 8 ) ); break;
      case 7:
      case 8:
      case 9:
      case 10:
      case 11: store.router( topoId, n, te( n ), keys( topoId, n ), below( 5 ) == 0 ); break;
      default: neighbor( table, key( topoId, n ) );
      }
   }
   InternalPathConstraint constraint() {
      InternalPathConstraint c;
      const NodeId excluded[] = { {}, {}, NodeId( teId( 2 ) ), NodeId( routerId( level2, 2 ) ) };
      c.excludeNodeIs( { excluded[ below( 4 ) ], {} } );
      c.excludeSrlgIs( below( 2 ) );
      c.srlgStrictModeIs( below( 2 ) );
      c.srlgExcludeOnlyLocalLinksIs( below( 2 ) );
      c.excludeSrlgDerivedIs( below( 8 ) );
      c.includeAnyAdminGroupIs( below( 4 ) ? 0 : 3 );
      c.excludeAdminGroupIs( below( 4 ) ? 0 : 4 );
      c.topoIdIs( below( 4 ) ? TopoId() : level2 );
      c.excludeIntfIs( below( 2 ) ? Kivnet::IntfId() : Kivnet::IntfId( "et1" ) );
      c.bandwidthIs( below( 2 ) * 50 );
      c.bwUsageIdIs( { "cli", 0, 1 } );
      c.excludeLinkWithIpIs( below( 2 ), address( 1 + below( routers ), 1 ) );  // after a gap
      return c;
   }

 private:
   static constexpr unsigned routers = 4;
   IpGenAddr te( unsigned n ) {
      const IpGenAddr others[] = { {}, teId( n + 50 ), teId( 1 + below( routers ) ) };
      return below( 4 ) ? teId( n ) : others[ below( 3 ) ];
   }
   static IpGenAddr address( unsigned from, unsigned to ) {
      return ipOf( "10." + std::to_string( from ) + ".0." + std::to_string( to ) );
   }
   NeighborKey key( const TopoId & topoId, unsigned n ) {
      return below( 3 ) ? p2pKey( n, 1 + below( routers ), below( 4 ) == 0, topoId )
                        : lanKey( n, below( 2 ), below( 8 ) == 0, topoId );
   }
   std::vector< NeighborKey > keys( const TopoId & topoId, unsigned n ) {
      std::vector< NeighborKey > keys;
      for ( unsigned i = below( 30 ); i > 0; --i ) {
         keys.push_back( key( topoId, n ) );
      }
      return keys;
   }
   /// Rarely: the table goes, or an empty one comes in its place, or the one that went last. One
   /// that went may lose its links, and who else writes into it does not know.
   void anotherTable( Store & store, const TopoId & topoId, unsigned choice ) {
      if ( choice > 2 ) {
         return;
      }
      auto next = choice == 1 ? Lum::make< TopoDb >() : nullptr;
      if ( choice == 2 ) {
         next = withdrawn_[ topoId ];
      }
      withdrawn_[ topoId ] = store.owned[ topoId ];
      store.tables->topoDbDel( topoId );
      if ( next ) {
         store.tables->topoDbIs( topoId, store.owned[ topoId ] = next );
      } else if ( withdrawn_[ topoId ] && below( 2 ) ) {
         withdrawn_[ topoId ]->neighborDelAll();
      }
   }
   void neighbor( TopoDb & table, const NeighborKey & key ) {
      const auto number = []( const IgpRouterId & id ) {
         return id.type() == VertexType::isisRouter ? id.isisSystemId().bytes[ 5 ]
                                                    : id.ipAddress().v4().value() & 0xF;
      };
      const unsigned from = number( key.routerId() ), to = number( key.neighborId() );
      Neighbor n;
      n.keyIs( key );
      n.intfIdIs( Kivnet::IntfId( "et" + std::to_string( to ) ) );
      n.adminGroupIs( below( 8 ) );
      n.metricIs( below( 5 ) );
      n.unreservedBandwidthIs( { 100, 0, 0, 0, 0, 0, 0, float( below( 99 ) ) } );
      for ( unsigned i = below( 3 ); i > 0; --i ) {
         const bool shared = below( 8 ) == 0;
         const auto any = ipOf( "fe80::1" );
         const unsigned at = i - ( below( 4 ) > 0 );  // sometimes there is a gap before it
         const unsigned owner = below( 16 ) ? from : 1 + below( routers );
         n.interfaceAddrIs( at, shared ? any : address( owner, to + 10 * ( below( 4 ) == 0 ) ) );
         n.neighborAddrIs( at, shared ? any : address( to, from + 10 * ( below( 4 ) == 0 ) ) );
         n.srlgIs( i - 1, below( 8 ) );
      }
      if ( below( 2 ) ) {
         n.teMetricIs( below( 9 ) );
      }
      table.neighborIs( key, n );
   }
   void network( TopoDb & table, const TopoId & topoId, unsigned n ) {
      Network network{ { pseudonode( topoId, n ) }, {} };
      for ( unsigned i = below( 6 ); i > 0; --i ) {
         network.routerIs( routerId( topoId, 1 + below( routers ) ) );
      }
      table.networkIs( network.networkId(), network );
   }
   void reachability( TopoDb & table, const IgpRouterId & id ) {
      if ( below( 4 ) == 0 ) {
         table.reachabilityDel( id );
         return;
      }
      Reachability record{ id, {} };
      for ( unsigned i = below( 4 ); i > 0; --i ) {
         record.prefixIs( { Kivnet::IpGenPrefix( teId( 0 ), 32 - below( 3 ) ), below( 9 ) } );
      }
      table.reachabilityIs( id, record );
   }

   std::mt19937 random_;
   std::map< TopoId, Lum::Ptr< TopoDb > > withdrawn_;
};

}
