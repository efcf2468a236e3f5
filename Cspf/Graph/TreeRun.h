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

   /// Places of arcs that leave one vertex, side by side.
   struct Row {
      uint32_t begin = 0, end = 0;
   };

   /// What is noted of the tree under way.
   struct Notes {
      struct Final {
         CspfVertex vertex;
         uint32_t number;
      };
      void begin( size_t vertices, size_t arcs ) {
         steps.resize( arcs + 1 );
         finals.resize( vertices );
         equals.resize( arcs + 1 );  // one more: each is written before it is judged
         stepCount = finalCount = 0;
         equalCount = 0;
      }
      std::vector< Step > steps;  // each that was pushed, by the number that the queue knows it by
      std::vector< Final > finals;  // those by which vertices became final, in that order
      // Arcs that gave their far end the cost that it had when they were looked at.
      std::vector< Step > equals;
      uint32_t stepCount = 0, finalCount = 0;
      size_t equalCount = 0;
   };

   /// An entry of the queue as it is taken.
   template< typename Key >
   struct Taken {
      Key key{};
      Key cspfLinkInfoKey() const { return key; }
      Key cost() const { return key; }
   };

   template< typename Labels, typename Queue, typename Observer >
   void start( const CspfGraph & graph, CspfTree & tree, Queue & queue, Observer & observer );
   template< typename Observer >
   void goOn( const CspfGraph & graph, CspfTree & tree, Observer & observer );
   template< typename Labels, typename Queue, typename Observer >
   void walk( const CspfGraph & graph, CspfTree & tree, Queue & memory, Observer & observer );
   template< typename Labels, typename Queue, typename Observer >
   void relax( CspfVertex vertex, Row row, typename Labels::Key key, Labels & labels, Queue & queue,
               Notes & notes, Observer & observer );
   template< typename Labels, typename Queue, typename Observer >
   void take( CspfVertex vertex, uint32_t place, typename Labels::Key key, Labels & labels,
              Queue & queue, Notes & notes, Observer & observer );

   template< typename Observer >
   static constexpr bool isHeard =
      !std::is_same_v< std::remove_cvref_t< Observer >, CspfNoObserver >;
   static bool isExpanded( const CspfGraph & graph, const CspfTree & tree, CspfVertex vertex ) {
      return !tree.options_.singleHop || vertex == tree.source() || !graph.isRouter( vertex );
   }
   template< typename Key, typename Queue >
   static void push( Queue & queue, Notes & notes, Key key, CspfVertex vertex, const Step & step ) {
      notes.steps[ notes.stepCount ] = step;
      queue.push( key, vertex, notes.stepCount++ );
   }
   void takeStep( CspfTree & tree, CspfVertex vertex, const Step & step ) const {
      const auto [ from, place ] = step;
      if ( from != noVertex ) {
         tree.lasts_[ index( vertex ) ] = { arcs_.edge( place ), from };
      }
   }
   template< typename Labels >
   void takeLastLinks( const CspfGraph & graph, CspfTree & tree );

   CspfArcs arcs_;
   CspfBucketQueue<> buckets_;
   CspfWideBucketQueue wideBuckets_;
   CspfRadixHeap< CspfMetricKey > heap_;
   CspfSrlgQueue< CspfSrlgKey > srlgQueue_;
   CspfSrlgQueue< CspfPackedKey > packedQueue_;
   Notes notes_;
   std::vector< Row > apartRows_;  // by vertex, of arcs that stand apart; while these are walked
   std::vector< CspfTree::Tie > ties_;
   size_t tieCount_ = 0;
   CspfTree::TieMemory tieMemory_;
};

template< typename Observer >
void
CspfTreeRun::run( const CspfGraph & graph, const CspfLinkFilter & filter,
                  const CspfRunOptions & options, CspfTree & tree, Observer && observer ) {
   LUM_ASSERT( graph.has( options.source ) );
   // Who hears is told of a vertex's arcs together. Where SRLGs are to be included nearly all
   // count.
   arcs_.build( graph, filter, options,
                isHeard< Observer >                          ? CspfCountedArcs::inRows
                : !filter.constraint().includedSrlgs.empty() ? CspfCountedArcs::packedInRows
                                                             : CspfCountedArcs::apart );
   tree.begin( graph, options, arcs_.countsSrlgs() );
   notes_.begin( graph.vertexBound(), arcs_.size() );
   tieCount_ = 0;
   if ( arcs_.packsCounts() ) {
      packedQueue_.begin( arcs_.metricBits(), arcs_.size() );
      start< PackedLabels >( graph, tree, packedQueue_, observer );
      for ( const CspfVertex vertex : tree.reached_ ) {
         uint64_t & counts = tree.counts_[ index( vertex ) ];
         counts = arcs_.unpacked( static_cast< uint32_t >( counts >> 32 ) );
      }
   } else if ( arcs_.countsSrlgs() && arcs_.counted() != CspfCountedArcs::apart ) {
      srlgQueue_.begin( arcs_.metricBits(), arcs_.size() );
      start< SrlgLabels >( graph, tree, srlgQueue_, observer );
   } else if ( arcs_.metricBits() <= CspfBucketQueue<>::largestStepAllowed ) {
      buckets_.begin( arcs_.metricBits(), arcs_.size() );
      start< MetricLabels >( graph, tree, buckets_, observer );
   } else if constexpr ( isHeard< Observer > ) {  // in the order in which traces tell equal costs
      heap_.begin();
      start< MetricLabels >( graph, tree, heap_, observer );
   } else {
      wideBuckets_.begin( arcs_.size() );
      start< MetricLabels >( graph, tree, wideBuckets_, observer );
   }
   if ( arcs_.countsSrlgs() && arcs_.counted() == CspfCountedArcs::apart ) {
      goOn( graph, tree, observer );
   }
   tree.makeGroups( graph, { ties_.data(), tieCount_ }, tieMemory_ );
}

template< typename Labels, typename Queue, typename Observer >
void
CspfTreeRun::start( const CspfGraph & graph, CspfTree & tree, Queue & queue, Observer & observer ) {
   Labels( tree, arcs_ ).set( tree.source(), {} );
   push( queue, notes_, typename Labels::Key{}, tree.source(), { noVertex, 0 } );
   walk< Labels >( graph, tree, queue, observer );
}

/// From the vertices that paths without any counted arc lead to, to those that only others do.
template< typename Observer >
void
CspfTreeRun::goOn( const CspfGraph & graph, CspfTree & tree, Observer & observer ) {
   for ( const CspfVertex vertex : tree.reached_ ) {
      tree.counts_[ index( vertex ) ] = 0;
   }
   SrlgLabels labels( tree, arcs_ );
   notes_.begin( graph.vertexBound(), arcs_.size() );
   srlgQueue_.begin( arcs_.metricBits(), arcs_.size() );
   for ( uint32_t place = arcs_.apartBegin(); place != arcs_.apartEnd(); ++place ) {
      const CspfVertex from = graph.from( arcs_.edge( place ) );
      const CspfSrlgKey key = labels.known( from );
      if ( key.counts == 0 && isExpanded( graph, tree, from ) ) {
         take( from, place, key, labels, srlgQueue_, notes_, observer );
      }
   }
   if ( srlgQueue_.isEmpty() ) {
      return;
   }
   apartRows_.assign( graph.vertexBound(), {} );
   for ( uint32_t place = arcs_.apartBegin(); place != arcs_.apartEnd(); ++place ) {
      Row & row = apartRows_[ index( graph.from( arcs_.edge( place ) ) ) ];
      row = { row.begin == row.end ? place : row.begin, place + 1 };
   }
   walk< SrlgLabels >( graph, tree, srlgQueue_, observer );
   apartRows_.clear();
}

template< typename Labels, typename Queue, typename Observer >
void
CspfTreeRun::walk( const CspfGraph & graph, CspfTree & tree, Queue & memory, Observer & observer ) {
   Queue queue = std::move( memory );  // locals' fields can stay in registers
   Notes notes = std::move( notes_ );
   Labels labels( tree, arcs_ );
   Taken< typename Labels::Key > lastLink;
   while ( !queue.isEmpty() ) {
      const auto [ key, vertex, number ] = queue.pop();
      if ( const CspfVertex next = queue.expected(); next != noVertex ) {
         arcs_.fetch( next );
      }
      const Taken< typename Labels::Key > linkInfo{ key };
      const typename Labels::Key shortestPathCost = labels.known( vertex );
      LUM_ASSERT( lastLink.cspfLinkInfoKey() <= linkInfo.cspfLinkInfoKey() );
      LUM_ASSERT( shortestPathCost <= linkInfo.cost() );
      lastLink = linkInfo;
      if ( shortestPathCost != key ) {
         continue;  // reached at less cost since this entry was queued
      }
      notes.finals[ notes.finalCount++ ] = { vertex, number };
      if constexpr ( isHeard< Observer > ) {
         takeStep( tree, vertex, notes.steps[ number ] );
      }
      observer.madeFinal( vertex );
      if ( isExpanded( graph, tree, vertex ) ) {
         relax( vertex, { arcs_.begin( vertex ), arcs_.end( vertex ) }, key, labels, queue, notes,
                observer );
         if ( std::is_same_v< Labels, SrlgLabels > && !apartRows_.empty() ) {
            relax( vertex, apartRows_[ index( vertex ) ], key, labels, queue, notes, observer );
         }
      }
   }
   notes_ = std::move( notes );
   memory = std::move( queue );
   takeLastLinks< Labels >( graph, tree );
}

template< typename Labels, typename Queue, typename Observer >
inline void
CspfTreeRun::relax( CspfVertex vertex, Row row, typename Labels::Key key, Labels & labels,
                    Queue & queue, Notes & notes, Observer & observer ) {
   // First all arcs are judged without a branch, then the few that matter are taken: which ones
   // they are cannot be predicted, and a wrong guess costs more than the judgement of a block.
   constexpr uint32_t block = 64;
   uint32_t steps[ block ];
   for ( uint32_t place = row.begin; place != row.end; ) {
      const uint32_t blockEnd = std::min( row.end, place + block );
      size_t count = 0;
      for ( ; place != blockEnd; ++place ) {
         const CspfArcs::Arc & arc = arcs_.at( place );
         const typename Labels::Key next = labels.next( key, arc, place ),
                                    known = labels.known( arc.to );
         steps[ count ] = place;
         count += Labels::below( next, known ) | isHeard< Observer >;
         notes.equals[ notes.equalCount ] = { vertex, place };
         notes.equalCount += ( next == known ) & !isHeard< Observer >;
      }
      for ( size_t i = 0; i < count; ++i ) {
         take( vertex, steps[ i ], key, labels, queue, notes, observer );
      }
   }
}

template< typename Labels, typename Queue, typename Observer >
inline void
CspfTreeRun::take( CspfVertex vertex, uint32_t place, typename Labels::Key key, Labels & labels,
                   Queue & queue, Notes & notes, Observer & observer ) {
   const CspfArcs::Arc & arc = arcs_.at( place );
   if ( arc.metric > maxPathMetric - Labels::metric( key ) ) {
      observer.tooFar( arcs_.edge( place ) );
      return;
   }
   const typename Labels::Key next = labels.next( key, arc, place );
   const typename Labels::Key known = labels.known( arc.to );
   if ( next < known ) {
      labels.set( arc.to, next );
      push( queue, notes, next, arc.to, { vertex, place } );
      observer.improved( arcs_.edge( place ) );
   } else if ( next == known ) {
      notes.equals[ notes.equalCount++ ] = { vertex, place };
      observer.equalCost( arcs_.edge( place ) );
   } else {
      observer.worse( arcs_.edge( place ) );
   }
}

/// A link that was as good as another one when it was found is a last link if none was better.
template< typename Labels >
void
CspfTreeRun::takeLastLinks( const CspfGraph & graph, CspfTree & tree ) {
   for ( size_t i = 0; i < notes_.finalCount; ++i ) {
      const auto [ vertex, number ] = notes_.finals[ i ];
      tree.reached_.push_back( vertex );
      takeStep( tree, vertex, notes_.steps[ number ] );
   }
   const Labels labels( tree, arcs_ );
   // One more: each is written before it is judged.
   ties_.resize( tieCount_ + notes_.equalCount + 1 );
   size_t count = tieCount_;
   for ( size_t i = 0; i < notes_.equalCount; ++i ) {
      const auto [ from, place ] = notes_.equals[ i ];
      const CspfArcs::Arc & arc = arcs_.at( place );
      const typename Labels::Key key = labels.known( from );
      ties_[ count ] = { arc.to, arcs_.edge( place ) };
      graph.fetchRank( arcs_.edge( place ) );
      count += labels.next( key, arc, place ) == labels.known( arc.to )
               && arc.metric <= maxPathMetric - Labels::metric( key );
   }
   tieCount_ = count;
}

}
