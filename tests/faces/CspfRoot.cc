#include "Cspf/CspfRoot.h"

#include "tests/faces/Names.h"

#include <gtest/gtest.h>

using namespace Cspf;

static_assert(
   named< &CspfRoot::lifeTimeNotifiee, &CspfRoot::allClientInfo, &CspfRoot::vrfRoot,
          &CspfRoot::vrfRootDel, &CspfRoot::vrfRootSm, &CspfRoot::vrfRootSmDel,
          &CspfRoot::initialized, &CspfRoot::dumpState, &CspfActiveVrfsNotifiee::handleInsert,
          &CspfActiveVrfsNotifiee::handleRemove, &AllClientInfo::pathConfigInfoTableDel,
          &AllClientInfo::dumpState, &ClientData::dumpState > );

static_assert( requires( CspfRoot & root, L3::VrfName vrf, Kivnet::AddressFamily af,
                         Lum::Ptr< Corvdb::EntityManager > entityManager, Lum::Ptr< Lum::Dir > dir,
                         Lum::Ptr< const VrfSourceId > vrfSourceId,
                         Lum::Ptr< Kiv::TaskScheduler > taskScheduler,
                         Lum::Ptr< const TrafficEngineering::Status > teStatus,
                         Lum::Ptr< AllTopoDb > allTopoDb ) {
   root.vrfRootSmIs( vrf,
                     root.vrfRootIs( vrf, af, entityManager, dir, vrfSourceId, taskScheduler,
                                     teStatus, allTopoDb ),
                     vrfSourceId );
} );

TEST( Faces, CspfRoot ) {
   const L3::VrfName vrf( "default" );
   const auto info = Lum::make< AllClientInfo >();
   const auto handle = info->activeVrfsDedupTable()->dedupFromVrfName( vrf );
   EXPECT_EQ( info->activeVrfsDedupTable()->dedup( dedupVrfHandleFactory( vrf ) ), handle );
   EXPECT_EQ( handle->vrfName(), vrf );
   EXPECT_FALSE( info->pathConfigInfoTable( vrf ) || info->pathStatusInfoTable( vrf )
                 || info->clientData( vrf ) || info->vrfSourceId( vrf ) );
   info->clientDataIs( vrf, Lum::make< ClientData >() );
   info->clientDataDel( vrf );
}
