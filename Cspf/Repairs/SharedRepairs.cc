// What all requests share that protect the same link or node, whatever their destination: the same
// four runs, and so the same table.
//
// Where the next runs find the same trees, answers hold unless they rest on something else. Beside
// trees repairs read: the links of the PLR, by which they choose and which the client leaves by;
// whether the PLR or the node is overloaded; what of the paths after the failure is published, the
// addresses of links, which no tree survives that they change in; and, where the constraint refuses
// more than the resource, or a repair leaves these paths, plain forwarding, which may change with
// any link.

#include "Cspf/Repairs/SharedRepairs.h"

#include "Cspf/Views/View.h"

#include <algorithm>

namespace Cspf::Lfa {

bool
RepairRuns::complete() const {
   return constrained && constrained->hasTree() && forward && forward->hasTree() && neighbor
          && neighbor->hasTree() && reverse && reverse->hasTree();
}

CspfProtectedResource
RepairRuns::resource() const {
   const CspfVertex node = neighbor->view().vertex( neighbor->source() );
   return { constrained->view().vertex( constrained->source() ), node, isLinkProtection,
            forward->tree().metric( node ) };
}

SharedRepairs::SharedRepairs( RepairRuns runs ) : runs_( std::move( runs ) ) {
   if ( runs_.constrained ) {
      resource_ = runs_.resource();
      position_ = topology().graph().changes().end();
   }
}

void
SharedRepairs::runsAre( RepairRuns now ) {
   const bool readForwarding = readsForwarding();
   *this = SharedRepairs( std::move( now ) );
   readForwarding_ = readForwarding;
}

/// Of the plain tree from this router they read one cost.
bool
SharedRepairs::haveSameTrees( const RepairRuns & now ) const {
   const auto same = []( const auto & one, const auto & other ) {
      return one->tree().serial() == other->tree().serial();
   };
   return runs_.constrained && same( runs_.constrained, now.constrained )
          && same( runs_.neighbor, now.neighbor ) && same( runs_.reverse, now.reverse )
          && now.resource() == resource_;
}

bool
SharedRepairs::holdFor( const RepairRuns & now ) const {
   if ( !haveSameTrees( now ) || readsForwarding() ) {
      return false;
   }
   const CspfGraph & graph = now.constrained->view().graph();
   const CspfRefusedLinks refused(
      graph, now.forward->view().linkConstraint( NodeId() ),
      now.constrained->view().linkConstraint( now.constrained->source() ),
      [ & ]( CspfEdge edge ) { return resource_.isEnteredBy( graph, edge ); } );
   const auto isRead = [ & ]( const CspfEdgeChange & change ) {
      return change.from == resource_.plr || change.to == resource_.plr
             || ( change.from == change.to && change.to == resource_.node )
             || std::ranges::any_of( graph.out( change.from ), [ & ]( std::uint32_t e ) {
                   return graph.to( CspfEdge{ e } ) == change.to && refused.has( CspfEdge{ e } );
                } );
   };
   const auto changes = graph.changes().since( position_ );
   return changes && std::ranges::none_of( *changes, isRead );
}

const TopoGraph &
SharedRepairs::topology() const {
   return runs_.constrained->view().topoGraph();
}

CspfRepairTable &
SharedRepairs::table() {
   if ( !table_ ) {
      const CspfRepairTrees trees{ runs_.constrained->tree(), runs_.neighbor->tree(),
                                   runs_.reverse->tree() };
      table_ = std::make_unique< CspfRepairTable >(
         topology().graph(), resource_, trees,
         CspfRepairConstraints{
            runs_.forward->view().linkConstraint( NodeId() ),
            runs_.constrained->view().linkConstraint( runs_.constrained->source() ) } );
   }
   return *table_;
}

}
