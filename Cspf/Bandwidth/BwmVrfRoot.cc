// The bandwidth manager of one VRF. All it knows comes from outside: the bandwidth of the local
// interfaces, and what each client says that it uses. The maximum of a client is what the others
// leave of an interface, so that a client never stands in its own way. Clients are few, so what is
// used is summed afresh where it changes. Sums stop at the largest number, whatever clients say.
// What an earlier run published stays until the first client is there, and then only changes.

#include "Cspf/Bandwidth/BwmVrfRoot.h"

#include "platform/Kiv/DumpContext.h"

#include <algorithm>
#include <set>

namespace TrafficEngineering {

namespace {

constexpr std::uint64_t unlimited = std::numeric_limits< std::uint64_t >::max();

constexpr std::uint64_t
saturatingAdd( std::uint64_t a, std::uint64_t b ) {
   return a + std::min( b, unlimited - a );
}

}

BwmVrfRoot::BwmVrfRoot( const L3::VrfName & vrf, std::uint32_t subscription,
                        const Lum::Ptr< BwmActiveStatus > & bwmActiveStatus,
                        const Lum::Ptr< Corvdb::EntityManager > & entityManager,
                        const BwmInterfaces & interfaces, const Lum::Ptr< const Config > & teConfig,
                        const Lum::Ptr< const BandwidthClientStatusTable > & statusTable,
                        const Lum::Ptr< const BandwidthClientUsageTable > & usageTable )
   : vrf_( vrf ),
     subscription_( subscription ),
     bwmActiveStatus_( bwmActiveStatus ),
     interfaces_( interfaces ),
     teConfig_( teConfig ),
     statusTable_( statusTable ),
     usageTable_( usageTable ),
     status_( entityManager, statusMountPath( vrf ), LumZorch::MountMode::writer, { "usage" } ) {}

void
BwmVrfRoot::handleInitialized() {
   LUM_ASSERT( status_.table() );
   LUM_WATCH_KEYS( usageTable_, bandwidthClientUsage, handleClient );
   LUM_WATCH_KEYS( interfaces_.ethPhy, bandwidth, handleIntf );
   LUM_WATCH_KEYS( interfaces_.ethLag, bandwidth, handleIntf );
   LUM_WATCH( teConfig_, enabled, handleAllIntfs );
   bwmActiveStatus_->bwmActiveIs( vrf_, true );
}

void
BwmVrfRoot::doPrepareToDie() {
   bwmActiveStatus_->bwmActiveDel( vrf_ );
   if ( !bwmActiveStatus_->bwmActiveHas( vrf_ ) ) {  // it is not active again
      status_.cleanup();
   }
}

void
BwmVrfRoot::handleClient( const Lum::String & client ) {
   if ( const auto earlier = watched_.extract( client ) ) {
      unwatch( *earlier.mapped() );
   }
   if ( const auto & reported = usageTable_->bandwidthClientUsage( client ) ) {
      watched_.emplace( client, reported );
      LUM_WATCH_KEYS( reported, usage, handleIntf );
   }
   handleAllIntfs();
}

void
BwmVrfRoot::handleAllIntfs() {
   std::set< Kivnet::IntfId > intfs;
   const auto add = [ & ]( const auto & byIntf ) {
      for ( const auto & [ intf, bandwidth ] : byIntf ) {
         intfs.insert( intf );
      }
   };
   add( interfaces_.ethPhy->bandwidthColl() );
   add( interfaces_.ethLag->bandwidthColl() );
   add( status_.table()->usageColl() );
   for ( const auto & [ client, reported ] : watched_ ) {
      add( reported->usageColl() );
   }
   for ( const auto & [ client, told ] : statusTable_->bandwidthClientStatusColl() ) {
      add( told->maxReservableBandwidthColl() );
   }
   for ( const auto & intf : intfs ) {
      handleIntf( intf );
   }
}

void
BwmVrfRoot::handleIntf( const Kivnet::IntfId & intf ) {
   if ( isRetired() ) {
      return;  // the tables may be the next one's
   }
   if ( const std::uint64_t used = usage( intf, {} ) ) {
      status_.table()->usageIs( intf, used );
   } else {
      status_.table()->usageDel( intf );
   }
   for ( const auto & client : Lum::sortedKeys( statusTable_->bandwidthClientStatusColl() ) ) {
      const auto told = statusTable_->bandwidthClientStatus( client );
      if ( !told || isRetired() ) {
         continue;
      }
      if ( const std::uint64_t all = reservable( intf ) ) {
         told->maxReservableBandwidthIs( intf, all - std::min( all, usage( intf, client ) ) );
      } else {
         told->maxReservableBandwidthDel( intf );
      }
   }
}

std::uint64_t
BwmVrfRoot::reservable( const Kivnet::IntfId & intf ) const {
   const auto * physical = interfaces_.ethPhy->bandwidthFind( intf );
   const std::uint64_t bandwidth = physical ? *physical : interfaces_.ethLag->bandwidth( intf );
   if ( !teConfig_->enabled() || !bandwidth ) {
      return 0;
   }
   return bandwidth > unlimited / subscription_ ? unlimited : bandwidth * subscription_;
}

std::uint64_t
BwmVrfRoot::usage( const Kivnet::IntfId & intf, const Lum::String & exceptClient ) const {
   std::uint64_t sum = 0;
   for ( const auto & [ client, reported ] : watched_ ) {
      if ( client != exceptClient ) {
         sum = saturatingAdd( sum, reported->usage( intf ) );
      }
   }
   return sum;
}

void
BwmVrfRoot::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.printf( indent, "%*cVRF %s\n", vrf_.stringValue().c_str() );
   for ( const auto & [ intf, used ] : status_.table()->usageColl() ) {
      context.printf( indent + 2, "%*cIntf: %s used: %llu reservable: %llu\n",
                      intf.stringValue().c_str(), static_cast< unsigned long long >( used ),
                      static_cast< unsigned long long >( reservable( intf ) ) );
   }
   for ( const auto & [ client, told ] : statusTable_->bandwidthClientStatusColl() ) {
      context.printf( indent + 2, "%*cClient: %s\n", client.c_str() );
      for ( const auto & [ intf, most ] : told->maxReservableBandwidthColl() ) {
         context.printf( indent + 4, "%*cIntf: %s maxReservable: %llu\n",
                         intf.stringValue().c_str(), static_cast< unsigned long long >( most ) );
      }
   }
}

}
