#pragma once

#include "schema/VertexId.h"
#include "tools/igp/CaptureText.h"
#include "tools/igp/Topology.h"

/// What FRRouting's isisd (8.4 and later) prints: `show isis database detail`, `show isis
/// hostname`, `show isis neighbor detail` and `show isis interface detail`, in any order in one
/// text.
namespace Igp {

/// A link-state packet, or a fragment of one.
struct Lsp {
   std::string area;
   std::uint32_t level = 2;
   std::string owner;  ///< host name, maybe cut, or system id
   std::uint32_t pseudonode = 0;
   std::uint32_t fragment = 0;
   std::uint32_t sequence = 0;
   bool first = false;    ///< of its database, as often as that was printed
   bool own = false;      ///< of the router that was asked
   bool expired = false;  ///< on its way out of the database: header only
   bool overload = false;
   std::string hostname;  ///< in full; "" where the packet has none

   bool speaksIpv4 = false, speaksIpv6 = false;
   bool inIpv6Topology = false;  ///< the one of IPv6 alone
   bool ipv6Overload = false;    ///< in that topology
   Kivnet::IpGenAddr teRouterId, teRouterId6;

   /// To a neighbour, as it stands: name or system id, with the number of the pseudonode.
   struct Neighbor {
      std::string owner;
      std::uint32_t pseudonode = 0;
      bool ipv6Topology = false;  ///< in the topology of IPv6 alone
      bool narrow = false;
      LinkEnd end;  ///< addresses of both families; `to` and `lan` not set
   };
   std::vector< Neighbor > neighbors;

   struct Prefix {
      Kivnet::IpGenPrefix prefix;
      std::uint32_t metric = 0;
      bool ipv6Topology = false;
      bool narrow = false;
   };
   std::vector< Prefix > prefixes;
};

/// An adjacency of the router that was asked.
struct IsisAdjacency {
   std::string owner;  ///< name or system id
   std::string intf;
   Addresses addresses;  ///< of both families
};

struct IsisCapture {
   std::vector< Lsp > lsps;  ///< complete, in the order of the database
   std::map< std::string, std::vector< Routing::Isis::SystemId > > hostnames;
   std::vector< IsisAdjacency > adjacencies;
   std::map< Kivnet::IpGenAddr, std::string > interfaces;  ///< by address of that router
   Routing::Isis::SystemId self;  ///< of that router, where the host names say it
   Findings findings;
};

/// Adds what the text says. A text that ends inside of a database, or that counts other than it
/// lists, is refused whole. Throws CaptureError with `capture` in an unknown state.
void readIsis( std::string_view text, const std::string & name, IsisCapture & capture );

}
