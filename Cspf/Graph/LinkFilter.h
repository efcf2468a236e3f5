#pragma once

#include "Cspf/Graph/Graph.h"

#include <compare>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace Cspf {

/// Why an edge may not be used, in the order of the tests: an edge has the first that applies.
enum class CspfRefusal : uint8_t {
   none,
   otherTopology,
   twoWayCheck,
   overload,
   excludedInterface,
   excludedNode,
   srlg,
   includeAllAdminGroup,
   includeAnyAdminGroup,
   excludeAdminGroup,
   linkAddress,
   bandwidth,
   // Refused by the metric, which only the run knows (CspfArcs::refusal).
   zeroMetric,
   maximumMetric,
};
/// In a few words, for explanations.
std::string_view text( CspfRefusal refusal );

enum class CspfOverloadRule : uint8_t {
   avoid,   // an overloaded router is neither crossed nor reached
   mayEnd,  // it may be reached; it is crossed only as the root
};

/// A constraint in the graph's own numbers. Empty lists and zeros ask for nothing.
struct CspfLinkConstraint {
   CspfVertex root = noVertex;       // where trees begin; free to cross although overloaded
   CspfVertex ownSource = noVertex;  // the router whose links are "local"
   CspfOverloadRule overloadRule = CspfOverloadRule::avoid;
   /// Edges to (for `mayEnd`: from) routers that are overloaded in the edge's topology alone.
   std::vector< CspfEdge > overloadedEdges;
   uint16_t topology = CspfGraph::anyTopology;
   std::vector< uint32_t > excludedInterfaces;  // of ownSource
   std::vector< CspfVertex > excludedVertices;
   std::vector< uint32_t > excludedSrlgs, includedSrlgs;
   bool srlgStrict = false;     // an excluded SRLG refuses the link instead of counting
   bool srlgOnlyLocal = false;  // excluded SRLGs matter on links that leave ownSource only
   uint32_t includeAllAdminGroup = 0, includeAnyAdminGroup = 0, excludeAdminGroup = 0;
   std::vector< CspfEdge > excludedEdges;  // by address, both directions resolved
   uint64_t bandwidth = 0;
   uint8_t setupPriority = 0;  // 0 to 7
   /// Bandwidth that this request already holds on an edge and may use again; each edge once.
   std::vector< std::pair< CspfEdge, uint64_t > > ownReservations;
   auto operator<=>( const CspfLinkConstraint & ) const = default;
};

/// The answer of one constraint for every edge of one version of a graph, worked out by one pass
/// over each attribute that the constraint reads; the others are not looked at.
class CspfLinkFilter {
 public:
   /// REQUIRES: every number in the constraint is in use in the graph. Holds until the graph
   /// changes; copies the constraint. Memory is reused by the next call. O(edge bound).
   void apply( const CspfGraph & graph, CspfLinkConstraint constraint );

   /// Takes the constraint alone, for `reason` and `srlgCounts`; the other answers need `apply`.
   /// O(constraint).
   void constraintIs( CspfLinkConstraint constraint );

   bool admitted( CspfEdge edge ) const { return admitted_[ index( edge ) ]; }
   /// One byte an edge, 1 when admitted; a number not in use is not.
   const uint8_t * admitted() const { return admitted_.data(); }
   /// The first test that refuses the edge, or none. Agrees with `admitted`, where nothing is
   /// `held`: bandwidth that the request may use there again, besides what the constraint knows.
   /// Reads the graph as it is, and nothing that `apply` worked out; cost of the few tests.
   CspfRefusal reason( const CspfGraph & graph, CspfEdge edge, uint64_t held = 0 ) const;

   /// What the edge adds to a path's counts: excluded SRLGs that it carries, and SRLGs to include
   /// that it lacks. Reads the graph as it is, and nothing that `apply` worked out.
   std::pair< uint32_t, uint32_t > srlgCounts( const CspfGraph & graph, CspfEdge edge ) const;

   /// True when paths are ranked by SRLG counts before the metric.
   bool countsSrlgs() const { return countsSrlgs_; }
   /// The same counts of a link between routers, or to a network, by its list of SRLGs, wherever
   /// the link is: excludes above, includes below, 32 bits each. Worked out by `apply`.
   const std::vector< uint64_t > & countsByList() const { return countsByList_; }

   const CspfLinkConstraint & constraint() const { return constraint_; }
   /// The graph's version that the answers hold for.
   uint64_t graphVersion() const { return graphVersion_; }
   /// Different for every `apply` in the process.
   uint64_t serial() const { return serial_; }

 private:
   void countSrlgs( const CspfGraph & graph );
   void admitByAdminGroup( const CspfGraph & graph );
   void admitBySrlg( const CspfGraph & graph );
   void admitByBandwidth( const CspfGraph & graph );
   void admitByState( const CspfGraph & graph );
   /// Replaces every answer by `verdict( edge, answer so far )`.
   template< typename Verdict >
   void revise( Verdict verdict );
   /// Refuses every edge that fails the test.
   template< typename Test >
   void narrow( Test test );
   void refuseSingly( const CspfGraph & graph );
   void refuseOverloaded( const CspfGraph & graph );
   void refuse( std::span< const uint32_t > edges );

   bool leavesOwnSource( const CspfGraph & graph, CspfEdge edge ) const;
   bool overloadRefuses( const CspfGraph & graph, CspfEdge edge ) const;
   bool hasExcludedInterface( const CspfGraph & graph, CspfEdge edge ) const;
   bool carriesExcludedSrlg( const CspfGraph & graph, CspfEdge edge ) const;
   bool bandwidthAllows( const CspfGraph & graph, CspfEdge edge, uint64_t held = 0 ) const;
   CspfRefusal attributeReason( const CspfGraph & graph, CspfEdge edge ) const;

   CspfLinkConstraint constraint_;
   std::vector< uint8_t > admitted_;
   std::vector< uint64_t > countsByList_;
   bool countsSrlgs_ = false;
   uint64_t graphVersion_ = 0;
   uint64_t serial_ = 0;
};

}
