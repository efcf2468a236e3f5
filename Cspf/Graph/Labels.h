#pragma once

#include "Cspf/Graph/LabelRepair.h"
#include "Cspf/Graph/LinkFilter.h"
#include "Cspf/Graph/TreeRun.h"

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace Cspf {

/// A set of vertices to look into: those where a way may have changed, and those that an edge leads
/// to from a vertex whose metric has.
class CspfTouched {
 public:
   void begin( uint32_t vertexBound );
   void add( CspfVertex vertex, bool nearOnly );
   bool isTouched( CspfVertex vertex ) const { return marks_[ index( vertex ) ] == epoch_ + 1; }
   bool isNear( CspfVertex vertex ) const { return marks_[ index( vertex ) ] >= epoch_; }

 private:
   uint32_t epoch_ = 0;  // even
   std::vector< uint32_t > marks_;
};

/// What labels are worked out in. They follow each other, so one serves all.
struct CspfLabelMemory {
   CspfLinkFilter filter;
   CspfTreeRun run;
   CspfTree tree;
   CspfLabelRepair repair;
   std::vector< CspfVertex > heads;
   std::vector< uint32_t > values, valueEpochs;  // of an overlay at work, by vertex
   uint32_t valueEpoch = 0;
};

/// The least metrics from one root over the edges that one constraint admits, for forward trees
/// that count no SRLGs, kept in line with the graph. All else that a run tells follows from them.
/// They hold between two changes of everything (ChangeLog::epoch).
class CspfLabels {
 public:
   static constexpr uint32_t unreached = CspfTree::unreachedMetric;

   /// REQUIRES: `options` ask for no reverse tree and no single hop; the constraint counts no
   /// SRLGs.
   CspfLabels( CspfLinkConstraint constraint, const CspfRunOptions & options );

   /// Follows the graph to its present version: by repair, or by a run where there are no labels
   /// yet, or where more than a quarter of the vertices is concerned. O(what changes), or a run.
   void advance( const CspfGraph & graph, CspfLabelMemory & memory );

   /// Counts the steps by which the labels have followed.
   uint64_t steps() const { return firstStep_ + stepEnds_.size(); }
   /// What the steps after the first `steps` have touched: vertices whose metric or equal-cost last
   /// links may be others, or one of whose entering edges was changed, and what is near them. False
   /// where that is not known any more: it may be everything.
   bool touchedSince( uint64_t steps, uint32_t vertexBound, CspfTouched & touched ) const;

   uint32_t metric( CspfVertex vertex ) const { return metrics_[ index( vertex ) ]; }
   /// What the edge adds; `unreached` where it may not be used.
   uint32_t step( const CspfGraph & graph, CspfEdge edge ) const;
   CspfVertex root() const { return options_.source; }
   const CspfRunOptions & options() const { return options_; }
   uint64_t graphVersion() const { return graphVersion_; }

 private:
   void runWhole( const CspfGraph & graph, CspfLabelMemory & memory );
   void noteStep( const CspfGraph & graph, const CspfLabelMemory & memory );
   void touch( const CspfGraph & graph, CspfVertex vertex, bool nearOnly );

   CspfLinkFilter filter_;  // its constraint alone
   const CspfRunOptions options_;
   std::vector< uint32_t > metrics_;  // by vertex
   uint64_t position_ = 0;            // in the graph's changes
   uint64_t graphVersion_ = 0;
   uint64_t firstStep_ = 0;
   std::vector< uint32_t > stepEnds_;  // in touches_
   std::vector< uint32_t > touches_;   // vertices; nearBit where only near
};

/// What one constraint refuses besides: a few edges, and the vertices whose metric differs for it.
/// As long as none of the watched vertices is near anything touched, it stays as it is.
class CspfOverlay {
 public:
   CspfOverlay() = default;
   explicit CspfOverlay( std::vector< CspfEdge > refused ) : refused_( std::move( refused ) ) {}
   const std::vector< CspfEdge > & refused() const { return refused_; }
   bool isConcerned( const CspfTouched & touched ) const;
   /// Works the differences out of the labels. `moved` gets, in order, the vertices that differ now
   /// and did not, or the other way round, or by another metric, and where these lead to. False
   /// where an eighth of the vertices differs: such a constraint has labels of its own.
   /// O(what differs).
   bool compute( const CspfGraph & graph, const CspfLabels & labels, CspfLabelMemory & memory,
                 std::vector< CspfVertex > & moved );

   bool refuses( CspfEdge edge ) const;
   uint32_t metric( const CspfLabels & labels, CspfVertex vertex ) const;

 private:
   using Differing = std::vector< std::pair< CspfVertex, uint32_t > >;
   void watch( const CspfGraph & graph );

   std::vector< CspfEdge > refused_;
   Differing differing_;  // sorted
   std::vector< CspfVertex > watched_;
};

}
