#include "Cspf/AllTopoDbTypes.h"

#include "tests/faces/Names.h"

#include <gtest/gtest.h>

using namespace Cspf;

static_assert(
   named< &AllTopoDbStatus::topoInfoChangedAt, &routerHasNeighbor, &neighborHasInterfaceAddr,
          &TopoDbSm::handleInitialized, &TopoDbSm::handleDestruction, &TopoDbSm::handleRouter,
          &TopoDbSm::handleNeighbor, &TopoDbSm::handleNetwork, &TopoDbSm::handleReachability,
          &TopoDbSm::handleTeRouterIdChange, &TopoDbSm::pendingRouterToHandle,
          &TopoDbSm::routerIdMap, &TopoDbSm::neighborToIntfIpHas, &TopoDbSm::doFindDuplicateRouter,
          &TopoDbSm::doAddDuplicateRouter, &TopoDbSm::doDelDuplicateRouter,
          &TopoDbSm::doHandleRouterDeletion, &TopoDbSm::doUpdateAllTopoDbStatus,
          &AllTopoDbSm::doCleanupStaleIntfIpToRouterIdEntries, &TopoDbSm::dumpState,
          &DuplicateRouters::routerHas, &PfxOriginatorInfo::originatorInfo,
          &IntfIpToNeighbor::neighborHas > );
static_assert( named< &AllTopoDbView::isAdminGroupAllowed, &AllTopoDbView::isSrlgAllowed,
                      &AllTopoDbView::isLinkIpAllowed, &AllTopoDbView::isNodeAllowed,
                      &AllTopoDbView::isInterfaceAllowed, &AllTopoDbView::bandwidthCheckPassed,
                      &AllTopoDbView::twoWayCheckPassed, &AllTopoDbView::twoWayCheckP2P,
                      &AllTopoNeighborKey::neighborId, &AllTopoDbView::twoWayAddrCheck,
                      &AllTopoDbView::getReverseNeighborKeyP2P, &AllTopoDbView::neighbor,
                      &AllTopoDbView::nexthopOnP2pLink, &AllTopoDbView::nexthopOnLanLink,
                      &AllTopoDbView::teRouterIdOfNodeWithTep, &AllTopoDbView::getIgpId,
                      &AllTopoDbView::spfRootOverloaded, &AllTopoDbView::bwUsageManager > );

static_assert( requires( Lum::Ptr< AllTopoDbStatus > status, AllTopoNeighborKey link,
                         Kivnet::IpGenAddr address, Lum::Ptr< IntfIpToRouterIdTable > table ) {
   addNeighborKeyToIntfIp( status, link, address );
   deleteNeighborKeyFromIntfIp( status, link, address );
   addIntfIpToRouterId( table, address, address );
   deleteIntfIpToRouterId( table, address );
} );

TEST( Faces, AllTopoDbTypes ) {
   const auto tables = Lum::make< AllTopoDb >();
   AllTopoDbDir directory;
   directory.allTopoDbCollIs( L3::VrfName( "default" ), tables );
   directory.allTopoDbCollDel( L3::VrfName( "default" ) );
   const auto sources = Lum::make< VrfSourceId >( L3::VrfName( "default" ) );
   const auto status = Lum::make< AllTopoDbStatus >( sources, nullptr );
   EXPECT_FALSE( status->teRouterIdPresent( {} ) );
   EXPECT_FALSE( status->intfIpToNeighborTable()->intfIpToNeighborHas( {} ) );
   EXPECT_EQ( status->bwUsageChangedAt( {} ), status->topoChangedAt() );
   const auto topoDb = Lum::make< Routing::Topology::TopoDb >();
   tables->topoDbIs( TopoId::isisL2(), topoDb );
   const auto import = Lum::make< AllTopoDbSm >( tables, status );
   EXPECT_TRUE( import->topoDbSm( TopoId::isisL2() ) );
   EXPECT_FALSE( status->routerIdMap( TopoId::isisL2() )->duplicateRoutersHas( {} ) );
   EXPECT_EQ( status->pfxOriginatorInfoTable( TopoId::isisL2() )->pfxOriginatorInfos(), 0u );
   const auto te = Lum::make< AllTopoTeDbView >( tables, status, InternalPathConstraint() );
   const auto lfa = Lum::make< AllTopoLfaDbView >( tables, status, InternalPathConstraint() );
   EXPECT_EQ( te->spfRoot(), te->getOurSourceId() );
   EXPECT_FALSE( lfa->p2pNeighborOnLink( {}, {} ) );
   EXPECT_TRUE( te->neighborAndTepAllowed( {} ).neighborAllowed() );
   EXPECT_FALSE( te->neighborAndTepAllowedForTe( {} ).tepAllowed() );
   EXPECT_EQ( te->srlgExcludeInfo( {} ) + te->srlgIncludeInfo( {} ), 0u );
   EXPECT_FALSE( te->router( {} ).nodeId() || te->network( {} ).allTopoNetworkId() );
   EXPECT_EQ( te->getReverseLinkMetric( {}, true ), 0u );
   EXPECT_FALSE( te->spfRootOverloaded() || lfa->spfRootOverloaded() || te->twoWayCheckLan( {} ) );
   EXPECT_EQ( ( OriginatorInfo{ {}, 20 }.metric() ), 20u );
   tables->topoDbDel( TopoId::isisL2() );
   EXPECT_FALSE( import->topoDbSmHas( TopoId::isisL2() ) );
}
