// Distances that stay, for constraints that are computed again and again.
//
// Constraints that test links in the same way share one labelling; what one of them refuses singly,
// an address or a router, or is granted for bandwidth that its user holds, is an overlay of the few
// vertices that it makes differ. Only costs are kept: last links, their order, and which of two
// routers is first are worked out where a way is walked (CspfLabelTree).
//
// Whoever shares labels has walked its ways at some step, and asks what the steps since then have
// touched. A vertex is touched when its cost moved, when an edge into it changed, or when an edge
// from a vertex that moved attains its cost, or did: its last links may be others. Vertices that
// a moved one merely leads to are near: an overlay may rest on such an edge at a higher cost.
//
// In a reverse tree an edge costs what its reverse does, so a change of an edge is one of its
// reverse as well. LANs are reached for nothing there, and the first of the routers on a LAN
// decides in which order the others are reached from it.

#include "Cspf/Graph/Labels.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Cspf {

/// The shared labels themselves.
template< class Cost >
struct CspfOwnLabels {
   const CspfGraph & graph;
   CspfLabels & labels;

   Cost get( CspfVertex vertex ) const { return labels.cost< Cost >( vertex ); }
   void set( CspfVertex vertex, uint32_t metric ) { labels.metrics_[ index( vertex ) ] = metric; }
   void set( CspfVertex vertex, const CspfCost & cost ) {
      labels.metrics_[ index( vertex ) ] = cost.metric;
      labels.counts_[ index( vertex ) ] = uint64_t{ cost.srlgExclude } << 32 | cost.srlgInclude;
   }
   Cost step( CspfEdge edge ) const { return labels.step< Cost >( graph, edge ); }
   Cost price( CspfEdge edge ) const { return labels.price< Cost >( graph, edge ); }
};

namespace {

constexpr uint32_t nearBit = 0x80000000;

CspfCost
asCost( uint32_t metric ) {
   return { 0, 0, metric };
}
CspfCost
asCost( const CspfCost & cost ) {
   return cost;
}

/// The shared labels under the values of the overlay at work.
template< class Cost >
struct OverlaidLabels {
   const CspfGraph & graph;
   const CspfLabels & labels;
   const CspfOverlay & overlay;
   CspfLabelMemory & memory;

   Cost get( CspfVertex vertex ) const {
      const uint32_t v = index( vertex );
      if ( memory.valueEpochs[ v ] != memory.valueEpoch ) {
         return labels.cost< Cost >( vertex );
      }
      if constexpr ( std::is_same_v< Cost, CspfCost > ) {
         return memory.values[ v ];
      } else {
         return memory.values[ v ].metric;
      }
   }
   void set( CspfVertex vertex, const Cost & cost ) {
      memory.values[ index( vertex ) ] = asCost( cost );
      memory.valueEpochs[ index( vertex ) ] = memory.valueEpoch;
   }
   Cost step( CspfEdge edge ) const { return overlay.step< Cost >( graph, labels, edge ); }
};

/// Adds where the edges lead to.
void
addHeads( const CspfGraph & graph, const std::vector< CspfEdge > & edges, bool reverse,
          std::vector< CspfVertex > & all ) {
   for ( const CspfEdge edge : edges ) {
      forEachJudgedBy( graph, graph.to( edge ), reverse,
                       [ & ]( CspfVertex one ) { all.push_back( one ); } );
   }
}

/// Adds the vertices, and those that their edges lead to.
void
addWithNext( const CspfGraph & graph, const auto & differing, bool reverse,
             std::vector< CspfVertex > & all ) {
   const auto add = [ & ]( CspfVertex vertex ) { all.push_back( vertex ); };
   for ( const auto & [ vertex, cost ] : differing ) {
      add( vertex );
      for ( const uint32_t e : graph.out( vertex ) ) {
         forEachJudgedBy( graph, graph.to( CspfEdge{ e } ), reverse, add );
      }
   }
}

}

void
CspfTouched::begin( uint32_t vertexBound ) {
   marks_.resize( vertexBound );
   vertices_.clear();
   epoch_ += 2;
}

void
CspfTouched::add( CspfVertex vertex, bool nearOnly ) {
   uint32_t & mark = marks_[ index( vertex ) ];
   if ( mark < epoch_ ) {
      vertices_.push_back( vertex );
   }
   mark = std::max( mark, epoch_ + !nearOnly );
}

CspfLabels::CspfLabels( CspfLinkConstraint constraint, const CspfRunOptions & options )
   : options_( options ) {
   LUM_ASSERT( !options.singleHop );
   filter_.constraintIs( std::move( constraint ) );
}

void
CspfLabels::advance( const CspfGraph & graph, CspfLabelMemory & memory ) {
   const auto changes = graph.changes().since( position_ );
   position_ = graph.changes().end();
   graphVersion_ = graph.version();
   if ( changes && changes->empty() ) {
      return;
   }
   if ( changes ) {
      noteHeads( *changes, options_.reverse, memory.heads );
   }
   const bool repaired = changes
                         && ( countsSrlgs() ? repair< CspfCost >( graph, memory )
                                            : repair< uint32_t >( graph, memory ) );
   if ( !repaired ) {
      runWhole( graph, memory );
   }
}

template< class Cost >
bool
CspfLabels::repair( const CspfGraph & graph, CspfLabelMemory & memory ) {
   CspfOwnLabels< Cost > own{ graph, *this };
   const size_t most = graph.vertexBound() / 4;
   const bool repaired = memory.heads.size() <= most + 16
                         && std::get< CspfLabelRepair< Cost > >( memory.repairs )
                               .run( graph, own, root(), memory.heads, most );
   if ( repaired ) {
      noteStep( graph, own, memory );
   }
   return repaired;
}

void
CspfLabels::runWhole( const CspfGraph & graph, CspfLabelMemory & memory ) {
   memory.filter.apply( graph, filter_.constraint() );
   memory.run.run( graph, memory.filter, options_, memory.tree );
   metrics_.resize( graph.vertexBound() );
   counts_.resize( countsSrlgs() ? graph.vertexBound() : 0 );
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      const CspfCost cost = memory.tree.cost( CspfVertex{ v } );
      metrics_[ v ] = cost.metric;
      if ( countsSrlgs() ) {
         counts_[ v ] = uint64_t{ cost.srlgExclude } << 32 | cost.srlgInclude;
      }
   }
   firstStep_ = steps() + 1;
   stepEnds_ = {};
   touches_ = {};
}

/// Forgets what was before where that has become much; who has not read it looks at everything.
template< class Cost >
void
CspfLabels::noteStep( const CspfGraph & graph, const CspfOwnLabels< Cost > & own,
                      const CspfLabelMemory & memory ) {
   if ( touches_.size() > graph.vertexBound() / 8 + 64 ) {
      firstStep_ = steps();
      stepEnds_ = {};
      touches_ = {};
   }
   const auto & repair = std::get< CspfLabelRepair< Cost > >( memory.repairs );
   repair.forEachTouched( graph, own, memory.heads, options_.reverse,
                          [ & ]( CspfVertex vertex, bool nearOnly ) {
                             touches_.push_back( index( vertex ) | ( nearOnly ? nearBit : 0 ) );
                          } );
   stepEnds_.push_back( static_cast< uint32_t >( touches_.size() ) );
}

bool
CspfLabels::touchedSince( uint64_t steps, uint32_t vertexBound, CspfTouched & touched ) const {
   if ( steps < firstStep_ ) {
      return false;
   }
   touched.begin( vertexBound );
   const uint64_t read = steps - firstStep_;
   for ( size_t i = read == 0 ? 0 : stepEnds_[ read - 1 ]; i < touches_.size(); ++i ) {
      touched.add( CspfVertex{ touches_[ i ] & ~nearBit }, touches_[ i ] & nearBit );
   }
   return true;
}

bool
CspfOverlay::heldIs( const CspfGraph & graph, const CspfLabels & labels,
                     std::span< const std::pair< CspfEdge, uint64_t > > held ) {
   std::vector< CspfEdge > granted;
   for ( const auto & [ edge, bandwidth ] : held ) {
      if ( !labels.admits( graph, edge ) && labels.admitsHolder( graph, edge, bandwidth ) ) {
         granted.push_back( edge );
      }
   }
   std::ranges::sort( granted );
   std::ranges::set_symmetric_difference( granted_, granted, std::back_inserter( regranted_ ) );
   granted_ = std::move( granted );
   return !regranted_.empty();
}

bool
CspfOverlay::compute( const CspfGraph & graph, const CspfLabels & labels, CspfLabelMemory & memory,
                      std::vector< CspfVertex > & moved ) {
   const bool reverse = labels.options().reverse;
   const Differing before = std::exchange( differing_, {} );
   memory.values.resize( graph.vertexBound() );
   memory.valueEpochs.resize( graph.vertexBound() );
   ++memory.valueEpoch;
   memory.heads.clear();
   addHeads( graph, refused_, false, memory.heads );
   addHeads( graph, granted_, false, memory.heads );
   sortOnce( memory.heads );
   if ( !( labels.countsSrlgs() ? compute< CspfCost >( graph, labels, memory )
                                : compute< uint32_t >( graph, labels, memory ) ) ) {
      return false;
   }
   Differing other;
   std::ranges::set_symmetric_difference( before, differing_, std::back_inserter( other ) );
   moved.clear();
   addWithNext( graph, other, reverse, moved );
   addHeads( graph, std::exchange( regranted_, {} ), reverse, moved );
   sortOnce( moved );
   watch( graph, labels );
   return true;
}

template< class Cost >
bool
CspfOverlay::compute( const CspfGraph & graph, const CspfLabels & labels,
                      CspfLabelMemory & memory ) {
   OverlaidLabels< Cost > overlaid{ graph, labels, *this, memory };
   auto & repair = std::get< CspfLabelRepair< Cost > >( memory.repairs );
   const size_t most = graph.vertexBound() / 8 + 16;
   if ( !repair.run( graph, overlaid, labels.root(), memory.heads, most ) ) {
      return false;
   }
   for ( const auto & changed : repair.changed() ) {
      if ( overlaid.get( changed.vertex ) != labels.cost< Cost >( changed.vertex ) ) {
         differing_.emplace_back( changed.vertex, asCost( overlaid.get( changed.vertex ) ) );
      }
   }
   std::ranges::sort( differing_ );
   differing_.shrink_to_fit();
   return true;
}

/// Its own vertices, where these lead to, and where the refused and granted edges do.
void
CspfOverlay::watch( const CspfGraph & graph, const CspfLabels & labels ) {
   const bool reverse = labels.options().reverse;
   watched_.clear();
   addHeads( graph, refused_, reverse, watched_ );
   addHeads( graph, granted_, reverse, watched_ );
   addWithNext( graph, differing_, reverse, watched_ );
   sortOnce( watched_ );
   watched_.shrink_to_fit();
}

bool
CspfOverlay::isConcerned( const CspfTouched & touched ) const {
   return std::ranges::any_of( watched_,
                               [ & ]( CspfVertex vertex ) { return touched.isNear( vertex ); } );
}

}
