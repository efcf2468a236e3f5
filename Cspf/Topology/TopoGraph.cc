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

namespace Cspf {

namespace Igp = Routing::Topology;
using Igp::NeighborKey;

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
   }
}

void
TopoGraph::topologyDel( const TopoId & topoId ) {
   const auto at = topologies_.find( topoId );
   while ( !at->second.routers.empty() ) {
      detach( topoId, IgpRouterId( at->second.routers.begin()->first ) );
   }
   topologyNumbers_[ at->second.number ] = false;
   topologies_.erase( at );
}

// Routers and nodes.

const TopoGraph::Attached *
TopoGraph::attached( const TopoId & topoId, const IgpRouterId & router ) const {
   const auto topology = topologies_.find( topoId );
   if ( topology == topologies_.end() ) {
      return nullptr;
   }
   const auto at = topology->second.routers.find( router );
   return at == topology->second.routers.end() ? nullptr : &at->second;
}

void
TopoGraph::meaningIs( CspfVertex vertex, const Meaning & meaning ) {
   meanings_.resize( graph_.vertexBound() );
   meanings_[ index( vertex ) ] = meaning;
}

TopoGraph::Nodes::Entry &
TopoGraph::nodeIs( const NodeId & nodeId ) {
   Nodes::Entry & entry = nodes_.insert( nodeId, [ this ]( const Nodes::Entry & moved ) {
      graph_.nodeRankIs( moved.second.value.vertex, moved.second.rank );
   } );
   Node & node = entry.second.value;
   if ( node.vertex == noVertex ) {
      node.vertex = graph_.addRouter( entry.second.rank );
      meaningIs( node.vertex, { &entry, {} } );
   }
   return entry;
}

void
TopoGraph::attach( const TopoId & topoId, const IgpRouterId & router, const NodeId & node ) {
   if ( const Attached * present = attached( topoId, router ) ) {
      if ( present->node->first == node ) {
         return;
      }
      detach( topoId, router );
   }
   graph_.noteAll();
   auto & topology = topologies_.at( topoId );
   Nodes::Entry & entry = nodeIs( node );
   entry.second.value.routers.insert( { topoId, router } );
   topology.routers.emplace( router, Attached{ &entry, false } );
   updateOverload( entry );
   forEachLinkOf( { topoId, router }, [ & ]( LinkEntry & link ) {
      if ( const auto * neighbor = topology.topoDb->neighborFind( link.first.neighborKey ) ) {
         connect( link, *neighbor );
      }
   } );
   if ( const auto waiting = topology.waiting.extract( router ) ) {
      for ( LinkEntry * link : waiting.mapped() ) {
         if ( const auto * neighbor = topology.topoDb->neighborFind( link->first.neighborKey ) ) {
            connect( *link, *neighbor );
         }
      }
   }
}

void
TopoGraph::detach( const TopoId & topoId, const IgpRouterId & router ) {
   if ( const Attached * present = attached( topoId, router ) ) {
      detach( topologies_.at( topoId ), { topoId, router }, *present );
   }
}

void
TopoGraph::detach( OneTopology & topology, const RouterName & name, Attached attached ) {
   Node & node = attached.node->second.value;
   graph_.noteAll();
   forEachLinkOf( name, [ & ]( LinkEntry & link ) { disconnect( link ); } );
   std::vector< LinkEntry * > entering;
   for ( const std::uint32_t e : graph_.in( node.vertex ) ) {
      const TopoLinkName & link = edgeMeanings_[ e ].link->first;
      if ( link.topoId == name.first && link.neighborKey.neighborId() == name.second ) {
         entering.push_back( edgeMeanings_[ e ].link );
      }
   }
   for ( LinkEntry * link : entering ) {
      disconnect( *link );
      topology.waiting[ name.second ].insert( link );
   }
   topology.routers.erase( name.second );
   node.routers.erase( name );
   node.overloaded -= attached.overloaded;
   updateOverload( *attached.node );
   if ( node.routers.empty() ) {
      graph_.removeVertex( node.vertex );
      nodes_.erase( NodeId( attached.node->first ) );
   }
}

void
TopoGraph::overloadedIs( const TopoId & topoId, const IgpRouterId & router, bool overloaded ) {
   auto * present = const_cast< Attached * >( attached( topoId, router ) );
   if ( present && present->overloaded != overloaded ) {
      present->overloaded = overloaded;
      present->node->second.value.overloaded += overloaded ? 1 : -1;
      updateOverload( *present->node );
   }
}

void
TopoGraph::updateOverload( Nodes::Entry & entry ) {
   const Node & node = entry.second.value;
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
   if ( const Attached * present = attached( topoId, router ) ) {
      graph_.touch( present->node->second.value.vertex );
   }
}

// Links.

template< class Visit >
void
TopoGraph::forEachLinkOf( const RouterName & router, Visit && visit ) {
   NeighborKey first;
   first.routerIdIs( router.second );
   links_.visitFrom( { router.first, first }, [ & ]( LinkEntry & link ) {
      if ( link.first.topoId != router.first
           || link.first.neighborKey.routerId() != router.second ) {
         return false;
      }
      visit( link );
      return true;
   } );
}

CspfEdgeRecord
TopoGraph::record( const LinkEntry & link, const OneTopology & topology,
                   const Igp::Neighbor & neighbor ) const {
   CspfEdgeRecord record;
   record.igpMetric = neighbor.metric();
   record.teMetric = neighbor.teMetric();
   record.adminGroup = neighbor.adminGroup();
   record.srlgs = { neighbor.srlgList().begin(), neighbor.srlgList().end() };
   record.unreserved = neighbor.unreservedBandwidth();
   record.topology = topology.number;
   record.interface = neighbor.intfId().number();
   record.keyRank = link.second.rank;
   return record;
}

void
TopoGraph::linkIs( LinkEntry & link, const Igp::Neighbor & neighbor ) {
   const CspfEdge edge = place( link ).edge;
   if ( edge == noEdge ) {
      connect( link, neighbor );
      return;
   }
   const TopoLinkName & name = link.first;
   const CspfEdgeRecord now = record( link, topologies_.at( name.topoId ), neighbor );
   if ( !sameRecord( graph_.record( edge ), now ) ) {
      graph_.updateEdge( edge, now );
   }
   if ( name.neighborKey.neighborType() == Igp::p2p() ) {
      pairingIs( name.topoId, name.neighborKey );
   } else {
      updateMembership( link );
   }
}

void
TopoGraph::linkDel( LinkEntry & link ) {
   disconnect( link );
}

void
TopoGraph::connect( LinkEntry & link, const Igp::Neighbor & neighbor ) {
   const auto & [ topoId, key ] = link.first;
   const Attached * from = attached( topoId, key.routerId() );
   if ( !from || key.routerId() == key.neighborId() || place( link ).edge != noEdge ) {
      return;
   }
   auto & topology = topologies_.at( topoId );
   const CspfEdgeRecord record = this->record( link, topology, neighbor );
   const CspfVertex fromVertex = from->node->second.value.vertex;
   if ( key.neighborType() == Igp::lan() ) {
      const CspfVertex network = networkIs( topology, { topoId, { key.neighborId() } } );
      place( link ).edge = addEdge( fromVertex, network, record, link, neighbor );
      updateMembership( link );
   } else if ( const Attached * to = attached( topoId, key.neighborId() ) ) {
      const CspfVertex toVertex = to->node->second.value.vertex;
      place( link ).edge = addEdge( fromVertex, toVertex, record, link, neighbor );
      pairingIs( topoId, key );
   } else {
      topology.waiting[ key.neighborId() ].insert( &link );
   }
}

void
TopoGraph::disconnect( LinkEntry & link ) {
   const auto & [ topoId, key ] = link.first;
   const auto topology = topologies_.find( topoId );
   if ( topology == topologies_.end() ) {
      return;
   }
   TopoLink::Place & place = this->place( link );
   if ( place.edge != noEdge ) {
      removeEdge( place.membership );
      removeEdge( place.edge );
      if ( key.neighborType() == Igp::lan() ) {
         networkDelIfUnused( topology->second, key.neighborId() );
      } else {
         pairingIs( topoId, key );
      }
   } else if ( const auto at = topology->second.waiting.find( key.neighborId() );
               at != topology->second.waiting.end() ) {
      at->second.erase( &link );
      if ( at->second.empty() ) {
         topology->second.waiting.erase( at );
      }
   }
}

CspfEdge
TopoGraph::addEdge( CspfVertex from, CspfVertex to, const CspfEdgeRecord & record, LinkEntry & link,
                    const Igp::Neighbor & neighbor ) {
   const CspfEdge edge = graph_.addEdge( from, to, record );
   edgeMeanings_.resize( graph_.edgeBound() );
   edgeMeanings_[ index( edge ) ] = { &link, &neighbor, {} };
   ++changes_;
   return edge;
}

void
TopoGraph::removeEdge( CspfEdge & edge ) {
   if ( edge != noEdge ) {
      graph_.removeEdge( edge );
      edge = noEdge;
      ++changes_;
   }
}

void
TopoGraph::rankMoved( const LinkEntry & link ) {
   if ( const CspfEdge edge = link.second.value.at( kind_ ).edge; edge != noEdge ) {
      graph_.keyRankIs( edge, link.second.rank );
   }
}

}
