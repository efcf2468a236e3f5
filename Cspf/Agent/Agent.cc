// The agent as a whole: which state it mounts, which parts it is made of, and the order in which
// they come and go. The runner drives it. Sources of computations and clients come last, since they
// set everything else to work; on the way down they go first, so that every table and every entry
// that a client brought about is gone before the parts that keep them.

#include "Cspf/Agent/Agent.h"

#include "Cspf/Agent/CommandCallback.h"
#include "Cspf/Agent/ExplainCommand.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Toggle/Toggle.h"
#include "platform/Trace/Velotrace.h"

#include <array>
#include <cstdlib>

namespace Cspf {

namespace {

constexpr const char * ethPhyPath = "interface/status/eth/phy/all";
constexpr const char * ethLagPath = "interface/status/eth/lag";
constexpr const char * srIsisPath = "segmentrouting/isis/";
/// Clients together may reserve no more of an interface than there is.
constexpr std::uint32_t bwmSubscription = 1;

const auto mounts = std::to_array< Corvdb::MountPoint >( {
   { "te/cspf/client", "Lum::Dir", "ri" },
   { "te/config", "TrafficEngineering::Config", "r" },
   { "routing/general/config/global", "Routing::General::Config", "r" },
   { "te/cspf/cliConfig", "Cspf::CspfCliConfig", "ri" },
   { "te/cspf/agentStatus", "Cspf::AgentStatus", "w" },
   { "ip/status", "Ip::Status", "r" },
   { "routing/export/topodb/client", "Lum::Dir", "wi" },
   { "routing6/export/topodb/client", "Lum::Dir", "wi" },
   { "te/bwm/activeStatus", "TrafficEngineering::BwmActiveStatus", "w" },
   { "routing/topoDbExport", "Lum::Dir", "ri" },
   { srIsisPath, "Lum::Dir", "r" },
} );

bool
toggleOspfTopoDbExportEnabled() {
   return Toggle::getToggleStateOnce( "OspfTopoDbExport", "gated.json", true );
}

}

Agent::Mounted::Mounted( const Corvdb::EntityManager & entityManager )
   : clientDir( entityManager.entity< Lum::Dir >( "te/cspf/client" ) ),
     teConfig( entityManager.entity< TrafficEngineering::Config >( "te/config" ) ),
     routingGeneralConfig(
        entityManager.entity< Routing::General::Config >( "routing/general/config/global" ) ),
     agentStatus( entityManager.entity< AgentStatus >( "te/cspf/agentStatus" ) ),
     v4TopoDbClientDir( entityManager.entity< Lum::Dir >( "routing/export/topodb/client" ) ),
     v6TopoDbClientDir( entityManager.entity< Lum::Dir >( "routing6/export/topodb/client" ) ),
     bwmActiveStatus(
        entityManager.entity< TrafficEngineering::BwmActiveStatus >( "te/bwm/activeStatus" ) ),
     topoDbExportDir( entityManager.entity< Lum::Dir >( "routing/topoDbExport" ) ) {}

Agent::Agent( const std::string & name ) : AgentRunner::Agent( name ) {
   instance_ = this;
}

Agent::~Agent() {
   if ( instance_ == this ) {
      instance_ = nullptr;
   }
}

void
Agent::doInit() {
   activityManagerConfig()->useEpollIs( true );
   doInitTrace();
   const auto & group = entityManager()->mountGroup( name() );
   for ( const auto & mount : mounts ) {
      group->mountIs( mount.path, mount.typeName, mount.mode );
   }
   entityManager()->localEntityIs( ethPhyPath, "Interface::AllEthPhyIntfStatusDir",
                                   "AllEthPhyIntfStatusDir" );
   entityManager()->localEntityIs( ethLagPath, "Interface::EthLagIntfStatusDir",
                                   "EthLagIntfStatusDir" );
   entityManager()->localEntitiesCreatedIs( true );
   group->closeIs( [ this ]( Corvdb::MountStatus status,
                             const Lum::Ptr< Corvdb::EntityManager > & entityManager ) {
      doMountsComplete( status, entityManager );
   } );
}

void
Agent::doInitTrace() const {
   if ( std::getenv( "VELOTRACE_DISABLE" ) ) {
      return;
   }
   const char * const processPart = std::getenv( "VELOTRACEDIR" ) ? "" : "-%d";
   Velotrace::initialise( name() + processPart + ".qt", nullptr, 0, 24, Velotrace::singleThreaded,
                          true, 512 );
}

void
Agent::doMountsComplete( Corvdb::MountStatus status,
                         const Lum::Ptr< Corvdb::EntityManager > & entityManager ) {
   LUM_ASSERT( status == Corvdb::mountSuccess_ );
   v4AllTopoDbDir_ = Lum::make< AllTopoDbDir >();
   v6AllTopoDbDir_ = Lum::make< AllTopoDbDir >();
   const Mounted & mounted = mounted_.emplace( *entityManager );
   buildRoots( mounted );
   buildSources( mounted );
   buildClients( mounted );
   commandRequestReactor()->agentCommandCallbackIs(
      Lum::make< CspfCommandCallback >( "CspfDump", this ) );
   commandRequestReactor()->agentCommandCallbackIs(
      Lum::make< CspfExplainCallback >( "CspfExplain", this ) );
   commandRequestReactor()->agentCommandCallbackIs(
      Lum::make< CspfWaitsCallback >( "CspfWaits", this ) );
}

void
Agent::teStatusIs( const Lum::String & name ) {
   if ( !teStatus_ || teStatus_->name() != name ) {
      teStatus_ = Lum::make< TrafficEngineering::Status >( name );
   }
}

void
Agent::buildRoots( const Mounted & mounted ) {
   using Kivnet::AddressFamily;
   teStatusIs( "TeStatus" );
   teConfigSmIs( mounted.teConfig, teStatus(), mounted.routingGeneralConfig );
   if ( toggleOspfTopoDbExportEnabled() ) {
      topoDbExportDirSmIs( entityManager(), mounted.topoDbExportDir, v4AllTopoDbDir_,
                           v6AllTopoDbDir_ );
   }
   v4CspfRootIs( AddressFamily::ipv4, entityManager(), mounted.v4TopoDbClientDir, taskScheduler(),
                 teStatus(), v4AllTopoDbDir_ );
   v6CspfRootIs( AddressFamily::ipv6, entityManager(), mounted.v6TopoDbClientDir, taskScheduler(),
                 teStatus(), v6AllTopoDbDir_ );
   bwmRootIs( mounted.bwmActiveStatus, bwmSubscription, entityManager(),
              entityManager()->entity< Interface::AllEthPhyIntfStatusDir >( ethPhyPath ),
              entityManager()->entity< Interface::EthLagIntfStatusDir >( ethLagPath ),
              mounted.teConfig );
}

void
Agent::buildSources( const Mounted & mounted ) {
   teRouterIdConfigIs();
   teConfigDirIs();
   teRouterIdUpdateSmIs( mounted.teConfig, mounted.routingGeneralConfig, teRouterIdConfig() );
   cspfSourceIdSmIs( entityManager()->entity< Lum::Dir >( srIsisPath ), teConfigDir(),
                     teRouterIdConfig(), v4CspfRoot()->allClientInfo(),
                     v6CspfRoot()->allClientInfo() );
}

void
Agent::buildClients( const Mounted & mounted ) {
   clientDirSmIs( entityManager(), mounted.clientDir, teRouterIdConfig(), teStatus(),
                  mounted.agentStatus, v4CspfRoot()->allClientInfo(), v6CspfRoot()->allClientInfo(),
                  bwmRoot()->bwmAllClientInfo(), teConfigDir() );
   v4CspfRoot()->initialClientsDone();
   v6CspfRoot()->initialClientsDone();
   bwmRoot()->initialClientsDone();
}

void
Agent::doPrepareToDie() {
   clientDirSmDel();
   cspfSourceIdSmDel();
   teRouterIdUpdateSmDel();
   teConfigDirDel();
   teRouterIdConfigDel();
   bwmRootDel();
   v6CspfRootDel();
   v4CspfRootDel();
   topoDbExportDirSmDel();
   teConfigSmDel();
   teStatusDel();
   mounted_.reset();
}

void
Agent::dumpState( Kiv::DumpContext & context, int indent ) const {
   const auto dump = [ & ]( const auto & part ) {
      if ( part ) {
         context.dump( *part, indent );
      }
   };
   dump( clientDirSm() );
   dump( v4CspfRoot() );
   dump( v6CspfRoot() );
   dump( bwmRoot() );
}

AgentRunner::Agent *
agentFactory( const std::string & name ) {
   return new Agent( name );
}

}

AgentRunner::Agent *
agentFactory( const char * name ) {
   return Cspf::agentFactory( std::string( name ) );
}
