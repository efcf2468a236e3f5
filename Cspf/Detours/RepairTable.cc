// Repairs for one protected link or node, worked out for all destinations at once.
//
// The post-convergence tree holds every shortest path after the failure. LANs are taken out of it
// on the fly: the router before a LAN counts as the predecessor of the router behind it, since
// a LAN is no repair node. Predecessors cost strictly less than their successor, so that a router
// can be labelled after all that lead to it.
//
// What may surprise: that a label keeps only the fewest repair nodes is exact, not a heuristic, as
// long as each first hop has a label of its own. With one more node a packet may end a segment at
// this very router, and no earlier start reaches farther than a later one. The destination of a
// repair may itself be its last repair node, where only the link into it avoids the resource.

#include "Cspf/Detours/RepairTable.h"

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

}

/// What one destination chooses among equals: what has the highest hash under its key (rendezvous
/// hashing: a candidate that goes moves only the destinations that had chosen it).
class CspfRepairTable::Chooser {
 public:
   Chooser( const CspfRepairTable & table, const Query & query )
      : table_( table ),
        graph_( table.graph_ ),
        tree_( table.trees_.postConvergence ),
        query_( query ) {}

   uint64_t preference( CspfVertex router ) const {
      return mix( query_.destinationKey, query_.key( router ) );
   }

   /// The repair by `firstHop` whose last segment, after `nodes` repair nodes, begins at `start`.
   CspfRepair traceBack( CspfVertex firstHop, CspfVertex start, uint8_t nodes ) const {
      CspfRepair repair{ firstHop, firstLinks( firstHop ), {} };
      repair.segments.resize( nodes );
      for ( ; nodes > 0; --nodes ) {
         const CspfVertex before = startBefore( firstHop, start );
         repair.segments[ nodes - 1u ] =
            nodes > 1 ? segment( before, start ) : CspfRepairSegment{ start };
         start = before;
      }
      return repair;
   }

 private:
   /// Where the segment begins that leads to the repair node.
   CspfVertex startBefore( CspfVertex firstHop, CspfVertex node ) const {
      const Label & label = table_.label( node, firstHop );
      CspfVertex best = noVertex;
      const auto offer = [ & ]( CspfVertex start ) {
         best = best == noVertex || preference( start ) > preference( best ) ? start : best;
      };
      if ( label.passing + 1 == label.ending ) {
         std::ranges::for_each( table_.starts( label ), offer );
      }
      forEachPredecessor( graph_, tree_, node, [ & ]( CspfVertex before, CspfEdge ) {
         if ( table_.label( before, firstHop ).ending + 1 == label.ending ) {
            offer( before );
         }
      } );
      return best;
   }

   /// Neighbours on the path are joined by its link; of equal ones by the first in key order.
   CspfRepairSegment segment( CspfVertex before, CspfVertex node ) const {
      CspfRepairSegment segment{ node };
      const auto offer = [ & ]( CspfVertex from, CspfEdge link, CspfEdge arrival ) {
         if ( from == before
              && ( segment.link == noEdge
                   || graph_.keyRank( link ) < graph_.keyRank( segment.link ) ) ) {
            segment.link = link;
            segment.arrival = arrival;
         }
      };
      for ( const CspfEdge arrival : tree_.lastLinks( node ) ) {
         const CspfVertex from = graph_.from( arrival );
         if ( graph_.isRouter( from ) ) {
            offer( from, arrival, arrival );
            continue;
         }
         for ( const CspfEdge intoNetwork : tree_.lastLinks( from ) ) {
            offer( graph_.from( intoNetwork ), intoNetwork, arrival );
         }
      }
      return segment;
   }

   std::vector< CspfEdge > firstLinks( CspfVertex firstHop ) const {
      std::vector< CspfEdge > links;
      forEachPredecessor( graph_, tree_, firstHop, [ & ]( CspfVertex before, CspfEdge link ) {
         if ( before == table_.resource_.plr ) {
            links.push_back( link );
         }
      } );
      std::ranges::sort( links, std::greater(), [ & ]( CspfEdge link ) {
         return mix( query_.destinationKey, query_.linkKey( link ) );
      } );
      return links;
   }

   const CspfRepairTable & table_;
   const CspfGraph & graph_;
   const CspfTree & tree_;
   const Query & query_;
};

/// By first hop, where the last segment begins.
class CspfRepairTable::LastSegments {
 public:
   LastSegments( const Chooser & chooser, uint32_t maxNodes )
      : chooser_( chooser ),
        maxNodes_( maxNodes ) {}

   void offer( CspfVertex firstHop, uint8_t nodes, CspfVertex start ) {
      if ( nodes > maxNodes_ ) {
         needed_ = std::min( needed_, nodes );
         return;
      }
      const auto at = std::ranges::find( segments_, firstHop, &Segment::firstHop );
      if ( at == segments_.end() ) {
         segments_.push_back( { firstHop, nodes, start } );
      } else if ( nodes < at->nodes
                  || ( nodes == at->nodes
                       && chooser_.preference( start ) > chooser_.preference( at->start ) ) ) {
         *at = { firstHop, nodes, start };
      }
   }

   CspfRepairs repairs( size_t most ) {
      std::ranges::sort( segments_, std::less(), [ & ]( const Segment & segment ) {
         return std::pair( segment.nodes, ~chooser_.preference( segment.firstHop ) );
      } );
      CspfRepairs result;
      for ( const auto & [ firstHop, nodes, start ] :
            std::span( segments_ ).first( std::min( most, segments_.size() ) ) ) {
         result.repairs.push_back( chooser_.traceBack( firstHop, start, nodes ) );
      }
      result.nodesNeeded = segments_.empty() && needed_ != none ? needed_ : 0;
      return result;
   }

 private:
   struct Segment {
      CspfVertex firstHop;
      uint8_t nodes;
      CspfVertex start;
   };
   const Chooser & chooser_;
   const uint32_t maxNodes_;
   uint8_t needed_ = none;  // more than there may be
   std::vector< Segment > segments_;
};

CspfRepairTable::CspfRepairTable( const CspfGraph & graph, const CspfProtectedResource & resource,
                                  const CspfRepairTrees & trees, CspfRepairConstraints constraints )
   : graph_( graph ),
     resource_( resource ),
     trees_( trees ),
     constraints_( std::move( constraints ) ),
     refusesMore_(
        CspfRefusedLinks( graph, constraints_.plain, constraints_.asked, isApart() ).any() ),
     neverCrossed_( resource.isLink && graph.overloaded( resource.plr ) ),
     nodeOverloaded_( graph.overloaded( resource.node ) ),
     rows_( graph.vertexBound() ) {
   storeOffered( resource_.plr );  // no label
}

CspfRefusedLinks::IsApart
CspfRepairTable::isApart() const {
   return [ this ]( CspfEdge edge ) { return resource_.isEnteredBy( graph_, edge ); };
}

const CspfPlainForwarding &
CspfRepairTable::forwarding() {
   if ( !forwarding_ ) {
      forwarding_.emplace( graph_, constraints_.plain, constraints_.asked, isApart() );
   }
   return *forwarding_;
}

uint32_t
CspfRepairTable::costFromNode( CspfVertex vertex ) const {
   return nodeOverloaded_ && vertex != resource_.node ? unreached
                                                      : trees_.fromNode.metric( vertex );
}

bool
CspfRepairTable::noPathViaProtResource( CspfVertex from ) const {
   return neverCrossed_ || !trees_.toResource.reached( from );
}

/// Whether plain forwarding from the immediate neighbour, or a repair node, to `cand` is good.
/// REQUIRES: `cand` comes after it on a post-convergence path.
bool
CspfRepairTable::isPnode( CspfVertex immNgb, CspfVertex cand ) {
   const Originator end{ cand, 0 };
   return isQnode( immNgb, { { &end, 1 }, costFromPlr( cand ), costFromNode( cand ) } );
}

/// Whether plain forwarding from `cand` to the goal is good. REQUIRES: it is on a post-convergence
/// path to the goal.
bool
CspfRepairTable::isQnode( CspfVertex cand, const Goal & goal ) {
   return avoidsResource( cand, goal )
          && ( !refusesMore_
               || forwarding().avoidsRefused( cand, goal.originators,
                                              goal.pcCostPlrToDest - costFromPlr( cand ) ) );
}

bool
CspfRepairTable::avoidsResource( CspfVertex cand, const Goal & goal ) const {
   if ( noPathViaProtResource( cand ) ) {
      return true;
   }
   const uint64_t toProtNode =
      uint64_t( trees_.toResource.metric( cand ) ) + ( resource_.isLink ? resource_.plrToNode : 0 );
   return toProtNode + goal.costProtNodeToDest > goal.pcCostPlrToDest - costFromPlr( cand );
}

void
CspfRepairTable::Offered::offer( uint8_t nodes, CspfVertex start ) {
   if ( nodes > label.passing ) {
      return;
   }
   if ( nodes < label.passing ) {
      label.passing = nodes;
      starts.clear();
   }
   if ( std::ranges::find( starts, start ) == starts.end() ) {
      starts.push_back( start );
   }
}

CspfRepairTable::Offered &
CspfRepairTable::offered( CspfVertex firstHop ) {
   for ( size_t i = 0; i < offers_; ++i ) {
      if ( offered_[ i ].label.firstHop == firstHop ) {
         return offered_[ i ];
      }
   }
   if ( offers_ == offered_.size() ) {
      offered_.emplace_back();
   }
   Offered & fresh = offered_[ offers_++ ];
   fresh.label = Label();
   fresh.label.firstHop = firstHop;
   fresh.starts.clear();
   return fresh;
}

/// After all that lead to it.
void
CspfRepairTable::labelUpTo( CspfVertex router ) {
   open_.assign( 1, router );
   while ( !open_.empty() ) {
      const CspfVertex next = open_.back();
      const size_t known = open_.size();
      if ( !isLabelled( next ) ) {
         forEachPredecessor( graph_, trees_.postConvergence, next,
                             [ & ]( CspfVertex before, CspfEdge ) {
                                if ( !isLabelled( before ) ) {
                                   open_.push_back( before );
                                }
                             } );
         if ( open_.size() > known ) {
            continue;
         }
         label( next );
      }
      open_.pop_back();
   }
}

void
CspfRepairTable::label( CspfVertex router ) {
   offers_ = 0;
   forEachPredecessor( graph_, trees_.postConvergence, router,
                       [ & ]( CspfVertex before, CspfEdge ) {
                          if ( before == resource_.plr ) {
                             offered( router ).offer( 0, router );
                          } else {
                             label( before, router );
                          }
                       } );
   storeOffered( router );
}

/// What the paths by the router before it offer.
void
CspfRepairTable::label( CspfVertex before, CspfVertex router ) {
   const bool fromBefore = isPnode( before, router );
   for ( const Label & label : labels( before ) ) {
      Offered & offered = this->offered( label.firstHop );
      for ( const CspfVertex start : starts( label ) ) {
         if ( isPnode( start, router ) ) {
            offered.offer( label.passing, start );
         }
      }
      if ( label.ending != none && fromBefore ) {
         offered.offer( label.ending, before );
      }
      if ( label.ending < most ) {
         offered.label.ending = std::min< uint8_t >( offered.label.ending, label.ending + 1 );
      }
   }
}

void
CspfRepairTable::storeOffered( CspfVertex router ) {
   Row & row = rows_[ index( router ) ];
   row.first = static_cast< uint32_t >( labels_.size() );
   for ( size_t i = 0; i < offers_; ++i ) {
      auto & [ label, starts ] = offered_[ i ];
      if ( label.passing < most ) {
         label.ending = std::min< uint8_t >( label.ending, label.passing + 1 );
      }
      if ( label.passing == none && label.ending == none ) {
         continue;
      }
      label.firstStart = static_cast< uint32_t >( starts_.size() );
      label.starts = static_cast< uint32_t >( starts.size() );
      starts_.insert( starts_.end(), starts.begin(), starts.end() );
      labels_.push_back( label );
      ++row.labels;
   }
}

const CspfRepairTable::Label &
CspfRepairTable::label( CspfVertex router, CspfVertex firstHop ) const {
   static const Label unlabelled;
   const auto labels = this->labels( router );
   const auto at = std::ranges::find( labels, firstHop, &Label::firstHop );
   return at == labels.end() ? unlabelled : *at;
}

CspfRepairTable::Goal
CspfRepairTable::goalOf( std::span< const Originator > originators ) const {
   const auto cheapest = [ & ]( auto cost ) {
      uint64_t least = unreached;
      for ( const Originator & o : originators ) {
         if ( const uint32_t toRouter = cost( o.router ); toRouter != unreached ) {
            least = std::min( least, uint64_t( toRouter ) + o.metric );
         }
      }
      return static_cast< uint32_t >( least );
   };
   return { originators,
            cheapest( [ this ]( CspfVertex router ) { return costFromPlr( router ); } ),
            cheapest( [ this ]( CspfVertex router ) { return costFromNode( router ); } ) };
}

CspfRepairs
CspfRepairTable::repairs( const Query & query ) {
   const Goal goal = goalOf( query.originators );
   const Chooser chooser( *this, query );
   LastSegments last( chooser, query.maxNodes );
   for ( const Originator & o : query.originators ) {
      const uint32_t toRouter = costFromPlr( o.router );
      if ( toRouter == unreached || uint64_t( toRouter ) + o.metric != goal.pcCostPlrToDest ) {
         continue;
      }
      if ( o.router == resource_.plr ) {
         return {};
      }
      labelUpTo( o.router );
      for ( const Label & label : labels( o.router ) ) {
         for ( const CspfVertex start : starts( label ) ) {
            if ( start == o.router || isQnode( start, goal ) ) {
               last.offer( label.firstHop, label.passing, start );
            }
         }
         last.offer( label.firstHop, label.ending, o.router );
      }
   }
   CspfRepairs found = last.repairs( query.most );
   if ( found.nodesNeeded > 0 ) {
      if ( !detours_ ) {
         detours_.emplace( forwarding(), resource_.plr );
      }
      if ( auto repair = detours_->find( query.originators, query.maxNodes ) ) {
         found = { { std::move( *repair ) }, 0 };
      }
   }
   return found;
}

}
