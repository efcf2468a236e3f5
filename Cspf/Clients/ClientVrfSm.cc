// One client in one VRF. A family is served while the client wants it and the VRF has a source for
// the client's kind of computation. What a served family holds is taken in this order and let go in
// the reverse one: the VRF's handle, which makes the VRF active, then the client's data, then the
// tables and the path reactor on them. The mounter around it makes the client count in the VRF,
// which is what gives ordinary computations their source; so the source may come, and the service
// start, while the mounter is still starting.
//
// A service that ends with many paths leaves them to go by slices. Until they are gone the client
// is not served again, so that no path is there twice. Whoever reads what a beginning or an end
// publishes may ask for the opposite inside of it: each step looks again at what is wanted.

#include "Cspf/Clients/ClientVrfSm.h"

#include "Cspf/Records/StatePaths.h"
#include "Cspf/Repairs/TilfaKeys.h"
#include "Cspf/Repairs/TilfaPathSm.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

void
ClientVrfFamily::handleInitialized() {
   LUM_WATCH_KEYS( owner_.allClientInfo( af_ ), vrfSourceId, handleVrfSourceId );
   handleVrfSourceId( owner_.vrf() );
}

void
ClientVrfFamily::handleVrfSourceId( const L3::VrfName & vrf ) {
   if ( vrf != owner_.vrf() ) {
      return;
   }
   if ( const auto old = owner_.vrfSourceId( af_ ) ) {
      unwatch( *old );
   }
   if ( const auto & source = owner_.allClientInfo( af_ )->vrfSourceId( vrf ) ) {
      LUM_WATCH_KEYS( source, vrfClientSourceId, handleSourceId );
   }
   owner_.handleVrfSourceId( vrf, af_ );
}

void
ClientVrfFamily::handleSourceId( const PathComputationType & ) {
   owner_.createOrDeletePathSm( af_ );
}

void
ClientVrfFamily::handleEarlierEnd() {
   owner_.createOrDeletePathSm( af_ );
}

bool
ClientVrfFamily::waitsForEarlier() {
   const auto & info = owner_.allClientInfo( af_ );
   const auto & leaving = info->leavingPaths( owner_.clientOfVrf() );
   if ( leaving ) {
      unwatch( *leaving );
      LUM_WATCH( leaving, isGone, handleEarlierEnd );
   }
   const auto & change = info->vrfChange( owner_.vrf() );
   if ( change ) {
      unwatch( *change );
      LUM_WATCH( change, isOver, handleEarlierEnd );
   }
   return leaving || change;
}

void
ClientVrfSm::handleInitialized() {
   pathTypeIs( clientName_ == tilfaClientName ? PathComputationType::tilfa
                                              : PathComputationType::cspf );
   LUM_WATCH_KEYS( client_, addressFamily, handleAddressFamily );
   LUM_WATCH( client_, bwmRequired, handleBwmRequired );
   doInitFamily( Kivnet::AddressFamily::ipv4, intake_.v4AllClientInfo );
   doInitFamily( Kivnet::AddressFamily::ipv6, intake_.v6AllClientInfo );
   handleBwmRequired();
   initializedIs( true );
}

void
ClientVrfSm::doInitFamily( Kivnet::AddressFamily af, const Lum::Ptr< AllClientInfo > & info ) {
   if ( isRetired() ) {
      return;
   }
   allClientInfoIs( af, info );
   vrfDedupTableIs( af, info->activeVrfsDedupTable() );
   familyIs( af, new ClientVrfFamily( *this, af ) );
}

void
ClientVrfSm::doPrepareToDie() {
   bwmClientSetupSmDel();
   for ( const auto & af : Lum::sortedKeys( pathSmColl() ) ) {
      doCleanupPathSm( af );
   }
   vrfDedupHandleDelAll();
   familyDelAll();
}

void
ClientVrfSm::handleVrfSourceId( const L3::VrfName & vrf, Kivnet::AddressFamily af ) {
   if ( const Lum::Ptr< const VrfSourceId > source = allClientInfo( af )->vrfSourceId( vrf ) ) {
      vrfSourceIdIs( af, source );
   } else {
      vrfSourceIdDel( af );
   }
   createOrDeletePathSm( af );
}

void
ClientVrfSm::handleBwmRequired() {
   if ( isRetired() ) {
      return;
   }
   if ( client_->bwmRequired() && !bwmClientSetupSm() ) {
      TRACE7( "Creating BwmClientSetupSm for client " << clientName_ << " in VRF " << vrf_ );
      bwmClientSetupSmIs( clientName_, vrf_, intake_.bwmAllClientInfo, intake_.entityManager );
   } else if ( !client_->bwmRequired() && bwmClientSetupSm() ) {
      TRACE7( "Deleting BwmClientSetupSm for client " << clientName_ << " in VRF " << vrf_ );
      bwmClientSetupSmDel();
   }
}

void
ClientVrfSm::createOrDeletePathSm( Kivnet::AddressFamily af ) {
   if ( !familyHas( af ) || isRetired() ) {
      return;
   }
   const auto alive = keptAlive();
   if ( mayBegin( af ) ) {
      TRACE7( "Grabbing dedup handle for af " << text( af ) );
      const auto handle = vrfDedupTable( af )->dedupFromVrfName( vrf_ );
      if ( !mayBegin( af ) ) {
         return;
      }
      vrfDedupHandleIs( af, handle );
      updateClientData( af );
      TRACE7( "Creating PathSm for af " << text( af ) );
      doInitPathSm( af );
   }
   if ( isWanted( af ) ) {
      return;
   }
   if ( pathSmHas( af ) ) {
      TRACE7( "Deleting PathSm for af " << text( af ) );
      doCleanupPathSm( af );
   }
   if ( !pathSmHas( af ) && vrfDedupHandle( af ) ) {
      TRACE7( "Releasing dedup handle for af " << text( af ) );
      vrfDedupHandleDel( af );
   }
}

NodeId
ClientVrfSm::getVrfClientSourceId( Kivnet::AddressFamily af ) const {
   const auto & source = vrfSourceId( af );
   return source ? source->vrfClientSourceId( pathType() ).sourceId() : NodeId();
}

void
ClientVrfSm::doInitPathSm( Kivnet::AddressFamily af ) {
   const auto & own = family( af );
   own->configMount = std::make_unique< LumZorch::TableMount< Config > >(
      intake_.entityManager, StatePath::ofClient( StatePath::config, vrf_, af, clientName_ ),
      LumZorch::MountMode::reader );
   own->statusMount = std::make_unique< LumZorch::TableMount< Status > >(
      intake_.entityManager, StatePath::ofClient( StatePath::status, vrf_, af, clientName_ ),
      LumZorch::MountMode::writer, std::vector< std::string >{ "pathStatus", "pqInfo" } );
   const auto & cspfConfig = own->configMount->table();
   const auto & cspfStatus = own->statusMount->table();
   LUM_ASSERT( cspfConfig );
   LUM_ASSERT( cspfStatus );
   const auto & pathConfigInfoTable = allClientInfo( af )->pathConfigInfoTable( vrf_ );
   const auto & pathStatusInfoTable = allClientInfo( af )->pathStatusInfoTable( vrf_ );
   LUM_ASSERT( pathConfigInfoTable );
   LUM_ASSERT( pathStatusInfoTable );
   const auto pathSm = newPathSm( af );
   pathSmIs( af, pathSm );
   Lum::start( pathSm );
}

Lum::Ptr< PathSmBase >
ClientVrfSm::newPathSm( Kivnet::AddressFamily af ) const {
   const auto & own = family( af );
   const auto & info = allClientInfo( af );
   const auto & config = own->configMount->table();
   const auto & status = own->statusMount->table();
   const auto & configRows = info->pathConfigInfoTable( vrf_ );
   const auto & statusRows = info->pathStatusInfoTable( vrf_ );
   if ( pathType() == PathComputationType::tilfa ) {
      return new TilfaPathSm( af, vrf_, clientName_, intake_.teStatus, config, status, configRows,
                              statusRows, info->repairScope( vrf_ ), info->taskScheduler() );
   }
   return new PathSm( af, vrf_, clientName_, intake_.teStatus, config, status, configRows,
                      statusRows, info->taskScheduler() );
}

void
ClientVrfSm::doCleanupPathSm( Kivnet::AddressFamily af ) {
   const auto & info = allClientInfo( af );
   auto configMount = std::move( family( af )->configMount );
   auto statusMount = std::move( family( af )->statusMount );
   const auto leaving = info->leavingPathsIs(
      clientOfVrf(), new LeavingPaths( *info, clientOfVrf(), pathSm( af ), vrfDedupHandle( af ) ) );
   pathSmDel( af );
   const bool isAtOnce = leaving->leaveAtOnce();
   configMount = nullptr;
   statusMount->cleanup();
   statusMount = nullptr;
   if ( !isAtOnce ) {
      leaving->leaveBySlices();
   }
   cleanupClientData( af );
   if ( isAtOnce ) {
      leaving->handleGone();
   }
}

void
ClientVrfSm::updateClientData( Kivnet::AddressFamily af ) {
   if ( isisAdjacencyInfo_ ) {
      allClientInfo( af )->clientData( vrf_ )->isisAdjacencyInfoIs( isisAdjacencyInfo_ );
   }
}

void
ClientVrfSm::cleanupClientData( Kivnet::AddressFamily af ) {
   TRACE7( "client: " << clientName_ );
   if ( isisAdjacencyInfo_ ) {
      allClientInfo( af )->clientData( vrf_ )->isisAdjacencyInfoIs( nullptr );
   }
}

void
ClientVrfSm::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cVrf: %s\n", vrf_.stringValue().c_str() );
   for ( const auto & [ af, pathSm ] : pathSmColl() ) {
      context.dump( *pathSm, indent + 2 );
   }
}

void
ClientVrfConfMounter::handleInitialized() {
   TRACE7( "ClientVrfConfMounter " << clientName_ << "vrf: " << vrf_ );
   intake_.teConfigDir->teVrfConfigIs( vrf_ )->clientsEnabledIs( clientName_ );
   if ( isRetired() ) {
      return;
   }
   Lum::Ptr< const IsisExportImpl::IsisAdjacencyInfo > isisAdjacencyInfo;
   if ( clientName_ == tilfaClientName ) {
      adjacencyMount_.emplace( intake_.entityManager,
                               "routing/isis/adjacency/" + vrf_.stringValue(),
                               LumZorch::MountMode::reader );
      isisAdjacencyInfo = adjacencyMount_->table();
   }
   clientVrfSmIs( vrf_, clientName_, client_, intake_, isisAdjacencyInfo );
}

void
ClientVrfConfMounter::doPrepareToDie() {
   TRACE7( "clientVrfConfMounter getting deleted" );
   clientVrfSmDel();
   adjacencyMount_.reset();
   const auto teVrfConfig = intake_.teConfigDir->teVrfConfig( vrf_ );
   teVrfConfig->clientsEnabledDel( clientName_ );
   const bool isCurrent = intake_.teConfigDir->teVrfConfig( vrf_ ) == teVrfConfig;
   if ( isCurrent && teVrfConfig->clientsEnableds() == 0 ) {
      intake_.teConfigDir->teVrfConfigDel( vrf_ );
   }
}

void
ClientVrfConfMounter::dumpState( Kiv::DumpContext & context, int indent ) const {
   if ( clientVrfSm() ) {
      context.dump( *clientVrfSm(), indent );
   }
}

}
