#pragma once

#include "Cspf/Graph/TreeRun.h"

#include <functional>
#include <span>
#include <vector>

namespace Cspf {

/// A router where packets to a destination may end, and what it adds to the cost.
struct CspfOriginator {
   CspfVertex router;
   uint32_t metric;
};

/// Where packets go in the network before a failure, by every shortest path, and whether they meet
/// a link that a constraint refuses.
///
/// Two costs bound each way across a refused link from below: from a router to the nearest such
/// link, and from behind the nearest one to a router. Where they exceed what plain forwarding
/// costs, it avoids all refused links, which settles most questions, and with a single refused link
/// all of them. Otherwise a run from the router, no farther than the destination, decides; it is
/// kept for further questions.
class CspfPlainForwarding {
 public:
   /// Of the links that `plain` admits, those that `constraint` does not admit are refused, but for
   /// those that `isApart` names, which the caller judges. REQUIRES: `plain` has no root, so that
   /// overloaded routers carry no transit. O(edges + vertices), two runs where a link is refused.
   void build( const CspfGraph & graph, const CspfLinkConstraint & plain,
               const CspfLinkConstraint & constraint,
               const std::function< bool( CspfEdge ) > & isApart );

   bool refusesAny() const { return !toRefused_.empty(); }
   /// Whether every shortest path from the router to the nearest of `destination` avoids what is
   /// refused. REQUIRES: there is a path of at most `within`; the router is not overloaded, or is
   /// the destination. O(1), or a run.
   bool avoidsRefused( CspfVertex from, std::span< const CspfOriginator > destination,
                       uint32_t within ) const;

 private:
   struct Reached {
      CspfVertex vertex;
      uint32_t cost;
      bool meetsRefused;  // by one of the shortest paths at least
   };
   /// All that one router reaches within a cost, by vertex.
   struct Reach {
      uint64_t within = 0;
      std::vector< Reached > vertices;
   };
   class Run;

   std::vector< uint32_t > costsTo( const CspfGraph & graph, const CspfLinkFilter & filter,
                                    std::span< const CspfEdge > links ) const;
   std::vector< uint32_t > costsBehind( const CspfGraph & graph,
                                        std::span< const CspfEdge > links ) const;
   std::vector< uint32_t > costs( Run & run ) const;
   const Reach & reach( CspfVertex from, uint32_t within ) const;

   CspfArcs arcs_;
   std::vector< uint8_t > isRefused_;  // by edge
   std::vector< uint8_t > isRouter_;   // by vertex
   std::vector< uint32_t > toRefused_, behindRefused_;
   mutable std::vector< Reach > reaches_;  // by vertex, where one was asked for
};

}
