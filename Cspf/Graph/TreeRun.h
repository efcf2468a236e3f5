#pragma once

#include "Cspf/Graph/Arcs.h"
#include "Cspf/Graph/RunQueue.h"
#include "Cspf/Graph/Tree.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace Cspf {

/// Hears what happens in a run, in the order of the queue: by rising cost, equal costs in any
/// order. A vertex that was made final has its metric and one last link in the tree. Refused edges
/// are not offered; CspfArcs::refusal tells why. This one hears nothing and costs nothing.
struct CspfNoObserver {
   void madeFinal( CspfVertex ) {}
   /// The edge leads to its far end at a new least cost, or at the cost known so far.
   void improved( CspfEdge ) {}
   void equalCost( CspfEdge ) {}
   /// ... or at more than that.
   void worse( CspfEdge ) {}
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
   /// maxPathMetric. REQUIRES: the source is in the graph; the filter was applied to this
   /// version of the graph. O(edges + vertices), and a queue operation for each improvement.
   template< typename Observer = CspfNoObserver >
   void run( const CspfGraph & graph, const CspfLinkFilter & filter, const CspfRunOptions & options,
             CspfTree & tree, Observer && observer = {} );

   const CspfArcs & arcs() const { return arcs_; }

 private:
   /// Costs of the tree under way, for plain runs: the metric is the whole cost.
   struct MetricLabels {
      using Key = CspfMetricKey;
      MetricLabels( CspfTree & tree, const CspfArcs & ) : metrics( tree.metrics_.data() ) {}
      static uint32_t metric( Key key ) { return key; }
      static bool below( Key a, Key b ) { return a < b; }
      Key next( Key key, const CspfArcs::Arc & arc ) const { return key + arc.metric; }
      Key known( CspfVertex vertex ) const { return metrics[ index( vertex ) ]; }
      void set( CspfVertex vertex, Key key ) { metrics[ index( vertex ) ] = key; }
      uint32_t * metrics;
   };
   /// ... and for runs that rank paths by SRLG counts first.
   struct SrlgLabels {
      using Key = CspfSrlgKey;
      SrlgLabels( CspfTree & tree, const CspfArcs & arcs )
         : arcs( arcs ),
           metrics( tree.metrics_.data() ),
           counts( tree.counts_.data() ) {}
      static uint32_t metric( Key key ) { return key.metric; }
      static bool below( Key a, Key b ) {  // without a branch
         return ( a.counts < b.counts ) | ( ( a.counts == b.counts ) & ( a.metric < b.metric ) );
      }
      Key next( Key key, const CspfArcs::Arc & arc ) const {
         return { key.counts + arcs.counts( arc ), key.metric + arc.metric };
      }
      Key known( CspfVertex vertex ) const {
         return { counts[ index( vertex ) ], metrics[ index( vertex ) ] };
      }
      void set( CspfVertex vertex, Key key ) {
         metrics[ index( vertex ) ] = key.metric;
         counts[ index( vertex ) ] = key.counts;
      }
      const CspfArcs & arcs;
      uint32_t * metrics;
      uint64_t * counts;
   };

   /// An entry of the queue as it is taken.
   template< typename Key >
   struct Step {
      Key key{};
      Key cspfLinkInfoKey() const { return key; }
      Key cost() const { return key; }
   };

   template< typename Labels, typename Queue, typename Observer >
   void walk( const CspfGraph & graph, CspfTree & tree, Queue & memory, Observer & observer );
   template< typename Labels, typename Queue, typename Observer >
   void relax( CspfVertex vertex, typename Labels::Key key, Labels & labels, Queue & queue,
               Observer & observer );
   template< typename Labels, typename Queue, typename Observer >
   void take( CspfVertex vertex, const CspfArcs::Arc & arc, typename Labels::Key key,
              Labels & labels, Queue & queue, Observer & observer );

   template< typename Observer >
   static constexpr bool isHeard =
      !std::is_same_v< std::remove_cvref_t< Observer >, CspfNoObserver >;
   static bool isExpanded( const CspfGraph & graph, const CspfTree & tree, CspfVertex vertex ) {
      return !tree.options_.singleHop || vertex == tree.source() || !graph.isRouter( vertex );
   }
   template< typename Labels >
   void findLastLinks( const CspfGraph & graph, CspfTree & tree );
   template< typename Labels >
   void findAttaining( CspfVertex vertex, const Labels & labels );

   CspfArcs arcs_;
   CspfBucketQueue buckets_;
   CspfRadixHeap< CspfMetricKey > heap_;
   CspfSrlgQueue srlgQueue_;
   std::vector< CspfTree::Attaining > attaining_;  // used up to attainings_
   size_t attainings_ = 0;
   CspfTree::Last * tellingLasts_ = nullptr;  // of the tree under way, for those who hear of it
};

template< typename Observer >
void
CspfTreeRun::run( const CspfGraph & graph, const CspfLinkFilter & filter,
                  const CspfRunOptions & options, CspfTree & tree, Observer && observer ) {
   LUM_ASSERT( graph.has( options.source ) );
   arcs_.build( graph, filter, options );
   tree.begin( graph, options, arcs_.countsSrlgs() );
   tellingLasts_ = tree.lasts_.data();
   if ( arcs_.countsSrlgs() ) {
      srlgQueue_.begin( arcs_.metricBits(), arcs_.size() + 1 );
      walk< SrlgLabels >( graph, tree, srlgQueue_, observer );
      findLastLinks< SrlgLabels >( graph, tree );
      return;
   }
   if ( arcs_.metricBits() <= CspfBucketQueue::largestStepAllowed ) {
      buckets_.begin( arcs_.metricBits(), arcs_.size() + 1 );
      walk< MetricLabels >( graph, tree, buckets_, observer );
   } else {
      heap_.begin();
      walk< MetricLabels >( graph, tree, heap_, observer );
   }
   findLastLinks< MetricLabels >( graph, tree );
}

template< typename Labels, typename Queue, typename Observer >
void
CspfTreeRun::walk( const CspfGraph & graph, CspfTree & tree, Queue & memory, Observer & observer ) {
   Queue queue = std::move( memory );  // locals' fields can stay in registers
   Labels labels( tree, arcs_ );
   const CspfVertex source = tree.source();
   labels.set( source, {} );
   queue.push( {}, source );
   Step< typename Labels::Key > lastLink;
   queue.drain(
      [ & ]( typename Labels::Key key, CspfVertex vertex ) {
         const Step< typename Labels::Key > linkInfo{ key };
         const typename Labels::Key shortestPathCost = labels.known( vertex );
         LUM_ASSERT( lastLink.cspfLinkInfoKey() <= linkInfo.cspfLinkInfoKey() );
         LUM_ASSERT( shortestPathCost <= linkInfo.cost() );
         lastLink = linkInfo;
         if ( shortestPathCost != key ) {
            return;  // reached at less cost since this entry was queued
         }
         tree.reached_.push_back( vertex );
         observer.madeFinal( vertex );
         if ( isExpanded( graph, tree, vertex ) ) {
            relax( vertex, key, labels, queue, observer );
         }
      },
      [ this ]( CspfVertex vertex ) { arcs_.fetch( vertex ); } );
   memory = std::move( queue );
   if constexpr ( isHeard< Observer > ) {
      std::ranges::fill( tree.lasts_, CspfTree::Last{} );
   }
}

template< typename Labels, typename Queue, typename Observer >
inline void
CspfTreeRun::relax( CspfVertex vertex, typename Labels::Key key, Labels & labels, Queue & queue,
                    Observer & observer ) {
   // First all arcs are judged without a branch, then the few that matter are taken: which ones
   // they are cannot be predicted, and a wrong guess costs more than the judgement of a block.
   constexpr size_t block = 64;
   const CspfArcs::Arc * steps[ block ];
   const uint32_t room = maxPathMetric - Labels::metric( key );
   const std::span< const CspfArcs::Arc > out = arcs_.out( vertex );
   for ( const CspfArcs::Arc *arc = out.data(), *const end = arc + out.size(); arc != end; ) {
      const CspfArcs::Arc * const blockEnd = arc + std::min< ptrdiff_t >( end - arc, block );
      size_t count = 0;
      for ( ; arc != blockEnd; ++arc ) {
         steps[ count ] = arc;
         count += Labels::below( labels.next( key, *arc ), labels.known( arc->to ) )
                  | ( arc->metric > room ) | isHeard< Observer >;
      }
      for ( size_t i = 0; i < count; ++i ) {
         take( vertex, *steps[ i ], key, labels, queue, observer );
      }
   }
}

template< typename Labels, typename Queue, typename Observer >
inline void
CspfTreeRun::take( [[maybe_unused]] CspfVertex vertex, const CspfArcs::Arc & arc,
                   typename Labels::Key key, Labels & labels, Queue & queue, Observer & observer ) {
   if ( arc.metric > maxPathMetric - Labels::metric( key ) ) {
      observer.tooFar( arcs_.edge( arc ) );
      return;
   }
   const typename Labels::Key next = labels.next( key, arc );
   const typename Labels::Key known = labels.known( arc.to );
   if ( next < known ) {
      labels.set( arc.to, next );
      queue.push( next, arc.to );
      if constexpr ( isHeard< Observer > ) {
         tellingLasts_[ index( arc.to ) ] = { arcs_.edge( arc ), vertex };
      }
      observer.improved( arcs_.edge( arc ) );
   } else if ( next == known ) {
      observer.equalCost( arcs_.edge( arc ) );
   } else {
      observer.worse( arcs_.edge( arc ) );
   }
}

/// Vertices in order of their numbers, in which arcs lie; where few are reached, these alone.
template< typename Labels >
void
CspfTreeRun::findLastLinks( const CspfGraph & graph, CspfTree & tree ) {
   const Labels labels( tree, arcs_ );
   attaining_.resize( arcs_.size() + 1 );  // one more: each is written before it is judged
   attainings_ = 0;
   if ( tree.reached_.size() > graph.vertexBound() / 8 ) {
      for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
         if ( tree.reached( CspfVertex{ v } ) && isExpanded( graph, tree, CspfVertex{ v } ) ) {
            findAttaining( CspfVertex{ v }, labels );
         }
      }
   } else {
      for ( const CspfVertex vertex : tree.reached_ ) {
         if ( isExpanded( graph, tree, vertex ) ) {
            findAttaining( vertex, labels );
         }
      }
   }
   for ( size_t i = 0; i < attainings_; ++i ) {
      const auto [ from, place ] = attaining_[ i ];
      const CspfArcs::Arc & arc = arcs_.at( place );
      tree.takeLast( arc.to, { arcs_.edge( arc ), from } );
   }
   tree.makeGroups( graph );
}

template< typename Labels >
inline void
CspfTreeRun::findAttaining( CspfVertex vertex, const Labels & labels ) {
   const typename Labels::Key key = labels.known( vertex );
   const uint32_t room = maxPathMetric - Labels::metric( key );
   CspfTree::Attaining * const attaining = attaining_.data();
   size_t count = attainings_;
   for ( const CspfArcs::Arc & arc : arcs_.out( vertex ) ) {
      attaining[ count ] = { vertex, arcs_.place( arc ) };
      count += ( labels.next( key, arc ) == labels.known( arc.to ) ) & ( arc.metric <= room );
   }
   attainings_ = count;
}

}
