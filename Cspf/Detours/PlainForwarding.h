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

/// The links that plain forwarding may use and a constraint refuses, but for those that somebody
/// else judges. What comes back to the constraint's root over an interface that it excludes is
/// refused where SRLGs count before the metric; a path by the metric alone never meets it.
class CspfRefusedLinks {
 public:
   using IsApart = std::function< bool( CspfEdge ) >;

   /// REQUIRES: `plain` has no root, so that overloaded routers carry no transit. The graph
   /// outlives this object, and stays as it is.
   CspfRefusedLinks( const CspfGraph & graph, const CspfLinkConstraint & plain,
                     const CspfLinkConstraint & constraint, IsApart isApart );

   bool has( CspfEdge edge ) const;
   /// Whether there are any. O(links that the constraint names), or, where it tests links otherwise
   /// than `plain` does, O(edges).
   bool any() const;
   /// Whether the edge leads to the root by a link that the root may not leave by.
   static bool comesBack( const CspfGraph & graph, const CspfLinkFilter & constraint,
                          CspfEdge edge );

 private:
   template< typename Edges >
   bool anyOf( const Edges & edges ) const;

   const CspfGraph & graph_;
   CspfLinkFilter plain_, constraint_;
   const IsApart isApart_;
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
   using IsApart = CspfRefusedLinks::IsApart;

   /// `plain`, `constraint` and `isApart`: as CspfRefusedLinks. Holds nothing of its arguments
   /// but numbers. O(edges + vertices), two runs where a link is refused.
   CspfPlainForwarding( const CspfGraph & graph, const CspfLinkConstraint & plain,
                        const CspfLinkConstraint & constraint, const IsApart & isApart );

   // For what leaves the paths after the failure all that fails counts, whoever judges it: what is
   // refused, what is apart, and the other direction of a link that the router may not leave by.

   /// A router that every shortest path from another reaches soundly, without what fails.
   struct Sound {
      CspfVertex router;
      uint32_t cost;
   };
   /// Itself among them. One run.
   std::vector< Sound > soundFrom( CspfVertex from ) const;
   /// How packets get from a router to a destination.
   struct Arrival {
      bool isSound = false;
      uint32_t cost = CspfTree::unreachedMetric;
   };
   /// By vertex: whether every shortest path from there is sound, or ends right there after the
   /// failure. Two runs.
   std::vector< Arrival > arrivals( std::span< const CspfOriginator > destination ) const;
   /// Calls `visit( router, link, arrival, metric )` for each router behind a link that does not
   /// fail, LANs taken out: `arrival` is the edge that enters the router.
   template< typename Visit >
   void forEachNeighbor( CspfVertex router, Visit && visit ) const;

   /// Whether every shortest path from the router to the nearest of `destination` avoids what is
   /// refused. REQUIRES: a link is; there is a path of at most `within`; the router is not
   /// overloaded, or is the destination. O(1), or a run.
   bool avoidsRefused( CspfVertex from, std::span< const CspfOriginator > destination,
                       uint32_t within ) const;

 private:
   struct Reached {
      CspfVertex vertex;
      uint32_t cost;
      bool meetsMarked;  // by one of the shortest paths at least
   };
   /// All that one router reaches within a cost, by vertex.
   struct Reach {
      uint64_t within = 0;
      std::vector< Reached > vertices;
   };
   /// A step from router to router.
   struct Step {
      CspfVertex router;
      CspfEdge link, arrival;
      uint32_t metric;
   };
   /// What fails: `refused` leaves out what is apart, `failing` does not.
   enum Mark : uint8_t { unmarked = 0, refused = 1, failing = 2 };
   template< typename Arcs >
   class Run;
   class Backwards;

   void mark( const CspfGraph & graph, const CspfLinkFilter & after, const IsApart & isApart );
   void addOwnSteps( const CspfGraph & graph, const CspfLinkFilter & after );
   bool fails( CspfEdge edge ) const { return marks_[ index( edge ) ] & failing; }
   std::vector< uint32_t > costsTo( const CspfGraph & graph, const CspfLinkFilter & filter,
                                    std::span< const CspfEdge > links ) const;
   std::vector< uint32_t > costsBehind( const CspfGraph & graph,
                                        std::span< const CspfEdge > links ) const;
   const Reach & reach( CspfVertex from, uint32_t within ) const;

   CspfArcs arcs_;                    // before the failure
   CspfVertex plr_ = noVertex;        // where the constraint's trees begin
   std::vector< Step > ownSteps_;     // of the PLR, which may be overloaded
   std::vector< uint8_t > marks_;     // by edge
   std::vector< uint8_t > isRouter_;  // by vertex
   std::vector< uint32_t > toRefused_, behindRefused_;
   mutable std::vector< Reach > reaches_;  // by vertex, where one was asked for
};

template< typename Visit >
void
CspfPlainForwarding::forEachNeighbor( CspfVertex router, Visit && visit ) const {
   if ( router == plr_ ) {
      for ( const Step & step : ownSteps_ ) {
         visit( step.router, step.link, step.arrival, step.metric );
      }
      return;
   }
   for ( const CspfArcs::Arc & arc : arcs_.out( router ) ) {
      const CspfEdge link = arcs_.edge( arc );
      if ( fails( link ) ) {
         continue;
      }
      if ( isRouter_[ index( arc.to ) ] ) {
         visit( arc.to, link, link, arc.metric );
         continue;
      }
      for ( const CspfArcs::Arc & member : arcs_.out( arc.to ) ) {
         if ( member.to != router && !fails( arcs_.edge( member ) ) ) {
            visit( member.to, link, arcs_.edge( member ), arc.metric );
         }
      }
   }
}

}
