#pragma once

#include "Cspf/Graph/Labels.h"

#include <map>
#include <memory>

namespace Cspf {

/// The labels of one graph, for all constraints that admit the same links by the same tests, and
/// what they are worked out in.
class SharedLabels {
 public:
   /// The labels of that constraint, from its root; they go with their last user. `epoch`: of the
   /// graph's changes; the numbers in the constraint are of it.
   std::shared_ptr< CspfLabels > labels( const CspfLinkConstraint & constraint,
                                         std::uint64_t epoch );
   /// CspfLabels::touchedSince; null where it may be everything. One who asks as the last one did
   /// gets the same again. Valid until the next question.
   const CspfTouched * touchedSince( const std::shared_ptr< CspfLabels > & labels,
                                     std::uint64_t steps, std::uint32_t vertexBound );
   CspfLabelMemory & memory() noexcept { return memory_; }
   /// Off: constraints do not follow, but are run each time. For comparison.
   void enabledIs( bool enabled ) noexcept { enabled_ = enabled; }
   bool enabled() const noexcept { return enabled_; }

 private:
   bool enabled_ = true;
   std::uint64_t epoch_ = 0;
   std::map< CspfLinkConstraint, std::weak_ptr< CspfLabels > > labels_;
   CspfLabelMemory memory_;
   CspfTouched touched_;
   // Whose marks these are.
   std::weak_ptr< const CspfLabels > touchedLabels_;
   std::uint64_t touchedFrom_ = 0, touchedTo_ = 0;
};

}
