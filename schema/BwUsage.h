#pragma once

#include "schema/CspfKeys.h"

/// The bandwidth that computed paths have reserved, by link and user.
namespace Cspf {

/// The reserved values at one priority. A user holds the largest of them, not their sum.
class BwUsagePerPriority : public Lum::Entity {
   LUM_ENTITY( Cspf, BwUsagePerPriority );
   LUM_COLLECTION_ORDERED( bandwidth, std::uint64_t, bool );
};

/// What one user has reserved on one directed link.
class BwUsage : public Lum::Entity {
   LUM_ENTITY( Cspf, BwUsage );
   LUM_COLLECTION_ORDERED( reservedBandwidthPerPriority, std::uint8_t,
                           Lum::Ptr< BwUsagePerPriority > );

   /// The largest reservation at priority `p` or a better one; 0 where there is none.
   std::uint64_t maxReservedBandwidth( BwPriority p ) const;
};

/// "te/cspf/bwUsage/vrf/<VRF>/<family>"
class BwUsageTable : public Lum::Entity {
   LUM_ENTITY( Cspf, BwUsageTable );
   LUM_COLLECTION( bandwidthUsage, BwUsageKey, Lum::Ptr< BwUsage > );
   LUM_ROWS_BY_KEY( bandwidthUsage, BwUsageKey, BwUsage );

   void addBwUsageEntry( const BwUsageKey & key, BwPriority priority, std::uint64_t bandwidth );
   void delBwUsageEntry( const BwUsageKey & key, BwPriority priority, std::uint64_t bandwidth );
};

}
