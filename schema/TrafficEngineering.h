#pragma once

#include "platform/Kivnet/IntfId.h"
#include "platform/Kivnet/IpAddr.h"
#include "platform/Kivnet/VrfName.h"
#include "platform/Lum/Attribute.h"
#include "platform/Lum/Bounded.h"

namespace Cspf {

LUM_BOUNDED( SrlgIndex, std::uint8_t, 0, 15 );

}

namespace TrafficEngineering {

using SrlgId = std::uint32_t;

/// "te/config"
class Config : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, Config );
   LUM_ATTRIBUTE( enabled, bool );
   LUM_ATTRIBUTE( routerId, Kivnet::IpAddr );
   /// SRLGs that are configured on a local interface, by its name.
   LUM_COLLECTION_ORDERED( intfSrlg, Lum::String, Lum::Set< SrlgId > );
};

/// What TE knows of one local interface.
class IntfStatus : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, IntfStatus );
   LUM_COLLECTION_ORDERED( srlg, SrlgId, bool );
};

/// What TE has made of its configuration. It is the agent's own, by name.
class Status : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, Status );
   explicit Status( const Lum::String & name = {} ) : name_( name ) {}
   LUM_ATTRIBUTE( routerId, Kivnet::IpAddr );  ///< 0.0.0.0 while TE is off
   LUM_COLLECTION_ORDERED( intfStatus, Lum::String, Lum::Ptr< IntfStatus > );

   const Lum::String & name() const noexcept { return name_; }

 private:
   const Lum::String name_;
};

/// "te/bwm/activeStatus": the VRFs in which the bandwidth manager is active.
class BwmActiveStatus : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, BwmActiveStatus );
   LUM_COLLECTION_ORDERED( bwmActive, L3::VrfName, bool );
};

/// "te/bwm/status/vrf/<VRF>": what all clients of the bandwidth manager use together in that VRF,
/// in bytes per second by interface.
class BwmStatus : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, BwmStatus );
   LUM_COLLECTION_ORDERED( usage, Kivnet::IntfId, std::uint64_t );
};

/// What the bandwidth manager tells one client in one VRF: bytes per second by interface.
class BandwidthClientStatus : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, BandwidthClientStatus );
   LUM_COLLECTION_ORDERED( maxReservableBandwidth, Kivnet::IntfId, std::uint64_t );
};

/// What one client uses in one VRF: bytes per second by interface.
class BandwidthClientUsage : public Lum::Entity {
   LUM_ENTITY( TrafficEngineering, BandwidthClientUsage );
   LUM_COLLECTION_ORDERED( usage, Kivnet::IntfId, std::uint64_t );
};

}

namespace Interface {

/// Bandwidth of the physical Ethernet interfaces, bytes per second.
class AllEthPhyIntfStatusDir : public Lum::Entity {
   LUM_ENTITY( Interface, AllEthPhyIntfStatusDir );
   LUM_COLLECTION_ORDERED( bandwidth, Kivnet::IntfId, std::uint64_t );
};

/// Bandwidth of the link aggregation groups, bytes per second.
class EthLagIntfStatusDir : public Lum::Entity {
   LUM_ENTITY( Interface, EthLagIntfStatusDir );
   LUM_COLLECTION_ORDERED( bandwidth, Kivnet::IntfId, std::uint64_t );
};

}
