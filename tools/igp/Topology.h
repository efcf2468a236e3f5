#pragma once

#include "platform/Kivnet/VrfName.h"
#include "schema/Topology.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// A link-state topology as plain data, whichever protocol it comes from: what each router says of
/// itself, and what the two ends of a link make together.
namespace Igp {

using Addresses = std::vector< Kivnet::IpGenAddr >;
/// What could not be used, each in one line.
using Findings = std::vector< std::string >;

/// What a router advertises of one of its links beside the metric.
struct TeAttributes {
   std::optional< std::uint32_t > teMetric;
   std::uint32_t adminGroup = 0;
   float bandwidth = 0;                  ///< bytes per second
   std::array< float, 8 > unreserved{};  ///< by priority, bytes per second
};

/// One end of a link: what its router says of it.
struct LinkEnd {
   Cspf::IgpRouterId to;  ///< the neighbour, or the pseudonode of a LAN
   bool lan = false;
   std::uint32_t metric = 0;
   Addresses local, remote;  ///< of the topology's family
   TeAttributes te;
   std::string intf;  ///< known of the capturing router's own links only

   std::uint32_t linkId = 0;              ///< tells parallel links apart
   std::optional< std::size_t > reverse;  ///< index of the other end among the neighbour's links
};

struct Router {
   std::string name;
   Kivnet::IpGenAddr teRouterId;  ///< unset: not a TE router
   bool overload = false;
   std::vector< LinkEnd > links;
   std::map< Kivnet::IpGenPrefix, std::uint32_t > prefixes;  ///< to metric
};

struct Topology {
   std::string name;
   L3::VrfName vrf = L3::VrfName::defaultVrf();
   Kivnet::AddressFamily af = Kivnet::AddressFamily::ipv4;
   Cspf::TopoId id;
   Cspf::IgpRouterId self;  ///< the router that was asked; unset where the text does not say
   std::map< Cspf::IgpRouterId, Router > routers;
   std::map< Cspf::IgpRouterId, std::set< Cspf::IgpRouterId > > lans;  ///< pseudonode to routers
};

/// Finds the two ends of each point-to-point link: those whose addresses mirror each other, then
/// those that agree as far as they speak, then by order. An address that one end leaves out is
/// taken from the other. Gives every link its number, which follows from its addresses, so that a
/// link keeps it whatever comes and goes beside it. O(links * parallel links).
void pairLinks( Topology & topology, Findings & findings );

/// The routers that carry the TE router id of another one.
void findDuplicates( const Topology & topology, Findings & findings );

}
