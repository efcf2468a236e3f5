#pragma once

#include "schema/CspfStatus.h"
#include "tools/lab/LabChange.h"

#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace Lab {

/// What published hops cost in the network of a lab, as it stands. It follows the hops and chooses
/// nothing.
class LabCosts {
 public:
   /// The document outlives it, and goes on being the one of which costs are told. O(size of the
   /// topologies).
   explicit LabCosts( const LabDocument & document );

   /// Takes what a patch has done to the document. O(change), where no router has another TE router
   /// id and nothing around the topologies changed.
   void follow( const LabChange & change );

   /// The sum of the metrics along the hops of a path that starts at that TE router id: TE metrics
   /// where links have one, else IGP metrics. 0 without hops where the destination is the lab's own
   /// router; nothing where there is no path or a hop no longer exists. O(hops log links).
   std::optional< std::uint64_t > cost( const LabPath & path, const Kivnet::IpGenAddr & source,
                                        const Cspf::PathStatus & status ) const;

 private:
   using TeRouterId = Kivnet::IpGenAddr;
   using HopAddress = Kivnet::IpGenAddr;
   /// A way over a link from one router to the next.
   struct Step {
      TeRouterId to;
      const std::string * topology;
      std::uint64_t metric, metricBack;

      bool operator==( const Step & ) const = default;
   };
   struct Lan {
      const std::string * topology;
      std::string name;

      auto operator<=>( const Lan & ) const = default;
   };
   /// A member of a LAN with what it sends at.
   struct Port {
      Lan lan;
      std::string router;
      std::uint64_t metric;

      bool operator==( const Port & ) const = default;
   };
   using VrfAf = std::pair< Vrf, Af >;
   /// Of topologies that the agent sees or not.
   struct Network {
      std::map< std::pair< TeRouterId, HopAddress >, std::vector< Step > > steps;  ///< by who sends
      std::map< std::pair< TeRouterId, HopAddress >, std::vector< Port > > arrivals;
      std::map< std::pair< TeRouterId, Lan >, std::vector< Port > > departures;
      std::set< Kivnet::IpGenAddr > own;  ///< addresses of the lab's router
   };

   std::optional< std::uint64_t > hopCost( const Network & network, const LabPath & path,
                                           const TeRouterId & from, const HopAddress & hop,
                                           const TeRouterId & to ) const;
   template< class Visit >
   void forEachWay( const std::string & name, const LabTopology & part, Visit visit );
   void addAll();
   void setOwn();
   static void addOwn( Network & network, const LabTopology & topology, const std::string & self );
   void add( const std::string & name, const LabTopology & part );
   void remove( const std::string & name, const LabTopology & part );

   const LabDocument * document_;
   std::map< VrfAf, Network > networks_;
};

}
