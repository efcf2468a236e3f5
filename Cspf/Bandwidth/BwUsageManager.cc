// Bandwidth accounts. A path's reservation is a counted handle to the triple of key, priority and
// amount, so paths that share a user, a link and an amount cost one entry, and giving a
// reservation back is letting a handle go. The accounts themselves are a table that operators
// can read.

#include "Cspf/Bandwidth/BwUsageManager.h"

#include "platform/Kiv/DumpContext.h"

#include <algorithm>
#include <limits>

namespace Cspf {

namespace {

/// Truncates. Amounts of 2^63 and more do not fit a signed conversion and go through the upper
/// half.
std::uint64_t
toUnsigned( float bandwidth ) {
   constexpr float half = 9223372036854775808.0f;
   if ( !( bandwidth > 0 ) ) {
      return 0;
   }
   if ( bandwidth >= 2 * half ) {
      return std::numeric_limits< std::uint64_t >::max();
   }
   if ( bandwidth >= half ) {
      return static_cast< std::uint64_t >( static_cast< std::int64_t >( bandwidth - half ) )
             + ( std::uint64_t( 1 ) << 63 );
   }
   return static_cast< std::uint64_t >( static_cast< std::int64_t >( bandwidth ) );
}

}

std::string
BwUsageDeduped::stringValue() const {
   return key_.stringValue() + "|" + priority_.stringValue() + "|" + std::to_string( bandwidth_ );
}

std::size_t
BwUsageDeduped::hash() const {
   return Lum::hashMix( Lum::hashMix( Lum::hashOf( key_ ), priority_.value() ), bandwidth_ );
}

std::strong_ordering
BwUsageDeduped::compare( const Kiv::DedupHandle & other ) const {
   const auto & o = static_cast< const BwUsageDeduped & >( other );
   return std::tie( key_, priority_, bandwidth_ ) <=> std::tie( o.key_, o.priority_, o.bandwidth_ );
}

Lum::Ptr< BwUsageDeduped >
BwUsageDedupTable::dedup( const BwUsageKey & key, BwPriority priority, std::uint64_t bandwidth ) {
   return DedupTable::dedup( Lum::make< BwUsageDeduped >( key, priority, bandwidth ) );
}

void
BwUsageDedupedLifetimeNotifiee::handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   manager_.handleReserved( static_cast< const BwUsageDeduped & >( *handle ) );
}

void
BwUsageDedupedLifetimeNotifiee::handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   manager_.handleReleased( static_cast< const BwUsageDeduped & >( *handle ) );
}

void
BwUsageManager::handleInitialized() {
   bwUsageDedupTable_ = Lum::make< BwUsageDedupTable >();
   bwUsageDedupTable_->DedupHashTableUnorderedSetIs( true );
   bwUsageDedupTable_->lifeTimeNotifieeIs( Lum::make< BwUsageDedupedLifetimeNotifiee >( *this ) );
   localIdAllocatorConfig_ =
      Lum::make< Kiv::NumAllocatorConfig >( Kiv::Range{ firstLocalId, lastLocalId } );
   localIdAllocatorStatus_ = Lum::make< Kiv::NumAllocatorStatus >();
   localIdAllocator_ =
      Lum::make< Kiv::NumAllocator >( localIdAllocatorConfig_, localIdAllocatorStatus_ );
}

BwUsageManager::~BwUsageManager() {
   if ( bwUsageDedupTable_ ) {
      bwUsageDedupTable_->detach();
   }
   bwUsageTable_->bandwidthUsageDelAll();
}

Lum::Ptr< BwUsageDeduped >
BwUsageManager::updateReservedBandwidth( const BwUsageKey & key, BwPriority priority,
                                         std::uint64_t bandwidth ) {
   return bwUsageDedupTable_->dedup( key, priority, bandwidth );
}

void
BwUsageManager::handleReserved( const BwUsageDeduped & reservation ) {
   const BwUsageKey & key = reservation.bwUsageKey();
   User & user = users_[ key.bwUsageId() ];
   ++user.links[ key.link() ];
   user.lastChange = ++changes_;
   bwUsageTable_->addBwUsageEntry( key, reservation.priority(), reservation.bandwidth() );
}

void
BwUsageManager::handleReleased( const BwUsageDeduped & reservation ) {
   const BwUsageKey & key = reservation.bwUsageKey();
   const auto user = users_.find( key.bwUsageId() );
   const auto link = user->second.links.find( key.link() );
   user->second.lastChange = ++changes_;
   if ( --link->second == 0 ) {
      user->second.links.erase( link );
   }
   if ( user->second.links.empty() ) {
      users_.erase( user );
   }
   bwUsageTable_->delBwUsageEntry( key, reservation.priority(), reservation.bandwidth() );
}

std::uint64_t
BwUsageManager::lastChange( const BwUsageId & user ) const {
   const auto at = users_.find( user );
   return at == users_.end() ? 0 : at->second.lastChange;
}

std::uint64_t
BwUsageManager::bandwidthAvailable( const BwUsageKey & key, std::uint32_t priority ) const {
   const BwPriority p( priority );
   const auto * neighbor = allTopoDb_->neighbor( key.link() );
   if ( !neighbor ) {
      return 0;
   }
   const std::uint64_t unreserved = toUnsigned( neighbor->unreservedBandwidth()[ p.value() ] );
   const auto * usage = bwUsageTable_->bandwidthUsageFind( key );
   const std::uint64_t own = usage ? ( *usage )->maxReservedBandwidth( p ) : 0;
   return unreserved + std::min( own, std::numeric_limits< std::uint64_t >::max() - unreserved );
}

void
BwUsageManager::forEachOwnReservation(
   const BwUsageId & user, BwPriority priority,
   const std::function< void( const AllTopoNeighborKey &, std::uint64_t ) > & visit ) const {
   const auto at = users_.find( user );
   if ( at == users_.end() ) {
      return;
   }
   for ( const auto & [ link, reservations ] : at->second.links ) {
      const auto & usage = bwUsageTable_->bandwidthUsage( { link, user } );
      const std::uint64_t own = usage ? usage->maxReservedBandwidth( priority ) : 0;
      if ( own > 0 ) {
         visit( link, own );
      }
   }
}

void
BwUsageManager::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cBwUsageManager: local ids in use: %llu\n",
                   static_cast< unsigned long long >( localIdAllocatorStatus_->inUse() ) );
   for ( const auto & key : Lum::sortedKeys( bwUsageTable_->bandwidthUsageColl() ) ) {
      context.printf( indent, "%*c%s\n", key.stringValue().c_str() );
      const auto usage = bwUsageTable_->bandwidthUsage( key );
      for ( const auto & [ priority, reserved ] : usage->reservedBandwidthPerPriorityColl() ) {
         for ( const auto & [ bandwidth, held ] : reserved->bandwidthColl() ) {
            context.printf( indent + 2, "%*cpriority %u: %llu\n", priority,
                            static_cast< unsigned long long >( bandwidth ) );
         }
      }
   }
}

}
