#pragma once

#include "tools/igp/CaptureText.h"
#include "tools/igp/Topology.h"

/// What FRRouting's ospfd (8.4 and later) prints: `show ip ospf database router`, `... network`,
/// `... opaque-area` and `show ip ospf interface`, of one VRF or all, in any order in one text.
namespace Igp {

/// A link of a router LSA.
struct OspfLink {
   enum class Kind { none, pointToPoint, transit, stub, virtualLink };
   Kind kind = Kind::none;
   Kivnet::IpAddr id;    ///< neighbour, address of the designated router, or network
   Kivnet::IpAddr data;  ///< own address, or mask
   std::uint32_t metric = 0;
};

/// What an opaque LSA says of one link for traffic engineering (RFC 3630).
struct OspfTeLink {
   Kivnet::IpAddr id;  ///< neighbour, or address of the designated router
   Addresses local, remote;
   TeAttributes attributes;
};

struct Lsa {
   enum class Kind { other, router, network, opaqueArea };
   Kind kind = Kind::other;
   Kivnet::IpAddr id, advertiser;
   std::uint32_t age = 0, sequence = 0;

   std::vector< OspfLink > links;        ///< router
   std::uint32_t mask = 0;               ///< network: length
   std::set< Kivnet::IpAddr > attached;  ///< network
   Kivnet::IpGenAddr teRouterId;         ///< opaque
   std::optional< OspfTeLink > teLink;   ///< opaque
};

/// One VRF, as one OSPF process knows it.
struct OspfProcess {
   Kivnet::IpAddr self;
   std::map< Kivnet::IpAddr, std::vector< Lsa > > areas;
   std::map< Kivnet::IpGenAddr, std::string > interfaces;  ///< by own address
   std::map< std::uint32_t, std::string > unnumbered;      ///< by index
};

struct OspfCapture {
   std::map< L3::VrfName, OspfProcess > processes;
   Findings findings;
};

/// Adds what the text says. A text that ends inside of an LSA, or lists other than it counts, is
/// refused whole. Throws CaptureError with `capture` in an unknown state.
void readOspf( std::string_view text, const std::string & name, OspfCapture & capture );

struct OspfNetwork {
   std::vector< Topology > topologies;  ///< one a VRF and area, links paired
   Findings findings;
};

/// `process` is the first number of the topologies' identities.
OspfNetwork ospfNetwork( const OspfCapture & capture, std::uint32_t process );

}
