// The topology of a repair. It follows from the interfaces that this router's own entries name,
// and, for the few interfaces in two levels, from what level 1 reaches. A change of the topology
// that moves neither costs a comparison; otherwise each request is looked at.
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
   const Lum::Seconds changedAt = status.topoChangedAt();
   const NodeId self = status.sourceId( PathComputationType::tilfa );
   if ( std::exchange( self_, self ) != self ) {
      interfacesAt_ = -1;
      reached_.clear();
   }
   if ( std::exchange( interfacesAt_, changedAt ) != changedAt ) {
      interfaces_.clear();
      for ( const auto & [ topoId, table ] : status.topoDbColl() ) {
         addInterfaces( topoId, *table );
      }
   }
   return interfaces_;
}

void
RepairScope::addInterfaces( const TopoId & topoId, const Routing::Topology::TopoDb & table ) const {
   const auto * router = self_ ? table.routerFind( IgpRouterId( self_ ) ) : nullptr;
   if ( !router ) {
      return;
   }
   for ( const auto & key : router->neighborSet() ) {
      const auto * neighbor = table.neighborFind( key );
      if ( neighbor && neighbor->intfId() ) {
         auto & topologies = interfaces_[ neighbor->intfId() ];
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
   if ( graph_.lock() != graph ) {  // versions of another one tell nothing
      graph_ = graph;
      reached_.clear();
   }
   const CspfTree & tree = this->tree( topoId, *graph );
   const auto reachesNode = [ & ]( const NodeId & node ) {
      const CspfVertex vertex = graph->vertex( node );
      return vertex != noVertex && tree.reached( vertex );
   };
   if ( tree.reachedVertices().empty() || destination.isisSystemId() ) {
      return !tree.reachedVertices().empty() && reachesNode( NodeId( destination ) );
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

/// Without vertices where this router is not in the topology.
const CspfTree &
RepairScope::tree( const TopoId & topoId, const TopoGraph & graph ) const {
   CspfTree & tree = reached_[ topoId ];
   if ( tree.graphVersion() == graph.graph().version() ) {
      return tree;
   }
   InternalPathConstraint constraint;
   constraint.topoIdIs( topoId );
   constraint.pathComputationTypeIs( PathComputationType::tilfa );
   const AllTopoLfaDbView view( topology_, constraint );
   const NodeId self = view.getOurSourceId();
   const CspfLinkConstraint numbers = view.linkConstraint( self );
   CspfRunOptions options;
   options.source = graph.vertex( self );
   if ( options.source == noVertex ) {
      return tree = CspfTree();
   }
   CspfLinkFilter filter;
   filter.apply( graph.graph(), numbers );
   CspfTreeRun().run( graph.graph(), filter, options, tree );
   return tree;
}

void
RepairScope::handleTopoChanged() {
   const bool severalLevels = std::ranges::any_of(
      interfaces(), []( const auto & entry ) { return entry.second.size() > 1; } );
   if ( told_ != interfaces() || severalLevels ) {
      told_ = interfaces();
      changeCountInc();
   }
}

}
