// The bandwidth manager's side of the agent. Clients that require it are set up by the intake, one
// BwmClientSetupSm for each client and VRF; the handles that these hold decide in which VRFs there
// is a manager. The marks of active VRFs outlive the process, so those of an earlier run are looked
// through once the clients are known, and again whenever a VRF becomes active. Whoever hears of an
// end may bring about the next beginning inside of it: what is shared is let go before that is
// told, or only where nobody has taken it over.

#include "Cspf/Bandwidth/BwmRoot.h"

#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

namespace TrafficEngineering {

namespace {

std::string
clientUsageMountPath( const L3::VrfName & vrf, const Lum::String & client ) {
   return "te/bwm/client/input/vrf/" + vrf.stringValue() + "/" + client;
}

}

void
BwmActiveVrfsNotifiee::handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   const L3::VrfName & vrf = Cspf::vrfOf( handle );
   TRACE7( "Adding active VRF: " << vrf );
   bwmRoot_.vrfActiveIs( vrf );
}

void
BwmActiveVrfsNotifiee::handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   const L3::VrfName & vrf = Cspf::vrfOf( handle );
   TRACE7( "Deleting active VRF: " << vrf );
   bwmRoot_.vrfActiveDel( vrf );
}

void
BwmRoot::handleInitialized() {
   initialVrfCountIs( static_cast< std::uint32_t >( bwmActiveStatus_->bwmActives() ) );
   bwmAllClientInfoIs();
   bwmActiveVrfsNotifieeIs( this );
   bwmAllClientInfo()->activeVrfsDedupTable()->lifeTimeNotifieeIs( bwmActiveVrfsNotifiee() );
}

void
BwmRoot::doPrepareToDie() {
   bwmAllClientInfo()->activeVrfsDedupTable()->detach();
   bwmActiveVrfsNotifieeDel();
   bwmAllClientInfoDel();
}

void
BwmRoot::initialClientsDone() {
   areInitialClientsDone_ = true;
   doBwmActiveStatusCleanup();
}

void
BwmRoot::vrfActiveIs( const L3::VrfName & vrf ) {
   const auto statusTable = Lum::make< BandwidthClientStatusTable >();
   const auto usageTable = Lum::make< BandwidthClientUsageTable >();
   bwmAllClientInfo()->bandwidthClientStatusTableIs( vrf, statusTable );
   bwmAllClientInfo()->bandwidthClientUsageTableIs( vrf, usageTable );
   bwmVrfRootIs( vrf, new BwmVrfRoot( vrf, subscription_, bwmActiveStatus_, entityManager_,
                                      interfaces_, teConfig_, statusTable, usageTable ) );
   if ( areInitialClientsDone_ ) {
      doBwmActiveStatusCleanup();
   }
}

void
BwmRoot::vrfActiveDel( const L3::VrfName & vrf ) {
   bwmAllClientInfo()->bandwidthClientStatusTableDel( vrf );
   bwmAllClientInfo()->bandwidthClientUsageTableDel( vrf );
   bwmVrfRootDel( vrf );
}

void
BwmRoot::doBwmActiveStatusCleanup() {
   TRACE7( "Doing bwmActiveStatus cleanup with initialVrfCount " << initialVrfCount() );
   for ( const auto & vrf : Lum::sortedKeys( bwmActiveStatus_->bwmActiveColl() ) ) {
      if ( !bwmVrfRootHas( vrf ) ) {
         TRACE7( "Deleting vrf " << vrf << " from bwmActiveStatus" );
         bwmActiveStatus_->bwmActiveDel( vrf );
      }
   }
   bwmActiveStatusCleanupDoneIs( true );
}

std::string
BwmClientSetupSm::clientStatusMountPath( const L3::VrfName & vrf, const Lum::String & client ) {
   return std::string( clientStatusMountPathBase() ) + "/" + vrf.stringValue() + "/" + client;
}

void
BwmClientSetupSm::doSetupBwmClient() {
   TRACE7( "Acquiring VRF dedup handle for client " << client_ << " in VRF " << vrf_ );
   const auto handle =
      bwmAllClientInfo_->activeVrfsDedupTable()->dedup( Cspf::dedupVrfHandleFactory( vrf_ ) );
   if ( isRetired() ) {
      return;
   }
   dedupVrfHandleIs( handle );
   TRACE7( "Mounting zorch paths for client " << client_ << " in VRF " << vrf_ );
   clientStatusMount_.emplace( entityManager_, clientStatusMountPath( vrf_, client_ ),
                               LumZorch::MountMode::writer,
                               std::vector< std::string >{ "maxReservableBandwidth" } );
   clientUsageMount_.emplace( entityManager_, clientUsageMountPath( vrf_, client_ ),
                              LumZorch::MountMode::reader );
   const auto & clientStatusTable = clientStatusMount_->table();
   const auto & clientUsageTable = clientUsageMount_->table();
   LUM_ASSERT( clientStatusTable );
   LUM_ASSERT( clientUsageTable );
   bwmAllClientInfo_->bandwidthClientStatusTable( vrf_ )->bandwidthClientStatusIs(
      client_, clientStatusTable );
   bwmAllClientInfo_->bandwidthClientUsageTable( vrf_ )->bandwidthClientUsageIs( client_,
                                                                                 clientUsageTable );
}

/// Whoever hears of it may have the client set up again: the table is that one's then.
void
BwmClientSetupSm::doCleanupBwmClient() {
   if ( !dedupVrfHandle() ) {
      return;
   }
   const auto statusTable = bwmAllClientInfo_->bandwidthClientStatusTable( vrf_ );
   statusTable->bandwidthClientStatusDel( client_ );
   bwmAllClientInfo_->bandwidthClientUsageTable( vrf_ )->bandwidthClientUsageDel( client_ );
   TRACE7( "Cleaning up and unmounting zorch paths for client " << client_ << " in VRF " << vrf_ );
   if ( !statusTable->bandwidthClientStatusHas( client_ ) ) {
      clientStatusMount_->cleanup();
   }
   clientStatusMount_.reset();
   clientUsageMount_.reset();
   TRACE7( "Releasing VRF dedup handle for client " << client_ << " in VRF " << vrf_ );
   dedupVrfHandleIs( nullptr );
}

void
BwmRoot::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cBwmRoot\n" );
   context.printf( indent, "%*c-------\n\n" );
   context.printf( indent, "%*cinitialVrfCount: %u\n", initialVrfCount() );
   context.printf( indent, "%*cbwmActiveStatusCleanupDone: %s\n\n",
                   bwmActiveStatusCleanupDone() ? "True" : "False" );
   context.printf( indent, "%*cBwmActiveStatus\n\n" );
   context.printf( indent, "%*c%-30s %-10s\n", "VRF Name", "Active" );
   context.printf( indent, "%*c%-30s %-10s\n", "--------", "--------" );
   for ( const auto & [ vrf, active ] : bwmActiveStatus_->bwmActiveColl() ) {
      context.printf( indent, "%*c%-30s %-10s\n", vrf.stringValue().c_str(),
                      active ? "True" : "False" );
   }
   context.printf( indent, "%*cAll BW values below are in Bps\n\n" );
   for ( const auto & [ vrf, root ] : bwmVrfRootColl() ) {
      context.dump( *root, indent + 2 );
   }
   const auto dumpStale = [ & ]( const char * title, const auto & tables ) {
      context.printf( indent, title );
      for ( const auto & [ vrf, table ] : tables ) {
         if ( !bwmVrfRootHas( vrf ) ) {
            context.printf( indent, "%*c%s\n", vrf.stringValue().c_str() );
         }
      }
   };
   dumpStale( "\nStale BandwidthClientStatusTable entries\n",
              bwmAllClientInfo()->bandwidthClientStatusTableColl() );
   dumpStale( "\nStale BandwidthClientUsageTable entries\n",
              bwmAllClientInfo()->bandwidthClientUsageTableColl() );
}

}
