// The topology store: what is derived of the IGPs' tables, and the questions that it answers.
//
// The tables stay as the protocols publish them and are read in place. Beside them stand indexes
// (TE router ids, interface addresses, prefixes), the record of each listed link, and the graphs.
// `AllTopoDbSm` keeps all of it up to date; everybody else reads. The graph of IGP vertices exists
// only while somebody holds it; the one of TE router ids always.

#include "Cspf/Topology/Store.h"

#include "platform/Lum/Assert.h"

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
      for ( const auto * link : links->links() ) {
         routers.push_back( { link->topoId(), link->from->first.id() } );
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

}
