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
