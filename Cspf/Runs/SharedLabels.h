#pragma once

#include "Cspf/Graph/Labels.h"

#include <map>
#include <memory>
#include <utility>

namespace Cspf {

/// The labels of one graph, for all constraints that admit the same links by the same tests, and
/// what they are worked out in.
class SharedLabels {
 public:
   /// The metrics of all labels together take no more, bytes; counts of SRLGs come on top.
   static constexpr std::size_t most = 64 << 20;

   /// The labels of that constraint, from its root; they go with their last user. Null where there
   /// is no room for more. The numbers in the constraint are those of the graph. `reverse`: for
   /// paths towards the root.
   std::shared_ptr< CspfLabels > labels( const CspfGraph & graph,
                                         const CspfLinkConstraint & constraint, bool reverse );
   /// CspfLabels::touchedSince; null where it may be everything. One who asks as the last one did
   /// gets the same again. Valid until the next question.
   const CspfTouched * touchedSince( const std::shared_ptr< CspfLabels > & labels,
                                     std::uint64_t steps, std::uint32_t vertexBound );
   CspfLabelMemory & memory() noexcept { return memory_; }
   /// What has moved in the overlay that was worked out last.
   std::vector< CspfVertex > & moved() noexcept { return moved_; }
   /// Off: constraints do not follow, but are run each time. For comparison.
   void enabledIs( bool enabled ) noexcept { enabled_ = enabled; }
   bool enabled() const noexcept { return enabled_; }

 private:
   bool hasRoom( const CspfGraph & graph );

   bool enabled_ = true;
   std::uint64_t epoch_ = 0;
   std::size_t swept_ = 0;  // labels that were in use when they were last counted
   std::map< std::pair< bool, CspfLinkConstraint >, std::weak_ptr< CspfLabels > > labels_;
   CspfLabelMemory memory_;
   std::vector< CspfVertex > moved_;
   CspfTouched touched_;
   // Whose marks these are.
   std::weak_ptr< const CspfLabels > touchedLabels_;
   std::uint64_t touchedFrom_ = 0, touchedTo_ = 0;
};

}
