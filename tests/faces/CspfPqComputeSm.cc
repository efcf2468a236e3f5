#include "Cspf/CspfPqComputeSm.h"

#include "tests/faces/Names.h"

#include <gtest/gtest.h>

using namespace Cspf;

static_assert(
   named< &Lfa::PqComputeSm::handleCspfData, &Lfa::PqComputeSm::handlePqComputeTask,
          &Lfa::PqComputeSm::getCostFromProtNodeToDest,
          &Lfa::PqComputeSm::getPostConvergenceCostFromPlrToDest,
          &Lfa::PqComputeSm::isDestinationNode, &Lfa::PqComputeSm::validateDestination,
          &Lfa::PqComputeSm::getAllDestinationNodes, &Lfa::PqComputeSm::dumpState,
          &Lfa::PqComputePfxSm::handleCspfData, &TilfaConstraintInfoSm::checkConstraintInTopoDb,
          &TilfaConstraintInfoSm::handleThrottleTimeout,
          &TilfaConstraintInfoSm::updatePathStatusCache, &TilfaConstraintInfoSm::cspfData,
          &TilfaConstraintInfoSm::cspfDataIs, &TilfaPathSm::handleCspfConfig,
          &TilfaPathSm::externalPathInfoKey, &TilfaPathSm::doCleanupPathInfoKeyEntries > );

TEST( Faces, CspfPqComputeSm ) {
   const auto config = Lum::make< Config >();
   const auto configs = Lum::make< PathConfigInfoTable >();
   const auto machine = Lum::make< TilfaPathSm >(
      Kivnet::AddressFamily::ipv4, L3::VrfName( "default" ), tilfaClientName, nullptr, config,
      Lum::make< Status >(), configs, Lum::make< PathStatusInfoTable >() );
   config->pathConfigIs( PathConfig() );
   EXPECT_TRUE( configs->pathConfigInfoHas( machine->externalPathInfoKey( {} ) ) );
   const TilfaPathInfoKeyColl keys{ true, {}, "tilfa", {}, {} };
   EXPECT_EQ( Lum::valueString( keys ).find( "Value('Cspf::TilfaPathInfoKeyColl', ** "
                                             "{'isLinkProtection': True, 'pathKey': Value(" ),
              0u );
   EXPECT_NE( Lum::valueString( keys ).find( "'stalePathInfoKey': " ), std::string::npos );
   EXPECT_THROW( TilfaPathInfoKeyIndex( 8 ), std::range_error );
}
