// Accounts of reserved bandwidth. Reservations of one user on one link do not add up: the user
// holds the largest of them, at every priority equal to or worse than the one at which it was
// made. A value stands in a priority's set once, however many paths made it.

#include "schema/BwUsage.h"

namespace Cspf {

std::uint64_t
BwUsage::maxReservedBandwidth( BwPriority p ) const {
   std::uint64_t largest = 0;
   for ( const auto & [ priority, perPriority ] : reservedBandwidthPerPriorityColl() ) {
      if ( priority > p.value() ) {
         break;
      }
      largest = std::max( largest, perPriority->bandwidthColl().rbegin()->first );
   }
   return largest;
}

void
BwUsageTable::addBwUsageEntry( const BwUsageKey & key, BwPriority priority,
                               std::uint64_t bandwidth ) {
   if ( !bandwidthUsageHas( key ) ) {
      bandwidthUsageIs( key, Lum::make< BwUsage >() );
   }
   const auto usage = bandwidthUsage( key );
   if ( !usage->reservedBandwidthPerPriorityHas( priority.value() ) ) {
      auto perPriority = Lum::make< BwUsagePerPriority >();
      perPriority->bandwidthIs( bandwidth, true );
      usage->reservedBandwidthPerPriorityIs( priority.value(), perPriority );
      return;
   }
   usage->reservedBandwidthPerPriority( priority.value() )->bandwidthIs( bandwidth, true );
}

void
BwUsageTable::delBwUsageEntry( const BwUsageKey & key, BwPriority priority,
                               std::uint64_t bandwidth ) {
   const auto bwUsage = bandwidthUsage( key );
   LUM_ASSERT( bwUsage );
   const auto reservedBandwidthPerPriority =
      bwUsage->reservedBandwidthPerPriority( priority.value() );
   LUM_ASSERT( reservedBandwidthPerPriority );
   reservedBandwidthPerPriority->bandwidthDel( bandwidth );
   if ( reservedBandwidthPerPriority->bandwidths() == 0 ) {
      bwUsage->reservedBandwidthPerPriorityDel( priority.value() );
   }
   if ( bwUsage->reservedBandwidthPerPrioritys() == 0 ) {
      bandwidthUsageDel( key );
   }
}

}
