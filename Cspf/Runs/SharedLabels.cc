// Who shares labels with whom. A thousand constraints of a service refuse one link each, and test
// all others alike: they have one labelling, which follows a change once.

#include "Cspf/Runs/SharedLabels.h"

#include <algorithm>
#include <utility>

namespace Cspf {

std::shared_ptr< CspfLabels >
SharedLabels::labels( const CspfGraph & graph, const CspfLinkConstraint & constraint,
                      bool reverse ) {
   const std::uint64_t epoch = graph.changes().epoch();
   if ( std::exchange( epoch_, epoch ) != epoch ) {
      labels_.clear();  // numbers of before; nobody follows with these any more
   }
   const std::pair key{ reverse, constraint };
   if ( const auto known = labels_.find( key ); known != labels_.end() ) {
      if ( auto labels = known->second.lock() ) {
         return labels;
      }
   }
   if ( !hasRoom( graph ) ) {
      return nullptr;
   }
   const CspfRunOptions options{ constraint.root, true, false, reverse, false };
   auto labels = std::make_shared< CspfLabels >( constraint, options );
   labels_[ key ] = labels;
   return labels;
}

/// Whether labels more are not too many; looks at those that there are now and then.
bool
SharedLabels::hasRoom( const CspfGraph & graph ) {
   const std::size_t limit =
      std::max< std::size_t >( most / ( sizeof( std::uint32_t ) * graph.vertexBound() ), 1 );
   if ( labels_.size() >= std::min( swept_ + 64, limit ) ) {
      std::erase_if( labels_, []( const auto & entry ) { return entry.second.expired(); } );
      swept_ = labels_.size();
   }
   return labels_.size() < limit;
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
