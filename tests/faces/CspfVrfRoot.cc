#include "Cspf/CspfVrfRoot.h"

#include "tests/TopoStore.h"
#include "tests/faces/Names.h"

using namespace Cspf;

static_assert(
   named< &VrfRoot::cliConfig, &VrfRoot::constraintInfoTable, &VrfRoot::constraintStatsTable,
          &VrfRoot::dedupConstraintTable, &VrfRoot::pathConfigInfoTable,
          &VrfRoot::pathStatusInfoTable, &VrfRoot::pathStatusCacheTable, &VrfRoot::clientData,
          &VrfRoot::dedupPqInfoTable, &VrfRoot::bwUsageManager, &VrfRoot::allTopoDbStatus,
          &VrfRoot::allTopoDbSm, &VrfRoot::topoDbClient, &VrfRoot::teIntfStatusSm,
          &VrfRoot::childPathStatusCacheSm, &VrfRoot::initialized, &VrfRoot::constraintInfoSmHas,
          &VrfRoot::constraintInfoSmIs, &VrfRoot::constraintInfoSmDelAll,
          &VrfRoot::pathConfigInfoSmDel, &VrfRoot::pathStatusInfoSmDel, &VrfRoot::pathRefreshSmDel,
          &VrfRoot::pathStatusUpdateSmDel, &VrfRoot::pqComputeSmDel, &VrfRoot::pathUsageSmDel,
          &VrfRoot::rsvpPathStitchSmDel, &VrfRoot::handleInitialized, &VrfRoot::handleDestruction,
          &VrfRoot::doMountTopoDb, &VrfRoot::enableTopoDbClient, &VrfRoot::disableTopoDbClient,
          &VrfRoot::cliConfigDel, &VrfRoot::topoDbClientDel, &VrfRoot::dumpState > );
static_assert(
   named< &VrfRootSm::handleInitialized, &VrfRootSm::handleConstraintInfo,
          &VrfRootSm::handlePathStatusInfo, &PathConstraintSm::handleNewConstraint,
          &VrfRootSm::updateConstraintTopoChanged, &VrfRootSm::handleConstraintTopoInfoUpdaterTask,
          &VrfRootSm::handleClientSourceId, &VrfRootSm::handleBwUsageChangedAt,
          &VrfRootSm::doCleanupBwUsageChangedAt, &VrfRootSm::initializePqComputeSm,
          &VrfRootSm::deletePqComputeSm, &VrfRootSm::pathStatusInfoDel,
          &VrfRootSm::pathStatusInfoDelAll, &TeIntfSrlgSm::handleDestroy,
          &incrementDerivedConfigChangeCount > );
static_assert(
   named< &PathStatusUpdateSm::handleInitialized, &PathStatusUpdateSm::handleRefreshNeeded,
          &PathStatusUpdateSm::handleRefreshStage1Completion,
          &PathStatusUpdateSm::handleRefreshStage2Completion,
          &PathStatusUpdateSm::publishPathStatus, &PathStatusUpdateSm::pathStatusUpdatorIs,
          &RsvpPathValidator::validatePathAndUpdateMetadata, &PathRefreshSm::handleTopoChanged,
          &RsvpPathRefreshSm::handleNew, &RsvpPathRefreshSm::handleTopoChanged,
          &RsvpPathRefreshSm::doPathValidation,
          &RsvpPathRefreshSm::setRefreshNeededForLinkedPaths > );

// What a root's parts are made from, and what publishes a path.
static_assert( requires( VrfRoot & root, Lum::Ptr< AllTopoDb > allTopoDb,
                         Lum::Ptr< AllTopoDbStatus > allTopoDbStatus,
                         Lum::Ptr< VrfSourceId > vrfSourceId,
                         Lum::Ptr< IntfIpToRouterIdTable > table,
                         Lum::Ptr< PathStatusInfo > pathStatusInfo, Lum::Ptr< Status > status,
                         Lum::Ptr< PathStatusCache > cache, RsvpPathValidator & validator ) {
   root.dedupConstraintTableIs( root.constraintInfoTable() );
   root.dedupPqInfoTableIs( status );
   root.bwUsageManagerIs( allTopoDb );
   root.allTopoDbStatusIs( vrfSourceId, table );
   root.allTopoDbSmIs( allTopoDb, allTopoDbStatus );
   root.teIntfStatusSmIs( root.teStatus(), root.pathConfigInfoTable() );
   root.childPathStatusCacheSmIs( root.pathConfigInfoTable(), root.pathStatusCacheTable(),
                                  root.pathStatusInfoTable(), root.constraintStatsTable() );
   PathStatusUpdator( pathStatusInfo, status ).isPathUpdateRequired( cache );
   PathStatusUpdator( pathStatusInfo, status )
      .isPathTeRouterIdUpdateRequired( cache->pathTeRouterId() );
   PathStatusUpdator( pathStatusInfo, status ).isIncludeIpUpdateRequired( cache->includeIps() );
   PathStatusUpdator( pathStatusInfo, status ).isPathSrlgUpdateRequired( cache->pathSrlg() );
   PathStatusUpdator( pathStatusInfo, status ).publishPath( cache );
   PathStatusUpdator( pathStatusInfo, status )
      .publishPathMetadata( validator.pathTeRouterId(), validator.includeIps() );
} );

TEST( Faces, CspfVrfRoot ) {
   TopoStore store( "A -10- B -10- C; C =lan1= D" );
   InternalPathConstraint constraint;
   const AllTopoTeDbView view( store.allTopoDb, store.status, constraint );
   PathArray path;
   for ( const char * hop : { "10.64.0.3", "10.64.0.5", "10.128.1.4" } ) {
      path.pathIs( HopIndex( path.hopCount() ), ip( hop ) );
   }
   HopToTopoDbLinkMapper mapper( path, store.us, view );
   mapper.handleNew();
   const auto records = mapper.pathAsTopoDbLinks();
   const AllTopoNeighborKey carrier = mapper.linkWithHop( ip( "10.64.0.3" ) );
   EXPECT_EQ( carrier.neighborOf(), NodeId( ip( "10.0.0.2" ) ) );
   EXPECT_EQ( mapper.doReverseP2pLink( carrier, ip( "10.64.0.3" ) ), records->path( 0 ) );
   EXPECT_FALSE( mapper.linkWithHop( ip( "10.99.0.1" ) ) );
   HopToTopoDbLinkMapper fromC( PathArray(), NodeId( ip( "10.0.0.3" ) ), view );
   fromC.handleNew();
   EXPECT_EQ( fromC.doReverseLanLink( fromC.linkWithHop( ip( "10.128.1.4" ) ), ip( "10.128.1.4" ) ),
              records->path( 2 ) );
   EXPECT_EQ( records->routerInNetworkForHop( 2 ), ip( "10.0.0.4" ) );

   const PathInfoKey key{ "rsvp", { Destination( ip( "10.0.0.4" ) ), 0 } };
   PathStatusInfoTable rows;
   PathStatus status;
   status.path_ = path.path();
   RsvpPathValidator validator( key, rows.pathStatusInfoIs( key ), status, constraint, view );
   EXPECT_TRUE( validator.validatePath( *records ) );
   validator.validatePathAndUpdateMetadata();
   EXPECT_TRUE( validator.valid() && validator.pathTeRouterIdChanged() );
   records->pathIs( 1, records->path( 2 ) );
   EXPECT_FALSE( validator.validatePath( *records ) );
   EXPECT_FALSE( validator.validatePath( PathAsTopoDbLinks() ) );
   const PathStatus noHops;
   const PathInfoKey toItself{ "rsvp", { Destination( ip( "10.0.0.1" ) ), 0 } };
   for ( const PathInfoKey & to : { key, toItself } ) {
      RsvpPathValidator empty( to, rows.pathStatusInfoIs( to ), noHops, constraint, view );
      empty.validatePathAndUpdateMetadata();
      EXPECT_EQ( empty.valid(), to == toItself );
   }
   PathValidationMemory memory( store.status );
   const PathStitcher stitcher( view, memory, key, status );
   EXPECT_EQ( stitcher.findBestNexthopForStrictHop( ip( "10.0.0.3" ), ip( "10.0.0.4" ), {} ),
              ip( "10.128.1.4" ) );
   EXPECT_FALSE( stitcher.findBestNexthopForStrictHop( ip( "10.0.0.1" ), ip( "10.0.0.3" ), {} ) );
}
