#pragma once

#include "Cspf/CspfArcs.h"
#include "Cspf/CspfRunQueue.h"
#include "Cspf/CspfTree.h"

#include "platform/Lum/Assert.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace Cspf {

/// Hears what happens in a run, in the order of the queue: by rising cost, equal costs in any
/// order. Refused edges are not offered; CspfArcs::refusal tells why. This one hears nothing and
/// costs nothing.
struct CspfNoObserver {
   void madeFinal( CspfVertex ) {}
   /// The edge leads to its far end at a new least cost, or at the cost known so far.
   void improved( CspfEdge ) {}
   void equalCost( CspfEdge ) {}
   /// The edge would take the path metric beyond maxPathMetric.
   void tooFar( CspfEdge ) {}
};

/// Shortest-path runs, and the memory that they need; a later run on a graph of the same size
/// allocates nothing. (E. W. Dijkstra, Numer. Math. 1, 1959, with a monotone queue.)
class CspfTreeRun {
 public:
   static constexpr uint32_t maxPathMetric = 0xFDFFFFFF;

   /// Shortest paths from `options.source` over the edges that the filter admits, to every
   /// vertex, into `tree` (whose memory is reused). Skipped: links of metric 0; of a metric above
   /// CspfArcs::maxLinkMetric unless the options allow them; steps that take the path metric above
   /// maxPathMetric. REQUIRES: the source is a router of the graph; the filter was applied to this
   /// version of the graph. O(edges + vertices), and a queue operation for each improvement.
   template< typename Observer = CspfNoObserver >
   void run( const CspfGraph & graph, const CspfLinkFilter & filter, const CspfRunOptions & options,
             CspfTree & tree, Observer && observer = {} );

   const CspfArcs & arcs() const { return arcs_; }

 private:
   /// Plain runs: the metric is the whole cost.
   struct MetricCost {
      using Key = CspfMetricKey;
      static constexpr bool withSrlgs = false;
      static uint32_t metric( Key key ) { return key; }
   };
   /// Runs that rank paths by SRLG counts first.
   struct SrlgCost {
      using Key = CspfSrlgKey;
      static constexpr bool withSrlgs = true;
      static uint32_t metric( Key key ) { return key.metric; }
   };

   template< typename Cost >
   static typename Cost::Key keyOf( const CspfTree & tree, CspfVertex vertex );
   template< typename Cost, typename Queue, typename Observer >
   void walk( const CspfGraph & graph, CspfTree & tree, Queue & memory, Observer & observer );
   template< typename Cost, typename Queue, typename Observer >
   void relax( CspfVertex vertex, const CspfArcs::Arc & arc, typename Cost::Key key,
               CspfTree & tree, Queue & queue, Observer & observer );
   template< typename Cost >
   static void label( CspfTree & tree, CspfVertex vertex, typename Cost::Key key, CspfEdge last,
                      CspfVertex before );

   CspfArcs arcs_;
   CspfBucketQueue buckets_;
   CspfRadixHeap< CspfMetricKey > heap_;
   CspfRadixHeap< CspfSrlgKey > srlgHeap_;
   std::vector< CspfTree::Tie > ties_;
};

template< typename Observer >
void
CspfTreeRun::run( const CspfGraph & graph, const CspfLinkFilter & filter,
                  const CspfRunOptions & options, CspfTree & tree, Observer && observer ) {
   LUM_ASSERT( graph.has( options.source ) && graph.isRouter( options.source ) );
   arcs_.build( graph, filter, options );
   tree.begin( graph, options, arcs_.countsSrlgs() );
   ties_.clear();
   if ( arcs_.countsSrlgs() ) {
      srlgHeap_.begin();
      walk< SrlgCost >( graph, tree, srlgHeap_, observer );
   } else if ( arcs_.largestMetric() <= CspfBucketQueue::largestStepAllowed ) {
      buckets_.begin( arcs_.largestMetric(), arcs_.size() + 1 );
      walk< MetricCost >( graph, tree, buckets_, observer );
   } else {
      heap_.begin();
      walk< MetricCost >( graph, tree, heap_, observer );
   }
   tree.collectTies( graph, ties_ );
}

template< typename Cost >
typename Cost::Key
CspfTreeRun::keyOf( const CspfTree & tree, CspfVertex vertex ) {
   const uint32_t metric = tree.labels_[ index( vertex ) ].metric;
   if constexpr ( Cost::withSrlgs ) {
      return { tree.counts_[ index( vertex ) ], metric };
   } else {
      return metric;
   }
}

template< typename Cost >
void
CspfTreeRun::label( CspfTree & tree, CspfVertex vertex, typename Cost::Key key, CspfEdge last,
                    CspfVertex before ) {
   tree.labels_[ index( vertex ) ] = { Cost::metric( key ), last, before };
   if constexpr ( Cost::withSrlgs ) {
      tree.counts_[ index( vertex ) ] = key.counts;
   }
}

template< typename Cost, typename Queue, typename Observer >
void
CspfTreeRun::walk( const CspfGraph & graph, CspfTree & tree, Queue & memory, Observer & observer ) {
   Queue queue = std::move( memory );  // a local's fields can stay in registers
   const CspfVertex source = tree.source();
   label< Cost >( tree, source, {}, noEdge, noVertex );
   queue.push( {}, source );
   typename Cost::Key key;
   CspfVertex vertex;
   while ( queue.pop( key, vertex ) ) {
      if ( keyOf< Cost >( tree, vertex ) != key ) {
         continue;  // reached at less cost since this entry was queued
      }
      tree.reached_.push_back( vertex );
      observer.madeFinal( vertex );
      if ( tree.options_.singleHop && vertex != source && graph.isRouter( vertex ) ) {
         continue;
      }
      for ( const CspfArcs::Arc & arc : arcs_.out( vertex ) ) {
         relax< Cost >( vertex, arc, key, tree, queue, observer );
      }
   }
   memory = std::move( queue );
}

template< typename Cost, typename Queue, typename Observer >
inline void
CspfTreeRun::relax( CspfVertex vertex, const CspfArcs::Arc & arc, typename Cost::Key key,
                    CspfTree & tree, Queue & queue, Observer & observer ) {
   if ( arc.metric > maxPathMetric - Cost::metric( key ) ) {
      observer.tooFar( arc.edge );
      return;
   }
   typename Cost::Key next = key;
   if constexpr ( Cost::withSrlgs ) {
      next.metric += arc.metric;
      next.counts += arcs_.counts( arc );
   } else {
      next += arc.metric;
   }
   const typename Cost::Key known = keyOf< Cost >( tree, arc.to );
   if ( next < known ) {
      label< Cost >( tree, arc.to, next, arc.edge, vertex );
      queue.push( next, arc.to );
      observer.improved( arc.edge );
   } else if ( next == known ) {
      ties_.push_back( { arc.to, arc.edge, tree.cost( arc.to ) } );
      observer.equalCost( arc.edge );
   }
}

}
