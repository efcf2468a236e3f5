#pragma once

#include "Cspf/Clients/ClientInfo.h"
#include "platform/Lum/Dir.h"

namespace Cspf {

class CspfSourceIdSm;

/// Keeps the source of ordinary computations of one VRF: the TE router id, while TE serves a
/// client there.
///
///   watches                          handler            writes (through the owner)
///   TeVrfConfig.clientsEnabled       handleTeVrfConfig  VrfSourceId, ordinary type, IPv4
///   TeRouterIdConfig.routerId        handleTeVrfConfig
class TeVrfConfigSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, TeVrfConfigSm );
   /// The owner outlives this object.
   TeVrfConfigSm( CspfSourceIdSm & owner, const Lum::Ptr< const TeVrfConfig > & teVrfConfig,
                  const Lum::Ptr< const TeRouterIdConfig > & teRouterIdConfig )
      : owner_( owner ),
        teVrfConfig_( teVrfConfig ),
        teRouterIdConfig_( teRouterIdConfig ) {}

   void handleInitialized() override;
   void handleTeVrfConfig();

 private:
   void handleClientsEnabled( const Lum::String & ) { handleTeVrfConfig(); }

   CspfSourceIdSm & owner_;
   const Lum::Ptr< const TeVrfConfig > teVrfConfig_;
   const Lum::Ptr< const TeRouterIdConfig > teRouterIdConfig_;
};

/// Keeps the source of TI-LFA computations of one VRF: this router's IS-IS system id, as segment
/// routing publishes it.
///
///   watches                                 handler             writes (through the owner)
///   Mpls::SegmentRouting::Status.systemId   handleIsisSystemId  VrfSourceId, TI-LFA, each family
class IsisPathSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, IsisPathSm );
   /// The owner outlives this object.
   IsisPathSm( CspfSourceIdSm & owner, const L3::VrfName & vrf,
               const Lum::Ptr< const Mpls::SegmentRouting::Status > & status )
      : owner_( owner ),
        vrf_( vrf ),
        status_( status ) {}

   void handleInitialized() override;
   /// Without the entry there is no identity.
   void doPrepareToDie() override { handleIsisSystemId(); }
   void handleIsisSystemId();

 private:
   CspfSourceIdSm & owner_;
   const L3::VrfName vrf_;
   const Lum::Ptr< const Mpls::SegmentRouting::Status > status_;
};

/// Knows, for each VRF, family and kind of computation, the node that computations start from.
///
///   watches                  handler             makes
///   segment-routing Dir      handleIsisPathDir   isisPath, one a VRF
///   TeConfigDir              handleTeConfigDir   teVrfConfig, one a VRF
class CspfSourceIdSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, CspfSourceIdSm );
   CspfSourceIdSm( const Lum::Ptr< const Lum::Dir > & srIsisDir,
                   const Lum::Ptr< const TeConfigDir > & teConfigDir,
                   const Lum::Ptr< const TeRouterIdConfig > & teRouterIdConfig,
                   const Lum::Ptr< AllClientInfo > & v4AllClientInfo,
                   const Lum::Ptr< AllClientInfo > & v6AllClientInfo )
      : srIsisDir_( srIsisDir ),
        teConfigDir_( teConfigDir ),
        teRouterIdConfig_( teRouterIdConfig ),
        v4AllClientInfo_( v4AllClientInfo ),
        v6AllClientInfo_( v6AllClientInfo ) {}
   LUM_CHILDREN( teVrfConfig, L3::VrfName, TeVrfConfigSm );
   LUM_CHILDREN( isisPath, L3::VrfName, IsisPathSm );
   void isisPathIs( const L3::VrfName & vrf,
                    const Lum::Ptr< const Mpls::SegmentRouting::Status > & status ) {
      isisPathIs( vrf, new IsisPathSm( *this, vrf, status ) );
   }

   const Lum::Ptr< AllClientInfo > & v4AllClientInfo() const noexcept { return v4AllClientInfo_; }
   const Lum::Ptr< AllClientInfo > & v6AllClientInfo() const noexcept { return v6AllClientInfo_; }

   void handleInitialized() override;
   void doPrepareToDie() override;
   /// The entry `name` of the segment-routing directory came or went. Errors: std::range_error for
   /// a name that is too long for a VRF.
   void handleIsisPathDir( const Lum::String & name );
   void handleTeConfigDir( const L3::VrfName & vrf );

   /// Sets the source; its time moves only when the node is another one.
   void updateSourceId( const L3::VrfName & vrf, Kivnet::AddressFamily af, PathComputationType type,
                        const NodeId & nodeId );
   void deleteSourceId( const L3::VrfName & vrf, Kivnet::AddressFamily af,
                        PathComputationType type );

 private:
   const Lum::Ptr< AllClientInfo > & allClientInfo( Kivnet::AddressFamily af ) const;

   const Lum::Ptr< const Lum::Dir > srIsisDir_;
   const Lum::Ptr< const TeConfigDir > teConfigDir_;
   const Lum::Ptr< const TeRouterIdConfig > teRouterIdConfig_;
   const Lum::Ptr< AllClientInfo > v4AllClientInfo_;
   const Lum::Ptr< AllClientInfo > v6AllClientInfo_;
};

}
