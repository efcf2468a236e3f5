#pragma once

#include "Cspf/Graph/Graph.h"

#include <compare>
#include <cstdint>
#include <span>
#include <vector>

namespace Cspf {

using SrlgExcludeInfo = std::uint32_t;  ///< excluded SRLGs that a link or path carries
using SrlgIncludeInfo = std::uint32_t;  ///< SRLGs to include that a link or path's links lack

/// Cost of a path; compares in this order: SRLGs first, then the metric.
struct CspfCost {
   SrlgExcludeInfo srlgExclude = 0;
   SrlgIncludeInfo srlgInclude = 0;
   uint32_t metric = 0;
   auto operator<=>( const CspfCost & ) const = default;
};

/// Which paths a run looks for.
struct CspfRunOptions {
   CspfVertex source = noVertex;
   bool useTeMetric = false;  // where a link has one
   bool useLinksWithMaxMetric = false;
   bool reverse = false;    // paths towards the source: each link at the metric of its reverse
   bool singleHop = false;  // only the source and its networks are expanded
};

/// A shortest-path tree with every equal-cost last link of every vertex: the result of one run.
/// A value: it holds no pointer to graph, filter or run, and is valid for the graph's version
/// that it was run on.
///
/// Order of last links at one vertex: links of routers by key rank; then, at a router, the steps
/// from networks (at equal cost), by key rank of the link by which each network was first made
/// final. That link (`entryLink`) is the key of a step from a network: all routers of the network
/// share it, told apart by their own node rank. A router that stands on a network several times has
/// one step from it.
class CspfTree {
 public:
   static constexpr uint32_t unreachedMetric = 0xFFFFFFFF;

   CspfVertex source() const { return options_.source; }
   const CspfRunOptions & options() const { return options_; }
   uint64_t graphVersion() const { return graphVersion_; }
   /// Different for every run in the process, and after a repair that moved anything.
   uint64_t serial() const { return serial_; }

   bool reached( CspfVertex vertex ) const { return metric( vertex ) != unreachedMetric; }
   /// unreachedMetric when there is no path.
   uint32_t metric( CspfVertex vertex ) const { return metrics_[ index( vertex ) ]; }
   /// REQUIRES: the vertex is reached.
   CspfCost cost( CspfVertex vertex ) const;

   /// All equal-cost last links of a reached vertex, in order; empty for the source and for
   /// vertices without a path.
   std::span< const CspfEdge > lastLinks( CspfVertex vertex ) const {
      return links( lasts_[ index( vertex ) ] );
   }
   /// The vertex that the only last link comes from. REQUIRES: there is exactly one last link.
   CspfVertex before( CspfVertex vertex ) const { return lasts_[ index( vertex ) ].before; }
   /// Reached vertices, the source first: by rising cost, equal costs in no particular order, where
   /// the tree was not repaired.
   std::span< const CspfVertex > reachedVertices() const { return reached_; }
   /// Vertices that have a cost but are not final: none outside of a run. O(vertices).
   size_t tentative() const;

   /// The link by which a reached network was made final: its first last link; in a reverse
   /// tree, where several routers of equal cost share the network, that of the first final one.
   CspfEdge entryLink( const CspfGraph & graph, CspfVertex network ) const;
   /// True when reached router `a` was made final before reached router `b`: by cost, then first
   /// last link (router links by key rank, before routers through a network by node rank).
   bool finalBefore( const CspfGraph & graph, CspfVertex a, CspfVertex b ) const;
   /// The interface by which paths that end with `edge` leave `ownSource`; 0 when the first path
   /// to the edge does not cross `ownSource`. O(hops).
   uint32_t firstHopInterface( const CspfGraph & graph, CspfEdge edge, CspfVertex ownSource ) const;

 private:
   friend class CspfTreeRun;
   friend class CspfTreeRepair;
   template< class Cost >
   friend struct CspfTreeCosts;
   static constexpr uint32_t groupBit = 0x80000000;

   static constexpr uint32_t none = 0xFFFFFFFF;

   struct Last {
      CspfEdge edge = noEdge;        // one link, or groupBit and a position in groups_
      CspfVertex before = noVertex;  // where the one link comes from: walks back read this alone
   };
   /// A last link of a vertex besides the one that made it final.
   struct Tie {
      CspfVertex vertex;
      CspfEdge edge;
   };
   /// Groups are made of ties in here.
   struct TieMemory {
      std::vector< uint32_t > heads;  // by vertex: its first tie, none but while groups are made
      std::vector< uint32_t > next;   // by tie: another one of the same vertex, or none
      std::vector< CspfVertex > grouped;  // that have ties
      std::vector< CspfVertex > stepped;  // ... and that a network leads to
   };
   /// Where a router stands among routers of equal cost.
   struct Place {
      bool throughNetwork;
      uint64_t rank;
      auto operator<=>( const Place & ) const = default;
   };

   static uint64_t nextSerial();
   void begin( const CspfGraph & graph, const CspfRunOptions & options, bool withSrlgs );
   void makeGroups( const CspfGraph & graph, std::span< const Tie > ties, TieMemory & memory );
   void group( const CspfGraph & graph, CspfVertex vertex, std::span< const Tie > ties,
               TieMemory & memory );
   static void chain( std::span< const Tie > ties, TieMemory & memory );
   static bool isStep( const CspfGraph & graph, CspfEdge edge ) {
      return graph.kind( edge ) == CspfEdgeKind::networkToRouter;
   }
   static bool orderByRank( const CspfGraph & graph, std::span< CspfEdge > links );
   void orderSteps( const CspfGraph & graph, CspfVertex router );
   std::span< const CspfEdge > links( const Last & last ) const {
      if ( !( index( last.edge ) & groupBit ) ) {
         return { &last.edge, 1 };
      }
      return last.edge == noEdge ? std::span< const CspfEdge >() : group( last.edge );
   }
   std::span< CspfEdge > group( CspfEdge last );
   std::span< const CspfEdge > group( CspfEdge last ) const {
      const uint32_t head = index( last ) & ~groupBit;
      return { groups_.data() + head + 1, index( groups_[ head ] ) };
   }
   Place place( const CspfGraph & graph, CspfVertex router ) const;
   CspfEdge firstLink( const CspfGraph & graph, CspfVertex vertex ) const;

   CspfRunOptions options_;
   uint64_t graphVersion_ = 0;
   uint64_t serial_ = 0;
   std::vector< uint32_t > metrics_;  // by vertex
   std::vector< Last > lasts_;        // by vertex
   std::vector< uint64_t > counts_;   // by vertex: excludes above, includes below; empty if unused
   std::vector< CspfEdge > groups_;   // each group: how many links, then the links
   std::vector< CspfVertex > reached_;
};

}
