#pragma once

#include "Cspf/Detours/Detours.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace Cspf {

/// What is assumed to have failed, seen from the point of local repair (PLR).
struct CspfProtectedResource {
   CspfVertex plr = noVertex;
   CspfVertex node = noVertex;  ///< far end of the protected link, or the protected node
   bool isLink = true;          ///< protect the link alone, or the node as a whole
   uint32_t plrToNode = 0;      ///< cost from the PLR to `node`, nothing excluded

   bool operator==( const CspfProtectedResource & ) const = default;
   /// Whether the edge leads to what has failed.
   bool isEnteredBy( const CspfGraph & graph, CspfEdge edge ) const {
      return graph.to( edge ) == node && ( !isLink || graph.from( edge ) == plr );
   }
};

/// The three shortest-path trees that repairs are worked out of, all on one version of one graph.
struct CspfRepairTrees {
   const CspfTree & postConvergence;  ///< from the PLR, without the protected resource
   const CspfTree & fromNode;         ///< from the resource's `node`, nothing excluded
   const CspfTree & toResource;       ///< reverse: to the PLR (link) or to the `node` (node)
};

/// What the network forwards by before the failure, and what repairs are asked to survive.
struct CspfRepairConstraints {
   const CspfLinkConstraint & plain;  ///< without root: overloaded routers carry no transit
   const CspfLinkConstraint & asked;  ///< that of the post-convergence tree
};

/// Repairs of one protected link or node towards every destination (RFC 9855; P and Q spaces
/// after RFC 7490). All shortest paths mean those before the failure, equal-cost ones included.
///
/// A candidate lies on a shortest path after the failure. From router u, plain forwarding to v
/// avoids the resource exactly when the cost from u to v along that path is less than the least
/// cost from u to v across the resource: `isPnode` where u is the first hop, or a repair node on
/// the way to the next, `isQnode` where v is the destination. What else the constraint refuses, of
/// a shared risk, say, it must avoid, too. Walking the routers in order of post-convergence cost,
/// the table keeps for each, by the first hop of the path, the fewest repair nodes by which a
/// packet gets there, and from which routers its last segment may begin. A segment that may begin
/// at a router may begin at each later router of the same path, so only the fewest need be kept.
class CspfRepairTable {
 public:
   CspfRepairTable() = default;
   CspfRepairTable( const CspfRepairTable & ) = delete;
   CspfRepairTable & operator=( const CspfRepairTable & ) = delete;

   /// Works out all repairs. REQUIRES: metrics of the three trees are IGP metrics of `graph`; the
   /// PLR is the post-convergence tree's source. Holds nothing of its arguments afterwards but
   /// numbers. O(edges * first hops) at the worst, in practice a few runs; where the constraint
   /// refuses more than the resource, a run more for each repair node that is close to it.
   void build( const CspfGraph & graph, const CspfProtectedResource & resource,
               const CspfRepairTrees & trees, const CspfRepairConstraints & constraints );

   using Originator = CspfOriginator;
   using RouterKey = std::function< uint64_t( CspfVertex ) >;
   using LinkKey = std::function< uint64_t( CspfEdge ) >;

   struct Query {
      /// All who advertise the destination, at their metrics; a router itself is its only one, at
      /// metric 0.
      std::span< const Originator > originators;
      uint32_t maxNodes = 8;
      /// What is preferred among equals follows from a hash of the destination's key and those of
      /// routers and of the PLR's links. Keys last, so that destinations spread and stay put.
      uint64_t destinationKey = 0;
      const RouterKey & key;
      const LinkKey & linkKey;
      size_t most = ~size_t{ 0 };  ///< repairs wanted, the best ones
   };
   /// Where the paths after the failure need more nodes than there may be, the one repair that
   /// leaves them and has the fewest. No repair where the failure disconnects the destination, or
   /// where it is the PLR's own.
   CspfRepairs repairs( const CspfGraph & graph, const CspfTree & postConvergence,
                        const Query & query ) const;
   /// Whether an answer may rest on more of the graph than the three trees: on how plain forwarding
   /// leads anywhere, since more is refused than the resource, or a repair was looked for that
   /// leaves the paths after the failure.
   bool readsForwarding() const { return forwarding_.refusesAny() || detours_.has_value(); }

 private:
   static constexpr uint32_t unreached = CspfTree::unreachedMetric;
   static constexpr uint8_t none = 0xFF, most = none - 1;

   struct Costs {
      uint32_t postConvergence, fromNode, toResource;
   };
   /// Fewest repair nodes to get a packet to a router by `firstHop`: in passing, on a segment that
   /// begins at one of `starts` (the first hop where the number is 0, the last repair node
   /// otherwise); or with this router as the last repair node.
   struct Label {
      CspfVertex firstHop = noVertex;
      uint8_t passing = none;
      uint8_t ending = none;
      uint32_t firstStart = 0, starts = 0;
   };
   /// The labels of one router.
   struct Row {
      uint32_t first = 0, labels = 0;
   };
   /// A label in the making.
   struct Offered {
      Label label;
      std::vector< CspfVertex > starts;

      void offer( uint8_t nodes, CspfVertex start );
   };
   struct Goal {
      std::span< const Originator > originators;
      uint32_t pcCostPlrToDest, costProtNodeToDest;
   };
   class Chooser;
   class LastSegments;

   bool isPnode( CspfVertex immNgb, CspfVertex cand ) const;
   bool isQnode( CspfVertex cand, const Goal & goal ) const;
   bool avoidsResource( CspfVertex cand, const Goal & goal ) const;
   bool noPathViaProtResource( CspfVertex from ) const;
   void readCosts( const CspfGraph & graph, const CspfRepairTrees & trees );
   void label( const CspfGraph & graph, const CspfTree & tree, CspfVertex router );
   void label( CspfVertex before, CspfVertex router );
   Offered & offered( CspfVertex firstHop );
   void storeOffered( CspfVertex router );
   std::span< const Label > labels( CspfVertex router ) const {
      const Row & row = rows_[ index( router ) ];
      return { labels_.data() + row.first, row.labels };
   }
   const Label & label( CspfVertex router, CspfVertex firstHop ) const;
   std::span< const CspfVertex > starts( const Label & label ) const {
      return { starts_.data() + label.firstStart, label.starts };
   }
   Goal goalOf( std::span< const Originator > originators ) const;

   CspfProtectedResource resource_;
   CspfPlainForwarding forwarding_;  // against what the constraint refuses besides
   bool neverCrossed_ = false;       // the protected link carries no transit: the PLR is overloaded
   std::vector< Costs > cost_;       // by vertex
   std::vector< Row > rows_;         // by vertex
   std::vector< Label > labels_;
   std::vector< CspfVertex > starts_;
   mutable std::optional< CspfDetours > detours_;  // where one was asked for
   std::vector< Offered > offered_;  // labels of the router at hand, and memory for more
   size_t offers_ = 0;
};

}
