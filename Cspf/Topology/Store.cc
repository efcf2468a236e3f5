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
      for ( const auto * link : links->links() ) {
         routers.push_back( { link->first.topoId(), link->first.from->first.id() } );
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

// Interface addresses.

IntfIpToNeighbor::Several *
IntfIpToNeighbor::several() const noexcept {
   if ( !( reinterpret_cast< std::uintptr_t >( link_ ) & 1 ) ) {
      return nullptr;
   }
   auto * const marked = const_cast< char * >( reinterpret_cast< const char * >( link_ ) );
   return reinterpret_cast< Several * >( marked - 1 );
}

void
IntfIpToNeighbor::severalIs( Several * several ) noexcept {
   link_ = reinterpret_cast< Link >( reinterpret_cast< const char * >( several ) + 1 );
}

std::span< const IntfIpToNeighbor::Link >
IntfIpToNeighbor::links() const noexcept {
   const Several * const several = this->several();
   return several ? std::span< const Link >( *several ) : std::span( &link_, link_ ? 1 : 0 );
}

namespace {

Kivnet::IpGenAddr
teRouterIdOfOwner( const TopoLinks::Entry & link ) {
   const auto * node = link.first.from->second.at( TopoGraphKind::te ).node;
   return node ? node->first.ipAddress() : Kivnet::IpGenAddr();
}

AllTopoNeighborKey
keyWithOwner( const TopoLinks::Entry & link ) {
   return { link.first.topoId(), link.first.neighborKey(), teRouterIdOfOwner( link ), {} };
}

bool
inKeyOrder( const TopoLinks::Entry * a, const TopoLinks::Entry * b ) {
   return a->second.rank < b->second.rank;
}

}

std::vector< AllTopoNeighborKey >
IntfIpToNeighbor::neighborSet() const {
   std::vector< AllTopoNeighborKey > keys;
   keys.reserve( neighbors() );
   for ( const auto * link : links() ) {
      keys.push_back( keyWithOwner( *link ) );
   }
   return keys;
}

bool
IntfIpToNeighbor::neighborHas( const AllTopoNeighborKey & key ) const {
   return std::ranges::any_of( links(),
                               [ & ]( Link link ) { return keyWithOwner( *link ) == key; } );
}

bool
IntfIpToNeighbor::linkIs( const TopoLinks::Entry & link ) {
   if ( !link_ ) {
      link_ = &link;
      return true;
   }
   if ( link_ == &link ) {
      return false;
   }
   Several * several = this->several();
   if ( !several ) {
      several = new Several{ link_ };
      severalIs( several );
   }
   const auto at = std::ranges::lower_bound( *several, &link, inKeyOrder );
   const bool fresh = at == several->end() || *at != &link;
   if ( fresh ) {
      several->insert( at, &link );
   }
   return fresh;
}

bool
IntfIpToNeighbor::linkDel( const TopoLinks::Entry & link ) {
   Several * const several = this->several();
   if ( !several ) {
      return link_ == &link && std::exchange( link_, nullptr );
   }
   const auto at = std::ranges::lower_bound( *several, &link, inKeyOrder );
   if ( at == several->end() || *at != &link ) {
      return false;
   }
   several->erase( at );
   if ( several->size() == 1 ) {
      link_ = several->front();
      delete several;
   }
   return true;
}

namespace {

/// What an address stands for has changed for the owner of a link that has it, or had it, and for
/// another router where that is the only other one. Where there are more they stay ambiguous.
void
touchOwners( const AllTopoDbStatus & allTopoDbStatus, const IntfIpToNeighbor & entry,
             const TopoLinks::Entry & changed ) {
   TopoGraph & graph = allTopoDbStatus.teGraph();
   const TopoRouter & owner = *changed.first.from;
   graph.touch( owner );
   std::vector< const TopoRouter * > others;  // one of each; in several topologies one router
   const auto links = entry.links();
   for ( auto at = links.begin(); at != links.end(); ) {
      const TopoRouter * const other = ( *at )->first.from;
      if ( other != &owner ) {
         if ( !others.empty() && graph.vertex( *other ) != graph.vertex( *others.front() ) ) {
            return;
         }
         others.push_back( other );
      }
      at = std::partition_point( at, links.end(), [ other ]( const TopoLinks::Entry * link ) {
         return link->first.from == other;
      } );
   }
   for ( const TopoRouter * other : others ) {
      graph.touch( *other );
   }
}

/// The published row names the owner of one of the links, or is not there where none has a TE
/// router id.
void
republish( const Lum::Ptr< IntfIpToRouterIdTable > & published, const Kivnet::IpGenAddr & intfIp,
           const IntfIpToNeighbor & entry ) {
   const Kivnet::IpGenAddr row = published->intfIpToRouterId( intfIp );
   Kivnet::IpGenAddr owner;
   for ( const auto * link : entry.links() ) {
      const Kivnet::IpGenAddr id = teRouterIdOfOwner( *link );
      if ( id && id == row ) {
         return;
      }
      owner = owner ? owner : id;
   }
   if ( owner ) {
      addIntfIpToRouterId( published, intfIp, owner );
   } else {
      deleteIntfIpToRouterId( published, intfIp );
   }
}

void
publishOwner( const AllTopoDbStatus & allTopoDbStatus, const TopoLinks::Entry & link,
              const Kivnet::IpGenAddr & intfIp ) {
   const auto & published = allTopoDbStatus.intfIpToRouterIdTable();
   const auto owner = published ? teRouterIdOfOwner( link ) : Kivnet::IpGenAddr();
   if ( owner ) {
      addIntfIpToRouterId( published, intfIp, owner );
   }
}

}

void
addLinkToIntfIp( AllTopoDbStatus & allTopoDbStatus, const TopoLinks::Entry & link,
                 const Kivnet::IpGenAddr & intfIp ) {
   const auto & table = allTopoDbStatus.intfIpToNeighborTable();
   IntfIpToNeighbor & entry = table->entry( intfIp );
   if ( entry.linkIs( link ) ) {
      touchOwners( allTopoDbStatus, entry, link );
      table->entryChanged( intfIp );
   }
   allTopoDbStatus.noteAddress( intfIp );
   publishOwner( allTopoDbStatus, link, intfIp );
}

void
linkOfIntfIpMoved( AllTopoDbStatus & allTopoDbStatus, const TopoLinks::Entry & link,
                   const Kivnet::IpGenAddr & intfIp ) {
   const auto & table = allTopoDbStatus.intfIpToNeighborTable();
   touchOwners( allTopoDbStatus, table->intfIpToNeighbor( intfIp ), link );
   table->entryChanged( intfIp );
   allTopoDbStatus.noteAddress( intfIp );
   publishOwner( allTopoDbStatus, link, intfIp );
   if ( const auto & published = allTopoDbStatus.intfIpToRouterIdTable() ) {
      republish( published, intfIp, table->intfIpToNeighbor( intfIp ) );
   }
}

void
deleteLinkFromIntfIp( AllTopoDbStatus & allTopoDbStatus, const TopoLinks::Entry & link,
                      const Kivnet::IpGenAddr & intfIp ) {
   const auto & table = allTopoDbStatus.intfIpToNeighborTable();
   if ( !table->intfIpToNeighborHas( intfIp ) || !table->entry( intfIp ).linkDel( link ) ) {
      TRACE9( "Delete ngb " << keyWithOwner( link ) << " of " << intfIp << ": already deleted." );
      return;
   }
   if ( table->entry( intfIp ).neighbors() == 0 ) {
      table->intfIpToNeighborDel( intfIp );
   } else {
      table->entryChanged( intfIp );
   }
   allTopoDbStatus.noteAddress( intfIp );
   const IntfIpToNeighbor & left = table->intfIpToNeighbor( intfIp );
   touchOwners( allTopoDbStatus, left, link );
   if ( const auto & published = allTopoDbStatus.intfIpToRouterIdTable() ) {
      republish( published, intfIp, left );
   }
   if ( left.neighbors() > 0 ) {
      return;
   }
   const IntfIpToNeighbor * intfIpToNeighbor = table->intfIpToNeighborFind( intfIp );
   LUM_ASSERT( !intfIpToNeighbor );
}

void
addNeighborKeyToIntfIp( const Lum::Ptr< AllTopoDbStatus > & allTopoDbStatus,
                        const AllTopoNeighborKey & allTopoNeighborKey,
                        const Kivnet::IpGenAddr & intfIp ) {
   const auto * link = allTopoDbStatus->links().find( allTopoNeighborKey.topoId(),
                                                      allTopoNeighborKey.neighborKey() );
   LUM_ASSERT( link );
   addLinkToIntfIp( *allTopoDbStatus, *link, intfIp );
}

void
deleteNeighborKeyFromIntfIp( const Lum::Ptr< AllTopoDbStatus > & allTopoDbStatus,
                             const AllTopoNeighborKey & allTopoNeighborKey,
                             const Kivnet::IpGenAddr & intfIp ) {
   const auto * link = allTopoDbStatus->links().find( allTopoNeighborKey.topoId(),
                                                      allTopoNeighborKey.neighborKey() );
   if ( link ) {
      deleteLinkFromIntfIp( *allTopoDbStatus, *link, intfIp );
   } else {
      TRACE9( "Delete ngb " << allTopoNeighborKey << " of " << intfIp << ": already deleted." );
   }
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
