#pragma once

#include "Cspf/Graph/Arcs.h"
#include "Cspf/Graph/TreeRun.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace Cspf {

/// Brings the least metrics from one root in line with a graph of which some edges have changed, at
/// the cost of the vertices whose metric moves. (G. Ramalingam and T. Reps, J. Algorithms 21,
/// 1996.)
///
/// First every label that has lost what it rested on is found, by rising metric; these are worked
/// out of the others, and what became less is spread. A label rests on an edge that attains it.
/// Steps that cost nothing lead from LANs to routers alone, so no labels can rest on each other.
///
/// `Labels` has `get( vertex )`, `set( vertex, metric )` and `step( edge )`; the latter gives what
/// the edge adds, or `none` where it may not be used.
class CspfLabelRepair {
 public:
   static constexpr uint32_t none = CspfTree::unreachedMetric;

   struct Changed {
      CspfVertex vertex;
      uint32_t before;
   };

   /// `heads`: where edges that have changed end. False where more than `most` vertices are
   /// concerned; the labels are void then. O(edges of the vertices concerned), and the queue.
   template< class Labels >
   bool run( const CspfGraph & graph, Labels & labels, CspfVertex root,
             std::span< const CspfVertex > heads, size_t most ) {
      begin( graph );
      for ( const CspfVertex head : heads ) {
         if ( head != root && graph.has( head ) && labels.get( head ) != none ) {
            push( labels.get( head ), head );
         }
      }
      if ( !loosen( graph, labels, root, most ) ) {
         return false;
      }
      resettle( graph, labels );
      for ( const CspfVertex head : heads ) {
         if ( head != root && graph.has( head ) ) {
            improve( head, best( graph, labels, head, false ), labels );
         }
      }
      return spread( graph, labels, root, most );
   }

   /// The vertices whose label is another one, or was worked out anew.
   const std::vector< Changed > & changed() const { return changed_; }

 private:
   void begin( const CspfGraph & graph ) {
      loose_.resize( graph.vertexBound() );
      noted_.resize( graph.vertexBound() );
      ++epoch_;
      changed_.clear();
      queue_.clear();
   }
   bool isLoose( CspfVertex vertex ) const { return loose_[ index( vertex ) ] == epoch_; }
   void push( uint32_t metric, CspfVertex vertex ) {
      queue_.push_back( uint64_t{ metric } << 32 | index( vertex ) );
      std::ranges::push_heap( queue_, std::greater<>() );
   }
   uint64_t pop() {
      std::ranges::pop_heap( queue_, std::greater<>() );
      const uint64_t entry = queue_.back();
      queue_.pop_back();
      return entry;
   }
   void note( CspfVertex vertex, uint32_t before ) {
      if ( noted_[ index( vertex ) ] != epoch_ ) {
         noted_[ index( vertex ) ] = epoch_;
         changed_.push_back( { vertex, before } );
      }
   }

   /// The least metric that its entering edges give the vertex; `firmOnly`: from labels that have
   /// not lost what they rested on.
   template< class Labels >
   uint32_t best( const CspfGraph & graph, Labels & labels, CspfVertex vertex,
                  bool firmOnly ) const {
      uint64_t least = none;
      for ( const uint32_t e : graph.in( vertex ) ) {
         const CspfVertex from = graph.from( CspfEdge{ e } );
         const uint32_t metric = labels.get( from );
         if ( metric >= least || ( firmOnly && isLoose( from ) ) ) {
            continue;
         }
         const uint32_t step = labels.step( CspfEdge{ e } );
         if ( step != none && uint64_t{ metric } + step <= CspfTreeRun::maxPathMetric ) {
            least = std::min( least, uint64_t{ metric } + step );
         }
      }
      return static_cast< uint32_t >( least );
   }

   template< class Labels >
   bool loosen( const CspfGraph & graph, Labels & labels, CspfVertex root, size_t most ) {
      while ( !queue_.empty() ) {
         const CspfVertex vertex{ static_cast< uint32_t >( pop() ) };
         const uint32_t metric = labels.get( vertex );
         if ( isLoose( vertex ) || best( graph, labels, vertex, true ) <= metric ) {
            continue;
         }
         loose_[ index( vertex ) ] = epoch_;
         note( vertex, metric );
         if ( changed_.size() > most ) {
            return false;
         }
         for ( const uint32_t e : graph.out( vertex ) ) {
            const CspfVertex to = graph.to( CspfEdge{ e } );
            const uint32_t known = labels.get( to );
            if ( to != root && known != none && known >= metric && !isLoose( to ) ) {
               const uint32_t step = labels.step( CspfEdge{ e } );
               if ( step != none && uint64_t{ metric } + step == known ) {
                  push( known, to );
               }
            }
         }
      }
      return true;
   }

   /// Gives the loose ones what the others give them.
   template< class Labels >
   void resettle( const CspfGraph & graph, Labels & labels ) {
      bests_.clear();
      for ( const Changed & one : changed_ ) {
         bests_.push_back( best( graph, labels, one.vertex, true ) );
      }
      for ( size_t i = 0; i < changed_.size(); ++i ) {
         labels.set( changed_[ i ].vertex, bests_[ i ] );
         if ( bests_[ i ] != none ) {
            push( bests_[ i ], changed_[ i ].vertex );
         }
      }
   }

   template< class Labels >
   void improve( CspfVertex vertex, uint32_t metric, Labels & labels ) {
      if ( const uint32_t known = labels.get( vertex ); metric < known ) {
         note( vertex, known );
         labels.set( vertex, metric );
         push( metric, vertex );
      }
   }

   template< class Labels >
   bool spread( const CspfGraph & graph, Labels & labels, CspfVertex root, size_t most ) {
      while ( !queue_.empty() ) {
         const uint64_t entry = pop();
         const CspfVertex vertex{ static_cast< uint32_t >( entry ) };
         const auto metric = static_cast< uint32_t >( entry >> 32 );
         if ( labels.get( vertex ) != metric ) {
            continue;
         }
         if ( changed_.size() > most ) {
            return false;
         }
         for ( const uint32_t e : graph.out( vertex ) ) {
            const CspfVertex to = graph.to( CspfEdge{ e } );
            if ( to == root || labels.get( to ) <= metric ) {
               continue;
            }
            const uint32_t step = labels.step( CspfEdge{ e } );
            const uint64_t next = uint64_t{ metric } + step;
            if ( step != none && next <= CspfTreeRun::maxPathMetric ) {
               improve( to, static_cast< uint32_t >( next ), labels );
            }
         }
      }
      return true;
   }

   uint32_t epoch_ = 0;
   std::vector< uint32_t > loose_, noted_;  // by vertex: the epoch in which it was
   std::vector< Changed > changed_;
   std::vector< uint32_t > bests_;
   std::vector< uint64_t > queue_;  // a heap: metric above, vertex below
};

}
