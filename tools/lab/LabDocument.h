#pragma once

#include "platform/Kivnet/IntfId.h"
#include "platform/Kivnet/IpGenPrefix.h"
#include "platform/Kivnet/VrfName.h"
#include "schema/CspfKeys.h"
#include "schema/TrafficEngineering.h"
#include "schema/VertexId.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The document of a lab as plain data: every key has its value, defaults included, and every name
/// refers to something. Two documents are compared member by member to find what an event changes.
namespace Lab {

using Vrf = L3::VrfName;
using Af = Kivnet::AddressFamily;
using Addresses = std::vector< Kivnet::IpGenAddr >;
using Srlgs = std::vector< TrafficEngineering::SrlgId >;

/// Where something stands in a drawing, in units of one's own.
struct LabPlace {
   double right = 0, up = 0;

   bool operator==( const LabPlace & ) const = default;
};

struct LabRouter {
   Cspf::IgpRouterId id;
   Kivnet::IpGenAddr teRouterId;  ///< unset: not a TE router
   bool overload = false;
   std::map< Kivnet::IpGenPrefix, std::uint32_t > prefixes;  ///< to metric
   std::optional< LabPlace > at;

   bool operator==( const LabRouter & ) const = default;
};

/// What one direction of a link, or a LAN's member, advertises.
struct LabLinkAttributes {
   std::uint32_t metric = 10;
   std::optional< std::uint32_t > teMetric;
   std::uint32_t adminGroup = 0;
   Srlgs srlg;
   float bandwidth = 0;                  ///< bytes per second
   std::array< float, 8 > unreserved{};  ///< by priority, bytes per second
   std::optional< std::uint32_t > id;    ///< tells it from parallel links; unset: any will do

   bool operator==( const LabLinkAttributes & ) const = default;
};

struct LabLinkDirection {
   bool advertised = true;  ///< false as well while the link is down
   LabLinkAttributes attributes;

   bool operator==( const LabLinkDirection & ) const = default;
};

/// By which addresses the lab's router sends to an IS-IS neighbour.
struct LabNexthop {
   bool adjacent = true;              ///< false: there is no adjacency
   std::optional< Addresses > given;  ///< without: the neighbour's first address of each family

   bool operator==( const LabNexthop & ) const = default;
};

struct LabLinkEnd {
   std::string router;
   Kivnet::IntfId intf;  ///< unset: not known
   Addresses addrs;      ///< empty: unnumbered
   LabNexthop nexthop{};

   bool operator==( const LabLinkEnd & ) const = default;
};

/// A point-to-point link.
struct LabLink {
   LabLinkEnd a, b;
   LabLinkDirection ab, ba;

   bool operator==( const LabLink & ) const = default;
};

struct LabLanMember {
   Kivnet::IntfId intf;
   Addresses addrs;
   LabLinkAttributes attributes;
   bool attached = true;  ///< false: the router lists the LAN, the LAN does not list the router
   LabNexthop nexthop{};

   bool operator==( const LabLanMember & ) const = default;
};

struct LabLan {
   std::string dr;  ///< the router that owns the pseudonode
   std::uint8_t pseudonode = 1;
   std::map< std::string, LabLanMember > members;  ///< by router

   bool operator==( const LabLan & ) const = default;
};

struct LabTopology {
   Vrf vrf = Vrf::defaultVrf();
   Af af = Af::ipv4;
   Cspf::TopoId id;
   bool exported = false;  ///< announced under "routing/topoDbExport"
   bool exportReady = true;
   std::map< std::string, LabRouter > routers;
   std::map< std::string, LabLink > links;
   std::map< std::string, LabLan > lans;

   /// What it is, without what is in it.
   LabTopology outline() const { return { vrf, af, id, exported, exportReady, {}, {}, {} }; }
   bool operator==( const LabTopology & ) const = default;
};

struct LabTe {
   bool enabled = true;
   Kivnet::IpAddr routerId;

   bool operator==( const LabTe & ) const = default;
};

/// Milliseconds.
struct LabThrottle {
   std::uint32_t initialInt = 0, holdInt = 0, maxInt = 0;

   bool operator==( const LabThrottle & ) const = default;
};

struct LabToggles {
   bool ospfTopoDbExport = true;

   bool operator==( const LabToggles & ) const = default;
};

struct LabClient {
   std::map< Vrf, bool > vrf;
   std::map< Af, bool > addressFamily;
   bool bwmRequired = false;

   bool operator==( const LabClient & ) const = default;
};

struct LabExcludeNode {
   std::string node;  ///< router name
   Kivnet::IntfId nexthopIntf;

   bool operator==( const LabExcludeNode & ) const = default;
};

struct LabIncludeHop {
   Kivnet::IpGenAddr addr;
   bool loose = false;

   bool operator==( const LabIncludeHop & ) const = default;
};

/// Fields are named as in `Cspf::PathConstraint`. Routers and topologies stand by name.
struct LabConstraint {
   Kivnet::IntfId excludeIntf;
   std::optional< LabExcludeNode > excludeNode;
   bool excludeSrlg = false;
   std::uint32_t includeAllAdminGroup = 0;
   std::uint32_t includeAnyAdminGroup = 0;
   std::uint32_t excludeAdminGroup = 0;
   std::optional< std::string > topoId;  ///< topology name
   bool srlgStrictMode = false;
   bool srlgExcludeOnlyLocalLinks = false;
   std::uint64_t bandwidth = 0;  ///< bytes per second
   std::uint32_t bwSetupPriority = 0;
   std::uint32_t sharedBwGroupId = 0;
   Addresses excludeLinkWithIp;
   std::vector< LabIncludeHop > includeHop;
   bool includeHopAllExplicit = false;
   bool reversePath = false;
   std::optional< Cspf::PathComputationType > pathComputationType;
   std::optional< Cspf::CspfSourceType > sourceType;
   std::optional< Kivnet::IpGenAddr > neighborLink;  ///< absent, of a repair: as the interface says
   std::optional< Kivnet::IpGenAddr > neighbor;      ///< likewise
   Routing::Isis::SystemId neighborSystemId;         ///< the neighbour, where it is named so
   std::uint32_t maxRepairNodes = 0;                 ///< 0: as many as there may be
   bool fallBackToLink = false;
   bool noSpf = false;

   bool operator==( const LabConstraint & ) const = default;
};

struct LabPath {
   Vrf vrf = Vrf::defaultVrf();
   Af af = Af::ipv4;
   Cspf::Destination dst;
   std::uint32_t id = 1;
   std::uint32_t refreshReqSeq = 0;
   bool autoUpdate = true;
   LabConstraint constraint;

   bool operator==( const LabPath & ) const = default;
};

/// What the platform says of a local interface.
struct LabInterfaceBandwidth {
   std::uint64_t bandwidth = 0;  ///< bytes per second
   bool aggregate = false;       ///< of several interfaces

   bool operator==( const LabInterfaceBandwidth & ) const = default;
};

/// State by path beside what the rest of the lab stands for, as text. No type: nothing is there.
struct LabStateText {
   std::string type;
   std::string value;  ///< JSON

   bool operator==( const LabStateText & ) const = default;
};
using LabStateTexts = std::map< std::string, LabStateText >;

/// The lab at one moment.
struct LabDocument {
   std::string router;
   LabTe te;
   Kivnet::IpAddr routerIdV4;
   LabThrottle throttle;
   LabToggles toggles;
   std::map< Kivnet::IntfId, Srlgs > interfaces;  ///< every interface of `router` on a link or LAN
   std::map< Kivnet::IntfId, LabInterfaceBandwidth > interfaceBandwidths;  ///< where it is given
   std::map< Vrf, Routing::Isis::SystemId > segmentRouting;
   std::map< std::string, LabTopology > topologies;
   std::map< std::string, LabClient > clients;
   std::map< std::string, std::map< std::string, LabPath > > paths;  ///< by client, by path name
   LabStateTexts state;      ///< merge patches over what all above says
   LabStateTexts published;  ///< what an earlier agent left, whole

   bool operator==( const LabDocument & ) const = default;
};

/// The client that is served with repair paths.
inline constexpr const char * tilfaClient = "tilfa";

/// Whether the agent sees the topology: it is announced, ready, and announcements are looked at; or
/// it is one of the router's own IS-IS tables.
bool visible( const LabDocument & document, const LabTopology & topology );

/// Walks two maps side by side in key order: `add( key, after )` for what is new,
/// `change( key, before, after )` for what differs, `remove( key, before )` for what is gone.
template< class M, class Add, class Change, class Remove >
void
diffMaps( const M & before, const M & after, Add && add, Change && change, Remove && remove ) {
   auto b = before.begin();
   auto a = after.begin();
   while ( b != before.end() || a != after.end() ) {
      if ( a == after.end() || ( b != before.end() && b->first < a->first ) ) {
         remove( b->first, b->second );
         ++b;
      } else if ( b == before.end() || a->first < b->first ) {
         add( a->first, a->second );
         ++a;
      } else {
         if ( !( b->second == a->second ) ) {
            change( a->first, b->second, a->second );
         }
         ++a, ++b;
      }
   }
}

}
