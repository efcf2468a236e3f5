// The compact graph under the topology views.
//
// It owns vertices, edges and what edges carry, all under dense numbers. The topology store drives
// it, one change at a time, and keeps the way from its records to these numbers and back.
// Computations read it: filters pass over single columns, runs walk the out-rows, explanations ask
// for single edges.
//
// Edge numbers are stable: what moves when a vertex gains links is its row, a short list of edge
// numbers, never the edge. After a bulk load or a storm of changes rows and columns no longer lie
// in the order in which a walk visits them; `renumber` restores that, and is the only operation
// which changes numbers.

#include "Cspf/Graph/Graph.h"

#include "platform/Lum/Assert.h"

#include <algorithm>

namespace Cspf {

namespace {

/// The next number for a new element: a free one, or one past the end.
template< typename Index >
Index
takeNumber( std::vector< Index > & freeNumbers, uint32_t bound ) {
   if ( freeNumbers.empty() ) {
      return Index{ bound };
   }
   const Index number = freeNumbers.back();
   freeNumbers.pop_back();
   return number;
}

/// Those that are there.
template< typename Visit >
void
forEachColumn( CspfEdgeColumns & columns, Visit visit ) {
   visit( columns.from );
   visit( columns.to );
   visit( columns.flags );
   visit( columns.topology );
   visit( columns.igpMetric );
   visit( columns.adminGroup );
   visit( columns.srlgList );
   visit( columns.interface );
   visit( columns.keyRank );
   visit( columns.reverse );
   visit( columns.unreserved[ 0 ] );
   if ( !columns.teMetric.empty() ) {
      visit( columns.teMetric );
   }
   for ( size_t priority = 1; priority < columns.unreserved.size(); ++priority ) {
      if ( !columns.unreserved[ priority ].empty() ) {
         visit( columns.unreserved[ priority ] );
      }
   }
}

}

CspfVertex
CspfGraph::addVertex( VertexKind kind ) {
   ++version_;
   noteAll();
   const CspfVertex vertex = takeNumber( freeVertices_, vertexBound() );
   if ( index( vertex ) == vertexBound() ) {
      vertices_.emplace_back();
   }
   at( vertex ) = Vertex{};
   at( vertex ).kind = kind;
   touch( vertex );
   return vertex;
}

CspfVertex
CspfGraph::addRouter( uint64_t nodeRank ) {
   const CspfVertex router = addVertex( VertexKind::router );
   at( router ).nodeRank = nodeRank;
   return router;
}

CspfVertex
CspfGraph::addNetwork() {
   return addVertex( VertexKind::network );
}

void
CspfGraph::removeVertex( CspfVertex vertex ) {
   LUM_ASSERT( has( vertex ) );
   LUM_ASSERT( out( vertex ).empty() );
   LUM_ASSERT( in( vertex ).empty() );
   overloadedIs( vertex, false );
   rows_.release( at( vertex ).out );
   rows_.release( at( vertex ).in );
   at( vertex ).kind = VertexKind::free;
   freeVertices_.push_back( vertex );
   touch( vertex );
   noteAll();
   ++version_;
}

void
CspfGraph::overloadedIs( CspfVertex router, bool overloaded ) {
   if ( at( router ).overloaded == overloaded ) {
      return;
   }
   ++version_;
   touch( router );
   changes_.note( { router, router } );  // for edges that enter
   for ( const uint32_t edge : out( router ) ) {
      noteUse( CspfEdge{ edge } );
   }
   at( router ).overloaded = overloaded;
   if ( overloaded ) {
      overloaded_.push_back( router );
   } else {
      std::erase( overloaded_, router );
   }
}

void
CspfGraph::nodeRankIs( CspfVertex router, uint64_t rank ) {
   ++version_;
   touch( router );
   at( router ).nodeRank = rank;
}

void
CspfGraph::reserve( size_t vertices, size_t edges ) {
   vertices_.reserve( vertices );
   forEachColumn( columns_, [ edges ]( auto & column ) { column.reserve( edges ); } );
}

CspfEdge
CspfGraph::newEdge() {
   const CspfEdge edge = takeNumber( freeEdges_, edgeBound() );
   if ( index( edge ) == edgeBound() ) {
      LUM_ASSERT( edgeBound() < 0x7FFFFFFF );
      forEachColumn( columns_, []( auto & column ) { column.emplace_back(); } );
   }
   return edge;
}

CspfEdge
CspfGraph::addEdge( CspfVertex from, CspfVertex to, const CspfEdgeRecord & record ) {
   LUM_ASSERT( has( from ) );
   LUM_ASSERT( has( to ) );
   LUM_ASSERT( isRouter( from ) || isRouter( to ) );
   const CspfEdgeKind kind = isNetwork( from ) ? CspfEdgeKind::networkToRouter
                             : isNetwork( to ) ? CspfEdgeKind::routerToNetwork
                                               : CspfEdgeKind::routerToRouter;
   const CspfEdge edge = newEdge();
   const uint32_t e = index( edge );
   edgesAreInOrder_ &= ( e == 0 || columns_.from[ e - 1 ] <= from )
                       && ( e + 1 == edgeBound() || from <= columns_.from[ e + 1 ] );
   columns_.from[ e ] = from;
   columns_.to[ e ] = to;
   columns_.flags[ e ] = static_cast< uint8_t >( kind ) | usedBit;
   columns_.reverse[ e ] = noEdge;
   columns_.srlgList[ e ] = 0;
   write( edge, record );
   reshapedAt_ = changes_.end();
   rows_.append( at( from ).out, e );
   rows_.append( at( to ).in, e );
   return edge;
}

void
CspfGraph::updateEdge( CspfEdge edge, const CspfEdgeRecord & record ) {
   LUM_ASSERT( has( edge ) );
   write( edge, record );
}

void
CspfGraph::write( CspfEdge edge, const CspfEdgeRecord & record ) {
   LUM_ASSERT( record.srlgs.size() <= 16 );
   LUM_ASSERT( record.topology != anyTopology );
   ++version_;
   const uint32_t e = index( edge );
   touch( columns_.from[ e ] );
   noteUse( edge );
   columns_.topology[ e ] = record.topology;
   columns_.igpMetric[ e ] = record.igpMetric;
   if ( columns_.teMetric.empty() && record.teMetric ) {
      columns_.teMetric = columns_.igpMetric;
   }
   if ( !columns_.teMetric.empty() ) {
      columns_.teMetric[ e ] = record.teMetric.value_or( record.igpMetric );
   }
   columns_.flags[ e ] &= ~ownTeMetricBit;
   columns_.flags[ e ] |= record.teMetric ? ownTeMetricBit : 0;
   columns_.adminGroup[ e ] = record.adminGroup;
   columns_.interface[ e ] = record.interface;
   columns_.keyRank[ e ] = record.keyRank;
   writeUnreserved( e, record.unreserved );
   const uint32_t list = srlgPool_.acquire( record.srlgs );  // first: the lists may be the same
   srlgPool_.release( columns_.srlgList[ e ] );
   columns_.srlgList[ e ] = list;
}

void
CspfGraph::writeUnreserved( uint32_t edge, const std::array< float, 8 > & unreserved ) {
   columns_.unreserved[ 0 ][ edge ] = unreserved[ 0 ];
   for ( size_t priority = 1; priority < unreserved.size(); ++priority ) {
      std::vector< float > & column = columns_.unreserved[ priority ];
      if ( column.empty() && unreserved[ priority ] != unreserved[ priority - 1 ] ) {
         column = columns_.unreservedAt( priority );
      }
      if ( !column.empty() ) {
         column[ edge ] = unreserved[ priority ];
      }
   }
}

CspfEdgeRecord
CspfGraph::record( CspfEdge edge ) const {
   const uint32_t e = index( edge );
   CspfEdgeRecord record;
   record.igpMetric = columns_.igpMetric[ e ];
   if ( columns_.flags[ e ] & ownTeMetricBit ) {
      record.teMetric = columns_.teMetric[ e ];
   }
   record.adminGroup = columns_.adminGroup[ e ];
   record.srlgs = srlgs( edge );
   for ( size_t priority = 0; priority < record.unreserved.size(); ++priority ) {
      record.unreserved[ priority ] = columns_.unreservedAt( priority )[ e ];
   }
   record.topology = columns_.topology[ e ];
   record.interface = columns_.interface[ e ];
   record.keyRank = columns_.keyRank[ e ];
   return record;
}

void
CspfGraph::removeEdge( CspfEdge edge ) {
   LUM_ASSERT( has( edge ) );
   unpair( edge );
   const uint32_t e = index( edge );
   touch( columns_.from[ e ] );
   noteEdge( edge );
   rows_.erase( at( columns_.from[ e ] ).out, e );
   rows_.erase( at( columns_.to[ e ] ).in, e );
   srlgPool_.release( columns_.srlgList[ e ] );
   columns_.srlgList[ e ] = 0;
   columns_.flags[ e ] = 0;
   freeEdges_.push_back( edge );
}

void
CspfGraph::keyRankIs( CspfEdge edge, uint64_t rank ) {
   ++version_;
   columns_.keyRank[ index( edge ) ] = rank;
}

void
CspfGraph::pairIs( CspfEdge edge, CspfEdge reverse, bool agree ) {
   LUM_ASSERT( has( edge ) && has( reverse ) );
   LUM_ASSERT( from( edge ) == to( reverse ) && to( edge ) == from( reverse ) );
   for ( const auto & [ one, other ] : { std::pair{ edge, reverse }, { reverse, edge } } ) {
      const uint32_t e = index( one );
      LUM_ASSERT( columns_.reverse[ e ] == noEdge || columns_.reverse[ e ] == other );
      columns_.reverse[ e ] = other;
      columns_.flags[ e ] &= ~twoWayBit;
      columns_.flags[ e ] |= agree ? twoWayBit : 0;
      touch( columns_.from[ e ] );
      noteEdge( one );
   }
}

void
CspfGraph::unpair( CspfEdge edge ) {
   const CspfEdge other = reverse( edge );
   for ( CspfEdge one : { edge, other } ) {
      if ( one != noEdge ) {
         columns_.reverse[ index( one ) ] = noEdge;
         columns_.flags[ index( one ) ] &= ~twoWayBit;
         touch( from( one ) );
         noteEdge( one );
      }
   }
}

std::vector< CspfVertex >
CspfGraph::breadthFirst( CspfVertex root ) const {
   std::vector< CspfVertex > order;
   std::vector< bool > seen( vertexBound() );
   const auto meet = [ & ]( CspfVertex vertex ) {
      if ( has( vertex ) && !seen[ index( vertex ) ] ) {
         seen[ index( vertex ) ] = true;
         order.push_back( vertex );
      }
   };
   meet( root );
   uint32_t next = 0;
   for ( size_t i = 0; order.size() < vertices(); ++i ) {
      while ( i == order.size() ) {
         meet( CspfVertex{ next++ } );
      }
      for ( uint32_t e : out( order[ i ] ) ) {
         meet( columns_.to[ e ] );
      }
   }
   return order;
}

CspfGraph
CspfGraph::copyInOrder( std::span< const CspfVertex > order, Renumbering & map ) const {
   CspfGraph copy;
   copy.reserve( order.size(), edges() );
   for ( CspfVertex vertex : order ) {
      const CspfVertex twin = copy.addVertex( at( vertex ).kind );
      map.vertex[ index( vertex ) ] = twin;
      copy.nodeRankIs( twin, nodeRank( vertex ) );
      copy.overloadedIs( twin, overloaded( vertex ) );
      copy.rows_.reserve( copy.at( twin ).out, at( vertex ).out.count );
      copy.rows_.reserve( copy.at( twin ).in, at( vertex ).in.count );
   }
   for ( CspfVertex vertex : order ) {
      for ( uint32_t e : out( vertex ) ) {
         map.edge[ e ] =
            copy.addEdge( map.vertex[ index( vertex ) ], map.vertex[ index( columns_.to[ e ] ) ],
                          record( CspfEdge{ e } ) );
      }
   }
   return copy;
}

CspfGraph::Renumbering
CspfGraph::renumber( CspfVertex root ) {
   Renumbering map{ std::vector( vertexBound(), noVertex ), std::vector( edgeBound(), noEdge ) };
   CspfGraph copy = copyInOrder( breadthFirst( root ), map );
   for ( uint32_t e = 0; e < edgeBound(); ++e ) {
      const CspfEdge other = has( CspfEdge{ e } ) ? columns_.reverse[ e ] : noEdge;
      if ( other != noEdge ) {
         copy.pairIs( map.edge[ e ], map.edge[ index( other ) ], twoWay( CspfEdge{ e } ) );
      }
   }
   copy.version_ = version_ + 1;
   copy.changes_ = changes_;
   copy.reshapedAt_ = reshapedAt_;
   copy.noteAll();
   copy.lastChange_ = lastChange_ + 1;
   for ( Vertex & vertex : copy.vertices_ ) {
      vertex.changedAt = copy.lastChange_;
   }
   *this = std::move( copy );
   return map;
}

std::string
CspfGraph::edgeInconsistency( CspfEdge edge ) const {
   const uint32_t e = index( edge );
   const auto name = " of edge " + std::to_string( e );
   if ( !has( from( edge ) ) || !has( to( edge ) ) ) {
      return "no such end" + name;
   }
   if ( isNetwork( from( edge ) ) != ( kind( edge ) == CspfEdgeKind::networkToRouter )
        || isNetwork( to( edge ) ) != ( kind( edge ) == CspfEdgeKind::routerToNetwork ) ) {
      return "kind" + name;
   }
   if ( std::ranges::count( out( from( edge ) ), e ) != 1
        || std::ranges::count( in( to( edge ) ), e ) != 1 ) {
      return "rows" + name;
   }
   const CspfEdge other = reverse( edge );
   if ( other == noEdge ? twoWay( edge )
                        : !has( other ) || reverse( other ) != edge || from( other ) != to( edge )
                             || to( other ) != from( edge ) || twoWay( other ) != twoWay( edge ) ) {
      return "reverse" + name;
   }
   return {};
}

std::string
CspfGraph::inconsistency() const {
   uint32_t used = 0, inRows = 0, overloadedRouters = 0;
   std::vector< uint32_t > users( srlgPool_.lists() );
   for ( uint32_t e = 0; e < edgeBound(); ++e ) {
      if ( has( CspfEdge{ e } ) ) {
         ++used;
         ++users[ columns_.srlgList[ e ] ];
         if ( auto found = edgeInconsistency( CspfEdge{ e } ); !found.empty() ) {
            return found;
         }
      }
   }
   for ( uint32_t v = 0; v < vertexBound(); ++v ) {
      inRows +=
         static_cast< uint32_t >( out( CspfVertex{ v } ).size() + in( CspfVertex{ v } ).size() );
      overloadedRouters += vertices_[ v ].overloaded;
   }
   for ( uint32_t list = 1; list < srlgPool_.lists(); ++list ) {
      if ( users[ list ] != srlgPool_.users( list ) ) {
         return "users of SRLG list " + std::to_string( list );
      }
   }
   if ( edgesAreInOrder_ && !std::ranges::is_sorted( columns_.from ) ) {
      return "order of edges";
   }
   return used != edges()                           ? "number of edges"
          : inRows != 2 * used                      ? "rows hold other edges"
          : overloadedRouters != overloaded_.size() ? "list of overloaded routers"
                                                    : "";
}

}
