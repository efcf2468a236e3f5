// Repairs for one protected link or node, worked out for all destinations at once.
//
// The post-convergence tree holds every shortest path after the failure. LANs are taken out of it
// on the fly: the router before a LAN counts as the predecessor of the router behind it, since
// a LAN is no repair node. Predecessors cost strictly less than their successor, so one pass in
// order of cost meets each router after all that lead to it.
//
// What may surprise: that a label keeps only the fewest repair nodes is exact, not a heuristic.
// With one more node a packet may end a segment at this very router, and no earlier start reaches
// farther than a later one. The destination of a repair may itself be its last repair node,
// where only the link into it avoids the resource.

#include "Cspf/CspfRepairTable.h"

#include <algorithm>

namespace Cspf {

namespace {

/// Calls `visit( predecessor, link )` for each router before `router` on the paths of the tree,
/// `link` being the one by which the predecessor is left.
template< typename Visit >
void
forEachPredecessor( const CspfGraph & graph, const CspfTree & tree, CspfVertex router,
                    Visit && visit ) {
   for ( const CspfEdge edge : tree.lastLinks( router ) ) {
      const CspfVertex from = graph.from( edge );
      if ( graph.isRouter( from ) ) {
         visit( from, edge );
         continue;
      }
      for ( const CspfEdge intoNetwork : tree.lastLinks( from ) ) {
         visit( graph.from( intoNetwork ), intoNetwork );
      }
   }
}

uint64_t
mix( uint64_t a, uint64_t b ) {
   uint64_t x = a * 0x9e3779b97f4a7c15u ^ ( b + 0xd6e8feb86659fd93u );
   x ^= x >> 31;
   x *= 0xbf58476d1ce4e5b9u;
   return x ^ x >> 29;
}

/// Keeps the candidate with the fewest repair nodes, and among these the one with the highest hash
/// under one destination (rendezvous hashing): a candidate that goes moves only the destinations
/// that had chosen it.
template< typename Candidate >
class Choice {
 public:
   explicit Choice( uint64_t destinationKey ) : destinationKey_( destinationKey ) {}

   void offer( uint8_t nodes, uint64_t candidateKey, const Candidate & candidate ) {
      const uint64_t hash = mix( destinationKey_, candidateKey );
      if ( !made_ || nodes < nodes_ || ( nodes == nodes_ && hash > hash_ ) ) {
         best_ = candidate;
         nodes_ = nodes;
         hash_ = hash;
         made_ = true;
      }
   }
   bool made() const { return made_; }
   const Candidate & best() const { return best_; }

 private:
   const uint64_t destinationKey_;
   Candidate best_{};
   uint8_t nodes_ = 0;
   uint64_t hash_ = 0;
   bool made_ = false;
};

}

void
CspfRepairTable::readCosts( const CspfGraph & graph, const CspfRepairTrees & trees ) {
   // Across an overloaded node goes only what ends there.
   const bool nodeOverloaded = graph.overloaded( resource_.node );
   cost_.resize( graph.vertexBound() );
   for ( uint32_t i = 0; i < graph.vertexBound(); ++i ) {
      const CspfVertex vertex{ i };
      const bool beyond = nodeOverloaded && vertex != resource_.node;
      cost_[ i ] = { trees.postConvergence.metric( vertex ),
                     beyond ? unreached : trees.fromNode.metric( vertex ),
                     trees.toResource.metric( vertex ) };
   }
}

bool
CspfRepairTable::avoids( CspfVertex u, uint32_t goalPostConvergence, uint32_t goalFromNode ) const {
   const Costs & from = cost_[ index( u ) ];
   if ( neverCrossed_ || from.toResource == unreached || goalFromNode == unreached ) {
      return true;
   }
   const uint64_t across =
      uint64_t( from.toResource ) + ( resource_.isLink ? resource_.plrToNode : 0 ) + goalFromNode;
   return across > goalPostConvergence - from.postConvergence;
}

void
CspfRepairTable::build( const CspfGraph & graph, const CspfProtectedResource & resource,
                        const CspfRepairTrees & trees ) {
   resource_ = resource;
   neverCrossed_ = resource.isLink && graph.overloaded( resource.plr );
   readCosts( graph, trees );
   labels_.assign( graph.vertexBound(), Label() );
   starts_.clear();
   for ( const CspfVertex vertex : trees.postConvergence.reachedVertices() ) {
      if ( graph.isRouter( vertex ) && vertex != resource.plr ) {
         label( graph, trees.postConvergence, vertex );
      }
   }
}

void
CspfRepairTable::offer( uint8_t nodes, CspfVertex start, uint8_t & best ) {
   if ( nodes > best ) {
      return;
   }
   if ( nodes < best ) {
      best = nodes;
      offered_.clear();
   }
   if ( std::find( offered_.begin(), offered_.end(), start ) == offered_.end() ) {
      offered_.push_back( start );
   }
}

void
CspfRepairTable::label( const CspfGraph & graph, const CspfTree & tree, CspfVertex router ) {
   Label result;
   offered_.clear();
   forEachPredecessor( graph, tree, router, [ & ]( CspfVertex before, CspfEdge ) {
      if ( before == resource_.plr ) {
         offer( 0, router, result.passing );
         return;
      }
      const Label & label = labels_[ index( before ) ];
      for ( const CspfVertex start : starts( before ) ) {
         if ( avoidsResource( start, router ) ) {
            offer( label.passing, start, result.passing );
         }
      }
      if ( label.ending == none ) {
         return;
      }
      if ( avoidsResource( before, router ) ) {
         offer( label.ending, before, result.passing );
      }
      if ( label.ending < maxNodes ) {
         result.ending = std::min< uint8_t >( result.ending, label.ending + 1 );
      }
   } );
   if ( result.passing < maxNodes ) {
      result.ending = std::min< uint8_t >( result.ending, result.passing + 1 );
   }
   result.firstStart = static_cast< uint32_t >( starts_.size() );
   result.starts = static_cast< uint32_t >( offered_.size() );
   starts_.insert( starts_.end(), offered_.begin(), offered_.end() );
   labels_[ index( router ) ] = result;
}

CspfRepairTable::Goal
CspfRepairTable::goalOf( std::span< const Originator > originators,
                         uint64_t destinationKey ) const {
   const auto cheapest = [ & ]( uint32_t Costs::*cost ) {
      uint64_t least = unreached;
      for ( const Originator & o : originators ) {
         const uint32_t toRouter = cost_[ index( o.router ) ].*cost;
         if ( toRouter != unreached ) {
            least = std::min( least, uint64_t( toRouter ) + o.metric );
         }
      }
      return static_cast< uint32_t >( least );
   };
   return { cheapest( &Costs::postConvergence ), cheapest( &Costs::fromNode ), destinationKey };
}

std::optional< CspfRepair >
CspfRepairTable::repair( const CspfGraph & graph, const CspfTree & postConvergence,
                         std::span< const Originator > originators, uint64_t destinationKey,
                         const RouterKey & key ) const {
   const Goal goal = goalOf( originators, destinationKey );
   Choice< Segment > last( destinationKey );
   for ( const Originator & o : originators ) {
      const uint32_t toRouter = cost_[ index( o.router ) ].postConvergence;
      if ( toRouter == unreached || uint64_t( toRouter ) + o.metric != goal.postConvergence ) {
         continue;
      }
      if ( o.router == resource_.plr ) {
         return std::nullopt;
      }
      const Label & label = labels_[ index( o.router ) ];
      for ( const CspfVertex start : starts( o.router ) ) {
         if ( start == o.router || avoids( start, goal.postConvergence, goal.fromNode ) ) {
            last.offer( label.passing, key( start ), { start, label.passing > 0 } );
         }
      }
      if ( label.ending != none ) {
         last.offer( label.ending, key( o.router ), { o.router, true } );
      }
   }
   if ( !last.made() ) {
      return std::nullopt;
   }
   return traceBack( graph, postConvergence, goal, last.best(), key );
}

CspfRepair
CspfRepairTable::traceBack( const CspfGraph & graph, const CspfTree & tree, const Goal & goal,
                            Segment segment, const RouterKey & key ) const {
   CspfRepair repair;
   while ( segment.listed ) {
      repair.nodes.push_back( segment.start );
      segment = segmentBefore( graph, tree, goal, segment.start, key );
   }
   std::reverse( repair.nodes.begin(), repair.nodes.end() );
   repair.firstHop = segment.start;
   Choice< CspfEdge > link( goal.key );
   forEachPredecessor( graph, tree, segment.start, [ & ]( CspfVertex before, CspfEdge edge ) {
      if ( before == resource_.plr ) {
         link.offer( 0, graph.interface( edge ), edge );
      }
   } );
   repair.firstLink = link.best();
   return repair;
}

CspfRepairTable::Segment
CspfRepairTable::segmentBefore( const CspfGraph & graph, const CspfTree & tree, const Goal & goal,
                                CspfVertex node, const RouterKey & key ) const {
   const Label & label = labels_[ index( node ) ];
   Choice< Segment > before( goal.key );
   if ( label.passing != none && label.passing + 1 == label.ending ) {
      for ( const CspfVertex start : starts( node ) ) {
         before.offer( 0, key( start ), { start, label.passing > 0 } );
      }
   }
   forEachPredecessor( graph, tree, node, [ & ]( CspfVertex neighbor, CspfEdge ) {
      const Label & ofNeighbor = labels_[ index( neighbor ) ];
      if ( ofNeighbor.ending != none && ofNeighbor.ending + 1 == label.ending ) {
         before.offer( 0, key( neighbor ), { neighbor, true } );
      }
   } );
   return before.best();
}

}
