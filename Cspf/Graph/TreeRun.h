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
      static Key next( Key key, const CspfArcs::Arc & arc, uint32_t ) { return key + arc.metric; }
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
      Key next( Key key, const CspfArcs::Arc & arc, uint32_t place ) const {
         return { key.counts + arcs.counts( place ), key.metric + arc.metric };
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

   /// ... and for the same where counts are packed: whole keys stand in place of counts until the
   /// end of the run.
   struct PackedLabels {
      using Key = CspfPackedKey;
      PackedLabels( CspfTree & tree, const CspfArcs & arcs )
         : arcs( arcs ),
           metrics( tree.metrics_.data() ),
           keys( tree.counts_.data() ) {}
      static uint32_t metric( Key key ) { return key.metricPart(); }
      static bool below( Key a, Key b ) { return a.value < b.value; }
      Key next( Key key, const CspfArcs::Arc &, uint32_t place ) const {
         return { key.value + arcs.counts( place ) };
      }
      Key known( CspfVertex vertex ) const { return { keys[ index( vertex ) ] }; }
      void set( CspfVertex vertex, Key key ) {
         keys[ index( vertex ) ] = key.value;
         metrics[ index( vertex ) ] = key.metricPart();
      }
      const CspfArcs & arcs;
      uint32_t * metrics;
      uint64_t * keys;
   };

   /// The place of an arc, and where it begins.
   struct Step {
      CspfVertex from;
      uint32_t place;
   };

   /// An entry of the queue as it is taken.
   template< typename Key >
   struct Taken {
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
   void take( CspfVertex vertex, uint32_t place, typename Labels::Key key, Labels & labels,
              Queue & queue, Observer & observer );

   template< typename Observer >
   static constexpr bool isHeard =
      !std::is_same_v< std::remove_cvref_t< Observer >, CspfNoObserver >;
   static bool isExpanded( const CspfGraph & graph, const CspfTree & tree, CspfVertex vertex ) {
      return !tree.options_.singleHop || vertex == tree.source() || !graph.isRouter( vertex );
   }
   template< typename Key, typename Queue >
   void push( Queue & queue, Key key, CspfVertex vertex, const Step & step ) {
      steps_[ stepCount_ ] = step;
      queue.push( key, vertex, stepCount_++ );
   }
   void takeStep( CspfTree & tree, CspfVertex vertex, uint32_t number ) const {
      const auto [ from, place ] = steps_[ number ];
      if ( from != noVertex ) {
         tree.lasts_[ index( vertex ) ] = { arcs_.edge( place ), from };
      }
   }
   template< typename Labels >
   void takeLastLinks( const CspfGraph & graph, CspfTree & tree );

   CspfArcs arcs_;
   CspfBucketQueue buckets_;
   CspfRadixHeap< CspfMetricKey > heap_;
   CspfSrlgQueue< CspfSrlgKey > srlgQueue_;
   CspfSrlgQueue< CspfPackedKey > packedQueue_;
   // Of the tree under way: each step that was pushed, by the number that the queue knows it by;
   // those by which vertices became final, in that order; and arcs that gave their far end the cost
   // that it had when they were looked at, used up to equalCount_.
   std::vector< Step > steps_;
   std::vector< uint32_t > finals_;
   std::vector< Step > equals_;
   uint32_t stepCount_ = 0;
   size_t equalCount_ = 0;
   std::vector< CspfTree::Tie > ties_;
   CspfTree::TieMemory tieMemory_;
};

template< typename Observer >
void
CspfTreeRun::run( const CspfGraph & graph, const CspfLinkFilter & filter,
                  const CspfRunOptions & options, CspfTree & tree, Observer && observer ) {
   LUM_ASSERT( graph.has( options.source ) );
   arcs_.build( graph, filter, options, !isHeard< Observer > );  // who hears may ask for counts
   tree.begin( graph, options, arcs_.countsSrlgs() );
   equals_.resize( arcs_.size() + 1 );  // one more: each is written before it is judged
   steps_.resize( arcs_.size() + 1 );
   stepCount_ = 0;
   equalCount_ = 0;
   finals_.clear();
   if ( arcs_.countsSrlgs() && arcs_.packsCounts() ) {
      packedQueue_.begin( arcs_.metricBits(), arcs_.size() + 1 );
      walk< PackedLabels >( graph, tree, packedQueue_, observer );
      takeLastLinks< PackedLabels >( graph, tree );
      for ( const CspfVertex vertex : tree.reached_ ) {
         uint64_t & counts = tree.counts_[ index( vertex ) ];
         counts = arcs_.unpacked( static_cast< uint32_t >( counts >> 32 ) );
      }
      return;
   }
   if ( arcs_.countsSrlgs() ) {
      srlgQueue_.begin( arcs_.metricBits(), arcs_.size() + 1 );
      walk< SrlgLabels >( graph, tree, srlgQueue_, observer );
      takeLastLinks< SrlgLabels >( graph, tree );
      return;
   }
   if ( arcs_.metricBits() <= CspfBucketQueue::largestStepAllowed ) {
      buckets_.begin( arcs_.metricBits(), arcs_.size() + 1 );
      walk< MetricLabels >( graph, tree, buckets_, observer );
   } else {
      heap_.begin();
      walk< MetricLabels >( graph, tree, heap_, observer );
   }
   takeLastLinks< MetricLabels >( graph, tree );
}

template< typename Labels, typename Queue, typename Observer >
void
CspfTreeRun::walk( const CspfGraph & graph, CspfTree & tree, Queue & memory, Observer & observer ) {
   Queue queue = std::move( memory );  // locals' fields can stay in registers
   Labels labels( tree, arcs_ );
   const CspfVertex source = tree.source();
   labels.set( source, {} );
   push( queue, typename Labels::Key{}, source, { noVertex, 0 } );
   Taken< typename Labels::Key > lastLink;
   queue.drain(
      [ & ]( typename Labels::Key key, CspfVertex vertex, uint32_t number ) {
         const Taken< typename Labels::Key > linkInfo{ key };
         const typename Labels::Key shortestPathCost = labels.known( vertex );
         LUM_ASSERT( lastLink.cspfLinkInfoKey() <= linkInfo.cspfLinkInfoKey() );
         LUM_ASSERT( shortestPathCost <= linkInfo.cost() );
         lastLink = linkInfo;
         if ( shortestPathCost != key ) {
            return;  // reached at less cost since this entry was queued
         }
         tree.reached_.push_back( vertex );
         finals_.push_back( number );
         if constexpr ( isHeard< Observer > ) {
            takeStep( tree, vertex, number );
         }
         observer.madeFinal( vertex );
         if ( isExpanded( graph, tree, vertex ) ) {
            relax( vertex, key, labels, queue, observer );
         }
      },
      [ this ]( CspfVertex vertex ) { arcs_.fetch( vertex ); } );
   memory = std::move( queue );
}

template< typename Labels, typename Queue, typename Observer >
inline void
CspfTreeRun::relax( CspfVertex vertex, typename Labels::Key key, Labels & labels, Queue & queue,
                    Observer & observer ) {
   // First all arcs are judged without a branch, then the few that matter are taken: which ones
   // they are cannot be predicted, and a wrong guess costs more than the judgement of a block.
   constexpr uint32_t block = 64;
   uint32_t steps[ block ];
   const uint32_t end = arcs_.end( vertex );
   for ( uint32_t place = arcs_.begin( vertex ); place != end; ) {
      const uint32_t blockEnd = std::min( end, place + block );
      size_t count = 0;
      for ( ; place != blockEnd; ++place ) {
         const CspfArcs::Arc & arc = arcs_.at( place );
         const typename Labels::Key next = labels.next( key, arc, place ),
                                    known = labels.known( arc.to );
         steps[ count ] = place;
         count += Labels::below( next, known ) | isHeard< Observer >;
         equals_[ equalCount_ ] = { vertex, place };
         equalCount_ += ( next == known ) & !isHeard< Observer >;
      }
      for ( size_t i = 0; i < count; ++i ) {
         take( vertex, steps[ i ], key, labels, queue, observer );
      }
   }
}

template< typename Labels, typename Queue, typename Observer >
inline void
CspfTreeRun::take( CspfVertex vertex, uint32_t place, typename Labels::Key key, Labels & labels,
                   Queue & queue, Observer & observer ) {
   const CspfArcs::Arc & arc = arcs_.at( place );
   if ( arc.metric > maxPathMetric - Labels::metric( key ) ) {
      observer.tooFar( arcs_.edge( place ) );
      return;
   }
   const typename Labels::Key next = labels.next( key, arc, place );
   const typename Labels::Key known = labels.known( arc.to );
   if ( next < known ) {
      labels.set( arc.to, next );
      push( queue, next, arc.to, { vertex, place } );
      observer.improved( arcs_.edge( place ) );
   } else if ( next == known ) {
      equals_[ equalCount_++ ] = { vertex, place };
      observer.equalCost( arcs_.edge( place ) );
   } else {
      observer.worse( arcs_.edge( place ) );
   }
}

/// A link that was as good as another one when it was found is a last link if none was better.
template< typename Labels >
void
CspfTreeRun::takeLastLinks( const CspfGraph & graph, CspfTree & tree ) {
   for ( size_t i = 0; i < finals_.size(); ++i ) {
      takeStep( tree, tree.reached_[ i ], finals_[ i ] );
   }
   const Labels labels( tree, arcs_ );
   ties_.resize( equalCount_ + 1 );  // one more: each is written before it is judged
   size_t count = 0;
   for ( size_t i = 0; i < equalCount_; ++i ) {
      const auto [ from, place ] = equals_[ i ];
      const CspfArcs::Arc & arc = arcs_.at( place );
      const typename Labels::Key key = labels.known( from );
      ties_[ count ] = { arc.to, arcs_.edge( place ) };
      count += labels.next( key, arc, place ) == labels.known( arc.to )
               && arc.metric <= maxPathMetric - Labels::metric( key );
   }
   tree.makeGroups( graph, { ties_.data(), count }, tieMemory_ );
}

}
