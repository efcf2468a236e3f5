#pragma once

#include "Cspf/Bandwidth/BwmRoot.h"
#include "Cspf/Clients/ClientVrfSm.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/Lum/Dir.h"

#include <set>

/// The intake of clients. Each level watches one collection and owns a reactor an entry of it:
/// directory -> client -> VRF -> (family -> path reactor).
namespace Cspf {

/// Serves one client: a mounter for each VRF in which the client wants TE and TE is there.
///
///   watches                      handler          makes
///   Client.vrf                   handleVrf        clientVrfConfMounter, one a VRF
///   TeRouterIdConfig.routerId    handleRouterId
///   TeVrfConfig.clientsEnabled   handleEarlierEnd while an earlier mounter still ends
class ClientSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, ClientSm );
   ClientSm( const Lum::String & name, const Lum::Ptr< const Client > & client,
             const Lum::Ptr< const TeRouterIdConfig > & teRouterIdConfig,
             const ClientIntake & intake )
      : name_( name ),
        client_( client ),
        teRouterIdConfig_( teRouterIdConfig ),
        intake_( intake ) {}
   LUM_CHILDREN( clientVrfConfMounter, L3::VrfName, ClientVrfConfMounter );

   void handleInitialized() override;
   void doPrepareToDie() override { clientVrfConfMounterDelAll(); }
   void handleVrf( const L3::VrfName & vrf );
   void handleRouterId();
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   void handleEarlierEnd( const Lum::String & client );
   /// Whether an earlier mounter of the client in the VRF has not ended yet; if so, its end is
   /// heard of.
   bool waitsForEarlier( const L3::VrfName & vrf );

   const Lum::String name_;
   const Lum::Ptr< const Client > client_;
   const Lum::Ptr< const TeRouterIdConfig > teRouterIdConfig_;
   const ClientIntake intake_;
};

/// Serves the client directory. The agent is enabled when the directory holds clients at the start,
/// and disabled when the last one goes; a client that comes later does not enable it again.
///
///   watches                     handler                    does
///   Lum::Dir of Clients         handleClientDir            clientSm, one a client;
///                                                           AgentStatus.agentEnabled
///   TeRouterIdConfig.routerId   cleanUpLater               removes tables
class ClientDirSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, ClientDirSm );
   ClientDirSm( const Lum::Ptr< Corvdb::EntityManager > & entityManager,
                const Lum::Ptr< const Lum::Dir > & clientDir,
                const Lum::Ptr< const TeRouterIdConfig > & teRouterIdConfig,
                const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
                const Lum::Ptr< AgentStatus > & agentStatus,
                const Lum::Ptr< AllClientInfo > & v4AllClientInfo,
                const Lum::Ptr< AllClientInfo > & v6AllClientInfo,
                const Lum::Ptr< TrafficEngineering::BwmAllClientInfo > & bwmAllClientInfo,
                const Lum::Ptr< TeConfigDir > & teConfigDir )
      : clientDir_( clientDir ),
        teRouterIdConfig_( teRouterIdConfig ),
        agentStatus_( agentStatus ),
        intake_{ entityManager,   teStatus,         v4AllClientInfo,
                 v6AllClientInfo, bwmAllClientInfo, teConfigDir } {}
   LUM_CHILDREN( clientSm, Lum::String, ClientSm );

   void handleInitialized() override;
   void doPrepareToDie() override;
   void handleEnabled();
   /// The entry `name` of the directory came or went.
   void handleClientDir( const Lum::String & name );
   /// Removes what an earlier run has left of clients that this one does not serve.
   void doCleanupStaleClientMounts();
   void doBuildExpectedPathList();
   void dumpState( Kiv::DumpContext & context, int indent ) const;

   // The tables that this run writes for the clients that are there: known while it is looked which
   // others there are.

   const std::set< std::string > & expectedStatusPath() const { return expectedStatusPath_; }
   const std::set< std::string > & expectedIntfIpToRouterIdPath() const {
      return expectedIntfIpToRouterIdPath_;
   }
   const std::set< std::string > & expectedBwmClientStatusPath() const {
      return expectedBwmClientStatusPath_;
   }
   const std::set< std::string > & expectedBwmStatusPath() const { return expectedBwmStatusPath_; }

 private:
   /// In a later turn, once for all clients that leave in this one: it looks through all tables.
   void cleanUpLater();
   /// Tables that were kept for clients that wait for TE are nobody's when these have gone since.
   void doCleanupUnservedTables();
   /// All tables of clients that this run does not write.
   std::vector< std::string > unservedTables();
   void doClearExpectedPathList();
   void addExpectedPaths( const Lum::String & name, const Client & client,
                          const L3::VrfName & vrf );
   /// Whether computations of a client that is served in the VRF have a node to start from.
   bool willHaveSource( const Lum::String & client, const L3::VrfName & vrf,
                        Kivnet::AddressFamily af ) const;

   const Lum::Ptr< const Lum::Dir > clientDir_;
   const Lum::Ptr< const TeRouterIdConfig > teRouterIdConfig_;
   const Lum::Ptr< AgentStatus > agentStatus_;
   const ClientIntake intake_;
   Kiv::Task unservedTablesTask_{ *this, intake_.v4AllClientInfo->taskScheduler(),
                                  "unservedTablesTask", [ this ]() { doCleanupUnservedTables(); } };
   std::set< std::string > expectedStatusPath_;
   std::set< std::string > expectedIntfIpToRouterIdPath_;
   std::set< std::string > expectedBwmClientStatusPath_;
   std::set< std::string > expectedBwmStatusPath_;
};

}
