// Distances that stay, for constraints that are computed again and again.
//
// Constraints that test links in the same way share one labelling; what one of them refuses singly,
// an address or a router, is an overlay of the few vertices that it makes differ. Only metrics are
// kept: last links, their order, and which of two routers is first are worked out where a way is
// walked (CspfLabelTree).
//
// Whoever shares labels has walked its ways at some step, and asks what the steps since then have
// touched. A vertex is touched when its metric moved, when an edge into it changed, or when an edge
// from a vertex that moved attains its metric, or did: its last links may be others. Vertices that
// a moved one merely leads to are near: an overlay may rest on such an edge at a higher metric.

#include "Cspf/Graph/Labels.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Cspf {

namespace {

constexpr uint32_t nearBit = 0x80000000;

/// The shared labels under the values of the overlay at work.
struct OverlaidLabels {
   const CspfGraph & graph;
   const CspfLabels & labels;
   const CspfOverlay & overlay;
   CspfLabelMemory & memory;

   uint32_t get( CspfVertex vertex ) const {
      const uint32_t v = index( vertex );
      return memory.valueEpochs[ v ] == memory.valueEpoch ? memory.values[ v ]
                                                          : labels.metric( vertex );
   }
   void set( CspfVertex vertex, uint32_t metric ) {
      memory.values[ index( vertex ) ] = metric;
      memory.valueEpochs[ index( vertex ) ] = memory.valueEpoch;
   }
   uint32_t step( CspfEdge edge ) const {
      return overlay.refuses( edge ) ? CspfLabels::unreached : labels.step( graph, edge );
   }
};

/// The shared labels themselves.
struct OwnLabels {
   const CspfGraph & graph;
   const CspfLabels & labels;
   std::vector< uint32_t > & metrics;

   uint32_t get( CspfVertex vertex ) const { return metrics[ index( vertex ) ]; }
   void set( CspfVertex vertex, uint32_t metric ) { metrics[ index( vertex ) ] = metric; }
   uint32_t step( CspfEdge edge ) const { return labels.step( graph, edge ); }
};

template< typename Value >
void
sortOnce( std::vector< Value > & values ) {
   std::ranges::sort( values );
   values.erase( std::unique( values.begin(), values.end() ), values.end() );
}

/// Calls `visit` for the vertex, and, where it is a LAN, for the routers on it: their last links
/// are in order of the link by which the LAN is reached.
template< typename Visit >
void
forEachJudgedBy( const CspfGraph & graph, CspfVertex vertex, Visit && visit ) {
   visit( vertex );
   if ( graph.has( vertex ) && graph.isNetwork( vertex ) ) {
      for ( const uint32_t e : graph.out( vertex ) ) {
         visit( graph.to( CspfEdge{ e } ) );
      }
   }
}

/// Adds the vertices, and those that their edges lead to.
void
addWithNext( const CspfGraph & graph, const auto & differing, std::vector< CspfVertex > & all ) {
   const auto add = [ & ]( CspfVertex vertex ) { all.push_back( vertex ); };
   for ( const auto & [ vertex, metric ] : differing ) {
      add( vertex );
      for ( const uint32_t e : graph.out( vertex ) ) {
         forEachJudgedBy( graph, graph.to( CspfEdge{ e } ), add );
      }
   }
}

}

void
CspfTouched::begin( uint32_t vertexBound ) {
   marks_.resize( vertexBound );
   epoch_ += 2;
}

void
CspfTouched::add( CspfVertex vertex, bool nearOnly ) {
   uint32_t & mark = marks_[ index( vertex ) ];
   mark = std::max( mark, epoch_ + !nearOnly );
}

CspfLabels::CspfLabels( CspfLinkConstraint constraint, const CspfRunOptions & options )
   : options_( options ) {
   LUM_ASSERT( !options.reverse && !options.singleHop );
   filter_.constraintIs( std::move( constraint ) );
}

uint32_t
CspfLabels::step( const CspfGraph & graph, CspfEdge edge ) const {
   return CspfArcs::refusal( graph, filter_, edge, options_ ) == CspfRefusal::none
             ? CspfArcs::stepMetric( graph, edge, options_ )
             : unreached;
}

void
CspfLabels::advance( const CspfGraph & graph, CspfLabelMemory & memory ) {
   const auto changes = graph.changes().since( position_ );
   position_ = graph.changes().end();
   graphVersion_ = graph.version();
   if ( !changes ) {
      runWhole( graph, memory );
      return;
   }
   if ( changes->empty() ) {
      return;
   }
   memory.heads.clear();
   for ( const CspfEdgeChange & change : *changes ) {
      memory.heads.push_back( change.to );
   }
   sortOnce( memory.heads );
   OwnLabels own{ graph, *this, metrics_ };
   const size_t most = graph.vertexBound() / 4;
   if ( memory.heads.size() <= most + 16
        && memory.repair.run( graph, own, root(), memory.heads, most ) ) {
      noteStep( graph, memory );
   } else {
      runWhole( graph, memory );
   }
}

void
CspfLabels::runWhole( const CspfGraph & graph, CspfLabelMemory & memory ) {
   memory.filter.apply( graph, filter_.constraint() );
   memory.run.run( graph, memory.filter, options_, memory.tree );
   metrics_.resize( graph.vertexBound() );
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      metrics_[ v ] = memory.tree.metric( CspfVertex{ v } );
   }
   firstStep_ = steps() + 1;
   stepEnds_ = {};
   touches_ = {};
}

/// Forgets what was before where that has become much; who has not read it looks at everything.
void
CspfLabels::noteStep( const CspfGraph & graph, const CspfLabelMemory & memory ) {
   if ( touches_.size() > graph.vertexBound() / 8 + 64 ) {
      firstStep_ = steps();
      stepEnds_ = {};
      touches_ = {};
   }
   for ( const CspfVertex head : memory.heads ) {
      touch( graph, head, false );
   }
   for ( const CspfLabelRepair::Changed & changed : memory.repair.changed() ) {
      touch( graph, changed.vertex, false );
      const uint64_t now = metric( changed.vertex );
      for ( const uint32_t e : graph.out( changed.vertex ) ) {
         const CspfVertex to = graph.to( CspfEdge{ e } );
         const uint32_t step = CspfArcs::stepMetric( graph, CspfEdge{ e }, options_ );
         const bool attains =
            now + step == metric( to ) || uint64_t{ changed.before } + step == metric( to );
         touch( graph, to, !attains );
      }
   }
   stepEnds_.push_back( static_cast< uint32_t >( touches_.size() ) );
}

void
CspfLabels::touch( const CspfGraph & graph, CspfVertex vertex, bool nearOnly ) {
   forEachJudgedBy( graph, vertex, [ & ]( CspfVertex one ) {
      touches_.push_back( index( one ) | ( nearOnly ? nearBit : 0 ) );
   } );
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
CspfOverlay::refuses( CspfEdge edge ) const {
   return std::ranges::find( refused_, edge ) != refused_.end();
}

uint32_t
CspfOverlay::metric( const CspfLabels & labels, CspfVertex vertex ) const {
   const auto at =
      std::ranges::lower_bound( differing_, vertex, {}, &std::pair< CspfVertex, uint32_t >::first );
   return at != differing_.end() && at->first == vertex ? at->second : labels.metric( vertex );
}

bool
CspfOverlay::compute( const CspfGraph & graph, const CspfLabels & labels, CspfLabelMemory & memory,
                      std::vector< CspfVertex > & moved ) {
   const Differing before = std::exchange( differing_, {} );
   memory.values.resize( graph.vertexBound() );
   memory.valueEpochs.resize( graph.vertexBound() );
   ++memory.valueEpoch;
   memory.heads.clear();
   for ( const CspfEdge edge : refused_ ) {
      memory.heads.push_back( graph.to( edge ) );
   }
   sortOnce( memory.heads );
   OverlaidLabels overlaid{ graph, labels, *this, memory };
   const size_t most = graph.vertexBound() / 8 + 16;
   if ( !memory.repair.run( graph, overlaid, labels.root(), memory.heads, most ) ) {
      return false;
   }
   for ( const CspfLabelRepair::Changed & changed : memory.repair.changed() ) {
      if ( overlaid.get( changed.vertex ) != labels.metric( changed.vertex ) ) {
         differing_.emplace_back( changed.vertex, overlaid.get( changed.vertex ) );
      }
   }
   std::ranges::sort( differing_ );
   differing_.shrink_to_fit();
   Differing other;
   std::ranges::set_symmetric_difference( before, differing_, std::back_inserter( other ) );
   moved.clear();
   addWithNext( graph, other, moved );
   sortOnce( moved );
   watch( graph );
   return true;
}

/// Its own vertices, where these lead to, and where the refused edges do.
void
CspfOverlay::watch( const CspfGraph & graph ) {
   watched_.clear();
   for ( const CspfEdge edge : refused_ ) {
      watched_.push_back( graph.to( edge ) );
   }
   addWithNext( graph, differing_, watched_ );
   sortOnce( watched_ );
   watched_.shrink_to_fit();
}

bool
CspfOverlay::isConcerned( const CspfTouched & touched ) const {
   return std::ranges::any_of( watched_,
                               [ & ]( CspfVertex vertex ) { return touched.isNear( vertex ); } );
}

}
