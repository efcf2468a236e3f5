// Where computations start. Ordinary ones start at the TE router id, which is an IPv4 address, so
// they are kept for IPv4 alone; TI-LFA starts at the router's IS-IS identity, in both families.
// The readers are the intake of clients, which serves a VRF only while it has a source, and the
// VRF's root. A source id leaves before its record does, so readers let go of the VRF first.

#include "Cspf/Clients/SourceIdSm.h"

#include "platform/Trace/Trace.h"

namespace Cspf {

namespace {

constexpr Kivnet::AddressFamily tilfaFamilies[] = { Kivnet::AddressFamily::ipv4,
                                                    Kivnet::AddressFamily::ipv6 };

}

void
TeVrfConfigSm::handleInitialized() {
   LUM_WATCH_KEYS( teVrfConfig_, clientsEnabled, handleClientsEnabled );
   LUM_WATCH( teRouterIdConfig_, routerId, handleTeVrfConfig );
   handleTeVrfConfig();
}

void
TeVrfConfigSm::handleTeVrfConfig() {
   const auto & vrf = teVrfConfig_->vrfName();
   const Kivnet::IpAddr routerId = teRouterIdConfig_->routerId();
   if ( !routerId || teVrfConfig_->clientsEnabledColl().empty() ) {
      owner_.deleteSourceId( vrf, Kivnet::AddressFamily::ipv4, PathComputationType::cspf );
      return;
   }
   TRACE7( "Updating teRouterIdConfig with routerId " << routerId << " for vrf " << vrf );
   owner_.updateSourceId( vrf, Kivnet::AddressFamily::ipv4, PathComputationType::cspf,
                          NodeId( Kivnet::IpGenAddr( routerId ) ) );
}

void
IsisPathSm::handleInitialized() {
   LUM_WATCH( status_, systemId, handleIsisSystemId );
   handleIsisSystemId();
}

/// Whoever hears of one family may change the identity before the other one is told, or put another
/// entry in the place of this one.
void
IsisPathSm::handleIsisSystemId() {
   for ( const auto af : tilfaFamilies ) {
      if ( isRetired() && owner_.isisPathHas( vrf_ ) ) {
         return;
      }
      if ( isRetired() || !status_->systemId() ) {
         owner_.deleteSourceId( vrf_, af, PathComputationType::tilfa );
      } else {
         const auto routerId = Mpls::RouterId::fromSystemId( status_->systemId() );
         owner_.updateSourceId( vrf_, af, PathComputationType::tilfa,
                                { VertexType::isisRouter, routerId.stringValue() } );
      }
   }
}

void
CspfSourceIdSm::handleInitialized() {
   LUM_ASSERT( v4AllClientInfo()->vrfSourceIds() == 0 );
   LUM_ASSERT( v6AllClientInfo()->vrfSourceIds() == 0 );
   LUM_WATCH_KEYS( teConfigDir_, teVrfConfig, handleTeConfigDir );
   LUM_FOLLOW_KEYS( srIsisDir_, entity, handleIsisPathDir );
}

void
CspfSourceIdSm::doPrepareToDie() {
   teVrfConfigDelAll();
   isisPathDelAll();
}

void
CspfSourceIdSm::handleIsisPathDir( const Lum::String & name ) {
   const L3::VrfName vrf( name );
   const auto status =
      Lum::cast< const Mpls::SegmentRouting::Status >( srIsisDir_->entity( name ) );
   if ( status ) {
      TRACE7( "new mount point for " << name );
      isisPathIs( vrf, status );
   } else {
      TRACE7( "mount point deleted for " << name );
      isisPathDel( vrf );
   }
}

void
CspfSourceIdSm::handleTeConfigDir( const L3::VrfName & vrf ) {
   if ( const auto & config = teConfigDir_->teVrfConfig( vrf ) ) {
      teVrfConfigIs( vrf, new TeVrfConfigSm( *this, config, teRouterIdConfig_ ) );
   } else {
      teVrfConfigDel( vrf );
   }
}

void
CspfSourceIdSm::updateSourceId( const L3::VrfName & vrf, Kivnet::AddressFamily af,
                                PathComputationType type, const NodeId & nodeId ) {
   const auto vrfSourceId = allClientInfo( af )->vrfSourceIdIs( vrf );
   if ( vrfSourceId->vrfClientSourceId( type ).sourceId() == nodeId ) {
      TRACE7( "No change in sourceId" );
      return;
   }
   vrfSourceId->vrfClientSourceIdIs( type, { type, nodeId, Lum::now() } );
}

void
CspfSourceIdSm::deleteSourceId( const L3::VrfName & vrf, Kivnet::AddressFamily af,
                                PathComputationType type ) {
   TRACE7( "deleteSourceId " << vrf << " " << text( af ) << " " << Lum::enumName( type ) );
   const auto vrfSourceId = allClientInfo( af )->vrfSourceId( vrf );
   if ( !vrfSourceId ) {
      return;
   }
   vrfSourceId->vrfClientSourceIdDel( type );
   allClientInfo( af )->vrfSourceIdDelIfUnused( vrf );
}

const Lum::Ptr< AllClientInfo > &
CspfSourceIdSm::allClientInfo( Kivnet::AddressFamily af ) const {
   return af == Kivnet::AddressFamily::ipv4 ? v4AllClientInfo_ : v6AllClientInfo_;
}

}
