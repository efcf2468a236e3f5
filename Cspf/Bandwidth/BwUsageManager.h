#pragma once

#include "Cspf/Records/Reservation.h"
#include "Cspf/Topology/Store.h"
#include "platform/Kiv/NumAllocator.h"

#include <functional>
#include <map>

namespace Kiv {
class DumpContext;
}

namespace Cspf {

/// The reservations in force, each distinct one once.
class BwUsageDedupTable : public Kiv::DedupTable< BwUsageDeduped > {
 public:
   Lum::Ptr< BwUsageDeduped > dedup( const BwUsageKey & key, BwPriority priority,
                                     std::uint64_t bandwidth );
};

class BwUsageManager;

/// Enters a reservation into the accounts when its first holder comes, and takes it out when the
/// last one lets it go.
class BwUsageDedupedLifetimeNotifiee : public Kiv::DedupLifeTimeNotifiee {
   LUM_ENTITY( Cspf, BwUsageDedupedLifetimeNotifiee );
   explicit BwUsageDedupedLifetimeNotifiee( BwUsageManager & manager ) : manager_( manager ) {}

   void handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;
   void handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;

 private:
   BwUsageManager & manager_;
};

/// The bandwidth that the paths of one VRF and family have reserved, and what is left of each link
/// for a given user: what the topology calls unreserved, and the user's own reservation back.
class BwUsageManager : public Lum::Entity {
   LUM_ENTITY( Cspf, BwUsageManager );
   /// Local ids of users without a shared group.
   static constexpr std::uint64_t firstLocalId = 1, lastLocalId = 300'000;

   /// The accounts are kept in `bwUsageTable`, where others may read them.
   explicit BwUsageManager( Lum::Ptr< const AllTopoDb > allTopoDb,
                            Lum::Ptr< BwUsageTable > bwUsageTable = Lum::make< BwUsageTable >() )
      : allTopoDb_( std::move( allTopoDb ) ),
        bwUsageTable_( std::move( bwUsageTable ) ) {}
   ~BwUsageManager() override;

   void handleInitialized();

   /// Reserves: the user of the key holds `bandwidth` (bytes per second) on the key's link at the
   /// priority while the handle is held. Equal reservations share one handle.
   Lum::Ptr< BwUsageDeduped > updateReservedBandwidth( const BwUsageKey & key, BwPriority priority,
                                                       std::uint64_t bandwidth );
   /// What the key's user may have of the key's link at the priority, in bytes per second, at most
   /// 2^64 - 1; 0 where the topology has no such link. Throws std::range_error for a priority of 8
   /// or more. Two look-ups.
   std::uint64_t bandwidthAvailable( const BwUsageKey & key, std::uint32_t priority ) const;
   /// Calls `visit( link, bandwidth )` for each link on which the user holds something at that
   /// priority or a better one. O(links of the user).
   void forEachOwnReservation(
      const BwUsageId & user, BwPriority priority,
      const std::function< void( const AllTopoNeighborKey &, std::uint64_t ) > & visit ) const;
   /// Another number after every change of what the user holds; 0 while that is nothing.
   std::uint64_t lastChange( const BwUsageId & user ) const;

   const Lum::Ptr< BwUsageTable > & bwUsageTable() const noexcept { return bwUsageTable_; }
   const Lum::Ptr< BwUsageDedupTable > & bwUsageDedupTable() const { return bwUsageDedupTable_; }
   const Lum::Ptr< Kiv::NumAllocatorConfig > & localIdAllocatorConfig() const {
      return localIdAllocatorConfig_;
   }
   const Lum::Ptr< Kiv::NumAllocatorStatus > & localIdAllocatorStatus() const {
      return localIdAllocatorStatus_;
   }
   const Lum::Ptr< Kiv::NumAllocator > & localIdAllocator() const { return localIdAllocator_; }
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   friend class BwUsageDedupedLifetimeNotifiee;
   void handleReserved( const BwUsageDeduped & reservation );
   void handleReleased( const BwUsageDeduped & reservation );
   struct User {
      std::map< AllTopoNeighborKey, std::uint32_t > links;  // how many reservations on each
      std::uint64_t lastChange = 0;
   };

   Lum::Ptr< const AllTopoDb > allTopoDb_;
   Lum::Ptr< BwUsageTable > bwUsageTable_;
   Lum::Ptr< BwUsageDedupTable > bwUsageDedupTable_;
   Lum::Ptr< Kiv::NumAllocatorConfig > localIdAllocatorConfig_;
   Lum::Ptr< Kiv::NumAllocatorStatus > localIdAllocatorStatus_;
   Lum::Ptr< Kiv::NumAllocator > localIdAllocator_;
   Lum::Map< BwUsageId, User > users_;
   std::uint64_t changes_ = 0;
};

}
