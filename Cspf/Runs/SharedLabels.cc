// Who shares labels with whom. A thousand constraints of a service refuse one link each, and test
// all others alike: they have one labelling, which follows a change once.

#include "Cspf/Runs/SharedLabels.h"

#include <utility>

namespace Cspf {

std::shared_ptr< CspfLabels >
SharedLabels::labels( const CspfLinkConstraint & constraint, std::uint64_t epoch ) {
   if ( std::exchange( epoch_, epoch ) != epoch ) {
      labels_.clear();  // numbers of before; nobody follows with these any more
   }
   if ( labels_.size() > 64 ) {
      std::erase_if( labels_, []( const auto & entry ) { return entry.second.expired(); } );
   }
   std::weak_ptr< CspfLabels > & known = labels_[ constraint ];
   std::shared_ptr< CspfLabels > labels = known.lock();
   if ( !labels ) {
      const CspfRunOptions options{ constraint.root, true, false, false, false };
      labels = std::make_shared< CspfLabels >( constraint, options );
      known = labels;
   }
   return labels;
}

const CspfTouched *
SharedLabels::touchedSince( const std::shared_ptr< CspfLabels > & labels, std::uint64_t steps,
                            std::uint32_t vertexBound ) {
   const bool same =
      !touchedLabels_.owner_before( labels ) && !labels.owner_before( touchedLabels_ );
   if ( same && touchedFrom_ == steps && touchedTo_ == labels->steps() ) {
      return &touched_;
   }
   touchedLabels_.reset();
   if ( !labels->touchedSince( steps, vertexBound, touched_ ) ) {
      return nullptr;
   }
   touchedLabels_ = labels;
   touchedFrom_ = steps;
   touchedTo_ = labels->steps();
   return &touched_;
}

}
