#pragma once

#include "Cspf/CspfClientInfo.h"
#include "schema/CspfClient.h"
#include "schema/CspfStatus.h"
#include "schema/TrafficEngineering.h"

namespace Cspf {

class PathSmBase;

/// The path reactor for the requests of one client in one VRF and family. Its owner starts it.
/// REQUIRES: the VRF is active in that family.
Lum::Ptr< PathSmBase > makePathSm( PathComputationType pathType, Kivnet::AddressFamily af,
                                   const L3::VrfName & vrf, const Lum::String & client,
                                   const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
                                   const Lum::Ptr< const Config > & cspfConfig,
                                   const Lum::Ptr< Status > & cspfStatus,
                                   const Lum::Ptr< AllClientInfo > & allClientInfo );

}
