#pragma once

#include "Cspf/Runs/RunData.h"
#include "Cspf/Topology/TopoGraph.h"

namespace Cspf {

/// A graph's numbers in the words of the topology.
struct CspfRunWords {
   const TopoGraph & topology;
   const CspfTree & tree;

   std::string node( CspfVertex vertex ) const { return nodeText( topology, vertex ); }
   std::string cost( CspfVertex vertex ) const { return pathCost( vertex ).stringValue(); }
   CspfPathCost pathCost( CspfVertex vertex ) const {
      const CspfCost cost = tree.cost( vertex );
      return { cost.metric, cost.srlgExclude, cost.srlgInclude };
   }
   /// The key of an edge as a last link of its far end.
   CspfLinkInfoKey linkInfoKey( CspfEdge edge ) const {
      const CspfGraph & graph = topology.graph();
      const CspfVertex to = graph.to( edge );
      if ( graph.kind( edge ) != CspfEdgeKind::networkToRouter ) {
         return { topology.neighborKey( edge ), NodeId(), pathCost( to ) };
      }
      const CspfEdge entry = tree.entryLink( graph, graph.from( edge ) );
      return { topology.neighborKey( entry ), topology.nodeId( to ), pathCost( to ) };
   }
   std::string link( CspfEdge edge ) const { return topology.neighborKey( edge ).stringValue(); }
};

}
