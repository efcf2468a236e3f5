#pragma once

#include "platform/LumZorch/TableMount.h"
#include "schema/TrafficEngineering.h"

namespace Kiv {
class DumpContext;
}

namespace TrafficEngineering {

/// What each client of one VRF is told, and what each reports, by client name.
class BandwidthClientStatusTable : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, BandwidthClientStatusTable );
   LUM_COLLECTION_ORDERED( bandwidthClientStatus, Lum::String, Lum::Ptr< BandwidthClientStatus > );
};

class BandwidthClientUsageTable : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, BandwidthClientUsageTable );
   LUM_COLLECTION_ORDERED( bandwidthClientUsage, Lum::String,
                           Lum::Ptr< const BandwidthClientUsage > );
};

/// Where the bandwidth of the local interfaces is known.
struct BwmInterfaces {
   Lum::Ptr< const Interface::AllEthPhyIntfStatusDir > ethPhy;
   Lum::Ptr< const Interface::EthLagIntfStatusDir > ethLag;
};

/// Manages the bandwidth of the local interfaces among the clients of one VRF: a client may reserve
/// what the others leave. While it lives, the VRF is marked as active.
///
///   watches                                  handler              writes
///   BandwidthClientUsageTable, by client     handleClient         all interfaces
///   BandwidthClientUsage.usage               handleIntf           BwmStatus.usage and, for each
///   both interface directories, .bandwidth   handleIntf           client, its maximum
///   Config.enabled                           handleAllIntfs       all interfaces
class BwmVrfRoot : public Lum::Reactor {
   LUM_ENTITY( TrafficEngineering, BwmVrfRoot );
   /// `subscription`: how many times its bandwidth an interface may be reserved in all, at least 1.
   BwmVrfRoot( const L3::VrfName & vrf, std::uint32_t subscription,
               const Lum::Ptr< BwmActiveStatus > & bwmActiveStatus,
               const Lum::Ptr< Corvdb::EntityManager > & entityManager,
               const BwmInterfaces & interfaces, const Lum::Ptr< const Config > & teConfig,
               const Lum::Ptr< const BandwidthClientStatusTable > & statusTable,
               const Lum::Ptr< const BandwidthClientUsageTable > & usageTable );

   /// The directory of the tables that tell what all clients of a VRF use together.
   static const char * statusMountPathBase() { return "te/bwm/status/vrf"; }
   static std::string statusMountPath( const L3::VrfName & vrf ) {
      return std::string( statusMountPathBase() ) + "/" + vrf.stringValue();
   }

   void handleInitialized() override;
   void doPrepareToDie() override;
   void handleClient( const Lum::String & client );
   void handleIntf( const Kivnet::IntfId & intf );
   void handleAllIntfs();
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   std::uint64_t reservable( const Kivnet::IntfId & intf ) const;
   std::uint64_t usage( const Kivnet::IntfId & intf, const Lum::String & exceptClient ) const;

   const L3::VrfName vrf_;
   const std::uint32_t subscription_;
   const Lum::Ptr< BwmActiveStatus > bwmActiveStatus_;
   const BwmInterfaces interfaces_;
   const Lum::Ptr< const Config > teConfig_;
   const Lum::Ptr< const BandwidthClientStatusTable > statusTable_;
   const Lum::Ptr< const BandwidthClientUsageTable > usageTable_;
   LumZorch::TableMount< BwmStatus > status_;
   std::map< Lum::String, Lum::Ptr< const BandwidthClientUsage > > watched_;
};

}
