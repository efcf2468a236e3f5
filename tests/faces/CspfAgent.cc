#include "Cspf/CspfAgent.h"

#include "tests/faces/Names.h"

#include <gtest/gtest.h>

using namespace Cspf;

static_assert(
   named< &Cspf::agentFactory, &Agent::doInit, &Agent::doMountsComplete, &Agent::dumpState,
          &Agent::teStatusDel, &Agent::teConfigSmDel, &Agent::topoDbExportDirSmDel,
          &Agent::v4CspfRootDel, &Agent::v6CspfRootDel, &Agent::bwmRootDel,
          &Agent::teRouterIdConfigDel, &Agent::teConfigDirDel, &Agent::teRouterIdUpdateSmDel,
          &Agent::cspfSourceIdSmDel, &Agent::clientDirSmDel, &CspfCommandCallback::handleCommand,
          &dumpStateCallback > );
static_assert(
   named<
      &ClientDirSm::handleInitialized, &ClientDirSm::doPrepareToDie,
      &ClientDirSm::doCleanupStaleClientMounts, &ClientDirSm::doBuildExpectedPathList,
      &ClientDirSm::handleClientDir, &ClientDirSm::handleEnabled, &ClientDirSm::clientSmDel,
      &ClientDirSm::expectedStatusPath, &ClientDirSm::expectedBwmClientStatusPath,
      &ClientDirSm::expectedBwmStatusPath, &ClientDirSm::dumpState, &ClientSm::handleVrf,
      &ClientSm::clientVrfConfMounterDel, &ClientSm::dumpState,
      &ClientVrfConfMounter::handleInitialized, &ClientVrfConfMounter::doPrepareToDie,
      &ClientVrfConfMounter::clientVrfSm, &ClientVrfConfMounter::dumpState, &ClientVrfSm::pathType,
      &ClientVrfSm::allClientInfo, &ClientVrfSm::vrfDedupTable, &ClientVrfSm::vrfDedupHandle,
      &ClientVrfSm::vrfSourceId, &ClientVrfSm::pathSm, &ClientVrfSm::bwmClientSetupSm,
      &ClientVrfSm::initialized, &ClientVrfSm::handleAddressFamily, &ClientVrfSm::handleVrfSourceId,
      &ClientVrfSm::handleBwmRequired, &ClientVrfSm::createOrDeletePathSm,
      &ClientVrfSm::getVrfClientSourceId, &ClientVrfSm::doInitPathSm, &ClientVrfSm::doCleanupPathSm,
      &ClientVrfSm::updateClientData, &ClientVrfSm::cleanupClientData, &ClientVrfSm::dumpState > );
static_assert(
   named< &TopoDbExportDirSm::handleTopoDbExportDir, &TopoDbExportDirSm::topoDbExportSmDelAll,
          &TopoDbExportSm::topoId, &TopoDbExportSm::topoVrfName, &TopoDbExportSm::topoAf,
          &TopoDbExportSm::initialized, &TopoDbExportSm::zorchTableMounted,
          &TopoDbExportSm::handleTopoDbExport, &TopoDbExportSm::handleV4TopoDbDir,
          &TopoDbExportSm::handleV6TopoDbDir, &TopoDbExportSm::doPrepareToDie, &mountZorchTable,
          &unmountZorchTable > );

// Each child is made by its operation with what the design gives it.
static_assert( requires(
   Agent & agent, Kivnet::AddressFamily af, Lum::Ptr< Corvdb::EntityManager > entityManager,
   Lum::Ptr< Lum::Dir > dir, Lum::Ptr< Kiv::TaskScheduler > taskScheduler,
   Lum::Ptr< TrafficEngineering::Status > teStatus, Lum::Ptr< AllTopoDbDir > allTopoDbDir,
   Lum::Ptr< TrafficEngineering::BwmActiveStatus > bwmActiveStatus,
   Lum::Ptr< Interface::AllEthPhyIntfStatusDir > ethPhyIntfStatusDir,
   Lum::Ptr< Interface::EthLagIntfStatusDir > ethLagIntfStatusDir,
   Lum::Ptr< TrafficEngineering::Config > teConfig, Lum::Ptr< TeRouterIdConfig > teRouterIdConfig,
   Lum::Ptr< AgentStatus > agentStatus, Lum::Ptr< AllClientInfo > allClientInfo,
   Lum::Ptr< TrafficEngineering::BwmAllClientInfo > bwmAllClientInfo,
   Lum::Ptr< TeConfigDir > teConfigDir ) {
   agent.v4CspfRootIs( af, entityManager, dir, taskScheduler, teStatus, allTopoDbDir );
   agent.v6CspfRootIs( af, entityManager, dir, taskScheduler, teStatus, allTopoDbDir );
   agent.bwmRootIs( bwmActiveStatus, 1, entityManager, ethPhyIntfStatusDir, ethLagIntfStatusDir,
                    teConfig );
   agent.clientDirSmIs( entityManager, dir, teRouterIdConfig, teStatus, agentStatus, allClientInfo,
                        allClientInfo, bwmAllClientInfo, teConfigDir );
} );

TEST( Faces, CspfAgent ) {
   const L3::VrfName vrf( "default" );
   EXPECT_EQ( zorchPath( Kivnet::AddressFamily::ipv6, TopoId::isisL2(), vrf ),
              "routing/isis/topodb/ip6/2/0/default" );
   const auto agent = Lum::make< Agent >( "agent" );
   agent->teStatusIs( "TeStatus" );
   agent->teRouterIdConfigIs();
   agent->teConfigDirIs();
   const auto teConfig = Lum::make< TrafficEngineering::Config >();
   const auto general = Lum::make< Routing::General::Config >();
   agent->teConfigSmIs( teConfig, agent->teStatus(), general );
   agent->teRouterIdUpdateSmIs( teConfig, general, agent->teRouterIdConfig() );
   agent->teRouterIdUpdateSm()->handleTeConfigChange();
   EXPECT_EQ( agent->teRouterIdConfig()->routerId(), TeRouterIdConfig::routerIdDefault );
   const auto info = Lum::make< AllClientInfo >();
   agent->cspfSourceIdSmIs( Lum::make< Lum::Dir >(), agent->teConfigDir(),
                            agent->teRouterIdConfig(), info, info );
   const auto v4 = Lum::make< AllTopoDbDir >();
   agent->topoDbExportDirSmIs( nullptr, Lum::make< Lum::Dir >(), v4, v4 );
   const auto announced = Lum::make< Routing::Topology::ExportPath >();
   agent->topoDbExportDirSm()->topoDbExportSmIs(
      "core", new TopoDbExportSm( "core", announced, nullptr, v4, v4 ) );
   EXPECT_FALSE( agent->topoDbExportDirSm()->topoDbExportSm( "core" )->zorchTableMounted() );
   agent->topoDbExportDirSmDel();
   agent->teRouterIdUpdateSmDel();
   agent->teConfigSmDel();
   agent->cspfSourceIdSmDel();
}
