#pragma once

#include "schema/Topology.h"

#include <vector>

namespace Prove {

/// A way from one router to the next in one table: over a point-to-point link, or across a LAN.
struct Step {
   const Routing::Topology::Neighbor * link;  ///< by which it leaves the one router
   /// The other router's own link: the reverse direction, or its link to the LAN.
   const Routing::Topology::Neighbor * back;
   bool lan = false;

   const Cspf::IgpRouterId & from() const { return link->key().routerId(); }
   const Cspf::IgpRouterId & to() const { return back->key().routerId(); }
};

/// Who says what is the reverse of a point-to-point link among parallel ones.
enum class TwoWay {
   addresses,     ///< addresses that mirror each other, and nothing else
   unlessDenied,  ///< else equal rank in key order, unless addresses contradict
};

/// All steps of the table whose two ends list each other, by link in key order. They point into the
/// table. O(n log n).
std::vector< Step > stepsOf( const Routing::Topology::TopoDb & table, TwoWay check );

/// Whether the address is one of the link's own.
bool hasAddress( const Routing::Topology::Neighbor & link, const Kivnet::IpGenAddr & address );

}
