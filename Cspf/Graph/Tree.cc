// The result of a run: costs, last links, and the order in which routers became final.
//
// A run leaves one last link at each vertex and a log of links that tied with it at some time.
// Here the log becomes groups: links that still attain the final cost, in order, behind the vertex
// they lead to. Most vertices have one last link and no group.
//
// The order among equal costs never comes from the queue, which is free to pop them as it likes,
// but from ranks. One case asks for care: in a reverse tree the step onto a network is free, so
// the network becomes final with the first of the equally distant routers on it, and that router
// decides the key under which all routers of the network are reached.

#include "Cspf/Graph/Tree.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

namespace Cspf {

CspfCost
CspfTree::cost( CspfVertex vertex ) const {
   const uint64_t counts = counts_.empty() ? 0 : counts_[ index( vertex ) ];
   return { static_cast< uint32_t >( counts >> 32 ), static_cast< uint32_t >( counts ),
            metric( vertex ) };
}

size_t
CspfTree::tentative() const {
   const auto labelled = std::ranges::count_if(
      labels_, []( const Label & label ) { return label.metric != unreachedMetric; } );
   return static_cast< size_t >( labelled ) - reached_.size();
}

void
CspfTree::begin( const CspfGraph & graph, const CspfRunOptions & options, bool withSrlgs ) {
   options_ = options;
   graphVersion_ = graph.version();
   groups_.clear();
   const size_t bound = graph.vertexBound(), counted = withSrlgs ? bound : 0;
   constexpr uint64_t unreachedCounts = ~uint64_t{ 0 };
   if ( labels_.size() != bound || counts_.size() != counted || reached_.size() > bound / 8 ) {
      labels_.assign( bound, Label{} );
      counts_.assign( counted, unreachedCounts );
   } else {
      for ( CspfVertex vertex : reached_ ) {
         labels_[ index( vertex ) ] = Label{};
         if ( withSrlgs ) {
            counts_[ index( vertex ) ] = unreachedCounts;
         }
      }
   }
   reached_.clear();
}

std::span< CspfEdge >
CspfTree::group( CspfEdge last ) {
   const uint32_t head = index( last ) & ~groupBit;
   return { groups_.data() + head + 1, index( groups_[ head ] ) };
}

void
CspfTree::collectTies( const CspfGraph & graph, std::vector< Tie > & ties ) {
   std::erase_if( ties, [ & ]( const Tie & tie ) { return tie.cost != cost( tie.vertex ); } );
   if ( ties.empty() ) {
      return;
   }
   std::ranges::sort( ties, {}, []( const Tie & tie ) {
      return uint64_t{ index( tie.vertex ) } << 32 | index( tie.edge );
   } );
   for ( size_t i = 0; i < ties.size(); ) {
      const CspfVertex vertex = ties[ i ].vertex;
      const size_t head = groups_.size();
      groups_.push_back( noEdge );
      groups_.push_back( labels_[ index( vertex ) ].last );
      for ( ; i < ties.size() && ties[ i ].vertex == vertex; ++i ) {
         groups_.push_back( ties[ i ].edge );
      }
      groups_[ head ] = CspfEdge{ static_cast< uint32_t >( groups_.size() - head - 1 ) };
      labels_[ index( vertex ) ].last = CspfEdge{ groupBit | static_cast< uint32_t >( head ) };
   }
   for ( const bool networks : { true, false } ) {  // routers' order rests on that of networks
      CspfVertex done = noVertex;
      for ( const Tie & tie : ties ) {
         if ( tie.vertex != done && graph.isNetwork( tie.vertex ) == networks ) {
            orderTies( graph, done = tie.vertex );
         }
      }
   }
}

/// A router that stands on a network several times is reached from it once, by its first link
/// there.
void
CspfTree::orderTies( const CspfGraph & graph, CspfVertex vertex ) {
   Label & label = labels_[ index( vertex ) ];
   const std::span< CspfEdge > links = group( label.last );
   const auto isStep = [ & ]( CspfEdge edge ) {
      return graph.kind( edge ) == CspfEdgeKind::networkToRouter;
   };
   std::ranges::sort( links, {}, [ & ]( CspfEdge edge ) {
      const CspfEdge key = isStep( edge ) ? entryLink( graph, graph.from( edge ) ) : edge;
      const CspfEdge own = isStep( edge ) ? graph.reverse( edge ) : edge;
      return std::tuple( isStep( edge ), graph.keyRank( key ), graph.keyRank( own ) );
   } );
   const auto end = std::unique( links.begin(), links.end(), [ & ]( CspfEdge a, CspfEdge b ) {
      return isStep( a ) && isStep( b ) && graph.from( a ) == graph.from( b );
   } );
   const auto kept = static_cast< std::size_t >( end - links.begin() );
   groups_[ index( label.last ) & ~groupBit ] = CspfEdge{ static_cast< uint32_t >( kept ) };
   if ( kept == 1 ) {
      label = { label.metric, links[ 0 ], graph.from( links[ 0 ] ) };
   }
}

CspfEdge
CspfTree::entryLink( const CspfGraph & graph, CspfVertex network ) const {
   const auto links = lastLinks( network );
   if ( !options_.reverse || links.size() == 1 ) {
      return links[ 0 ];
   }
   // A link that cost something waited in order with its equals. A free one came with its router.
   return *std::ranges::min_element( links, {}, [ & ]( CspfEdge link ) {
      const CspfVertex router = graph.from( link );
      std::optional< Place > place;
      if ( cost( router ) == cost( network ) ) {
         place = this->place( graph, router );
      }
      return std::pair{ place, graph.keyRank( link ) };
   } );
}

CspfTree::Place
CspfTree::place( const CspfGraph & graph, CspfVertex router ) const {
   // Reads the least link of routers alone, so it holds before steps from networks are in order.
   uint64_t least = ~uint64_t{ 0 };
   bool throughNetwork = router != source();
   for ( CspfEdge link : lastLinks( router ) ) {
      if ( graph.kind( link ) == CspfEdgeKind::routerToRouter ) {
         throughNetwork = false;
         least = std::min( least, graph.keyRank( link ) );
      }
   }
   return { throughNetwork, throughNetwork ? graph.nodeRank( router ) : least };
}

bool
CspfTree::finalBefore( const CspfGraph & graph, CspfVertex a, CspfVertex b ) const {
   const CspfCost costA = cost( a ), costB = cost( b );
   return costA != costB ? costA < costB : place( graph, a ) < place( graph, b );
}

CspfEdge
CspfTree::firstLink( const CspfGraph & graph, CspfVertex vertex ) const {
   return graph.isNetwork( vertex ) ? entryLink( graph, vertex ) : lastLinks( vertex )[ 0 ];
}

uint32_t
CspfTree::firstHopInterface( const CspfGraph & graph, CspfEdge edge, CspfVertex ownSource ) const {
   while ( graph.from( edge ) != ownSource ) {
      if ( graph.from( edge ) == source() ) {
         return 0;
      }
      edge = firstLink( graph, graph.from( edge ) );
   }
   return graph.interface( edge );
}

}
