#pragma once

#include "Cspf/Graph/TreeRun.h"
#include "Cspf/Views/View.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Cspf {

/// One thing that an explanation says, as a line: what it is about, then values by name, all apart
/// by tabs: "hop", "from=10.0.0.1", "metric=10", ... What is empty is left out.
class ExplainedFact {
 public:
   explicit ExplainedFact( std::string_view kind ) : text_( kind ) {}
   ExplainedFact & with( std::string_view name, std::string_view value );
   ExplainedFact & with( std::string_view name, std::uint64_t value ) {
      return with( name, std::string_view( std::to_string( value ) ) );
   }
   const std::string & text() const noexcept { return text_; }

 private:
   std::string text_;
};
using ExplainedFacts = std::vector< ExplainedFact >;

/// A request for an ordinary path, and what is published for it.
struct ExplainedPath {
   InternalPathConstraint constraint;
   Kivnet::IpGenAddr destination;
   std::vector< Kivnet::IpGenAddr > hops;  ///< none: no path
};

/// The least ways under one constraint, from whatever router. It computes as runs do, with memory
/// of its own, and changes nothing.
class ExplainedSearch {
 public:
   /// O(edges).
   ExplainedSearch( const VrfTopology & topology, const InternalPathConstraint & constraint );

   const AllTopoDbView & view() const { return *view_; }
   const CspfGraph & graph() const { return view_->graph(); }
   const CspfLinkFilter & filter() const { return filter_; }
   /// noVertex where the source is in no topology.
   CspfVertex source() const { return filter_.constraint().root; }
   const CspfTree & from( CspfVertex vertex );
   /// What paths from one router cost to the nearest of those; nothing where there is none.
   std::optional< CspfCost > cost( CspfVertex vertex, std::span< const CspfVertex > to );
   /// The router of those that is nearest to the source; noVertex where none is reached.
   CspfVertex nearest( std::span< const CspfVertex > to );
   CspfRefusal refusal( CspfEdge edge ) const;
   /// What the edge adds to a path.
   CspfCost step( CspfEdge edge ) const;
   /// The edge, with all that tests of links read, and the test that refuses it.
   ExplainedFact fact( std::string_view kind, CspfEdge link, CspfEdge arrival ) const;

 private:
   Lum::Ptr< const AllTopoDbView > view_;
   CspfLinkFilter filter_;
   CspfRunOptions options_;
   CspfTreeRun run_;
   std::map< CspfVertex, CspfTree > trees_;
};

/// Explains what is published: hop by hop, against the best, or why there is none. O(edges) for
/// each part of the constraint that is left out, and for each pair of them.
ExplainedFacts explain( const VrfTopology & topology, const ExplainedPath & path );

/// Explains the best path that passes these addresses in this order: of a router, or of the far
/// end of a link. Where a test refuses it, that one; else what the path costs.
ExplainedFacts explainBy( const VrfTopology & topology, const ExplainedPath & path,
                          std::span< const Kivnet::IpGenAddr > by );

}
