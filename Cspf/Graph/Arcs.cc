// The layout that a run walks, made once for each filter and set of metric rules.
//
// A walk over rows of edge numbers would fetch four columns for each edge in whatever order the
// heap dictates. Gathering them here, vertex by vertex, reads every column forwards, drops the
// edges that the run may not use, and leaves the walk one stream of 8-byte arcs. It is worth its
// cost even for a single run; runs from several sources under one filter share it.
//
// In a reverse run arcs still point away from the source, the way the walk goes; only the metric
// is that of the opposite direction, and the free step is the one onto a network.

#include "Cspf/Graph/Arcs.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <bit>

namespace Cspf {

namespace {

bool
stepIsFree( CspfEdgeKind kind, bool reverse ) {
   return kind == ( reverse ? CspfEdgeKind::routerToNetwork : CspfEdgeKind::networkToRouter );
}

}

uint32_t
CspfArcs::stepMetric( const CspfGraph & graph, CspfEdge edge, const CspfRunOptions & options ) {
   const CspfEdge priced = options.reverse ? graph.reverse( edge ) : edge;
   if ( stepIsFree( graph.kind( edge ), options.reverse ) || priced == noEdge ) {
      return 0;
   }
   return graph.columns().metric( options.useTeMetric )[ index( priced ) ];
}

CspfRefusal
CspfArcs::metricRefusal( const CspfGraph & graph, CspfEdge edge, const CspfRunOptions & options ) {
   if ( stepIsFree( graph.kind( edge ), options.reverse ) ) {
      return CspfRefusal::none;
   }
   const uint32_t metric = stepMetric( graph, edge, options );
   return metric == 0                                                ? CspfRefusal::zeroMetric
          : metric > maxLinkMetric && !options.useLinksWithMaxMetric ? CspfRefusal::maximumMetric
                                                                     : CspfRefusal::none;
}

CspfRefusal
CspfArcs::refusal( const CspfGraph & graph, const CspfLinkFilter & filter, CspfEdge edge,
                   const CspfRunOptions & options ) {
   const CspfRefusal reason = filter.reason( graph, edge );
   return reason != CspfRefusal::none ? reason : metricRefusal( graph, edge, options );
}

void
CspfArcs::build( const CspfGraph & graph, const CspfLinkFilter & filter,
                 const CspfRunOptions & options, CspfCountedArcs counted ) {
   LUM_ASSERT( filter.graphVersion() == graph.version() );
   const Layout layout{ filter.serial(), options.useTeMetric, options.useLinksWithMaxMetric,
                        options.reverse, counted };
   if ( layout == layout_ ) {
      return;
   }
   layout_ = layout;
   begins_.resize( graph.vertexBound() + 1 );
   arcs_.resize( graph.edgeBound() + 2 );  // two more: the fill writes before it decides
   edges_.resize( arcs_.size() );
   countsSrlgs_ = filter.countsSrlgs();
   packsCounts_ = false;
   if ( countsSrlgs_ ) {
      counts_.resize( arcs_.size() );
   }
   if ( countsSrlgs_ && counted == CspfCountedArcs::apart ) {
      options.reverse ? fill< true, true >( graph, filter ) : fill< false, true >( graph, filter );
      return;
   }
   options.reverse ? fill< true, false >( graph, filter ) : fill< false, false >( graph, filter );
   if ( countsSrlgs_ ) {
      fillCounts( graph, filter );
   }
}

template< bool reverse, bool apart >
void
CspfArcs::fill( const CspfGraph & graph, const CspfLinkFilter & filter ) {
   const CspfEdgeColumns & columns = graph.columns();
   const CspfVertex * const from = columns.from.data();
   const CspfVertex * const to = columns.to.data();
   const uint8_t * const flags = columns.flags.data();
   const uint32_t * const lists = columns.srlgList.data();
   const uint32_t * const metrics = columns.metric( layout_.useTeMetric ).data();
   const uint8_t * const admitted = filter.admitted();
   const uint64_t * const countsOf = filter.countsByList().data();
   const uint32_t limit = layout_.useLinksWithMaxMetric ? 0xFFFFFFFF : maxLinkMetric;
   // Where excluded SRLGs matter on own links alone, others count what they lack.
   const CspfLinkConstraint & c = filter.constraint();
   const uint64_t everywhere = c.srlgOnlyLocal ? 0xFFFFFFFF : ~uint64_t{ 0 };
   const CspfVertex own = c.ownSource;
   Arc * const arcs = arcs_.data();
   CspfEdge * const edges = edges_.data();
   uint64_t * const arcCounts = counts_.data();
   uint32_t count = 0, bits = 0, apartBegin = apartEnd();
   const auto put = [ & ]( uint32_t e ) __attribute__( ( always_inline ) ) {
      const auto kind = static_cast< CspfEdgeKind >( flags[ e ] & CspfGraph::kindBits );
      const bool free = stepIsFree( kind, reverse );
      // An admitted edge has passed the two-way check and so has a reverse.
      const uint32_t priced = reverse && admitted[ e ] ? index( columns.reverse[ e ] ) : e;
      const uint32_t metric = free ? 0 : metrics[ priced ];
      const uint32_t usable = admitted[ e ] & ( free | ( metric - 1 < limit ) );
      bits |= metric & -usable;
      if constexpr ( apart ) {
         const bool isLink = kind != CspfEdgeKind::networkToRouter;
         const uint64_t counted = countsOf[ lists[ e ] ] & -uint64_t{ isLink }
                                  & ( everywhere | -uint64_t{ from[ e ] == own } );
         if ( counted ) {
            arcs[ apartBegin - 1 ] = { to[ e ], metric };
            edges[ apartBegin - 1 ] = CspfEdge{ e };
            arcCounts[ apartBegin - 1 ] = counted;
            apartBegin -= usable;
            return;
         }
         arcCounts[ count ] = 0;
      }
      arcs[ count ] = { to[ e ], metric };
      edges[ count ] = CspfEdge{ e };
      count += usable;
   };
   uint32_t * const begins = begins_.data();
   const uint32_t vertices = graph.vertexBound();
   if ( graph.edgesAreInOrder() ) {
      // One loop over all: where a short one over a vertex's edges ends cannot be predicted.
      std::fill_n( begins, vertices + 1, 0 );
      for ( uint32_t e = 0; e < graph.edgeBound(); ++e ) {
         put( e );
         begins[ index( from[ e ] ) + 1 ] = count;
      }
      for ( uint32_t v = 0; v < vertices; ++v ) {
         begins[ v + 1 ] = std::max( begins[ v ], begins[ v + 1 ] );
      }
   } else {
      for ( uint32_t v = 0; v < vertices; ++v ) {
         begins[ v ] = count;
         for ( const uint32_t e : graph.out( CspfVertex{ v } ) ) {
            put( e );
         }
      }
      begins[ vertices ] = count;
   }
   metricBits_ = bits;
   apartBegin_ = apartBegin;
}

/// No path is longer than that many arcs.
void
CspfArcs::choosePacking( std::span< const uint64_t > counts, uint64_t longest ) {
   uint64_t excludes = 0, includes = 0;
   for ( const uint64_t count : counts ) {
      excludes = std::max( excludes, count >> 32 );
      includes = std::max( includes, count & 0xFFFFFFFF );
   }
   includeBits_ = static_cast< uint32_t >( std::bit_width( includes * longest ) );
   packsCounts_ = layout_.counted == CspfCountedArcs::packedInRows
                  && includeBits_ + std::bit_width( excludes * longest ) <= 32 && includeBits_ < 32;
}

void
CspfArcs::fillCounts( const CspfGraph & graph, const CspfLinkFilter & filter ) {
   const std::vector< uint64_t > & byList = filter.countsByList();
   choosePacking( byList, graph.vertexBound() );
   listCounts_.clear();
   for ( const uint64_t counts : byList ) {
      listCounts_.push_back( packsCounts_ ? packed( counts ) << 32 : counts );
   }
   const uint64_t includes = packsCounts_ ? packed( 0xFFFFFFFF ) << 32 : 0xFFFFFFFF;
   const CspfLinkConstraint & c = filter.constraint();
   const uint32_t * lists = graph.columns().srlgList.data();
   const uint32_t metricMask = packsCounts_ ? ~0U : 0;
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      const bool excludes = !c.srlgOnlyLocal || CspfVertex{ v } == c.ownSource;
      const uint64_t counted = graph.isNetwork( CspfVertex{ v } ) ? 0
                               : excludes                         ? ~uint64_t{ 0 }
                                                                  : includes;
      for ( uint32_t i = begins_[ v ]; i < begins_[ v + 1 ]; ++i ) {
         counts_[ i ] = ( listCounts_[ lists[ index( edges_[ i ] ) ] ] & counted )
                        | ( arcs_[ i ].metric & metricMask );
      }
   }
}

}
