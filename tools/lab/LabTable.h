#pragma once

#include "schema/Topology.h"

#include <map>

namespace Lab {

/// What one topology table should hold.
struct LabTable {
   std::map< Cspf::IgpRouterId, Routing::Topology::Router > router;
   std::map< Routing::Topology::NeighborKey, Routing::Topology::Neighbor > neighbor;
   std::map< Routing::Topology::NetworkId, Routing::Topology::Network > network;
   std::map< Cspf::IgpRouterId, Routing::Topology::Reachability > reachability;

   bool operator==( const LabTable & ) const = default;
   /// The rows of the table.
   static LabTable of( const Routing::Topology::TopoDb & table );
   /// Adds a link to its owner's list and to the table. REQUIRES: the owner is in `router`.
   void linkIs( const Routing::Topology::Neighbor & link );
};

/// Makes the table hold that, router after router, as an IGP does when their link-state packets
/// come in: links that a router no longer has go before the router's list changes, new ones come
/// after it. What is the same is not written. O(size of both).
void writeTable( Routing::Topology::TopoDb & table, const LabTable & wanted );
/// The same where the table holds `before`, a part of it, which becomes `after`. Routers of both
/// keep what other parts list under them. O(size of both).
void changeTable( Routing::Topology::TopoDb & table, const LabTable & before,
                  const LabTable & after );

}
