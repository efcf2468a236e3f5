#pragma once

#include "schema/BwUsage.h"
#include "schema/CspfClient.h"
#include "tools/prove/Potentials.h"
#include "tools/prove/Snapshot.h"
#include "tools/prove/Steps.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace Prove {

/// One way between two TE routers, which are named by their TE router ids and numbered.
struct Way : Step {
   Way( const Step & step, const Cspf::TopoId & topology ) : Step( step ), topology( topology ) {}

   Cspf::TopoId topology;
   std::uint32_t from = 0, to = 0;
   std::uint64_t metric = 0;    ///< TE metric, else IGP metric
   bool farOverloaded = false;  ///< the router that it leads to, in this topology

   bool arrivesAt( const Kivnet::IpGenAddr & address ) const {
      return hasAddress( *back, address );
   }
};

/// What ordinary paths see of one VRF and family: all its topologies as one network, joined where
/// TE router ids are equal.
class TeNetwork {
 public:
   /// O(n log n).
   TeNetwork( const Snapshot & state, const Vrf & vrf, Af af );

   const std::vector< Way > & ways() const { return ways_; }
   std::size_t nodes() const { return ids_.size(); }
   const Kivnet::IpGenAddr & id( std::uint32_t node ) const { return ids_[ node ]; }
   std::optional< std::uint32_t > node( const Kivnet::IpGenAddr & id ) const;
   /// The routers that have the address: as TE router id, on an interface, or as a host prefix.
   const std::set< std::uint32_t > & owners( const Kivnet::IpGenAddr & address ) const;
   /// By identity in an IGP, or by TE router id.
   std::set< std::uint32_t > routers( const Cspf::NodeId & id ) const;
   /// The ways of a published hop; several where topologies share a link.
   std::vector< const Way * > hop( std::uint32_t from, const Kivnet::IpGenAddr & to,
                                   const Kivnet::IpGenAddr & address ) const;
   /// Two routers of one topology carry one TE router id: which of them counts is not in state.
   bool ambiguous() const { return ambiguous_; }

 private:
   void add( const Topology & topology );
   std::uint32_t nodeIs( const Kivnet::IpGenAddr & id );

   std::vector< Kivnet::IpGenAddr > ids_;
   std::map< Kivnet::IpGenAddr, std::uint32_t > nodes_;
   std::map< Kivnet::IpGenAddr, std::set< std::uint32_t > > owners_;
   std::map< Cspf::NodeId, std::set< std::uint32_t > > byIgpId_;
   std::vector< Way > ways_;                            // by `from`
   std::vector< std::vector< std::size_t > > leaving_;  // ways, by node
   bool ambiguous_ = false;
   std::vector< Lum::Ptr< Routing::Topology::TopoDb > > tables_;  // that the ways point into
};

/// A link of one topology, as reservations name it.
using LinkId = std::pair< Cspf::TopoId, Routing::Topology::NeighborKey >;
/// Bytes per second by link.
using Holdings = std::map< LinkId, std::uint64_t >;

/// What a request lets its path use.
class Admission {
 public:
   /// `own`: what the request's user holds at its priority or a better one, and may have besides
   /// what is unreserved. Only `network` outlives it.
   Admission( const TeNetwork & network, const Snapshot & state, std::uint32_t source,
              const Cspf::PathConstraint & constraint, Holdings own );

   /// Why the constraint refuses the way; "" where it does not.
   std::string refusal( const Way & way ) const;
   Cost cost( const Way & way ) const { return { conflicts( way ), way.metric }; }
   /// All ways that are not refused.
   std::vector< Arc > arcs() const;

 private:
   std::uint64_t conflicts( const Way & way ) const;
   std::string refusedLink( const Way & way ) const;
   bool hasRoom( const Way & way, double & free ) const;

   const TeNetwork & network_;
   const std::uint32_t source_;
   const Cspf::PathConstraint constraint_;
   const Holdings own_;
   std::set< TrafficEngineering::SrlgId > risks_;
   std::set< std::uint32_t > excludedNodes_;
};

/// The risks that a request stays away from: those of its excluded interfaces.
std::set< TrafficEngineering::SrlgId > risksOf( const Snapshot & state,
                                                const Cspf::PathConstraint & constraint );

}
