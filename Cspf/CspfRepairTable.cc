// Repairs for one protected link or node, worked out for all destinations at once.
//
// The post-convergence tree holds every shortest path after the failure. LANs are taken out of it
// on the fly: the router before a LAN counts as the predecessor of the router behind it, since
// a LAN is no repair node. Predecessors cost strictly less than their successor, so one pass in
// order of cost meets each router after all that lead to it.
//
// What may surprise: that a label keeps only the fewest repair nodes is exact, not a heuristic. With
// one more node a packet may end a segment at this very router, and no earlier start reaches
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

/// Keeps the candidate with the highest hash under one destination (rendezvous hashing): a
/// candidate that goes moves only the destinations that had chosen it.
template< typename Candidate >
class Choice {
 public:
   explicit Choice( uint64_t destinationKey ) : destinationKey_( destinationKey ) {}
   void offer( uint64_t candidateKey, const Candidate & candidate ) {
      const uint64_t hash = mix( destinationKey_, candidateKey );
      if ( !best_ || hash > bestHash_ ) {
         best_ = candidate;
         bestHash_ = hash;
      }
   }
   const std::optional< Candidate > & best() const { return best_; }

 private:
   uint64_t destinationKey_;
   uint64_t bestHash_ = 0;
   std::optional< Candidate > best_;
};

}

void
CspfRepairTable::readCosts( const CspfGraph & graph, const CspfRepairTrees & trees ) {
   // Over a link to an overloaded router goes only what ends there.
   const bool farEndOverloaded = resource_.isLink && graph.overloaded( resource_.node );
   cost_.resize( graph.vertexBound() );
   for ( uint32_t i = 0; i < graph.vertexBound(); ++i ) {
      const CspfVertex vertex{ i };
      const bool beyond = farEndOverloaded && vertex != resource_.node;
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
   const uint64_t across = uint64_t( from.toResource ) + ( resource_.isLink ? resource_.linkMetric : 0 )
                           + goalFromNode;
   return across > goalPostConvergence - from.postConvergence;
}

void
CspfRepairTable::build( const CspfGraph & graph, const CspfProtectedResource & resource,
                        const CspfRepairTrees & trees ) {
   resource_ = resource;
   neverCrossed_ = graph.overloaded( resource.isLink ? resource.plr : resource.node );
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

std::optional< CspfRepair >
CspfRepairTable::repair( const CspfGraph & graph, const CspfTree & postConvergence,
                         std::span< const Originator > originators, uint64_t destinationKey,
                         const std::function< uint64_t( CspfVertex ) > & key ) const {
   const auto cheapest = [ & ]( uint32_t Costs::*cost ) {
      uint64_t least = unreached;
      for ( const Originator & o : originators ) {
         const uint32_t toRouter = cost_[ index( o.router ) ].*cost;
         if ( toRouter != unreached ) {
            least = std::min( least, uint64_t( toRouter ) + o.metric );
         }
      }
      return static_cast< uint32_t >( std::min< uint64_t >( least, unreached ) );
   };
   const Goal goal{ cheapest( &Costs::postConvergence ), cheapest( &Costs::fromNode ),
                    destinationKey };
   if ( goal.postConvergence == unreached ) {
      return std::nullopt;
   }

   struct LastSegment {
      CspfVertex start;
      bool listed;
   };
   uint8_t fewest = none;
   Choice< LastSegment > choice( destinationKey );
   const auto consider = [ & ]( uint8_t nodes, CspfVertex start, bool listed ) {
      if ( nodes < fewest ) {
         fewest = nodes;
         choice = Choice< LastSegment >( destinationKey );
      }
      if ( nodes == fewest && nodes != none ) {
         choice.offer( key( start ), { start, listed } );
      }
   };
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
         if ( avoids( start, goal.postConvergence, goal.fromNode ) ) {
            consider( label.passing, start, label.passing > 0 );
         }
      }
      consider( label.ending, o.router, true );
   }
   CspfRepair repair;
   if ( !choice.best()
        || !traceBack( graph, postConvergence, goal, choice.best()->start, choice.best()->listed,
                       key, repair ) ) {
      return std::nullopt;
   }
   return repair;
}

bool
CspfRepairTable::traceBack( const CspfGraph & graph, const CspfTree & tree, const Goal & goal,
                            CspfVertex start, bool listed,
                            const std::function< uint64_t( CspfVertex ) > & key,
                            CspfRepair & repair ) const {
   while ( listed ) {
      repair.nodes.push_back( start );
      const Label & label = labels_[ index( start ) ];
      struct Before {
         CspfVertex start;
         bool listed;
      };
      Choice< Before > choice( goal.key );
      if ( label.passing != none && label.passing + 1 == label.ending ) {
         for ( const CspfVertex earlier : starts( start ) ) {
            choice.offer( key( earlier ), { earlier, label.passing > 0 } );
         }
      }
      forEachPredecessor( graph, tree, start, [ & ]( CspfVertex before, CspfEdge ) {
         if ( before != resource_.plr && labels_[ index( before ) ].ending != none
              && labels_[ index( before ) ].ending + 1 == label.ending ) {
            choice.offer( key( before ), { before, true } );
         }
      } );
      if ( !choice.best() ) {
         return false;
      }
      start = choice.best()->start;
      listed = choice.best()->listed;
   }
   std::reverse( repair.nodes.begin(), repair.nodes.end() );
   repair.firstHop = start;
   Choice< CspfEdge > choice( goal.key );
   forEachPredecessor( graph, tree, start, [ & ]( CspfVertex before, CspfEdge link ) {
      if ( before == resource_.plr ) {
         choice.offer( graph.interface( link ), link );
      }
   } );
   repair.firstLink = choice.best().value_or( noEdge );
   return repair.firstLink != noEdge;
}

}
