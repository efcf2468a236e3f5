#include "Cspf/CspfPathSm.h"

#include "tests/faces/Names.h"

#include <gtest/gtest.h>

using namespace Cspf;

static_assert(
   named< &PathSmBase::handleInitialized, &PathSmBase::doPrepareToDie, &PathSmBase::handlePathUsage,
          &PathSmBase::doCheckPathUsageAndUpdate, &PathSmBase::doCleanupStalePathEntries,
          &PathSmBase::deletePathInfoKey, &PathSmBase::vrfName, &PathSmBase::initialized,
          &PathSmBase::dumpState, &PathSm::handleCspfConfig, &PathSm::doCleanupPathInfoKeyEntries,
          &PathSm::addOrUpdateChildPathInfoKey, &PathSm::deleteChildPathInfoKey,
          &PathSm::linkPathInfoKeys, &PathSm::unlinkPathInfoKeys,
          &PathSm::currentExternalPathInfoKeyIs, &PathSm::currentExternalPathInfoKeyDel,
          &LinkedPathInfoKeys::childPathInfoKeyIs, &LinkedPathInfoKeys::childPathInfoKeyDel,
          &LinkedPathInfoKeys::childPathInfoKeyDelAll > );
static_assert( named< &PathConfigInfoSm::handleChangeCount, &PathConfigInfoSm::getUpdatedConstraint,
                      &PathConfigInfoSm::getDerivedConstraint, &PathConfigInfoSm::doUpdateBwUsageId,
                      &PathStatusInfoSm::handleConstraint, &PathStatusInfoSm::doUpdateOldConstraint,
                      &PathStatusInfoSm::oldConstraint, &PathStatusInfoSm::oldConstraintIs,
                      &PathStatusInfoSm::handleDestruction > );

TEST( Faces, CspfPathSm ) {
   const auto config = Lum::make< Config >();
   const auto status = Lum::make< Status >();
   const auto configs = Lum::make< PathConfigInfoTable >();
   const auto statuses = Lum::make< PathStatusInfoTable >();
   const auto machine = Lum::make< PathSm >( Kivnet::AddressFamily::ipv4, L3::VrfName( "default" ),
                                             "rsvp", nullptr, config, status, configs, statuses );
   PathConfig path;
   path.constraint_.includeHopIs(
      0, { Kivnet::IpGenAddr( *Kivnet::IpAddr::parse( "1.1.1.1" ) ), true } );
   config->pathConfigIs( path );
   const auto wanted = machine->getLinkedPathsFromCspfConfig( {} );
   const auto held = machine->getLinkedPathsFromPathConfigInfo( {} );
   EXPECT_TRUE( held->isSame( *wanted ) );
   EXPECT_TRUE( held->hasChildPathInfoKey( held->childPathInfoKey( 0 ) ) );
   EXPECT_FALSE( held->hasChildPathInfoKey( held->parentPathInfoKey() ) );
   EXPECT_EQ( machine->currentExternalPathInfoKey( {} ), held->parentPathInfoKey() );
   EXPECT_EQ( configs->pathConfigInfo( machine->externalPathInfoKey( {} ) )->childPaths(), 2u );
   machine->doCleanupChildPathInfoKeyEntries( {} );
   EXPECT_EQ( configs->pathConfigInfos(), 1u );
   config->pathConfigDel( {} );
   EXPECT_EQ( configs->pathConfigInfos() + machine->currentExternalPathInfoKeys(), 0u );
}
