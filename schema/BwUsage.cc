// Accounts of reserved bandwidth. Reservations of one user on one link do not add up: the user
// holds the largest of them, at every priority equal to or worse than the one at which it was
// made. A value stands in a priority's set once, however many paths made it. Every change is told
// once, when all of it is done: whoever hears of it may reserve and release.

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
   Lum::Ptr< BwUsage > usage = bandwidthUsage( key );
   const bool fresh = !usage;
   if ( fresh ) {
      usage = Lum::make< BwUsage >();
   }
   if ( const auto perPriority = usage->reservedBandwidthPerPriority( priority.value() ) ) {
      perPriority->bandwidthIs( bandwidth, true );
   } else {
      const auto first = Lum::make< BwUsagePerPriority >();
      first->bandwidthIs( bandwidth, true );
      usage->reservedBandwidthPerPriorityIs( priority.value(), first );
   }
   if ( fresh ) {
      bandwidthUsageIs( key, usage );
   }
}

void
BwUsageTable::delBwUsageEntry( const BwUsageKey & key, BwPriority priority,
                               std::uint64_t bandwidth ) {
   const auto bwUsage = bandwidthUsage( key );
   LUM_ASSERT( bwUsage );
   const auto reservedBandwidthPerPriority =
      bwUsage->reservedBandwidthPerPriority( priority.value() );
   LUM_ASSERT( reservedBandwidthPerPriority );
   if ( reservedBandwidthPerPriority->bandwidths() > 1 ) {
      reservedBandwidthPerPriority->bandwidthDel( bandwidth );
   } else if ( bwUsage->reservedBandwidthPerPrioritys() > 1 ) {
      bwUsage->reservedBandwidthPerPriorityDel( priority.value() );
   } else {
      bandwidthUsageDel( key );
   }
}

}
