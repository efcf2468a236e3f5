// The topology of a repair. It follows from the interfaces that this router's own entries name,
// and, for interfaces in two levels, from what level 1 reaches. A change of the topology that moves
// neither costs a comparison; otherwise each request is looked at. Requests ask whenever they come,
// also between a change and its telling, so whatever moves is noted until it is told.
//
// An interface that has gone belongs to no topology. Whoever asks then keeps the one that it had.

#include "Cspf/Requests/RepairScope.h"

#include "Cspf/Graph/TreeRun.h"
#include "Cspf/Views/View.h"

#include <algorithm>
#include <utility>

namespace Cspf {

PathConstraint
repairConstraint( PathConstraint constraint ) {
   if ( !constraint.excludeIntf() && constraint.excludeNode() ) {
      constraint.excludeIntfIs( constraint.excludeNode().nexthopIntf() );
   }
   return constraint;
}

const RepairScope::Interfaces &
RepairScope::interfaces() const {
   const AllTopoDbStatus & status = *topology_.allTopoDbStatus;
   const NodeId self = status.sourceId( PathComputationType::tilfa );
   const Lum::Seconds changedAt = status.topoChangedAt();
   if ( std::exchange( self_, self ) != self ) {
      interfacesAt_ = -1;
      forgetReach();
   }
   if ( std::exchange( interfacesAt_, changedAt ) != changedAt ) {
      const Interfaces before = std::exchange( interfaces_, interfacesOf( status ) );
      isChanged_ |= before != interfaces_;
   }
   return interfaces_;
}

RepairScope::Interfaces
RepairScope::interfacesOf( const AllTopoDbStatus & status ) const {
   Interfaces interfaces;
   for ( const auto & [ topoId, table ] : status.topoDbColl() ) {
      addInterfaces( topoId, *table, interfaces );
   }
   return interfaces;
}

void
RepairScope::addInterfaces( const TopoId & topoId, const Routing::Topology::TopoDb & table,
                            Interfaces & interfaces ) const {
   const auto * router = self_ ? table.routerFind( IgpRouterId( self_ ) ) : nullptr;
   if ( !router ) {
      return;
   }
   for ( const auto & key : router->neighborSet() ) {
      const auto * neighbor = table.neighborFind( key );
      if ( neighbor && neighbor->intfId() ) {
         auto & topologies = interfaces[ neighbor->intfId() ];
         if ( topologies.empty() || topologies.back() != topoId ) {
            topologies.push_back( topoId );
         }
      }
   }
}

TopoId
RepairScope::topoId( const Kivnet::IntfId & intfId, const Destination & destination ) const {
   const auto & interfaces = this->interfaces();
   const auto at = interfaces.find( intfId );
   if ( at == interfaces.end() ) {
      return {};
   }
   const auto & topologies = at->second;
   const auto reached =
      std::find_if( topologies.begin(), topologies.end() - 1,
                    [ & ]( const TopoId & topoId ) { return reaches( topoId, destination ); } );
   return *reached;
}

bool
RepairScope::reaches( const TopoId & topoId, const Destination & destination ) const {
   const auto & status = *topology_.allTopoDbStatus;
   const auto graph = status.lfaGraph();
   if ( graph_.lock() != graph ) {
      forgetReach();
      graph_ = graph;
   }
   Reach & reach = reach_[ topoId ];
   follow( topoId, reach );
   const auto reachesNode = [ & ]( const NodeId & node ) {
      const CspfVertex vertex = graph->vertex( node );
      return vertex != noVertex && reach.tree.reached( vertex );
   };
   if ( reach.tree.reachedVertices().empty() || destination.isisSystemId() ) {
      return !reach.tree.reachedVertices().empty() && reachesNode( NodeId( destination ) );
   }
   const auto prefix = destination.ipPrefix()
                          ? destination.ipPrefix()
                          : Kivnet::IpGenPrefix::host( destination.ipAddress() );
   const auto & table = status.pfxOriginatorInfoTable( topoId );
   const auto info = table ? table->pfxOriginatorInfo( prefix ) : nullptr;
   return info && std::ranges::any_of( info->originatorInfoColl(), [ & ]( const auto & entry ) {
             return reachesNode( entry.second.routerId() );
          } );
}

/// Numbers of another graph tell nothing.
void
RepairScope::forgetReach() const {
   isChanged_ |= !reach_.empty();
   reach_.clear();
}

/// The constraint's translation may renumber the graph.
void
RepairScope::follow( const TopoId & topoId, Reach & reach ) const {
   InternalPathConstraint constraint;
   constraint.topoIdIs( topoId );
   constraint.pathComputationTypeIs( PathComputationType::tilfa );
   const AllTopoLfaDbView view( topology_, constraint );
   const CspfGraph & graph = view.graph();
   if ( reach.version == graph.version() ) {
      return;
   }
   const CspfLinkConstraint numbers = view.linkConstraint( view.getOurSourceId() );
   const auto changes =
      graph.changes().since( std::exchange( reach.position, graph.changes().end() ) );
   const auto reached = reach.tree.reachedVertices();
   const std::vector< CspfVertex > before( reached.begin(), reached.end() );
   CspfLinkFilter filter;
   filter.constraintIs( numbers );
   if ( numbers.root == noVertex ) {
      reach.tree = CspfTree();
   } else if ( before.empty() || !changes || numbers != reach.numbers
               || !treeRepair_.follow( graph, filter, *changes, true, reach.tree ) ) {
      CspfRunOptions options;
      options.source = numbers.root;
      filter.apply( graph, numbers );
      CspfTreeRun().run( graph, filter, options, reach.tree );
   }
   const auto isReached = [ & ]( CspfVertex vertex ) { return reach.tree.reached( vertex ); };
   isChanged_ |= reach.version != 0
                 && ( !changes || before.size() != reach.tree.reachedVertices().size()
                      || !std::ranges::all_of( before, isReached ) );
   reach.numbers = numbers;
   reach.version = graph.version();
}

void
RepairScope::handleTopoChanged() {
   interfaces();
   if ( graph_.expired() ) {
      forgetReach();
   }
   for ( auto & [ topoId, reach ] : reach_ ) {
      follow( topoId, reach );
   }
   const std::uint32_t originatorChanges = topology_.allTopoDbStatus->originatorChangeCount();
   isChanged_ |= std::exchange( originatorChanges_, originatorChanges ) != originatorChanges
                 && !reach_.empty();
   if ( std::exchange( isChanged_, false ) ) {
      changeCountInc();
   }
}

}
