#pragma once

#include "tools/lab/LabTable.h"

#include <map>
#include <string>

/// Tables as the routing daemons print the database that they come of.

/// One level of IS-IS, as isisd does.
std::string isisPrinted( const Lab::LabTable & table );
/// One area of a VRF, as ospfd does.
std::string ospfPrinted( const Lab::LabTable & table, const std::string & vrf, std::uint32_t area );

/// By what OSPF names each LAN: the address of its designated router.
std::map< Cspf::IgpRouterId, Kivnet::IpGenAddr > lanAddresses( const Lab::LabTable & table );
