#pragma once

#include "schema/CspfStatus.h"
#include "tools/lab/LabDocument.h"

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
   /// O(size of the topologies).
   explicit LabCosts( const LabDocument & document );

   /// The sum of the metrics along the hops of a path that starts at that TE router id: TE metrics
   /// where links have one, else IGP metrics. 0 without hops where the destination is the lab's own
   /// router; nothing where there is no path or a hop no longer exists. O(hops log links).
   std::optional< std::uint64_t > cost( const LabPath & path, const Kivnet::IpGenAddr & source,
                                        const Cspf::PathStatus & status ) const;

 private:
   /// A way from one router to the next, over a link or across a LAN.
   struct Step {
      Kivnet::IpGenAddr to;  ///< TE router id
      const std::string * topology;
      std::uint64_t metric, metricBack;
   };
   using VrfAf = std::pair< Vrf, Af >;
   using From = std::pair< Kivnet::IpGenAddr, Kivnet::IpGenAddr >;  // TE router id, hop address
   struct Network {
      std::map< From, std::vector< Step > > steps;
      std::set< Kivnet::IpGenAddr > own;  ///< addresses of the lab's router
   };

   static std::optional< std::uint64_t > hopCost( const Network & network, const LabPath & path,
                                                  const From & hop, const Kivnet::IpGenAddr & to );
   void add( const std::string & name, const LabTopology & topology, const std::string & self );
   static void addOwn( Network & network, const LabTopology & topology, const std::string & self );
   static void addLan( Network & network, const std::string & name, const LabTopology & topology,
                       const LabLan & lan );

   std::map< VrfAf, Network > networks_;
};

}
