#pragma once

#include "Cspf/Graph/LinkFilter.h"
#include "Cspf/Graph/Tree.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Cspf {

/// Where arcs that add to a path's SRLG counts stand, and how their counts are kept.
enum class CspfCountedArcs : uint8_t {
   inRows,        // among the others of their vertex
   packedInRows,  // ... with counts and metric in one number, if those of every path fit
   apart,         // in no row, but in places of their own
};

/// The edges that one kind of run may use, laid out as the walk reads them: admitted edges of a
/// vertex side by side, each with its far end and what it adds to the cost.
class CspfArcs {
 public:
   static constexpr uint32_t maxLinkMetric = 0xFFFFFE;  // a greater one is "maximum", not for use

   struct Arc {
      CspfVertex to;
      uint32_t metric;
   };

   /// Lays out the edges that the filter admits and the metric rules allow. Does nothing when
   /// filter and options are those of the last call. REQUIRES: the filter was applied to this
   /// version of the graph. O(vertices + edges).
   void build( const CspfGraph & graph, const CspfLinkFilter & filter,
               const CspfRunOptions & options, CspfCountedArcs counted = CspfCountedArcs::inRows );

   std::span< const Arc > out( CspfVertex vertex ) const {
      const uint32_t * begin = begins_.data() + index( vertex );
      return { arcs_.data() + begin[ 0 ], arcs_.data() + begin[ 1 ] };
   }
   /// The places of the same arcs, and the arc at a place.
   uint32_t begin( CspfVertex vertex ) const { return begins_[ index( vertex ) ]; }
   uint32_t end( CspfVertex vertex ) const { return begins_[ index( vertex ) + 1 ]; }
   const Arc & at( uint32_t place ) const { return arcs_[ place ]; }
   CspfEdge edge( uint32_t place ) const { return edges_[ place ]; }
   CspfEdge edge( const Arc & arc ) const { return edges_[ &arc - arcs_.data() ]; }
   /// What the arc at a place adds to a path's SRLG counts: excludes above, includes below, 32 bits
   /// each; where counts are packed, both above the arc's metric. REQUIRES: the filter counts
   /// SRLGs.
   uint64_t counts( uint32_t place ) const { return counts_[ place ]; }
   /// Whether counts are packed, and those as they are out of these.
   bool packsCounts() const { return packsCounts_; }
   uint64_t unpacked( uint32_t packed ) const {
      return uint64_t{ packed } >> includeBits_ << 32 | ( packed & includeMask() );
   }
   /// The places of arcs that stand apart, those that leave one vertex side by side.
   uint32_t apartBegin() const { return apartBegin_; }
   uint32_t apartEnd() const { return static_cast< uint32_t >( arcs_.size() ); }
   /// Has the arcs that leave the vertex fetched, which are asked for soon.
   void fetch( CspfVertex vertex ) const {
      __builtin_prefetch( arcs_.data() + begins_[ index( vertex ) ] );
   }
   /// One more than the largest place.
   size_t size() const { return arcs_.size(); }
   bool countsSrlgs() const { return countsSrlgs_; }
   CspfCountedArcs counted() const { return layout_.counted; }
   /// All bits that occur in metrics of arcs: as wide as the largest metric.
   uint32_t metricBits() const { return metricBits_; }

   /// What the step along an edge costs: its TE or IGP metric; in a reverse run that of its
   /// reverse (0 without one). Steps from a network (to it, in a reverse run) cost nothing.
   static uint32_t stepMetric( const CspfGraph & graph, CspfEdge edge,
                               const CspfRunOptions & options );
   /// What the metric rules say of an edge; none where the step is free, or its metric will do.
   static CspfRefusal metricRefusal( const CspfGraph & graph, CspfEdge edge,
                                     const CspfRunOptions & options );
   /// Why an edge is no arc: the filter's reason, then the metric rules; none for an arc.
   static CspfRefusal refusal( const CspfGraph & graph, const CspfLinkFilter & filter,
                               CspfEdge edge, const CspfRunOptions & options );

 private:
   struct Layout {
      uint64_t filter = 0;  // serial
      bool useTeMetric = false, useLinksWithMaxMetric = false, reverse = false;
      CspfCountedArcs counted = CspfCountedArcs::inRows;
      bool operator==( const Layout & ) const = default;
   };
   template< bool reverse, bool apart >
   void fill( const CspfGraph & graph, const CspfLinkFilter & filter );
   void fillCounts( const CspfGraph & graph, const CspfLinkFilter & filter );
   uint32_t includeMask() const { return ( 1U << includeBits_ ) - 1; }
   uint64_t packed( uint64_t counts ) const {
      return counts >> 32 << includeBits_ | ( counts & includeMask() );
   }
   void choosePacking( std::span< const uint64_t > counts, uint64_t longest );

   Layout layout_;
   std::vector< uint32_t > begins_;  // by vertex, and the end of the last
   std::vector< Arc > arcs_;         // rows up to begins_.back(); from apartBegin_ on others
   std::vector< CspfEdge > edges_;   // by arc
   std::vector< uint64_t > counts_;  // by arc
   uint32_t apartBegin_ = 0;
   std::vector< uint64_t > listCounts_;  // by list of SRLGs
   bool countsSrlgs_ = false, packsCounts_ = false;
   uint32_t includeBits_ = 0;  // below 32, the lower ones of packed counts
   uint32_t metricBits_ = 0;
};

}
