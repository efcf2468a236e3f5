#pragma once

#include "Cspf/Bandwidth/BwmVrfRoot.h"
#include "Cspf/Records/VrfHandle.h"

/// The bandwidth manager's side of the agent: for each VRF in which a client requires it, a root,
/// and for each such client the tables through which the two talk.
namespace TrafficEngineering {

class BwmRoot;

using BwmActiveVrfsDedupTable = Kiv::DedupTable< Cspf::DedupVrfHandle >;

/// The clients of the bandwidth manager, by VRF. A VRF is active while somebody holds its handle.
class BwmAllClientInfo : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, BwmAllClientInfo );
   LUM_CHILD( activeVrfsDedupTable, BwmActiveVrfsDedupTable );
   LUM_COLLECTION_ORDERED( bandwidthClientStatusTable, L3::VrfName,
                           Lum::Ptr< BandwidthClientStatusTable > );
   LUM_COLLECTION_ORDERED( bandwidthClientUsageTable, L3::VrfName,
                           Lum::Ptr< BandwidthClientUsageTable > );

   void handleInitialized() { activeVrfsDedupTableIs(); }
};

/// Hears in which VRFs somebody requires the bandwidth manager.
class BwmActiveVrfsNotifiee : public Kiv::DedupLifeTimeNotifiee {
   LUM_ENTITY( TrafficEngineering, BwmActiveVrfsNotifiee );
   /// The root outlives this object.
   explicit BwmActiveVrfsNotifiee( BwmRoot * bwmRoot ) : bwmRoot_( *bwmRoot ) {}

   void handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;
   void handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;

 private:
   BwmRoot & bwmRoot_;
};

class BwmRoot : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, BwmRoot );
   /// `subscription`: as for `BwmVrfRoot`.
   BwmRoot( const Lum::Ptr< BwmActiveStatus > & bwmActiveStatus, std::uint32_t subscription,
            const Lum::Ptr< Corvdb::EntityManager > & entityManager,
            const Lum::Ptr< const Interface::AllEthPhyIntfStatusDir > & ethPhyIntfStatusDir,
            const Lum::Ptr< const Interface::EthLagIntfStatusDir > & ethLagIntfStatusDir,
            const Lum::Ptr< const Config > & teConfig )
      : bwmActiveStatus_( bwmActiveStatus ),
        subscription_( subscription ),
        entityManager_( entityManager ),
        interfaces_{ ethPhyIntfStatusDir, ethLagIntfStatusDir },
        teConfig_( teConfig ) {}
   LUM_CHILD( bwmAllClientInfo, BwmAllClientInfo );
   LUM_CHILD( bwmActiveVrfsNotifiee, BwmActiveVrfsNotifiee );
   LUM_CHILDREN( bwmVrfRoot, L3::VrfName, BwmVrfRoot );
   /// VRFs that an earlier run left marked as active.
   LUM_ATTRIBUTE( initialVrfCount, std::uint32_t );
   LUM_ATTRIBUTE( bwmActiveStatusCleanupDone, bool );

   void handleInitialized();
   /// REQUIRES: no client is set up any more.
   void doPrepareToDie();
   /// The clients that were there at the start are set up: marks of other VRFs are stale. Until
   /// then they stay, so that a VRF that goes on being served is marked all the time.
   void initialClientsDone();
   void doBwmActiveStatusCleanup();
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   friend class BwmActiveVrfsNotifiee;

   void vrfActiveIs( const L3::VrfName & vrf );
   void vrfActiveDel( const L3::VrfName & vrf );

   const Lum::Ptr< BwmActiveStatus > bwmActiveStatus_;
   const std::uint32_t subscription_;
   const Lum::Ptr< Corvdb::EntityManager > entityManager_;
   const BwmInterfaces interfaces_;
   const Lum::Ptr< const Config > teConfig_;
   bool areInitialClientsDone_ = false;
};

/// Sets one client up with the bandwidth manager in one VRF, for as long as it lives.
class BwmClientSetupSm : public Lum::Reactor {
   LUM_ENTITY( TrafficEngineering, BwmClientSetupSm );
   BwmClientSetupSm( const Lum::String & client, const L3::VrfName & vrf,
                     const Lum::Ptr< BwmAllClientInfo > & bwmAllClientInfo,
                     const Lum::Ptr< Corvdb::EntityManager > & entityManager )
      : client_( client ),
        vrf_( vrf ),
        bwmAllClientInfo_( bwmAllClientInfo ),
        entityManager_( entityManager ) {}

   /// Held while the client is set up.
   LUM_ATTRIBUTE( dedupVrfHandle, Lum::Ptr< Cspf::DedupVrfHandle > );

   static const char * clientStatusMountPathBase() { return "te/bwm/client/status/vrf"; }
   static std::string clientStatusMountPath( const L3::VrfName & vrf, const Lum::String & client );

   void handleInitialized() override { doSetupBwmClient(); }
   void doPrepareToDie() override { doCleanupBwmClient(); }
   void doSetupBwmClient();
   void doCleanupBwmClient();

 private:
   const Lum::String client_;
   const L3::VrfName vrf_;
   const Lum::Ptr< BwmAllClientInfo > bwmAllClientInfo_;
   const Lum::Ptr< Corvdb::EntityManager > entityManager_;
   std::optional< LumZorch::TableMount< BandwidthClientStatus > > clientStatusMount_;
   std::optional< LumZorch::TableMount< BandwidthClientUsage > > clientUsageMount_;
};

}
