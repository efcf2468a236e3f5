#include "Cspf/CspfRoot.h"

#include <gtest/gtest.h>

using namespace Cspf;

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
   EXPECT_GT( sizeof( CspfRoot ) + sizeof( CspfActiveVrfsNotifiee ), 0u );
}
