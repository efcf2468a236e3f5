#pragma once

#include "Cspf/Agent/Root.h"
#include "Cspf/Bandwidth/BwmRoot.h"
#include "Cspf/Clients/ClientSm.h"
#include "Cspf/Clients/SourceIdSm.h"
#include "Cspf/Clients/TeConfigSm.h"
#include "Cspf/Topology/ExportSm.h"
#include "platform/AgentRunner/Agent.h"

namespace Cspf {

/// The agent: it asks for its mounts, and builds its parts when they are there. Everything else is
/// done by the parts, which stand for the agent's whole life, enabled or not.
class Agent : public AgentRunner::Agent {
   LUM_ENTITY( Cspf, Agent );
   /// The name is that of the trace file as well.
   explicit Agent( const std::string & name );
   ~Agent() override;
   LUM_CHILD( teConfigSm, TrafficEngineering::TeConfigSm );
   LUM_CHILD( topoDbExportDirSm, TopoDbExportDirSm );
   LUM_CHILD( v4CspfRoot, CspfRoot );
   LUM_CHILD( v6CspfRoot, CspfRoot );
   LUM_CHILD( bwmRoot, TrafficEngineering::BwmRoot );
   LUM_CHILD( teRouterIdConfig, TeRouterIdConfig );
   LUM_CHILD( teRouterIdUpdateSm, TeRouterIdUpdateSm );
   LUM_CHILD( cspfSourceIdSm, CspfSourceIdSm );
   LUM_CHILD( clientDirSm, ClientDirSm );

   const Lum::Ptr< TrafficEngineering::Status > & teStatus() const noexcept { return teStatus_; }
   /// A status of that name that is there already stays.
   void teStatusIs( const Lum::String & name );
   void teStatusDel() { teStatus_ = nullptr; }
   const Lum::Ptr< TeConfigDir > & teConfigDir() const noexcept { return teConfigDir_; }
   void teConfigDirIs() { teConfigDir_ = teConfigDirFactory(); }
   void teConfigDirDel() { teConfigDir_ = nullptr; }

   /// The agent of this process; null while there is none.
   static const Agent * instance() noexcept { return instance_; }

   void doInit() override;
   void doMountsComplete( Corvdb::MountStatus status,
                          const Lum::Ptr< Corvdb::EntityManager > & entityManager ) override;
   /// Takes the parts down, those first that were built last.
   void doPrepareToDie() override;
   void dumpState( Kiv::DumpContext & context, int indent ) const override;

 private:
   /// The mounted entities that the parts work on.
   struct Mounted {
      explicit Mounted( const Corvdb::EntityManager & entityManager );

      Lum::Ptr< Lum::Dir > clientDir;
      Lum::Ptr< TrafficEngineering::Config > teConfig;
      Lum::Ptr< Routing::General::Config > routingGeneralConfig;
      Lum::Ptr< AgentStatus > agentStatus;
      Lum::Ptr< Lum::Dir > v4TopoDbClientDir;
      Lum::Ptr< Lum::Dir > v6TopoDbClientDir;
      Lum::Ptr< TrafficEngineering::BwmActiveStatus > bwmActiveStatus;
      Lum::Ptr< Lum::Dir > topoDbExportDir;
   };

   void doInitTrace() const;
   void buildRoots( const Mounted & mounted );
   void buildSources( const Mounted & mounted );
   void buildClients( const Mounted & mounted );

   static inline const Agent * instance_ = nullptr;

   std::optional< Mounted > mounted_;
   Lum::Ptr< TrafficEngineering::Status > teStatus_;
   Lum::Ptr< TeConfigDir > teConfigDir_;
   Lum::Ptr< AllTopoDbDir > v4AllTopoDbDir_;
   Lum::Ptr< AllTopoDbDir > v6AllTopoDbDir_;
};

/// A new agent, not started; its first reference is the caller's.
AgentRunner::Agent * agentFactory( const std::string & name );

}

/// What the agent library is loaded for.
extern "C" AgentRunner::Agent * agentFactory( const char * name );
