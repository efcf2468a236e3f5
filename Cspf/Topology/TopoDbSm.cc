// The import of one IGP topology.
//
// It hears of every record of the table that changes, brings the store's indexes, published rows
// and graphs in line with that record, and stamps the store. Records of one thing come in any
// order, and some never come: a router lists links that have no entry yet,
// entries stand there that no router lists, both ends of a link appear one after the other.
// A link counts when its router lists it and its entry is there.
//
// TE router ids are claimed: the first router keeps one, others that carry it are parked until the
// owner lets go.

#include "Cspf/Topology/TopoDbSm.h"

#include "platform/Lum/Clock.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <iterator>

namespace Cspf {

namespace Igp = Routing::Topology;
using Igp::NeighborKey;

namespace {

constexpr Trace::LogMessage duplicateTeRouterId{ "CSPF_DUPLICATE_TE_ROUTER_ID",
                                                 Trace::Severity::warning,
                                                 "Router with duplicate TE Router ID is ignored" };

/// Calls `visit( address )` for each address that is in one list, but not in the other.
template< class Visit >
void
forEachOnlyIn( const NeighborToIntfIp & list, const NeighborToIntfIp & other, Visit && visit ) {
   for ( const auto & address : list ) {
      const bool repeated = std::find( list.begin(), &address, address ) != &address;
      if ( address && !repeated && std::ranges::find( other, address ) == other.end() ) {
         visit( address );
      }
   }
}

}

TopoDbSm::TopoDbSm( const TopoId & topoId, Lum::Ptr< const Igp::TopoDb > topoDb,
                    Lum::Ptr< AllTopoDbStatus > allTopoDbStatus,
                    const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler )
   : topoId_( topoId ),
     topoDb_( std::move( topoDb ) ),
     allTopoDbStatus_( std::move( allTopoDbStatus ) ),
     import_( *this, taskScheduler, "topologyImportTask-" + topoId.stringValue(),
              { [ this ]( const IgpRouterId & id ) { return importRouter( id ); },
                [ this ] { endImport(); } } ),
     takingOut_( *this, taskScheduler, "topologyRemovalTask-" + topoId.stringValue(),
                 { [ this ]( const IgpRouterId & id ) { return takeOutRouter( id ); },
                   [ this ] { endTakingOut(); } } ) {}

void
TopoDbSm::handleInitialized() {
   TRACE7( "for TopoDb: " << topoId_ );
   routerIdMap_ = Lum::make< RouterIdMap >();
   pfxOriginatorInfoTable_ = Lum::make< PfxOriginatorInfoTable >();
   allTopoDbStatus_->routerIdMapIs( topoId_, routerIdMap_ );
   allTopoDbStatus_->pfxOriginatorInfoTableIs( topoId_, pfxOriginatorInfoTable_ );
   allTopoDbStatus_->topoDbIs( topoId_, topoDb_ );
   allTopoDbStatus_->forEachGraph(
      [ & ]( auto & graph ) { graph.topologyIs( topoId_, topoDb_ ); } );
   allTopoDbStatus_->intfIpToNeighborTable()->intfIpToNeighborExpect( topoDb_->neighbors() );
   if ( const auto & published = allTopoDbStatus_->intfIpToRouterIdTable() ) {
      published->intfIpToRouterIdExpect( topoDb_->neighbors() );
   }
   LUM_WATCH_KEYS( routerIdMap_, igpRouterId, handleTeRouterIdChange );
   LUM_WATCH_KEYS( topoDb_, network, handleNetwork );
   LUM_WATCH_KEYS( topoDb_, router, handleRouter );
   LUM_WATCH_KEYS( topoDb_, neighbor, handleNeighbor );
   LUM_WATCH_KEYS( topoDb_, reachability, handleReachability );
   isMovingIs( true );
   import_.start( routersToImport() );
}

std::vector< IgpRouterId >
TopoDbSm::routersToImport() const {
   auto routers = Lum::keysOf( topoDb_->routerColl() );
   for ( const auto & entry : topoDb_->reachabilityColl() ) {
      if ( !topoDb_->routerHas( entry.first ) ) {
         routers.push_back( entry.first );
      }
   }
   return routers;
}

/// Listed links come with their routers.
std::size_t
TopoDbSm::importRouter( const IgpRouterId & igpRouterId ) {
   const Igp::Router * const router = topoDb_->routerFind( igpRouterId );
   const Igp::Reachability * const reachability = topoDb_->reachabilityFind( igpRouterId );
   const std::size_t rows = 1 + ( router ? router->neighborSet().size() : 0 )
                            + ( reachability ? reachability->prefixSet().size() : 0 );
   if ( router ) {
      handleRouter( igpRouterId );
   }
   if ( topoDb_->reachabilityHas( igpRouterId ) ) {
      handleReachability( igpRouterId );
   }
   return rows;
}

void
TopoDbSm::endImport() {
   if ( Trace::wanted( 9 ) ) {  // some may be listed by nobody
      for ( const NeighborKey & key : Lum::sortedKeys( topoDb_->neighborColl() ) ) {
         handleNeighbor( key );
      }
   }
   isMovingIs( false );
}

void
TopoDbSm::isMovingIs( bool moving ) {
   if ( std::exchange( isMoving_, moving ) != moving ) {
      allTopoDbStatus_->importsIs( allTopoDbStatus_->imports() + ( moving ? 1 : -1 ) );
   }
}

void
TopoDbSm::handleDestruction( std::function< void() > ended ) {
   LUM_ASSERT( !isLeaving() );
   TRACE7( "for TopoDb: " << topoId_ );
   ended_ = std::move( ended );
   import_.stop();
   isMovingIs( true );
   unwatchAll();
   LUM_WATCH_KEYS( topoDb_, neighbor, handleLeavingNeighbor );
   takingOut_.startLater( knownRouters() );
}

std::vector< IgpRouterId >
TopoDbSm::knownRouters() const {
   auto routers = Lum::keysOf( routerIdMap_->teRouterIdColl() );
   for ( const auto & [ te, duplicates ] : routerIdMap_->duplicateRoutersColl() ) {
      std::ranges::copy( Lum::keysOf( duplicates->routerColl() ), std::back_inserter( routers ) );
   }
   for ( const TopoRouter * router : allTopoDbStatus_->links().routersOf( topoId_ ) ) {
      routers.push_back( router->first.id() );
   }
   std::ranges::copy( Lum::keysOf( reachabilityMap_ ), std::back_inserter( routers ) );
   std::ranges::sort( routers );
   routers.erase( std::unique( routers.begin(), routers.end() ), routers.end() );
   return routers;
}

/// Does nothing where that was done. No duplicate takes its TE router id.
std::size_t
TopoDbSm::takeOutRouter( const IgpRouterId & igpRouterId ) {
   const auto prefixes = reachabilityMap_.find( igpRouterId );
   const std::size_t rows = 1 + routerToNeighbor( igpRouterId ).size()
                            + ( prefixes == reachabilityMap_.end() ? 0 : prefixes->second.size() );
   holdReaders();
   doHandleRouterDeletion( igpRouterId,
                           Kivnet::IpGenAddr( routerIdMap_->teRouterId( igpRouterId ) ) );
   doUpdateReachability( igpRouterId, nullptr );
   doUpdateAllTopoDbStatus();
   tellReaders();
   return rows;
}

void
TopoDbSm::endTakingOut() {
   unwatchAll();
   allTopoDbStatus_->forEachGraph( [ & ]( auto & graph ) { graph.topologyDel( topoId_ ); } );
   allTopoDbStatus_->topoDbDel( topoId_ );
   allTopoDbStatus_->pfxOriginatorInfoTableDel( topoId_ );
   allTopoDbStatus_->routerIdMapDel( topoId_ );
   doUpdateAllTopoDbStatus();
   ended_();
   isMovingIs( false );
}

void
TopoDbSm::doPrepareToDie() {
   unwatchAll();
   import_.stop();
   takingOut_.stop();
}

void
TopoDbSm::doUpdateAllTopoDbStatus() {
   allTopoDbStatus_->topoChangedAtIs( allTopoDbStatus_->changeStamp() );
}

void
TopoDbSm::holdReaders() const {
   if ( const auto & published = allTopoDbStatus_->intfIpToRouterIdTable() ) {
      published->holdReaders();
   }
}

void
TopoDbSm::tellReaders() const {
   if ( const auto & published = allTopoDbStatus_->intfIpToRouterIdTable() ) {
      published->tellReaders();
   }
}

// Routers.

void
TopoDbSm::handleRouter( const IgpRouterId & igpRouterId ) {
   LUM_ASSERT( !pendingRouterToHandle() );
   holdReaders();
   doHandleRouter( igpRouterId, __PRETTY_FUNCTION__ );
   while ( pendingRouterToHandle_ ) {
      doHandleRouter( std::exchange( pendingRouterToHandle_, {} ), __PRETTY_FUNCTION__ );
   }
   doUpdateAllTopoDbStatus();
   tellReaders();
}

void
TopoDbSm::doHandleRouter( const IgpRouterId & igpRouterId, const char * operation ) {
   const Igp::Router * router = topoDb_->routerFind( igpRouterId );
   if ( !router ) {
      doHandleRouterDeletion( igpRouterId,
                              Kivnet::IpGenAddr( routerIdMap_->teRouterId( igpRouterId ) ) );
      return;
   }
   allTopoDbStatus_->ifLfaGraph(
      [ & ]( TopoGraph & lfa ) { lfa.attach( topoId_, igpRouterId, NodeId( igpRouterId ) ); } );
   doUpdateTeRouterId( igpRouterId, router->teRouterId(), operation );
   allTopoDbStatus_->forEachGraph( [ & ]( TopoGraph & graph ) {
      graph.overloadedIs( topoId_, igpRouterId, router->overload() );
   } );
   if ( routerIdMap_->teRouterIdHas( igpRouterId ) ) {
      TRACE9_FOR( operation, "IGP router id " << igpRouterId << " is added or updated" );
   }
   doReconcileNeighbors( igpRouterId, router->neighborSet(), operation );
}

void
TopoDbSm::doHandleRouterDeletion( const IgpRouterId & igpRouterId,
                                  const Kivnet::IpGenAddr & teRouterId ) {
   TRACE9( "IGP router id " << igpRouterId << " TE router id " << teRouterId << " is deleted" );
   doReconcileNeighbors( igpRouterId, {}, __PRETTY_FUNCTION__ );
   if ( const Kivnet::IpGenAddr parkedUnder = doFindDuplicateRouter( igpRouterId ) ) {
      doDelDuplicateRouter( igpRouterId, parkedUnder );
   } else {
      doMoveMapping( igpRouterId, teRouterId, {}, __PRETTY_FUNCTION__ );
   }
   allTopoDbStatus_->forEachGraph(
      [ & ]( TopoGraph & graph ) { graph.detach( topoId_, igpRouterId ); } );
}

void
TopoDbSm::doUpdateTeRouterId( const IgpRouterId & igpRouterId, const Kivnet::IpGenAddr & teRouterId,
                              const char * operation ) {
   const Kivnet::IpGenAddr oldTeRouterId = routerIdMap_->teRouterId( igpRouterId );
   const Kivnet::IpGenAddr parkedUnder =
      oldTeRouterId ? Kivnet::IpGenAddr() : doFindDuplicateRouter( igpRouterId );
   if ( !teRouterId ) {
      TRACE9_FOR( operation,
                  "non TE router for TopoDb:" << topoId_ << " IGP router id " << igpRouterId );
      TRACE9_FOR( operation, "non TE router changed" );
   }
   if ( teRouterId == ( parkedUnder ? parkedUnder : oldTeRouterId ) ) {
      return;
   }
   if ( parkedUnder ) {
      doDelDuplicateRouter( igpRouterId, parkedUnder );
   }
   if ( oldTeRouterId ) {
      TRACE9_FOR( operation, "IGP router id " << igpRouterId << ". teRouterId changed from "
                                              << oldTeRouterId << " to " << teRouterId
                                              << ". Deleting the mapping" );
   }
   const bool taken = routerIdMap_->igpRouterIdHas( teRouterId );
   doMoveMapping( igpRouterId, oldTeRouterId, taken ? Kivnet::IpGenAddr() : teRouterId, operation );
   if ( taken ) {
      doAddDuplicateRouter( igpRouterId );
   }
}

/// The router owns `teRouterId` from now on (none where that is unset), and no more the old one.
/// Its addresses go over one by one, so that those published never vanish in between.
void
TopoDbSm::doMoveMapping( const IgpRouterId & igpRouterId, const Kivnet::IpGenAddr & oldTeRouterId,
                         const Kivnet::IpGenAddr & teRouterId, const char * operation ) {
   TopoGraph & graph = allTopoDbStatus_->teGraph();
   if ( oldTeRouterId == teRouterId ) {
      return;
   }
   if ( routerIdMap_->teRouterIdHas( igpRouterId ) ) {
      LUM_ASSERT( !!oldTeRouterId );
      routerIdMap_->teRouterIdDel( igpRouterId );
      routerIdMap_->igpRouterIdDel( oldTeRouterId );
   }
   if ( teRouterId ) {
      TRACE9_FOR( operation,
                  "adding IGP router id " << igpRouterId << " with TE router id " << teRouterId );
      routerIdMap_->teRouterIdIs( igpRouterId, teRouterId );
      routerIdMap_->igpRouterIdIs( teRouterId, igpRouterId );
      graph.attach( topoId_, igpRouterId, NodeId( teRouterId ) );
   } else {
      graph.detach( topoId_, igpRouterId );
   }
   for ( TopoLink * link : routerToNeighbor( igpRouterId ) ) {
      forEachOnlyIn( link->neighborToIntfIp, {}, [ & ]( const auto & intfIp ) {
         linkOfIntfIpMoved( *allTopoDbStatus_, *link, intfIp );
      } );
   }
}

// Routers that share a TE router id.

Kivnet::IpGenAddr
TopoDbSm::doFindDuplicateRouter( const IgpRouterId & igpRouterId ) const {
   const auto & parked = routerIdMap_->duplicateRoutersColl();
   const auto at = std::ranges::find_if(
      parked, [ & ]( const auto & entry ) { return entry.second->routerHas( igpRouterId ); } );
   return at == parked.end() ? Kivnet::IpGenAddr() : at->first;
}

void
TopoDbSm::doAddDuplicateRouter( const IgpRouterId & igpRouterId ) {
   LUM_ASSERT( topoDb()->routerHas( igpRouterId ) );
   const Kivnet::IpGenAddr teRouterId = topoDb()->router( igpRouterId ).teRouterId();
   const std::string owner = routerIdMap_->igpRouterId( teRouterId ).stringValue();
   const std::string newcomer = igpRouterId.stringValue();
   routerIdMap_->duplicateRoutersIs( teRouterId )->routerIs( igpRouterId );
   Trace::logMessage( duplicateTeRouterId, "TE router ID " + teRouterId.stringValue()
                                              + " for IS-IS router " + newcomer
                                              + " conflicts with IS-IS router " + owner
                                              + ", IS-IS router " + newcomer + " ignored" );
}

void
TopoDbSm::doDelDuplicateRouter( const IgpRouterId & igpRouterId,
                                const Kivnet::IpGenAddr & teRouterId ) {
   LUM_ASSERT( routerIdMap()->duplicateRouters( teRouterId )->routerHas( igpRouterId ) );
   TRACE9( " deleting IGP router id " << igpRouterId << " with TE router id " << teRouterId );
   const auto duplicates = routerIdMap_->duplicateRouters( teRouterId );
   duplicates->routerDel( igpRouterId );
   if ( duplicates->routers() == 0 ) {
      routerIdMap_->duplicateRoutersDel( teRouterId );
   }
}

void
TopoDbSm::handleTeRouterIdChange( const Kivnet::IpGenAddr & teRouterId ) {
   if ( const IgpRouterId * owner = routerIdMap_->igpRouterIdFind( teRouterId ) ) {
      TRACE9( "TE router id " << teRouterId << " got added, used by " << *owner );
      return;
   }
   TRACE9( "TE router id " << teRouterId << " got deleted" );
   const auto duplicates = routerIdMap_->duplicateRouters( teRouterId );
   if ( !duplicates ) {
      return;
   }
   const IgpRouterId firstDuplicateRouter = duplicates->routerColl().begin()->first;
   LUM_ASSERT( topoDb()->routerHas( firstDuplicateRouter ) );
   TRACE9( "schedule resurrection of old duplicate router with IGP router id "
           << firstDuplicateRouter );
   doDelDuplicateRouter( firstDuplicateRouter, teRouterId );
   pendingRouterToHandle_ = firstDuplicateRouter;
}

// Links.

bool
TopoDbSm::neighborToIntfIpHas( const NeighborKey & key ) const {
   const TopoLink * link = allTopoDbStatus_->links().find( topoId_, key );
   return link && std::ranges::any_of( link->neighborToIntfIp, []( const auto & address ) {
             return !!address;
          } );
}

/// The links that the router listed last.
TopoDbSm::RouterToNeighbor
TopoDbSm::routerToNeighbor( const IgpRouterId & igpRouterId ) const {
   TopoRouter * const router = allTopoDbStatus_->links().router( topoId_, igpRouterId );
   return router ? RouterToNeighbor( router->second.links.begin(), router->second.links.end() )
                 : RouterToNeighbor();
}

void
TopoDbSm::doReconcileNeighbors( const IgpRouterId & igpRouterId,
                                const Lum::Set< NeighborKey > & listed, const char * operation ) {
   for ( TopoLink * link : routerToNeighbor( igpRouterId ) ) {
      if ( !listed.has( link->neighborKey() ) ) {
         TRACE9_FOR( operation,
                     "IGP router ID for the deleted neighbor: " << igpRouterId << " is deleted" );
         doDelLink( *link );
      }
   }
   allTopoDbStatus_->links().listed( topoId_, igpRouterId, listed, [ this ]( TopoLink & link ) {
      doUpdateLink( link, topoDb_->neighborFind( link.neighborKey() ) );
   } );
}

void
TopoDbSm::doDelLink( TopoLink & link ) {
   doUpdateLink( link, nullptr );
   allTopoDbStatus_->links().erase( link );
}

/// Brings what is registered for a listed link in line with its entry; null: it has none.
void
TopoDbSm::doUpdateLink( TopoLink & link, const Igp::Neighbor * neighbor ) {
   const auto addresses = neighbor ? neighbor->interfaceAddrList() : NeighborToIntfIp();
   NeighborToIntfIp & registered = link.neighborToIntfIp;
   if ( addresses != registered ) {
      forEachOnlyIn( addresses, registered, [ & ]( const Kivnet::IpGenAddr & address ) {
         addLinkToIntfIp( *allTopoDbStatus_, link, address );
      } );
      forEachOnlyIn( registered, addresses, [ & ]( const Kivnet::IpGenAddr & address ) {
         LUM_ASSERT( neighborToIntfIpHas( link.neighborKey() ) );
         deleteLinkFromIntfIp( *allTopoDbStatus_, link, address );
      } );
   }
   registered = addresses;
   allTopoDbStatus_->forEachGraph( [ & ]( TopoGraph & graph ) {
      neighbor ? graph.linkIs( link, *neighbor ) : graph.linkDel( link );
   } );
}

void
TopoDbSm::handleNeighbor( const NeighborKey & neighborKey ) {
   holdReaders();
   const Igp::Neighbor * neighbor = topoDb_->neighborFind( neighborKey );
   TopoLink * link = allTopoDbStatus_->links().find( topoId_, neighborKey );
   if ( link ) {
      doUpdateLink( *link, neighbor );
   }
   if ( !link ) {
      TRACE9( "IGP router ID " << neighborKey.routerId() << " does not list neighbor "
                               << Lum::valueString( neighborKey ) );
   } else if ( neighbor ) {
      TRACE9( "IGP router ID for the added neighbor: "
              << neighborKey.routerId()
              << " TE router id: " << routerIdMap_->teRouterId( neighborKey.routerId() ) );
   } else {
      TRACE9( "IGP router ID for the deleted neighbor: " << neighborKey.routerId()
                                                         << " is deleted" );
   }
   doUpdateAllTopoDbStatus();
   tellReaders();
}

void
TopoDbSm::handleNetwork( const Igp::NetworkId & networkId ) {
   if ( !topoDb_->networkHas( networkId ) ) {
      TRACE9( "TopoDb: (" << topoId_ << "), network: " << networkId << " is deleted" );
   }
   allTopoDbStatus_->forEachGraph(
      [ & ]( TopoGraph & graph ) { graph.networkChanged( topoId_, networkId ); } );
   doUpdateAllTopoDbStatus();
}

// Prefixes.

void
TopoDbSm::doUpdateOriginator( const Kivnet::IpGenPrefix & prefix, const NodeId & router,
                              const std::uint32_t * metric ) {
   const auto info = pfxOriginatorInfoTable_->pfxOriginatorInfoIs( prefix );
   if ( info->originatorInfoHas( router ) != !!metric ) {
      allTopoDbStatus_->originatorChangeCountInc();
      if ( prefix.isHost() ) {
         allTopoDbStatus_->noteAddress( prefix.address() );
      }
   }
   if ( metric ) {
      info->originatorInfoIs( router, { router, *metric } );
      return;
   }
   info->originatorInfoDel( router );
   if ( info->originatorInfos() == 0 ) {
      pfxOriginatorInfoTable_->pfxOriginatorInfoDel( prefix );
   }
}

void
TopoDbSm::doUpdateReachability( const IgpRouterId & igpRouterId,
                                const Igp::Reachability * reachability ) {
   const NodeId router( igpRouterId );
   ReachabilityMap prefixes;
   if ( reachability ) {
      for ( const Igp::PrefixMetric & entry : reachability->prefixSet() ) {
         if ( !prefixes.has( entry.prefix() ) ) {  // the least metric comes first
            prefixes.insert( entry.prefix() );
            doUpdateOriginator( entry.prefix(), router, &entry.metric() );
         }
      }
   }
   for ( const auto & prefix : reachabilityMap_[ igpRouterId ] ) {
      if ( !prefixes.has( prefix ) ) {
         doUpdateOriginator( prefix, router, nullptr );
      }
   }
   if ( prefixes.empty() ) {
      reachabilityMap_.erase( igpRouterId );
   } else {
      reachabilityMap_[ igpRouterId ] = std::move( prefixes );
   }
   allTopoDbStatus_->teGraph().touch( topoId_, igpRouterId );
}

void
TopoDbSm::handleReachability( const IgpRouterId & igpRouterId ) {
   TRACE9( "reachability update of " << igpRouterId );
   doUpdateReachability( igpRouterId, topoDb_->reachabilityFind( igpRouterId ) );
   doUpdateAllTopoDbStatus();
}

}
