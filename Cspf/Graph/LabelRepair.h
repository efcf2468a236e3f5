#pragma once

#include "Cspf/Graph/Arcs.h"
#include "Cspf/Graph/TreeRun.h"

#include <algorithm>
#include <compare>
#include <cstdint>
#include <functional>
#include <span>
#include <type_traits>
#include <vector>

namespace Cspf {

// What labels are made of: the metric alone, or, where paths are ranked by SRLGs, the whole cost.

template< class Cost >
inline constexpr Cost cspfUnreached = CspfTree::unreachedMetric;
template<>
inline constexpr CspfCost cspfUnreached< CspfCost > = {
   CspfTree::unreachedMetric, CspfTree::unreachedMetric, CspfTree::unreachedMetric };

inline uint32_t
metricOf( uint32_t cost ) {
   return cost;
}
inline uint32_t
metricOf( const CspfCost & cost ) {
   return cost.metric;
}
inline uint32_t
costSum( uint32_t cost, uint32_t step ) {
   return cost + step;
}
inline CspfCost
costSum( const CspfCost & cost, const CspfCost & step ) {
   return { cost.srlgExclude + step.srlgExclude, cost.srlgInclude + step.srlgInclude,
            cost.metric + step.metric };
}
/// Whether a path of that cost may go on by a step of that one; neither may where it is unreached.
template< class Cost >
bool
mayFollow( const Cost & cost, const Cost & step ) {
   return cost
             != cspfUnreached<
                Cost > && step != cspfUnreached< Cost > && uint64_t{ metricOf( cost ) } + metricOf( step ) <= CspfTreeRun::maxPathMetric;
}

/// Whether a way of the one cost, and a step more, is a way of the other.
template< class Cost >
bool
attains( const Cost & near, const Cost & step, const Cost & far ) {
   return mayFollow( near, step ) && costSum( near, step ) == far;
}

/// What the edge adds where it may be used.
template< class Cost >
Cost
stepPrice( const CspfGraph & graph, const CspfLinkFilter & filter, CspfEdge edge,
           const CspfRunOptions & options ) {
   const uint32_t metric = CspfArcs::stepMetric( graph, edge, options );
   if constexpr ( std::is_same_v< Cost, CspfCost > ) {
      const auto [ excludes, lacks ] = filter.srlgCounts( graph, edge );
      return { excludes, lacks, metric };
   } else {
      return metric;
   }
}

/// Calls `visit` for the vertex, and, where it is a LAN, for the routers on it: their last links
/// are in order of the link by which the LAN is reached. In a reverse tree that hangs on each
/// router of the LAN.
template< typename Visit >
void
forEachJudgedBy( const CspfGraph & graph, CspfVertex vertex, bool reverse, Visit && visit ) {
   visit( vertex );
   if ( !graph.has( vertex ) || ( graph.isRouter( vertex ) && !reverse ) ) {
      return;
   }
   for ( const uint32_t e : graph.out( vertex ) ) {
      const CspfVertex to = graph.to( CspfEdge{ e } );
      if ( graph.isNetwork( vertex ) ) {
         visit( to );
      } else if ( graph.isNetwork( to ) ) {
         forEachJudgedBy( graph, to, false, visit );
      }
   }
}

template< typename Value >
void
sortOnce( std::vector< Value > & values ) {
   std::ranges::sort( values );
   values.erase( std::unique( values.begin(), values.end() ), values.end() );
}

/// Where edges that have changed end, each once: in a reverse tree an edge costs what its reverse
/// does.
inline void
noteHeads( std::span< const CspfEdgeChange > changes, bool reverse,
           std::vector< CspfVertex > & heads ) {
   heads.clear();
   for ( const CspfEdgeChange & change : changes ) {
      heads.push_back( change.to );
      if ( reverse ) {
         heads.push_back( change.from );
      }
   }
   sortOnce( heads );
}

/// Brings the least costs from one root in line with a graph of which some edges have changed, at
/// the price of the vertices whose cost moves. (G. Ramalingam and T. Reps, J. Algorithms 21, 1996.)
///
/// First every label that has lost what it rested on is found, by rising cost; these are worked
/// out of the others, and what became less is spread. A label rests on an edge that attains it.
/// Steps that cost nothing lead from LANs to routers alone, so no labels can rest on each other.
///
/// `Labels` has `get( vertex )`, `set( vertex, cost )` and `step( edge )`; the latter gives what
/// the edge adds, or `none` where it may not be used. `price( edge )` is what it adds where it may.
template< class Cost >
class CspfLabelRepair {
 public:
   static constexpr Cost none = cspfUnreached< Cost >;

   struct Changed {
      CspfVertex vertex;
      Cost before;
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
   /// Calls `visit( vertex, nearOnly )` for what the last run touched, some several times: where
   /// edges that have changed end, the vertices whose label is another one, those to which an edge
   /// from one of these attains the cost, or did, and whose last links are judged by one of them.
   /// `nearOnly`: an edge leads there from a vertex with another label, at a higher cost.
   template< class Labels, class Visit >
   void forEachTouched( const CspfGraph & graph, const Labels & labels,
                        std::span< const CspfVertex > heads, bool reverse, Visit && visit ) const {
      const auto touch = [ & ]( CspfVertex vertex, bool nearOnly ) {
         forEachJudgedBy( graph, vertex, reverse,
                          [ & ]( CspfVertex one ) { visit( one, nearOnly ); } );
      };
      for ( const CspfVertex head : heads ) {
         touch( head, false );
      }
      for ( const Changed & changed : changed_ ) {
         touch( changed.vertex, false );
         const Cost now = labels.get( changed.vertex );
         for ( const uint32_t e : graph.out( changed.vertex ) ) {
            const CspfVertex to = graph.to( CspfEdge{ e } );
            const Cost step = labels.price( CspfEdge{ e } );
            const Cost far = labels.get( to );
            touch( to, !attains( now, step, far ) && !attains( changed.before, step, far ) );
         }
      }
   }

 private:
   struct Entry {
      Cost cost;
      CspfVertex vertex;
      auto operator<=>( const Entry & ) const = default;
   };

   void begin( const CspfGraph & graph ) {
      loose_.resize( graph.vertexBound() );
      noted_.resize( graph.vertexBound() );
      ++epoch_;
      changed_.clear();
      queue_.clear();
   }
   bool isLoose( CspfVertex vertex ) const { return loose_[ index( vertex ) ] == epoch_; }
   void push( const Cost & cost, CspfVertex vertex ) {
      queue_.push_back( { cost, vertex } );
      std::ranges::push_heap( queue_, std::greater<>() );
   }
   Entry pop() {
      std::ranges::pop_heap( queue_, std::greater<>() );
      const Entry entry = queue_.back();
      queue_.pop_back();
      return entry;
   }
   void note( CspfVertex vertex, const Cost & before ) {
      if ( noted_[ index( vertex ) ] != epoch_ ) {
         noted_[ index( vertex ) ] = epoch_;
         changed_.push_back( { vertex, before } );
      }
   }

   /// The least cost that its entering edges give the vertex; `firmOnly`: from labels that have
   /// not lost what they rested on.
   template< class Labels >
   Cost best( const CspfGraph & graph, Labels & labels, CspfVertex vertex, bool firmOnly ) const {
      Cost least = none;
      for ( const uint32_t e : graph.in( vertex ) ) {
         const CspfVertex from = graph.from( CspfEdge{ e } );
         const Cost cost = labels.get( from );
         if ( cost >= least || ( firmOnly && isLoose( from ) ) ) {
            continue;
         }
         const Cost step = labels.step( CspfEdge{ e } );
         if ( mayFollow( cost, step ) ) {
            least = std::min( least, costSum( cost, step ) );
         }
      }
      return least;
   }

   template< class Labels >
   bool loosen( const CspfGraph & graph, Labels & labels, CspfVertex root, size_t most ) {
      while ( !queue_.empty() ) {
         const CspfVertex vertex = pop().vertex;
         const Cost cost = labels.get( vertex );
         if ( isLoose( vertex ) || best( graph, labels, vertex, true ) <= cost ) {
            continue;
         }
         loose_[ index( vertex ) ] = epoch_;
         note( vertex, cost );
         if ( changed_.size() > most ) {
            return false;
         }
         for ( const uint32_t e : graph.out( vertex ) ) {
            const CspfVertex to = graph.to( CspfEdge{ e } );
            const Cost known = labels.get( to );
            if ( to != root && known != none && known >= cost && !isLoose( to ) ) {
               const Cost step = labels.step( CspfEdge{ e } );
               if ( mayFollow( cost, step ) && costSum( cost, step ) == known ) {
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
   void improve( CspfVertex vertex, const Cost & cost, Labels & labels ) {
      if ( const Cost known = labels.get( vertex ); cost < known ) {
         note( vertex, known );
         labels.set( vertex, cost );
         push( cost, vertex );
      }
   }

   template< class Labels >
   bool spread( const CspfGraph & graph, Labels & labels, CspfVertex root, size_t most ) {
      while ( !queue_.empty() ) {
         const Entry entry = pop();
         if ( labels.get( entry.vertex ) != entry.cost ) {
            continue;
         }
         if ( changed_.size() > most ) {
            return false;
         }
         for ( const uint32_t e : graph.out( entry.vertex ) ) {
            const CspfVertex to = graph.to( CspfEdge{ e } );
            if ( to == root || labels.get( to ) <= entry.cost ) {
               continue;
            }
            const Cost step = labels.step( CspfEdge{ e } );
            if ( mayFollow( entry.cost, step ) ) {
               improve( to, costSum( entry.cost, step ), labels );
            }
         }
      }
      return true;
   }

   uint32_t epoch_ = 0;
   std::vector< uint32_t > loose_, noted_;  // by vertex: the epoch in which it was
   std::vector< Changed > changed_;
   std::vector< Cost > bests_;
   std::vector< Entry > queue_;  // a heap
};

}
