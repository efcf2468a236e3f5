// The intake of clients: the directory and its clients. The agent owns the directory reactor for
// its whole life; being enabled or not only means that there are client reactors below it. At the
// start it removes tables that an earlier run of the agent left for clients, VRFs or families that
// are not there any more; those that are still wanted stay as they are, so that their readers see
// no gap.

#include "Cspf/CspfClientSm.h"

#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

namespace Cspf {

namespace {

/// The keys that are set to true.
template< class Key >
std::vector< Key >
wanted( const std::map< Key, bool > & coll ) {
   std::vector< Key > keys;
   for ( const auto & [ key, isWanted ] : coll ) {
      if ( isWanted ) {
         keys.push_back( key );
      }
   }
   return keys;
}

void
cleanupUnexpected( const Lum::Ptr< Corvdb::EntityManager > & entityManager,
                   const std::string & base, const std::set< std::string > & expected ) {
   LumZorch::Mount mount( entityManager );
   for ( const auto & path : mount.list( base ) ) {
      if ( !expected.contains( path ) ) {
         TRACE7( "Deleting path : " << path );
         mount.cleanup( path );
      }
   }
}

}

void
ClientSm::handleInitialized() {
   LUM_WATCH_KEYS( client_, vrf, handleVrf );
   LUM_WATCH( intake_.teRouterIdConfig, routerId, handleRouterId );
   handleRouterId();
}

void
ClientSm::handleRouterId() {
   for ( const auto & vrf : Lum::sortedKeys( client_->vrfColl() ) ) {
      handleVrf( vrf );
   }
}

void
ClientSm::handleVrf( const L3::VrfName & vrf ) {
   if ( client_->vrf( vrf ) && intake_.teRouterIdConfig->routerId() ) {
      if ( !clientVrfConfMounterHas( vrf ) ) {
         TRACE7( "client " << name_ << ", vrf " << vrf << " te required and configured" );
         TRACE7( "Creating ClientVrfSm for client " << name_ << ", vrf " << vrf );
         clientVrfConfMounterIs( vrf, new ClientVrfConfMounter( vrf, name_, client_, intake_ ) );
      }
      return;
   }
   TRACE7( "client " << name_ << ", vrf " << vrf << " te not required" );
   if ( clientVrfConfMounterHas( vrf ) ) {
      TRACE7( "Deleting ClientVrfSm for client " << name_ << ", vrf " << vrf );
      clientVrfConfMounterDel( vrf );
   }
}

void
ClientSm::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cClient: %s\n", name_.c_str() );
   context.printf( indent, "%*cbwmRequired: %s\n", client_->bwmRequired() ? "True" : "False" );
   for ( const auto & [ vrf, mounter ] : clientVrfConfMounterColl() ) {
      context.dump( *mounter, indent + 2 );
   }
}

void
ClientDirSm::handleInitialized() {
   TRACE7( "clientDirSm getting initialized" );
   LUM_WATCH_KEYS( clientDir_, entity, handleClientDir );
   doCleanupStaleClientMounts();
   handleEnabled();
}

void
ClientDirSm::doPrepareToDie() {
   TRACE7( "clientDirSm getting deleted" );
   clientSmDelAll();
}

void
ClientDirSm::handleClientDir( const Lum::String & name ) {
   if ( const auto client = Lum::cast< const Client >( clientDir_->entity( name ) ) ) {
      if ( !clientSmHas( name ) ) {
         TRACE7( "Creating ClientSm for client " << name );
         clientSmIs( name, new ClientSm( name, client, intake_ ) );
      }
      return;
   }
   TRACE7( "Deleting ClientSm for client " << name );
   clientSmDel( name );
   if ( clientDir_->entitys() == 0 ) {
      TRACE7( "No client present, disabling the agent" );
      handleEnabled();
   }
}

void
ClientDirSm::handleEnabled() {
   if ( clientDir_->entitys() == 0 ) {
      TRACE7( "stopping agent" );
      doPrepareToDie();
      agentStatus_->agentEnabledIs( false );
      return;
   }
   TRACE7( "enabling agent" );
   agentStatus_->agentEnabledIs( true );
   for ( const auto & name : Lum::sortedKeys( clientDir_->entityColl() ) ) {
      handleClientDir( name );
   }
}

void
ClientDirSm::doCleanupStaleClientMounts() {
   TRACE7( "cleaning up stale client mounts" );
   const ExpectedPaths expected = doBuildExpectedPathList();
   const auto & entityManager = intake_.entityManager;
   cleanupUnexpected( entityManager, "te/cspf/status", expected.status );
   cleanupUnexpected( entityManager, "te/cspf/intfIpToRouterId", expected.intfIpToRouterId );
   // What an earlier run has told of its own work is of no use to anybody.
   cleanupUnexpected( entityManager, "te/cspf/constraintStatus", {} );
   cleanupUnexpected( entityManager, "te/cspf/bwUsage", {} );
   cleanupUnexpected( entityManager,
                      TrafficEngineering::BwmClientSetupSm::clientStatusMountPathBase(),
                      expected.bwmClientStatus );
   cleanupUnexpected( entityManager, TrafficEngineering::BwmVrfRoot::statusMountPathBase(),
                      expected.bwmStatus );
}

ClientDirSm::ExpectedPaths
ClientDirSm::doBuildExpectedPathList() const {
   ExpectedPaths expected;
   for ( const auto & [ name, entity ] : clientDir_->entityColl() ) {
      const auto client = Lum::cast< const Client >( entity );
      for ( const auto & vrf :
            client ? wanted( client->vrfColl() ) : std::vector< L3::VrfName >() ) {
         for ( const auto af : wanted( client->addressFamilyColl() ) ) {
            expected.status.insert( clientStatusPath( vrf, af, name ) );
            expected.intfIpToRouterId.insert( "te/cspf/intfIpToRouterId/vrf/" + vrf.stringValue()
                                              + "/" + text( af ) );
         }
         if ( client->bwmRequired() ) {
            expected.bwmClientStatus.insert(
               TrafficEngineering::BwmClientSetupSm::clientStatusMountPath( vrf, name ) );
            expected.bwmStatus.insert( TrafficEngineering::BwmVrfRoot::statusMountPath( vrf ) );
         }
      }
   }
   return expected;
}

void
ClientDirSm::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*c-----CSPF client config and status-----\n" );
   for ( const auto & [ name, clientSm ] : clientSmColl() ) {
      context.dump( *clientSm, indent + 2 );
   }
   context.printf( indent, "%*c\n" );
}

}
