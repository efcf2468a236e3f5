#include "Cspf/CspfSourceIdSm.h"

#include "tests/faces/Names.h"

#include <gtest/gtest.h>

using namespace Cspf;

static_assert( named< &CspfSourceIdSm::handleIsisPathDir, &CspfSourceIdSm::updateSourceId,
                      &CspfSourceIdSm::isisPathDel, &IsisPathSm::handleIsisSystemId,
                      &TeVrfConfigSm::handleTeVrfConfig > );

TEST( Faces, CspfSourceIdSm ) {
   const L3::VrfName vrf( "default" );
   const auto directory = teConfigDirFactory();
   const auto config = Lum::make< TeRouterIdConfig >();
   const auto v4 = Lum::make< AllClientInfo >();
   const auto v6 = Lum::make< AllClientInfo >();
   const auto sources =
      Lum::make< CspfSourceIdSm >( Lum::make< Lum::Dir >(), directory, config, v4, v6 );
   directory->teVrfConfigIs( vrf )->clientsEnabledIs( "rsvp" );
   config->routerIdIs( *Kivnet::IpAddr::parse( "10.0.0.1" ) );
   EXPECT_TRUE( v4->vrfSourceIdIs( vrf )->vrfClientSourceId( cspf() ).sourceId() );
   sources->deleteSourceId( vrf, Kivnet::AddressFamily::ipv4, cspf() );
   EXPECT_FALSE( v4->vrfSourceIdHas( vrf ) || v6->vrfSourceIdHas( vrf ) );
   sources->doPrepareToDie();
}
