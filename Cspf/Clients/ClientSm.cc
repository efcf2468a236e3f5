// The intake of clients: the directory and its clients. The agent owns the directory reactor for
// its whole life; being enabled or not only means that there are client reactors below it. At the
// start it removes tables that an earlier run of the agent left and that this one does not serve:
// the client, its VRF or its family is not there any more, or never has anything to compute from.
// Those that are served stay as they are, so that their readers see no gap; so do those of clients
// that wait for TE to be switched on.

#include "Cspf/Clients/ClientSm.h"

#include "Cspf/Records/StatePaths.h"
#include "Cspf/Repairs/TilfaKeys.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

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

/// `operation`: the one for which, as traces begin.
void
cleanupTables( const char * operation, const Lum::Ptr< Corvdb::EntityManager > & entityManager,
               const std::vector< std::string > & paths ) {
   LumZorch::Mount mount( entityManager );
   for ( const auto & path : paths ) {
      TRACE7_FOR( operation, "Deleting path : " << path );
      mount.cleanup( path );
   }
}

}

void
ClientSm::handleInitialized() {
   LUM_WATCH_KEYS( client_, vrf, handleVrf );
   LUM_WATCH( teRouterIdConfig_, routerId, handleRouterId );
   handleRouterId();
}

void
ClientSm::handleRouterId() {
   for ( const auto & vrf : Lum::sortedKeys( client_->vrfColl() ) ) {
      handleVrf( vrf );
   }
}

void
ClientSm::handleEarlierEnd( const Lum::String & client ) {
   if ( client == name_ ) {
      handleRouterId();
   }
}

bool
ClientSm::waitsForEarlier( const L3::VrfName & vrf ) {
   const auto & enabled = intake_.teConfigDir->teVrfConfig( vrf );
   if ( !enabled ) {
      return false;
   }
   unwatch( *enabled );
   if ( !enabled->clientsEnabledHas( name_ ) ) {
      return false;
   }
   LUM_WATCH_KEYS( enabled, clientsEnabled, handleEarlierEnd );
   return true;
}

void
ClientSm::handleVrf( const L3::VrfName & vrf ) {
   if ( isRetired() ) {
      return;
   }
   if ( client_->vrf( vrf ) && teRouterIdConfig_->routerId() ) {
      if ( !clientVrfConfMounterHas( vrf ) && !waitsForEarlier( vrf ) ) {
         TRACE7( "client " << name_ << ", vrf " << vrf << " te required and configured" );
         TRACE7( "Creating ClientVrfSm for client " << name_ << ", vrf " << vrf );
         clientVrfConfMounterIs( vrf, name_, client_, intake_ );
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
   LUM_WATCH( teRouterIdConfig_, routerId, cleanUpLater );
   doCleanupStaleClientMounts();
   handleEnabled();
}

void
ClientDirSm::doPrepareToDie() {
   TRACE7( "clientDirSm getting deleted" );
   clientSmDelAll();
   if ( isRetired() ) {  // and the VRFs with it
      intake_.v4AllClientInfo->leavingPathsDelAll();
      intake_.v6AllClientInfo->leavingPathsDelAll();
   }
}

void
ClientDirSm::handleClientDir( const Lum::String & name ) {
   if ( isRetired() ) {
      return;
   }
   if ( const auto client = Lum::cast< const Client >( clientDir_->entity( name ) ) ) {
      if ( !clientSmHas( name ) ) {
         TRACE7( "Creating ClientSm for client " << name );
         clientSmIs( name, client, teRouterIdConfig_, intake_ );
      }
      return;
   }
   TRACE7( "Deleting ClientSm for client " << name );
   clientSmDel( name );
   cleanUpLater();
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
   cleanUpLater();  // who hears of one client's service may change what the next one needs
}

void
ClientDirSm::doCleanupStaleClientMounts() {
   TRACE7( "cleaning up stale client mounts" );
   std::vector< std::string > paths = unservedTables();
   // What an earlier run has told of its own work is of no use to anybody.
   const LumZorch::Mount mount( intake_.entityManager );
   for ( const char * base : { StatePath::constraintStatus, StatePath::bwUsage } ) {
      std::ranges::move( mount.list( base ), std::back_inserter( paths ) );
   }
   cleanupTables( __PRETTY_FUNCTION__, intake_.entityManager, paths );
}

void
ClientDirSm::cleanUpLater() {
   if ( intake_.v4AllClientInfo->taskScheduler() ) {
      unservedTablesTask_.schedule();
   } else {
      doCleanupUnservedTables();
   }
}

void
ClientDirSm::doCleanupUnservedTables() {
   cleanupTables( __PRETTY_FUNCTION__, intake_.entityManager, unservedTables() );
}

std::vector< std::string >
ClientDirSm::unservedTables() {
   using namespace TrafficEngineering;
   doBuildExpectedPathList();
   const LumZorch::Mount mount( intake_.entityManager );
   std::vector< std::string > unserved;
   const auto add = [ & ]( const char * base, const std::set< std::string > & expected ) {
      std::ranges::copy_if( mount.list( base ), std::back_inserter( unserved ),
                            [ & ]( const auto & path ) { return !expected.contains( path ); } );
   };
   add( StatePath::status, expectedStatusPath() );
   add( StatePath::intfIpToRouterId, expectedIntfIpToRouterIdPath() );
   add( BwmClientSetupSm::clientStatusMountPathBase(), expectedBwmClientStatusPath() );
   add( BwmVrfRoot::statusMountPathBase(), expectedBwmStatusPath() );
   doClearExpectedPathList();
   return unserved;
}

bool
ClientDirSm::willHaveSource( const Lum::String & client, const L3::VrfName & vrf,
                             Kivnet::AddressFamily af ) const {
   if ( client != tilfaClientName ) {  // the TE router id, where it counts in the VRF, once there
      return af == Kivnet::AddressFamily::ipv4;
   }
   const auto & sources = intake_.allClientInfo( af )->vrfSourceId( vrf );
   return sources && sources->vrfClientSourceIdHas( PathComputationType::tilfa );
}

void
ClientDirSm::addExpectedPaths( const Lum::String & name, const Client & client,
                               const L3::VrfName & vrf ) {
   for ( const auto af : wanted( client.addressFamilyColl() ) ) {
      if ( willHaveSource( name, vrf, af ) ) {
         expectedStatusPath_.insert( StatePath::ofClient( StatePath::status, vrf, af, name ) );
         expectedIntfIpToRouterIdPath_.insert(
            StatePath::ofVrf( StatePath::intfIpToRouterId, vrf, af ) );
      }
   }
   if ( client.bwmRequired() ) {
      expectedBwmClientStatusPath_.insert(
         TrafficEngineering::BwmClientSetupSm::clientStatusMountPath( vrf, name ) );
      expectedBwmStatusPath_.insert( TrafficEngineering::BwmVrfRoot::statusMountPath( vrf ) );
   }
}

void
ClientDirSm::doClearExpectedPathList() {
   expectedStatusPath_.clear();
   expectedIntfIpToRouterIdPath_.clear();
   expectedBwmClientStatusPath_.clear();
   expectedBwmStatusPath_.clear();
}

/// A VRF is served as long as rows of its clients are left.
void
ClientDirSm::doBuildExpectedPathList() {
   for ( const auto af : { Kivnet::AddressFamily::ipv4, Kivnet::AddressFamily::ipv6 } ) {
      for ( const auto & [ vrf, table ] : intake_.allClientInfo( af )->pathStatusInfoTableColl() ) {
         expectedIntfIpToRouterIdPath_.insert(
            StatePath::ofVrf( StatePath::intfIpToRouterId, vrf, af ) );
      }
   }
   for ( const auto & [ name, entity ] : clientDir_->entityColl() ) {
      if ( const auto client = Lum::cast< const Client >( entity ) ) {
         for ( const auto & vrf : wanted( client->vrfColl() ) ) {
            addExpectedPaths( name, *client, vrf );
         }
      }
   }
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
