// Trees that follow. Costs are repaired as labels are; last links are taken anew where these tell
// that they may be others, and put in order by the rules of a run. The old ones stand by until it
// is known whether they are others, since who reads a tree asks first whether it is the same.

#include "Cspf/Graph/TreeRepair.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <utility>

namespace Cspf {

/// The costs of a tree.
template< class Cost >
struct CspfTreeCosts {
   const CspfGraph & graph;
   const CspfLinkFilter & filter;
   CspfTree & tree;

   Cost get( CspfVertex vertex ) const {
      if constexpr ( std::is_same_v< Cost, CspfCost > ) {
         return tree.cost( vertex );
      } else {
         return tree.metric( vertex );
      }
   }
   void set( CspfVertex vertex, const Cost & cost ) {
      tree.metrics_[ index( vertex ) ] = metricOf( cost );
      if constexpr ( std::is_same_v< Cost, CspfCost > ) {
         tree.counts_[ index( vertex ) ] = uint64_t{ cost.srlgExclude } << 32 | cost.srlgInclude;
      }
   }
   Cost price( CspfEdge edge ) const {
      return stepPrice< Cost >( graph, filter, edge, tree.options() );
   }
   Cost step( CspfEdge edge ) const {
      return CspfArcs::refusal( graph, filter, edge, tree.options() ) == CspfRefusal::none
                ? price( edge )
                : cspfUnreached< Cost >;
   }
};

namespace {

/// Whether a last link runs from one to the other, or is not what it was.
bool
isReshaped( const CspfGraph & graph, const CspfTree & tree, CspfVertex from, CspfVertex to ) {
   return std::ranges::any_of( tree.lastLinks( to ), [ & ]( CspfEdge last ) {
      return !graph.has( last ) || graph.to( last ) != to || graph.from( last ) == from;
   } );
}

/// An edge is told where it is by the addresses of both directions.
bool
isReshaped( const CspfGraph & graph, const CspfTree & tree,
            std::span< const CspfEdgeChange > changes ) {
   return std::ranges::any_of( changes, [ & ]( const CspfEdgeChange & change ) {
      return isReshaped( graph, tree, change.from, change.to )
             || isReshaped( graph, tree, change.to, change.from );
   } );
}

}

bool
CspfTreeRepair::follow( const CspfGraph & graph, const CspfLinkFilter & filter,
                        std::span< const CspfEdgeChange > changes, bool reshaped,
                        CspfTree & tree ) {
   LUM_ASSERT( !tree.options().singleHop );
   const std::size_t groups = tree.groups_.size();
   if ( groups > graph.vertexBound() + graph.edgeBound() / 2 ) {  // a run makes no more
      return false;
   }
   const bool isSame = !reshaped || !isReshaped( graph, tree, changes );
   noteHeads( changes, tree.options().reverse, heads_ );
   if ( !( filter.countsSrlgs() ? moveCosts< CspfCost >( graph, filter, tree )
                                : moveCosts< uint32_t >( graph, filter, tree ) ) ) {
      tree.metrics_.clear();  // so that the next run begins with all of them
      return false;
   }
   tree.makeGroups( graph, ties_, tieMemory_ );
   tree.graphVersion_ = graph.version();
   if ( !keepLastLinks( tree, groups ) || moved_ || !isSame ) {
      tree.serial_ = CspfTree::nextSerial();
   }
   return true;
}

template< class Cost >
bool
CspfTreeRepair::moveCosts( const CspfGraph & graph, const CspfLinkFilter & filter,
                           CspfTree & tree ) {
   CspfTreeCosts< Cost > costs{ graph, filter, tree };
   auto & repair = std::get< CspfLabelRepair< Cost > >( repairs_ );
   if ( !repair.run( graph, costs, tree.source(), heads_, graph.vertexBound() / 4 ) ) {
      return false;
   }
   moved_ = false;
   for ( const auto & [ vertex, before ] : repair.changed() ) {
      moved_ |= costs.get( vertex ) != before;
      if ( before == repair.none && tree.reached( vertex ) ) {
         tree.reached_.push_back( vertex );
      }
   }
   if ( moved_ ) {
      std::erase_if( tree.reached_,
                     [ & ]( CspfVertex vertex ) { return !tree.reached( vertex ); } );
   }
   touched_.clear();
   repair.forEachTouched( graph, costs, heads_, tree.options().reverse,
                          [ & ]( CspfVertex vertex, bool nearOnly ) {
                             if ( !nearOnly ) {
                                touched_.push_back( vertex );
                             }
                          } );
   sortOnce( touched_ );
   before_.clear();
   ties_.clear();
   for ( const CspfVertex vertex : touched_ ) {
      takeLastLinks( costs, vertex );
   }
   return true;
}

/// The first one, and the others as its ties.
template< class Cost >
void
CspfTreeRepair::takeLastLinks( const CspfTreeCosts< Cost > & costs, CspfVertex vertex ) {
   const auto & [ graph, filter, tree ] = costs;
   CspfTree::Last & last = tree.lasts_[ index( vertex ) ];
   before_.push_back( std::exchange( last, {} ) );
   if ( vertex == tree.source() || !tree.reached( vertex ) ) {
      return;
   }
   for ( const uint32_t e : graph.in( vertex ) ) {
      const CspfEdge edge{ e };
      const CspfVertex from = graph.from( edge );
      if ( !attains( costs.get( from ), costs.price( edge ), costs.get( vertex ) )
           || costs.step( edge ) == cspfUnreached< Cost > ) {
         continue;
      }
      if ( last.edge == noEdge ) {
         last = { edge, from };
      } else {
         ties_.push_back( { vertex, edge } );
      }
   }
}

/// Puts those groups back that are the same. Whether all last links are.
bool
CspfTreeRepair::keepLastLinks( CspfTree & tree, std::size_t groups ) const {
   bool areSame = true;
   for ( std::size_t i = 0; i < touched_.size(); ++i ) {
      CspfTree::Last & last = tree.lasts_[ index( touched_[ i ] ) ];
      if ( !std::ranges::equal( tree.links( before_[ i ] ), tree.links( last ) ) ) {
         areSame = false;
      } else if ( index( last.edge ) & CspfTree::groupBit ) {
         last = before_[ i ];
      }
   }
   if ( areSame ) {
      tree.groups_.resize( groups );
   }
   return areSame;
}

}
