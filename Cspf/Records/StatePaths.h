#pragma once

#include "platform/Kivnet/AddressFamily.h"
#include "platform/Kivnet/VrfName.h"
#include "platform/Lum/Value.h"

#include <string>

/// Where the tables of one VRF and family stand: who mounts a table and who removes one that an
/// earlier run has left must mean the same path.
namespace Cspf::StatePath {

/// The directories of what the agent publishes.
inline constexpr const char * status = "te/cspf/status";
inline constexpr const char * intfIpToRouterId = "te/cspf/intfIpToRouterId";
inline constexpr const char * constraintStatus = "te/cspf/constraintStatus";
inline constexpr const char * bwUsage = "te/cspf/bwUsage";
/// ... and of what clients ask for.
inline constexpr const char * config = "te/cspf/config";

/// "te/cspf/bwUsage/vrf/default/ipv4"
inline std::string
ofVrf( const char * directory, const L3::VrfName & vrf, Kivnet::AddressFamily af ) {
   return std::string( directory ) + "/vrf/" + vrf.stringValue() + "/" + Kivnet::text( af );
}

/// "te/cspf/status/vrf/default/ipv4/rsvp"
inline std::string
ofClient( const char * directory, const L3::VrfName & vrf, Kivnet::AddressFamily af,
          const Lum::String & client ) {
   return ofVrf( directory, vrf, af ) + "/" + client;
}

}
