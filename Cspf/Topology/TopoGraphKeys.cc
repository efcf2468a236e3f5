// Between the store's keys and the graph's numbers, and the order of the numbers.
//
// Views translate a constraint into numbers before a run and what the run found back into keys
// afterwards, so each way is a look-up or two. `settle` is the only operation that changes numbers
// of what is there; everything that keeps one is in this class or in the records of the links.

#include "Cspf/Topology/TopoGraph.h"

#include "platform/Lum/Assert.h"

namespace Cspf {

CspfVertex
TopoGraph::vertex( const NodeId & node ) const {
   const auto * entry = nodes_.find( node );
   return entry ? entry->second.value.vertex : noVertex;
}

CspfVertex
TopoGraph::vertex( const AllTopoNetworkId & network ) const {
   const auto topology = topologies_.find( network.topoId() );
   if ( topology == topologies_.end() ) {
      return noVertex;
   }
   const auto at = topology->second.networks.find( network.networkId().id() );
   return at == topology->second.networks.end() ? noVertex : at->second;
}

CspfVertex
TopoGraph::router( const TopoId & topoId, const IgpRouterId & router ) const {
   const Attached * present = attached( topoId, router );
   return present ? present->node->second.value.vertex : noVertex;
}

CspfEdge
TopoGraph::edge( const AllTopoNeighborKey & key ) const {
   auto * link = links_.find( { key.topoId(), key.neighborKey() } );
   return link ? place( *link ).edge : noEdge;
}

std::optional< std::uint16_t >
TopoGraph::topologyNumber( const TopoId & topoId ) const {
   const auto at = topologies_.find( topoId );
   return at == topologies_.end() ? std::nullopt : std::optional( at->second.number );
}

const NodeId &
TopoGraph::nodeId( CspfVertex router ) const {
   LUM_ASSERT( graph_.isRouter( router ) );
   return meanings_[ index( router ) ].node->first;
}

AllTopoNetworkId
TopoGraph::networkId( CspfVertex network ) const {
   return meanings_[ index( network ) ].networkId;
}

Kivnet::IpGenAddr
TopoGraph::teRouterIdOf( CspfVertex router ) const {
   return kind_ == TopoGraphKind::te ? nodeId( router ).ipAddress() : Kivnet::IpGenAddr();
}

AllTopoNeighborKey
TopoGraph::neighborKey( CspfEdge edge ) const {
   LUM_ASSERT( graph_.has( edge ) );
   const TopoLinkName & name = edgeMeanings_[ index( edge ) ].link->first;
   const bool fromNetwork = graph_.kind( edge ) == CspfEdgeKind::networkToRouter;
   const bool p2p = graph_.kind( edge ) == CspfEdgeKind::routerToRouter;
   return { name.topoId, name.neighborKey,
            teRouterIdOf( fromNetwork ? graph_.to( edge ) : graph_.from( edge ) ),
            p2p ? teRouterIdOf( graph_.to( edge ) ) : Kivnet::IpGenAddr() };
}

IgpRouterId
TopoGraph::igpRouterId( const TopoId & topoId, CspfVertex router ) const {
   const auto & routers = meanings_[ index( router ) ].node->second.value.routers;
   const auto at = routers.lower_bound( { topoId, {} } );
   return at == routers.end() || at->first != topoId ? IgpRouterId() : at->second;
}

bool
TopoGraph::overloaded( const TopoId & topoId, const IgpRouterId & router ) const {
   const Attached * present = attached( topoId, router );
   return present && present->overloaded;
}

std::vector< CspfEdge >
TopoGraph::edgesOfPartlyOverloaded( bool leaving ) const {
   std::vector< CspfEdge > found;
   for ( const auto * node : partlyOverloaded_ ) {
      const CspfVertex vertex = node->second.value.vertex;
      for ( const std::uint32_t e : leaving ? graph_.out( vertex ) : graph_.in( vertex ) ) {
         const CspfEdge edge{ e };
         const TopoLinkName & name = edgeMeanings_[ e ].link->first;
         const bool intoFarEnd = !leaving && graph_.kind( edge ) == CspfEdgeKind::routerToRouter;
         const auto & key = name.neighborKey;
         if ( overloaded( name.topoId, intoFarEnd ? key.neighborId() : key.routerId() ) ) {
            found.push_back( edge );
         }
      }
   }
   return found;
}

void
TopoGraph::settle( const NodeId & root ) {
   if ( changes_ * 4 <= graph_.edges() ) {
      return;
   }
   const CspfVertex first = vertex( root );
   if ( first == noVertex ) {
      return;
   }
   changes_ = 0;
   const CspfGraph::Renumbering to = graph_.renumber( first );
   std::vector< Meaning > meanings( graph_.vertexBound() );
   for ( std::size_t v = 0; v < meanings_.size(); ++v ) {
      if ( to.vertex[ v ] != noVertex ) {
         Meaning & meaning = meanings[ index( to.vertex[ v ] ) ] = meanings_[ v ];
         numberIs( meaning, to.vertex[ v ] );
      }
   }
   std::vector< EdgeMeaning > edges( graph_.edgeBound() );
   for ( std::size_t e = 0; e < edgeMeanings_.size(); ++e ) {
      if ( to.edge[ e ] != noEdge ) {
         edges[ index( to.edge[ e ] ) ] = edgeMeanings_[ e ];
         const bool step = graph_.kind( to.edge[ e ] ) == CspfEdgeKind::networkToRouter;
         TopoLink::Place & at = place( *edgeMeanings_[ e ].link );
         ( step ? at.membership : at.edge ) = to.edge[ e ];
      }
   }
   meanings_ = std::move( meanings );
   edgeMeanings_ = std::move( edges );
}

void
TopoGraph::numberIs( const Meaning & meaning, CspfVertex vertex ) {
   if ( meaning.node ) {
      meaning.node->second.value.vertex = vertex;
   } else {
      topologies_.at( meaning.networkId.topoId() )
         .networks.at( meaning.networkId.networkId().id() ) = vertex;
   }
}

std::string
nodeText( const TopoGraph & topology, CspfVertex vertex ) {
   return topology.graph().isRouter( vertex ) ? topology.nodeId( vertex ).stringValue()
                                              : Lum::valueString( topology.networkId( vertex ) );
}

}
