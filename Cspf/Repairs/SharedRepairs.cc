// Who shares repairs: all requests that protect the same link or node, whatever their destination,
// have the same four runs, and so the same table. It is kept while the computation of one of them
// holds it.

#include "Cspf/Repairs/SharedRepairs.h"

#include "Cspf/Views/View.h"

#include <tuple>

namespace Cspf::Lfa {

bool
RepairRuns::complete() const {
   return constrained && constrained->hasTree() && forward && forward->hasTree() && neighbor
          && neighbor->hasTree() && reverse && reverse->hasTree();
}

std::strong_ordering
SharedRepairs::compare( const Kiv::DedupHandle & other ) const {
   const auto key = []( const RepairRuns & runs ) {
      return std::tuple( runs.constrained.ptr(), runs.forward.ptr(), runs.neighbor.ptr(),
                         runs.reverse.ptr(), runs.isLinkProtection );
   };
   return key( runs_ ) <=> key( static_cast< const SharedRepairs & >( other ).runs_ );
}

const CspfRepairTable &
SharedRepairs::table( const TopoGraph & topology ) {
   if ( !table_ ) {
      const CspfVertex plr = topology.vertex( runs_.constrained->source() );
      const CspfVertex node = runs_.neighbor->view().vertex( runs_.neighbor->source() );
      table_.emplace().build(
         topology.graph(),
         { plr, node, runs_.isLinkProtection, runs_.forward->tree().metric( node ) },
         { runs_.constrained->tree(), runs_.neighbor->tree(), runs_.reverse->tree() },
         { runs_.forward->view().linkConstraint( NodeId() ),
           runs_.constrained->view().linkConstraint( runs_.constrained->source() ) } );
   }
   return *table_;
}

}
