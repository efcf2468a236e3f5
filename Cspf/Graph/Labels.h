#pragma once

#include "Cspf/Graph/LabelRepair.h"
#include "Cspf/Graph/LinkFilter.h"
#include "Cspf/Graph/TreeRun.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

namespace Cspf {

template< class Cost >
struct CspfOwnLabels;

/// A set of vertices to look into: those where a way may have changed, and those that an edge leads
/// to from a vertex whose metric has.
class CspfTouched {
 public:
   void begin( uint32_t vertexBound );
   void add( CspfVertex vertex, bool nearOnly );
   bool isTouched( CspfVertex vertex ) const { return marks_[ index( vertex ) ] == epoch_ + 1; }
   bool isNear( CspfVertex vertex ) const { return marks_[ index( vertex ) ] >= epoch_; }
   /// All of the set, each once.
   std::span< const CspfVertex > vertices() const { return vertices_; }

 private:
   uint32_t epoch_ = 0;  // even
   std::vector< uint32_t > marks_;
   std::vector< CspfVertex > vertices_;
};

/// What labels are worked out in. They follow each other, so one serves all.
struct CspfLabelMemory {
   CspfLinkFilter filter;
   CspfTreeRun run;
   CspfTree tree;
   std::tuple< CspfLabelRepair< uint32_t >, CspfLabelRepair< CspfCost > > repairs;
   std::vector< CspfVertex > heads;
   std::vector< CspfCost > values;  // of an overlay at work, by vertex
   std::vector< uint32_t > valueEpochs;
   uint32_t valueEpoch = 0;
};

/// The least costs from one root over the edges that one constraint admits, kept in line with the
/// graph. All else that a run tells follows from them. They hold between two changes of everything
/// (ChangeLog::epoch).
///
/// Where `Cost` is a parameter it is `uint32_t`, the metric, for labels that count no SRLGs, and
/// CspfCost for those that do.
class CspfLabels {
 public:
   static constexpr uint32_t unreached = CspfTree::unreachedMetric;

   /// REQUIRES: `options` ask for no single hop.
   CspfLabels( CspfLinkConstraint constraint, const CspfRunOptions & options );

   /// Follows the graph to its present version: by repair, or by a run where there are no labels
   /// yet, or where more than a quarter of the vertices is concerned. O(what changes), or a run.
   void advance( const CspfGraph & graph, CspfLabelMemory & memory );

   /// Counts the steps by which the labels have followed.
   uint64_t steps() const { return firstStep_ + stepEnds_.size(); }
   /// What the steps after the first `steps` have touched: vertices whose cost or equal-cost last
   /// links may be others, or one of whose entering edges was changed, and what is near them. False
   /// where that is not known any more: it may be everything.
   bool touchedSince( uint64_t steps, uint32_t vertexBound, CspfTouched & touched ) const;

   bool countsSrlgs() const { return filter_.countsSrlgs(); }
   uint32_t metric( CspfVertex vertex ) const { return metrics_[ index( vertex ) ]; }
   template< class Cost >
   Cost cost( CspfVertex vertex ) const;
   /// What the edge adds; unreached where it may not be used.
   template< class Cost >
   Cost step( const CspfGraph & graph, CspfEdge edge ) const;
   bool admits( const CspfGraph & graph, CspfEdge edge ) const {
      return admitsHolder( graph, edge, 0 );
   }
   /// Whether one may use the edge who holds so much bandwidth there.
   bool admitsHolder( const CspfGraph & graph, CspfEdge edge, uint64_t held ) const;
   /// What the edge adds where it may be used.
   template< class Cost >
   Cost price( const CspfGraph & graph, CspfEdge edge ) const {
      return stepPrice< Cost >( graph, filter_, edge, options_ );
   }
   CspfVertex root() const { return options_.source; }
   const CspfRunOptions & options() const { return options_; }
   uint64_t graphVersion() const { return graphVersion_; }

 private:
   template< class Cost >
   friend struct CspfOwnLabels;

   template< class Cost >
   bool repair( const CspfGraph & graph, CspfLabelMemory & memory );
   void runWhole( const CspfGraph & graph, CspfLabelMemory & memory );
   template< class Cost >
   void noteStep( const CspfGraph & graph, const CspfOwnLabels< Cost > & own,
                  const CspfLabelMemory & memory );

   CspfLinkFilter filter_;  // its constraint alone
   const CspfRunOptions options_;
   std::vector< uint32_t > metrics_;  // by vertex
   std::vector< uint64_t > counts_;   // ... excludes above, includes below; empty if unused
   uint64_t position_ = 0;            // in the graph's changes
   uint64_t graphVersion_ = 0;
   uint64_t firstStep_ = 0;
   std::vector< uint32_t > stepEnds_;  // in touches_
   std::vector< uint32_t > touches_;   // vertices; nearBit where only near
};

/// What one constraint refuses, or is granted, besides: a few edges, and the vertices whose cost
/// differs for it. As long as none of the watched vertices is near anything touched, it stays as it
/// is.
class CspfOverlay {
 public:
   CspfOverlay() = default;
   explicit CspfOverlay( std::vector< CspfEdge > refused ) : refused_( std::move( refused ) ) {}
   bool empty() const { return refused_.empty() && granted_.empty(); }
   /// The bandwidth that the constraint's user holds, by edge: it may use edges that the labels do
   /// not. Gives false where these are what they were; else `compute` comes next. O(edges).
   bool heldIs( const CspfGraph & graph, const CspfLabels & labels,
                std::span< const std::pair< CspfEdge, uint64_t > > held );
   bool isConcerned( const CspfTouched & touched ) const;
   std::span< const CspfVertex > watched() const { return watched_; }
   /// Works the differences out of the labels. `moved` gets, in order, the vertices that differ now
   /// and did not, or the other way round, or by another cost, and where these lead to, and the
   /// ends of edges that were granted since, or are not any more. False where an eighth of the
   /// vertices differs: such a constraint has labels of its own. O(what differs).
   bool compute( const CspfGraph & graph, const CspfLabels & labels, CspfLabelMemory & memory,
                 std::vector< CspfVertex > & moved );

   /// As those of the labels.
   template< class Cost >
   Cost step( const CspfGraph & graph, const CspfLabels & labels, CspfEdge edge ) const;
   template< class Cost >
   Cost cost( const CspfLabels & labels, CspfVertex vertex ) const;
   uint32_t metric( const CspfLabels & labels, CspfVertex vertex ) const;

 private:
   using Differing = std::vector< std::pair< CspfVertex, CspfCost > >;
   template< class Cost >
   bool compute( const CspfGraph & graph, const CspfLabels & labels, CspfLabelMemory & memory );
   const CspfCost * differing( CspfVertex vertex ) const;
   void watch( const CspfGraph & graph, const CspfLabels & labels );

   std::vector< CspfEdge > refused_, granted_;  // the latter sorted
   std::vector< CspfEdge > regranted_;          // since `compute`
   Differing differing_;                        // sorted
   std::vector< CspfVertex > watched_;
};

// What follows is in the header for those who walk along last links.

template<>
inline uint32_t
CspfLabels::cost( CspfVertex vertex ) const {
   return metric( vertex );
}

template<>
inline CspfCost
CspfLabels::cost( CspfVertex vertex ) const {
   const uint64_t counts = counts_[ index( vertex ) ];
   return { static_cast< uint32_t >( counts >> 32 ), static_cast< uint32_t >( counts ),
            metric( vertex ) };
}

inline bool
CspfLabels::admitsHolder( const CspfGraph & graph, CspfEdge edge, uint64_t held ) const {
   return filter_.reason( graph, edge, held ) == CspfRefusal::none
          && CspfArcs::metricRefusal( graph, edge, options_ ) == CspfRefusal::none;
}

template< class Cost >
Cost
CspfLabels::step( const CspfGraph & graph, CspfEdge edge ) const {
   return admits( graph, edge ) ? price< Cost >( graph, edge ) : cspfUnreached< Cost >;
}

template< class Cost >
Cost
CspfOverlay::step( const CspfGraph & graph, const CspfLabels & labels, CspfEdge edge ) const {
   if ( std::ranges::find( refused_, edge ) != refused_.end() ) {
      return cspfUnreached< Cost >;
   }
   return std::ranges::binary_search( granted_, edge ) ? labels.price< Cost >( graph, edge )
                                                       : labels.step< Cost >( graph, edge );
}

inline const CspfCost *
CspfOverlay::differing( CspfVertex vertex ) const {
   const auto at =
      std::ranges::lower_bound( differing_, vertex, {}, &std::pair< CspfVertex, CspfCost >::first );
   return at != differing_.end() && at->first == vertex ? &at->second : nullptr;
}

inline uint32_t
CspfOverlay::metric( const CspfLabels & labels, CspfVertex vertex ) const {
   const CspfCost * own = differing( vertex );
   return own ? own->metric : labels.metric( vertex );
}

template<>
inline uint32_t
CspfOverlay::cost( const CspfLabels & labels, CspfVertex vertex ) const {
   return metric( labels, vertex );
}

template<>
inline CspfCost
CspfOverlay::cost( const CspfLabels & labels, CspfVertex vertex ) const {
   const CspfCost * own = differing( vertex );
   return own ? *own : labels.cost< CspfCost >( vertex );
}

}
