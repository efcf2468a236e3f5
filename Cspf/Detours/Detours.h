#pragma once

#include "Cspf/Detours/PlainForwarding.h"
#include "Cspf/Detours/Repair.h"

#include <optional>
#include <vector>

namespace Cspf {

/// Repairs that leave the paths after the failure: the fewest repair nodes by which a packet gets
/// to its destination at all, whichever way it takes. Worked out for those destinations alone whose
/// path needs more repair nodes than there may be.
class CspfDetours {
 public:
   /// `forwarding` outlives this object, and was built for the constraint of that PLR. O(links of
   /// the PLR).
   CspfDetours( const CspfPlainForwarding & forwarding, CspfVertex plr );

   /// Of the repairs with the fewest nodes that with the cheapest way; none where no list of at
   /// most `maxNodes` repair nodes protects. Two runs for a destination, and at most one for each
   /// router in all.
   std::optional< CspfRepair > find( std::span< const CspfOriginator > destination,
                                     uint32_t maxNodes );

 private:
   static constexpr uint32_t none = 0xFFFFFFFF;
   /// A router where a segment may begin, and how the packet gets there.
   struct Start {
      CspfVertex router = noVertex;
      uint32_t before = none;  // the start of the segment that ends here; none: a first hop
      // The least-cost link from there, and the edge by which it arrives, where neighbours are
      // joined; noEdge: by shortest paths.
      CspfEdge link = noEdge, arrival = noEdge;
      uint64_t cost = 0;  // of the whole way
   };
   /// Out by one of these links, which are equally cheap.
   struct FirstHop {
      CspfVertex router;
      std::vector< CspfEdge > links;
   };
   using Arrivals = std::vector< CspfPlainForwarding::Arrival >;

   uint32_t cheapest( uint32_t nodes, const Arrivals & arrivals ) const;
   CspfRepair repair( uint32_t last ) const;
   void addFirstHop( CspfVertex router, CspfEdge link, uint32_t metric );
   bool addLayer();
   void addFrom( uint32_t start, std::vector< uint32_t > & startOf );
   void offer( const Start & start, std::vector< uint32_t > & startOf );
   void addNeighbors( uint32_t start, std::vector< uint32_t > & startOf );

   const CspfPlainForwarding & forwarding_;
   const CspfVertex plr_;
   std::vector< FirstHop > firstHops_;
   std::vector< Start > starts_;
   std::vector< uint32_t > layers_;  // where each begins in `starts_`, by the number of nodes
   std::vector< bool > isNode_;      // by vertex: a start with one repair node at least
};

}
