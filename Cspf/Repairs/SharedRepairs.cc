// What all requests share that protect the same link or node, whatever their destination: the same
// four runs, and so the same table.

#include "Cspf/Repairs/SharedRepairs.h"

#include "Cspf/Views/View.h"

namespace Cspf::Lfa {

bool
RepairRuns::complete() const {
   return constrained && constrained->hasTree() && forward && forward->hasTree() && neighbor
          && neighbor->hasTree() && reverse && reverse->hasTree();
}

const TopoGraph &
SharedRepairs::topology() const {
   return runs_.constrained->view().topoGraph();
}

const CspfRepairTable &
SharedRepairs::table() {
   if ( !table_ ) {
      const TopoGraph & topology = this->topology();
      const CspfVertex plr = topology.vertex( runs_.constrained->source() );
      const CspfVertex node = runs_.neighbor->view().vertex( runs_.neighbor->source() );
      table_ = std::make_unique< CspfRepairTable >();
      table_->build( topology.graph(),
                     { plr, node, runs_.isLinkProtection, runs_.forward->tree().metric( node ) },
                     { runs_.constrained->tree(), runs_.neighbor->tree(), runs_.reverse->tree() },
                     { runs_.forward->view().linkConstraint( NodeId() ),
                       runs_.constrained->view().linkConstraint( runs_.constrained->source() ) } );
   }
   return *table_;
}

}
