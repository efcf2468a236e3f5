// The topology store: what is derived of the IGPs' tables, and the questions that it answers.
//
// The tables stay as the protocols publish them and are read in place. Beside them stand indexes
// (TE router ids, interface addresses, prefixes), the record of each listed link, and the graphs.
// `AllTopoDbSm` keeps all of it up to date; everybody else reads. The graph of IGP vertices exists
// only while somebody holds it; the one of TE router ids always.

#include "Cspf/Topology/Store.h"

#include "platform/Lum/Assert.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Cspf {

namespace Igp = Routing::Topology;

const Igp::Neighbor *
AllTopoDb::neighbor( const AllTopoNeighborKey & key ) const {
   const auto * table = topoDbFind( key.topoId() );
   return table ? ( *table )->neighborFind( key.neighborKey() ) : nullptr;
}

const Igp::Router *
AllTopoDb::router( const TopoId & topoId, const IgpRouterId & id ) const {
   const auto * table = topoDbFind( topoId );
   return table ? ( *table )->routerFind( id ) : nullptr;
}

const Igp::Network *
AllTopoDb::network( const AllTopoNetworkId & id ) const {
   const auto * table = topoDbFind( id.topoId() );
   return table ? ( *table )->networkFind( id.networkId() ) : nullptr;
}

AllTopoDbStatus::AllTopoDbStatus( Lum::Ptr< const VrfSourceId > vrfSourceId,
                                  Lum::Ptr< IntfIpToRouterIdTable > intfIpToRouterIdTable )
   : vrfSourceId_( std::move( vrfSourceId ) ),
     intfIpToRouterIdTable_( std::move( intfIpToRouterIdTable ) ),
     intfIpToNeighborTable_( Lum::make< IntfIpToNeighborTable >() ),
     teGraph_( std::make_unique< TopoGraph >( TopoGraphKind::te, links_ ) ) {}

Lum::Seconds
AllTopoDbStatus::changeStamp() {
   lastStamp_ = std::nextafter( std::max( Lum::now(), lastStamp_ ),
                                std::numeric_limits< Lum::Seconds >::infinity() );
   return lastStamp_;
}

Lum::Seconds
AllTopoDbStatus::topoInfoChangedAt( PathComputationType pathComputationType,
                                    const BwUsageId & bwUsageId ) const {
   LUM_ASSERT( vrfSourceId()->vrfClientSourceIdHas( pathComputationType ) );
   return std::max( { topoChangedAt(),
                      vrfSourceId()->vrfClientSourceId( pathComputationType ).changedAt(),
                      sourceChangedAt( pathComputationType ), bwUsageChangedAt( bwUsageId ) } );
}

NodeId
AllTopoDbStatus::sourceId( PathComputationType type ) const {
   return vrfSourceId()->vrfClientSourceId( type ).sourceId();
}

bool
AllTopoDbStatus::teRouterIdPresent( const Kivnet::IpGenAddr & teRouterId ) const {
   return std::ranges::any_of( routerIdMapColl(), [ & ]( const auto & entry ) {
      return entry.second->igpRouterIdHas( teRouterId );
   } );
}

Kivnet::IpGenAddr
AllTopoDbStatus::teRouterId( const TopoId & topoId, const IgpRouterId & router ) const {
   const auto * map = routerIdMapFind( topoId );
   return map ? ( *map )->teRouterId( router ) : Kivnet::IpGenAddr();
}

AllTopoNeighborKey
AllTopoDbStatus::allTopoNeighborKey( const TopoId & topoId,
                                     const Igp::NeighborKey & neighborKey ) const {
   AllTopoNeighborKey key{ topoId, neighborKey, teRouterId( topoId, neighborKey.routerId() ), {} };
   if ( !key.isLan() ) {
      key.teNeighborIdIs( teRouterId( topoId, neighborKey.neighborId() ) );
   }
   return key;
}

std::vector< AllTopoDbStatus::RouterInTopo >
AllTopoDbStatus::routersWithTep( const Kivnet::IpGenAddr & tep ) const {
   std::vector< RouterInTopo > routers;
   for ( const auto & [ topoId, map ] : routerIdMapColl() ) {
      if ( const IgpRouterId * owner = map->igpRouterIdFind( tep ) ) {
         routers.push_back( { topoId, *owner } );
      }
   }
   if ( const auto * links = intfIpToNeighborTable()->intfIpToNeighborFind( tep ) ) {
      for ( const AllTopoNeighborKey & link : links->neighborSet() ) {
         routers.push_back( { link.topoId(), link.neighborKey().routerId() } );
      }
   }
   if ( tep.af() != Kivnet::AddressFamily::unspecified ) {
      const auto prefix = Kivnet::IpGenPrefix::host( tep );
      for ( const auto & [ topoId, table ] : pfxOriginatorInfoTableColl() ) {
         if ( const auto * info = table->pfxOriginatorInfoFind( prefix ) ) {
            for ( const auto & [ node, originator ] : ( *info )->originatorInfoColl() ) {
               routers.push_back( { topoId, IgpRouterId( node ) } );
            }
         }
      }
   }
   return routers;
}

std::vector< Kivnet::IpGenAddr >
AllTopoDbStatus::teRouterIdsOfTep( const Kivnet::IpGenAddr & tep ) const {
   std::vector< Kivnet::IpGenAddr > ids;
   for ( const RouterInTopo & router : routersWithTep( tep ) ) {
      if ( const auto id = teRouterId( router.topoId, router.router ) ) {
         ids.push_back( id );
      }
   }
   std::ranges::sort( ids );
   ids.erase( std::unique( ids.begin(), ids.end() ), ids.end() );
   return ids;
}

std::vector< OriginatorInfo >
AllTopoDbStatus::originators( const Kivnet::IpGenPrefix & prefix ) const {
   std::map< NodeId, OriginatorInfo > least;
   for ( const auto & [ topoId, table ] : pfxOriginatorInfoTableColl() ) {
      if ( const auto * info = table->pfxOriginatorInfoFind( prefix ) ) {
         for ( const auto & [ node, originator ] : ( *info )->originatorInfoColl() ) {
            const auto [ at, fresh ] = least.try_emplace( node, originator );
            at->second.metricIs( std::min( at->second.metric(), originator.metric() ) );
         }
      }
   }
   std::vector< OriginatorInfo > all;
   all.reserve( least.size() );
   for ( const auto & entry : least ) {
      all.push_back( entry.second );
   }
   return all;
}

std::shared_ptr< TopoGraph >
AllTopoDbStatus::lfaGraph() const {
   if ( auto graph = lfaGraph_.lock() ) {
      return graph;
   }
   auto graph = std::make_shared< TopoGraph >( TopoGraphKind::lfa, links_ );
   links_.visitFrom( {}, []( TopoLinks::Entry & link ) {
      link.second.value.at( TopoGraphKind::lfa ) = {};  // of an earlier graph
      return true;
   } );
   lfaGraph_ = graph;
   for ( const auto & [ topoId, table ] : topoDbColl() ) {
      graph->topologyIs( topoId, table );
      for ( const IgpRouterId & id : Lum::sortedKeys( table->routerColl() ) ) {
         graph->attach( topoId, id, NodeId( id ) );
         graph->overloadedIs( topoId, id, table->router( id ).overload() );
      }
   }
   return graph;
}

namespace {

bool
sameRouter( const AllTopoNeighborKey & a, const AllTopoNeighborKey & b ) {
   return a.topoId() == b.topoId() && a.neighborKey().routerId() == b.neighborKey().routerId();
}

/// What an address stands for has changed for the owner of a link that has it, or had it, and for
/// another router where that is the only other one. Where there are more they stay ambiguous.
void
touchOwners( const AllTopoDbStatus & allTopoDbStatus, const std::set< AllTopoNeighborKey > & links,
             const AllTopoNeighborKey & changed ) {
   TopoGraph & graph = allTopoDbStatus.teGraph();
   graph.touch( changed.topoId(), changed.neighborKey().routerId() );
   std::vector< const AllTopoNeighborKey * >
      others;  // one of each; in several topologies one router
   for ( auto at = links.begin(); at != links.end(); ) {
      const AllTopoNeighborKey & link = *at;
      const auto vertexOf = [ & ]( const AllTopoNeighborKey & l ) {
         return graph.router( l.topoId(), l.neighborKey().routerId() );
      };
      if ( !sameRouter( link, changed ) ) {
         if ( !others.empty() && vertexOf( link ) != vertexOf( *others.front() ) ) {
            return;
         }
         others.push_back( &link );
      }
      AllTopoNeighborKey last = link;
      last.neighborKeyIs(
         { link.neighborKey().routerId(), Routing::Topology::NeighborType( 0xFF ), {}, 0 } );
      at = links.lower_bound( last );
   }
   for ( const AllTopoNeighborKey * link : others ) {
      graph.touch( link->topoId(), link->neighborKey().routerId() );
   }
}

}

void
IntfIpToNeighborTable::neighborIs( const Kivnet::IpGenAddr & intfIp,
                                   const AllTopoNeighborKey & link ) {
   if ( intfIpToNeighbor_[ intfIp ].neighborIs( link ) ) {
      notify( &intfIpToNeighborAttribute, &intfIp );
   }
}

void
IntfIpToNeighborTable::neighborDel( const Kivnet::IpGenAddr & intfIp,
                                    const AllTopoNeighborKey & link ) {
   const auto entry = intfIpToNeighbor_.find( intfIp );
   if ( entry == intfIpToNeighbor_.end() || !entry->second.neighborDel( link ) ) {
      return;
   }
   if ( entry->second.neighbors() == 0 ) {
      intfIpToNeighborDel( intfIp );
   } else {
      notify( &intfIpToNeighborAttribute, &intfIp );
   }
}

void
addNeighborKeyToIntfIp( const Lum::Ptr< AllTopoDbStatus > & allTopoDbStatus,
                        const AllTopoNeighborKey & allTopoNeighborKey,
                        const Kivnet::IpGenAddr & intfIp ) {
   const auto & table = allTopoDbStatus->intfIpToNeighborTable();
   touchOwners( *allTopoDbStatus, table->intfIpToNeighbor( intfIp ).neighborSet(),
                allTopoNeighborKey );
   table->neighborIs( intfIp, allTopoNeighborKey );
   allTopoDbStatus->noteAddress( intfIp );
   const auto & published = allTopoDbStatus->intfIpToRouterIdTable();
   if ( published && allTopoNeighborKey.teNeighborOf() ) {
      addIntfIpToRouterId( published, intfIp, allTopoNeighborKey.teNeighborOf() );
   }
}

namespace {

/// The published row names the owner of one of the links, or is not there where none has a TE
/// router id.
void
republish( const Lum::Ptr< IntfIpToRouterIdTable > & published, const Kivnet::IpGenAddr & intfIp,
           const IntfIpToNeighbor & entry ) {
   const auto owns = []( const AllTopoNeighborKey & link ) { return !!link.teNeighborOf(); };
   const auto matches = [ & ]( const AllTopoNeighborKey & link ) {
      return owns( link ) && link.teNeighborOf() == published->intfIpToRouterId( intfIp );
   };
   const auto & links = entry.neighborSet();
   const auto owner = std::ranges::find_if( links, owns );
   if ( owner == links.end() ) {
      deleteIntfIpToRouterId( published, intfIp );
   } else if ( std::ranges::none_of( links, matches ) ) {
      addIntfIpToRouterId( published, intfIp, owner->teNeighborOf() );
   }
}

}

void
deleteNeighborKeyFromIntfIp( const Lum::Ptr< AllTopoDbStatus > & allTopoDbStatus,
                             const AllTopoNeighborKey & allTopoNeighborKey,
                             const Kivnet::IpGenAddr & intfIp ) {
   const auto & table = allTopoDbStatus->intfIpToNeighborTable();
   if ( !table->intfIpToNeighbor( intfIp ).neighborHas( allTopoNeighborKey ) ) {
      TRACE9( "Delete ngb " << allTopoNeighborKey << " of " << intfIp << ": already deleted." );
      return;
   }
   table->neighborDel( intfIp, allTopoNeighborKey );
   allTopoDbStatus->noteAddress( intfIp );
   const IntfIpToNeighbor & left = table->intfIpToNeighbor( intfIp );
   touchOwners( *allTopoDbStatus, left.neighborSet(), allTopoNeighborKey );
   if ( const auto & published = allTopoDbStatus->intfIpToRouterIdTable() ) {
      republish( published, intfIp, left );
   }
   if ( left.neighbors() > 0 ) {
      return;
   }
   const IntfIpToNeighbor * intfIpToNeighbor = table->intfIpToNeighborFind( intfIp );
   LUM_ASSERT( !intfIpToNeighbor );
}

void
addIntfIpToRouterId( const Lum::Ptr< IntfIpToRouterIdTable > & intfIpToRouterIdTable,
                     const Kivnet::IpGenAddr & intfIp, const Kivnet::IpGenAddr & teRouterId ) {
   TRACE9( "adding intfIpToRouterId entry for ip: " << intfIp << " teRouterId: " << teRouterId );
   intfIpToRouterIdTable->intfIpToRouterIdIs( intfIp, teRouterId );
}

void
deleteIntfIpToRouterId( const Lum::Ptr< IntfIpToRouterIdTable > & intfIpToRouterIdTable,
                        const Kivnet::IpGenAddr & intfIp ) {
   TRACE9( "deleting intfIpToRouterId entry for ip: " << intfIp );
   intfIpToRouterIdTable->intfIpToRouterIdDel( intfIp );
}

}
