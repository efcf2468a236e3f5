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
   CspfLinkConstraint plain;  ///< without root: overloaded routers carry no transit
   CspfLinkConstraint asked;  ///< that of the post-convergence tree
};

/// Repairs of one protected link or node towards every destination (RFC 9855; P and Q spaces
/// after RFC 7490). All shortest paths mean those before the failure, equal-cost ones included.
///
/// A candidate lies on a shortest path after the failure. From router u, plain forwarding to v
/// avoids the resource exactly when the cost from u to v along that path is less than the least
/// cost from u to v across the resource: `isPnode` where u is the first hop, or a repair node on
/// the way to the next, `isQnode` where v is the destination. What else the constraint refuses, of
/// a shared risk, say, it must avoid, too. Walking the routers that lead to a destination, each
/// after those before it, the table keeps for each, by the first hop of the path, the fewest repair
/// nodes by which a packet gets there, and from which routers its last segment may begin. A segment
/// that may begin at a router may begin at each later router of the same path, so only the fewest
/// need be kept. What is asked next finds the routers of earlier questions labelled.
class CspfRepairTable {
 public:
   /// REQUIRES: metrics of the three trees are IGP metrics of `graph`; the PLR is the
   /// post-convergence tree's source. Graph and trees outlive the table, and stay as they are while
   /// it is asked. O(vertices), and O(edges) where the constraint tests links that it does not
   /// name.
   CspfRepairTable( const CspfGraph & graph, const CspfProtectedResource & resource,
                    const CspfRepairTrees & trees, CspfRepairConstraints constraints );
   CspfRepairTable( const CspfRepairTable & ) = delete;
   CspfRepairTable & operator=( const CspfRepairTable & ) = delete;

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
   /// where it is the PLR's own. O(edges * first hops) of the routers that lead to the destination
   /// and were not asked for before; where the constraint refuses more than the resource, a run
   /// more for each repair node that is close to it.
   CspfRepairs repairs( const Query & query );
   /// Whether an answer may rest on more of the graph than the three trees: on how plain forwarding
   /// leads anywhere, since more is refused than the resource, or a repair was looked for that
   /// leaves the paths after the failure.
   bool readsForwarding() const { return refusesMore_ || detours_.has_value(); }

 private:
   static constexpr uint32_t unreached = CspfTree::unreachedMetric;
   static constexpr uint32_t unlabelled = 0xFFFFFFFF;
   static constexpr uint8_t none = 0xFF, most = none - 1;

   /// Fewest repair nodes to get a packet to a router by `firstHop`: in passing, on a segment that
   /// begins at one of `starts` (the first hop where the number is 0, the last repair node
   /// otherwise); or with this router as the last repair node.
   struct Label {
      CspfVertex firstHop = noVertex;
      uint8_t passing = none;
      uint8_t ending = none;
      uint32_t firstStart = 0, starts = 0;
   };
   /// The labels of one router, once it was labelled.
   struct Row {
      uint32_t first = unlabelled, labels = 0;
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

   uint32_t costFromPlr( CspfVertex vertex ) const {
      return trees_.postConvergence.metric( vertex );
   }
   uint32_t costFromNode( CspfVertex vertex ) const;
   bool isPnode( CspfVertex immNgb, CspfVertex cand );
   bool isQnode( CspfVertex cand, const Goal & goal );
   bool avoidsResource( CspfVertex cand, const Goal & goal ) const;
   bool noPathViaProtResource( CspfVertex from ) const;
   CspfRefusedLinks::IsApart isApart() const;
   const CspfPlainForwarding & forwarding();
   bool isLabelled( CspfVertex router ) const {
      return rows_[ index( router ) ].first != unlabelled;
   }
   void labelUpTo( CspfVertex router );
   void label( CspfVertex router );
   void label( CspfVertex before, CspfVertex router );
   Offered & offered( CspfVertex firstHop );
   void storeOffered( CspfVertex router );
   /// REQUIRES: the router is labelled.
   std::span< const Label > labels( CspfVertex router ) const {
      const Row & row = rows_[ index( router ) ];
      return { labels_.data() + row.first, row.labels };
   }
   const Label & label( CspfVertex router, CspfVertex firstHop ) const;
   std::span< const CspfVertex > starts( const Label & label ) const {
      return { starts_.data() + label.firstStart, label.starts };
   }
   Goal goalOf( std::span< const Originator > originators ) const;

   const CspfGraph & graph_;
   const CspfProtectedResource resource_;
   const CspfRepairTrees trees_;
   const CspfRepairConstraints constraints_;
   const bool refusesMore_;     // than the resource
   const bool neverCrossed_;    // the protected link carries no transit: the PLR is overloaded
   const bool nodeOverloaded_;  // across it goes only what ends there
   std::vector< Row > rows_;    // by vertex
   std::vector< Label > labels_;
   std::vector< CspfVertex > starts_;
   std::vector< CspfVertex > open_;  // routers to label
   // Where one was asked for; against what the constraint refuses besides.
   std::optional< CspfPlainForwarding > forwarding_;
   std::optional< CspfDetours > detours_;
   std::vector< Offered > offered_;  // labels of the router at hand, and memory for more
   size_t offers_ = 0;
};

}
