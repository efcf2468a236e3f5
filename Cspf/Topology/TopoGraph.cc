// From the store's records to the compact graph.
//
// The import drives it: routers are attached to nodes, links come and go, LANs list their routers.
// It owns the graph and, for each vertex and edge, what it stands for; where a link stands in the
// graph is noted in the store's own record of the link. Nothing here reads a whole topology: a
// change looks at the record that changed and at what hangs on it.
//
// A link whose far end takes no part waits under the name of that router, so that it is found
// when the router comes.

#include "Cspf/Topology/TopoGraph.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace Cspf {

namespace Igp = Routing::Topology;

namespace {

/// The fields that come from a neighbour entry. Ranks are kept up to date on their own.
bool
sameRecord( const CspfEdgeRecord & a, const CspfEdgeRecord & b ) {
   const auto rest = []( const CspfEdgeRecord & r ) {
      return std::tie( r.igpMetric, r.teMetric, r.adminGroup, r.unreserved, r.interface );
   };
   return rest( a ) == rest( b ) && std::ranges::equal( a.srlgs, b.srlgs );
}

}

void
TopoGraph::topologyIs( const TopoId & topoId, const Lum::Ptr< const Igp::TopoDb > & topoDb ) {
   const auto [ at, fresh ] = topologies_.try_emplace( topoId );
   at->second.topoDb = topoDb;
   if ( fresh ) {
      const auto free = std::ranges::find( topologyNumbers_, false );
      const auto number = free - topologyNumbers_.begin();
      LUM_ASSERT( number < noTopology );
      at->second.number = static_cast< std::uint16_t >( number );
      topologyNumbers_.resize( std::max( topologyNumbers_.size(), std::size_t( number ) + 1 ) );
      topologyNumbers_[ number ] = true;
      const std::size_t links = graph_.edgeBound() + topoDb->neighbors();
      graph_.reserve( graph_.vertexBound() + topoDb->routers(), links );
      meanings_.reserve( graph_.vertexBound() + topoDb->routers() );
      edgeMeanings_.reserve( links );
      nextHops_.reserve( links );
   }
}

void
TopoGraph::topologyDel( const TopoId & topoId ) {
   for ( TopoRouter * router : links_.routersOf( topoId ) ) {
      if ( part( *router ).node ) {
         detach( *router );
      }
   }
   const auto at = topologies_.find( topoId );
   topologyNumbers_[ at->second.number ] = false;
   topologies_.erase( at );
}

// Routers and nodes.

void
TopoGraph::meaningIs( CspfVertex vertex, const Meaning & meaning ) {
   if ( index( vertex ) >= meanings_.size() ) {
      meanings_.resize( graph_.vertexBound() );
   }
   meanings_[ index( vertex ) ] = meaning;
}

TopoNodes::Entry &
TopoGraph::nodeIs( const NodeId & nodeId ) {
   TopoNodes::Entry & entry = nodes_.insert( nodeId, [ this ]( const TopoNodes::Entry & moved ) {
      graph_.nodeRankIs( moved.second.value.vertex, moved.second.rank );
   } );
   TopoNode & node = entry.second.value;
   if ( node.vertex == noVertex ) {
      node.vertex = graph_.addRouter( entry.second.rank );
      meaningIs( node.vertex, { &entry, nullptr } );
   }
   return entry;
}

void
TopoGraph::attach( const TopoId & topoId, const IgpRouterId & router, const NodeId & node ) {
   TopoRouter & entry = links_.routerIs( topoId, router );
   if ( const auto * present = part( entry ).node; present && present->first != node ) {
      detach( entry );
   }
   attach( links_.routerIs( topoId, router ), node );
}

void
TopoGraph::attach( TopoRouter & router, const NodeId & nodeId ) {
   if ( part( router ).node ) {
      return;
   }
   graph_.noteAll();
   const auto & topology = topologies_.at( router.first.topoId() );
   TopoNodes::Entry & node = nodeIs( nodeId );
   auto & routers = node.second.value.routers;
   routers.insert(
      std::ranges::find_if( routers,
                            [ & ]( const auto * other ) { return router.first < other->first; } ),
      &router );
   part( router ).node = &node;
   updateOverload( node );
   for ( TopoLink * link : router.second.links ) {
      if ( const auto * neighbor = topology.topoDb->neighborFind( link->neighborKey() ) ) {
         connect( *link, *neighbor );
      }
   }
   for ( auto at = waiting_.lower_bound( { &router, nullptr } );
         at != waiting_.end() && at->first.first == &router; at = waiting_.erase( at ) ) {
      connect( *at->first.second, *at->second );
   }
}

void
TopoGraph::detach( const TopoId & topoId, const IgpRouterId & router ) {
   if ( TopoRouter * const present = links_.router( topoId, router );
        present && part( *present ).node ) {
      detach( *present );
   }
}

void
TopoGraph::detach( TopoRouter & router ) {
   TopoNodes::Entry & entry = *part( router ).node;
   TopoNode & node = entry.second.value;
   graph_.noteAll();
   for ( TopoLink * link : router.second.links ) {
      disconnect( *link );
   }
   std::vector< std::pair< TopoLink *, const Igp::Neighbor * > > entering;
   for ( const std::uint32_t e : graph_.in( node.vertex ) ) {
      const EdgeMeaning & meaning = edgeMeanings_[ e ];
      if ( meaning.link->to == &router ) {
         entering.emplace_back( meaning.link, meaning.neighbor );
      }
   }
   for ( const auto & [ link, neighbor ] : entering ) {
      disconnect( *link );
      waiting_.emplace( std::pair( &router, link ), neighbor );
   }
   auto * const own = std::ranges::find( node.routers, &router );
   node.routers.erase( own, own + 1 );
   node.overloaded -= part( router ).overloaded;
   part( router ).node = nullptr;
   part( router ).overloaded = false;
   updateOverload( entry );
   if ( node.routers.empty() ) {
      graph_.removeVertex( node.vertex );
      nodes_.erase( NodeId( entry.first ) );
   }
   links_.routerDelIfUnused( router );
}

void
TopoGraph::overloadedIs( const TopoId & topoId, const IgpRouterId & router, bool overloaded ) {
   TopoRouter * const present = links_.router( topoId, router );
   if ( present && part( *present ).node && part( *present ).overloaded != overloaded ) {
      TopoNodes::Entry & node = *part( *present ).node;
      part( *present ).overloaded = overloaded;
      node.second.value.overloaded += overloaded ? 1 : -1;
      updateOverload( node );
   }
}

void
TopoGraph::updateOverload( TopoNodes::Entry & entry ) {
   const TopoNode & node = entry.second.value;
   const bool all = node.overloaded == node.routers.size();
   graph_.overloadedIs( node.vertex, node.overloaded && all );
   const bool changed = node.overloaded && !all ? partlyOverloaded_.insert( &entry ).second
                                                : partlyOverloaded_.erase( &entry ) > 0;
   if ( changed ) {
      graph_.noteAll();
   }
   // The graph holds nothing of that, nor of who is attached, yet filters do: the same rank makes a
   // new version.
   graph_.nodeRankIs( node.vertex, entry.second.rank );
}

void
TopoGraph::touch( const TopoId & topoId, const IgpRouterId & router ) {
   if ( const TopoRouter * present = links_.router( topoId, router ) ) {
      touch( *present );
   }
}

void
TopoGraph::touch( const TopoRouter & router ) {
   if ( const CspfVertex vertex = this->vertex( router ); vertex != noVertex ) {
      graph_.touch( vertex );
   }
}

// Links.

CspfEdgeRecord
TopoGraph::record( const TopoLink & link, const OneTopology & topology,
                   const Igp::Neighbor & neighbor ) const {
   CspfEdgeRecord record;
   record.igpMetric = neighbor.metric();
   record.teMetric = neighbor.teMetric();
   record.adminGroup = neighbor.adminGroup();
   record.srlgs = { neighbor.srlgList().begin(), neighbor.srlgList().end() };
   record.unreserved = neighbor.unreservedBandwidth();
   record.topology = topology.number;
   record.interface = neighbor.intfId().number();
   record.keyRank = link.rank;
   return record;
}

void
TopoGraph::linkIs( TopoLink & link, const Igp::Neighbor & neighbor ) {
   const CspfEdge edge = edgeOf( link );
   if ( edge == noEdge ) {
      connect( link, neighbor );
      return;
   }
   const CspfEdgeRecord now = record( link, topologies_.at( link.topoId() ), neighbor );
   if ( !sameRecord( graph_.record( edge ), now ) ) {
      graph_.updateEdge( edge, now );
   }
   if ( link.isLan() ) {
      updateMembership( link );
   } else {
      pairingIs( edge );
   }
}

void
TopoGraph::linkDel( TopoLink & link ) {
   disconnect( link );
}

void
TopoGraph::connect( TopoLink & link, const Igp::Neighbor & neighbor ) {
   const auto * fromNode = part( *link.from ).node;
   if ( !fromNode || link.from == link.to || edgeOf( link ) != noEdge ) {
      return;
   }
   const auto * toNode = part( *link.to ).node;
   if ( !link.isLan() && !toNode ) {
      waiting_.insert_or_assign( { link.to, &link }, &neighbor );
      return;
   }
   const CspfEdgeRecord record = this->record( link, topologies_.at( link.topoId() ), neighbor );
   const CspfVertex fromVertex = fromNode->second.value.vertex;
   if ( link.isLan() ) {
      edgeOf( link ) = addEdge( fromVertex, networkIs( *link.to ), record, link, neighbor );
      updateMembership( link );
   } else {
      edgeOf( link ) = addEdge( fromVertex, toNode->second.value.vertex, record, link, neighbor );
      pairingIs( edgeOf( link ) );
   }
}

void
TopoGraph::disconnect( TopoLink & link ) {
   const CspfEdge edge = std::exchange( edgeOf( link ), noEdge );
   if ( edge == noEdge ) {
      waiting_.erase( { link.to, &link } );
   } else if ( link.isLan() ) {
      removeEdge( membership( edge ) );
      removeEdge( edge );
      networkDelIfUnused( *link.to );
   } else {
      pairingIs( edge );
      removeEdge( edge );
   }
}

CspfEdge
TopoGraph::addEdge( CspfVertex from, CspfVertex to, const CspfEdgeRecord & record, TopoLink & link,
                    const Igp::Neighbor & neighbor ) {
   const CspfEdge edge = graph_.addEdge( from, to, record );
   if ( index( edge ) >= edgeMeanings_.size() ) {
      edgeMeanings_.resize( graph_.edgeBound() );
      nextHops_.resize( graph_.edgeBound() );
   }
   edgeMeanings_[ index( edge ) ] = { &link, &neighbor };
   nextHops_.set( index( edge ), {} );
   ++changes_;
   return edge;
}

void
TopoGraph::removeEdge( CspfEdge edge ) {
   if ( edge != noEdge ) {
      graph_.removeEdge( edge );
      ++changes_;
   }
}

void
TopoGraph::rankMoved( const TopoLink & link ) {
   if ( const CspfEdge edge = link.at( kind_ ); edge != noEdge ) {
      graph_.keyRankIs( edge, link.rank );
   }
}

}
