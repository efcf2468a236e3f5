#include "Cspf/CspfBwUsageManager.h"

#include "tests/faces/Names.h"

#include <gtest/gtest.h>

using namespace Cspf;

static_assert( named< &BwUsageTable::addBwUsageEntry, &BwUsageTable::delBwUsageEntry,
                      &BwUsageDedupedLifetimeNotifiee::handleRemove,
                      &PathUsageSm::doUpdatePathBwUsage, &PathUsageSm::handlePathBwUsage,
                      &PathUsageSm::handleConstraintChange, &PathUsageSm::handleDestruction,
                      &PathUsageSm::oldBwUsageId, &PathUsageSm::oldBwUsageIdIs > );

TEST( Faces, CspfBwUsageManager ) {
   const auto manager = Lum::make< BwUsageManager >( Lum::make< AllTopoDb >() );
   EXPECT_EQ( manager->localIdAllocatorConfig()->range().last(), 300'000u );
   EXPECT_EQ( manager->localIdAllocator()->getNumber(), 1u );
   EXPECT_EQ( manager->localIdAllocatorStatus()->inUse(), 1u );
   const BwUsageKey key{ {}, { "rsvp", 7, 0 } };
   const auto held = manager->updateReservedBandwidth( key, BwPriority( 3 ), 20 );
   EXPECT_EQ( manager->bwUsageDedupTable()->dedup( key, BwPriority( 3 ), 20 ), held );
   EXPECT_EQ( manager->bwUsageTable()->bandwidthUsage( key )->maxReservedBandwidth( 7 ), 20u );
   EXPECT_EQ( manager->bandwidthAvailable( key, 3 ), 0u );
}
