// Between the store's keys and the graph's numbers, and the order of the numbers.
//
// Views translate a constraint into numbers before a run and what the run found back into keys
// afterwards, so each way is a look-up or two. `settle` is the only operation that changes numbers
// of what is there; everything that keeps one is in this class or in the records of the links.

#include "Cspf/Topology/TopoGraph.h"

#include "platform/Lum/Assert.h"

#include <algorithm>

namespace Cspf {

CspfVertex
TopoGraph::vertex( const NodeId & node ) const {
   const auto * entry = nodes_.find( node );
   return entry ? entry->second.value.vertex : noVertex;
}

CspfVertex
TopoGraph::vertex( const AllTopoNetworkId & network ) const {
   const TopoRouter * present = links_.router( network.topoId(), network.networkId().id() );
   return present ? part( *present ).network : noVertex;
}

CspfVertex
TopoGraph::vertex( const TopoRouter & router ) const {
   const auto * node = part( router ).node;
   return node ? node->second.value.vertex : noVertex;
}

CspfVertex
TopoGraph::router( const TopoId & topoId, const IgpRouterId & router ) const {
   const TopoRouter * present = links_.router( topoId, router );
   return present ? vertex( *present ) : noVertex;
}

CspfEdge
TopoGraph::edge( const AllTopoNeighborKey & key ) const {
   auto * link = links_.find( key );
   return link ? edgeOf( *link ) : noEdge;
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
   const TopoRouterName & name = meanings_[ index( network ) ].network->first;
   return { name.topoId(), { name.id() } };
}

Kivnet::IpGenAddr
TopoGraph::teRouterIdOf( CspfVertex router ) const {
   return kind_ == TopoGraphKind::te ? nodeId( router ).ipAddress() : Kivnet::IpGenAddr();
}

AllTopoNeighborKey
TopoGraph::neighborKey( CspfEdge edge ) const {
   LUM_ASSERT( graph_.has( edge ) );
   const TopoLink & link = *edgeMeanings_[ index( edge ) ].link;
   const bool fromNetwork = graph_.kind( edge ) == CspfEdgeKind::networkToRouter;
   const bool p2p = graph_.kind( edge ) == CspfEdgeKind::routerToRouter;
   return { link.topoId(), link.neighborKey(),
            teRouterIdOf( fromNetwork ? graph_.to( edge ) : graph_.from( edge ) ),
            p2p ? teRouterIdOf( graph_.to( edge ) ) : Kivnet::IpGenAddr() };
}

IgpRouterId
TopoGraph::igpRouterId( const TopoId & topoId, CspfVertex router ) const {
   auto & routers = meanings_[ index( router ) ].node->second.value.routers;
   const auto at = std::ranges::find_if(
      routers, [ & ]( const TopoRouter * one ) { return one->first.topoId() == topoId; } );
   return at == routers.end() ? IgpRouterId() : ( *at )->first.id();
}

bool
TopoGraph::overloaded( const TopoId & topoId, const IgpRouterId & router ) const {
   const TopoRouter * present = links_.router( topoId, router );
   return present && part( *present ).overloaded;
}

std::vector< CspfEdge >
TopoGraph::edgesOfPartlyOverloaded( bool leaving ) const {
   std::vector< CspfEdge > found;
   for ( const auto * node : partlyOverloaded_ ) {
      const CspfVertex vertex = node->second.value.vertex;
      for ( const std::uint32_t e : leaving ? graph_.out( vertex ) : graph_.in( vertex ) ) {
         const CspfEdge edge{ e };
         const TopoLink & link = *edgeMeanings_[ e ].link;
         const bool intoFarEnd = !leaving && graph_.kind( edge ) == CspfEdgeKind::routerToRouter;
         if ( part( intoFarEnd ? *link.to : *link.from ).overloaded ) {
            found.push_back( edge );
         }
      }
   }
   return found;
}

void
TopoGraph::settle( CspfVertex root ) {
   if ( changes_ * 4 <= graph_.edges() || root == noVertex ) {
      return;
   }
   settlePairs();  // those to be paired are known by their numbers
   changes_ = 0;
   const CspfGraph::Renumbering to = graph_.renumber( root );
   std::vector< Meaning > meanings( graph_.vertexBound() );
   for ( std::size_t v = 0; v < meanings_.size(); ++v ) {
      if ( to.vertex[ v ] != noVertex ) {
         Meaning & meaning = meanings[ index( to.vertex[ v ] ) ] = meanings_[ v ];
         ( meaning.node ? meaning.node->second.value.vertex : part( *meaning.network ).network ) =
            to.vertex[ v ];
      }
   }
   std::vector< EdgeMeaning > edges( graph_.edgeBound() );
   AddressColumn nextHops;
   nextHops.resize( graph_.edgeBound() );
   for ( std::size_t e = 0; e < edgeMeanings_.size(); ++e ) {
      if ( to.edge[ e ] != noEdge ) {
         edges[ index( to.edge[ e ] ) ] = edgeMeanings_[ e ];
         nextHops.set( index( to.edge[ e ] ), nextHops_[ e ] );
         if ( graph_.kind( to.edge[ e ] ) != CspfEdgeKind::networkToRouter ) {
            edgeOf( *edgeMeanings_[ e ].link ) = to.edge[ e ];
         }
      }
   }
   meanings_ = std::move( meanings );
   edgeMeanings_ = std::move( edges );
   nextHops_ = std::move( nextHops );
}

std::string
nodeText( const TopoGraph & topology, CspfVertex vertex ) {
   return topology.graph().isRouter( vertex ) ? topology.nodeId( vertex ).stringValue()
                                              : Lum::valueString( topology.networkId( vertex ) );
}

}
