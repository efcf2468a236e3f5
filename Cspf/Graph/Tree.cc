// The result of a run: costs, last links, and the order in which routers became final.
//
// A run leaves the least costs, then tells each link that attains one. Most vertices have one last
// link; where there are several they are chained up, and become a group, in order.
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
      metrics_, []( uint32_t metric ) { return metric != unreachedMetric; } );
   return static_cast< size_t >( labelled ) - reached_.size();
}

uint64_t
CspfTree::nextSerial() {
   static uint64_t lastSerial = 0;
   return ++lastSerial;
}

void
CspfTree::begin( const CspfGraph & graph, const CspfRunOptions & options, bool withSrlgs ) {
   options_ = options;
   graphVersion_ = graph.version();
   serial_ = nextSerial();
   groups_.clear();
   const size_t bound = graph.vertexBound(), counted = withSrlgs ? bound : 0;
   constexpr uint64_t unreachedCounts = ~uint64_t{ 0 };
   if ( metrics_.size() != bound || counts_.size() != counted || reached_.size() > bound / 8 ) {
      metrics_.assign( bound, unreachedMetric );
      lasts_.assign( bound, Last{} );
      counts_.assign( counted, unreachedCounts );
   } else {
      for ( CspfVertex vertex : reached_ ) {
         metrics_[ index( vertex ) ] = unreachedMetric;
         lasts_[ index( vertex ) ] = Last{};
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
CspfTree::makeGroups( const CspfGraph & graph, std::span< const Tie > ties, TieMemory & memory ) {
   memory.heads.resize( std::max( memory.heads.size(), metrics_.size() ), none );
   chain( ties, memory );
   for ( const CspfVertex vertex : memory.grouped ) {
      group( graph, vertex, ties, memory );
   }
   memory.stepped.clear();
   for ( const CspfVertex vertex : memory.grouped ) {
      if ( !orderByRank( graph, group( lasts_[ index( vertex ) ].edge ) ) ) {
         memory.stepped.push_back( vertex );
      }
   }
   for ( const CspfVertex router : memory.stepped ) {  // their order rests on that of networks
      orderSteps( graph, router );
   }
}

/// Hangs the ties on their vertices, each before the next of the same vertex.
void
CspfTree::chain( std::span< const Tie > ties, TieMemory & memory ) {
   memory.next.resize( ties.size() );
   memory.grouped.resize( ties.size() );
   size_t count = 0;
   for ( uint32_t i = 0; i < ties.size(); ++i ) {
      memory.grouped[ count ] = ties[ i ].vertex;
      memory.next[ i ] = std::exchange( memory.heads[ index( ties[ i ].vertex ) ], i );
      count += memory.next[ i ] == none;
   }
   memory.grouped.resize( count );
}

/// Makes a group of the link that the vertex was made final with, and of its ties.
void
CspfTree::group( const CspfGraph & graph, CspfVertex vertex, std::span< const Tie > ties,
                 TieMemory & memory ) {
   const size_t head = groups_.size();
   Last & last = lasts_[ index( vertex ) ];
   groups_.insert( groups_.end(), { noEdge, last.edge } );
   graph.fetchRank( last.edge );
   uint32_t tie = std::exchange( memory.heads[ index( vertex ) ], none );
   for ( ; tie != none; tie = memory.next[ tie ] ) {
      groups_.push_back( ties[ tie ].edge );
   }
   groups_[ head ] = CspfEdge{ static_cast< uint32_t >( groups_.size() - head - 1 ) };
   last = { CspfEdge{ groupBit | static_cast< uint32_t >( head ) }, noVertex };
}

/// False where steps from networks are among the links, which are ordered otherwise.
bool
CspfTree::orderByRank( const CspfGraph & graph, std::span< CspfEdge > links ) {
   const auto rank = [ & ]( CspfEdge edge ) { return graph.keyRank( edge ); };
   if ( std::ranges::any_of( links, [ & ]( CspfEdge edge ) { return isStep( graph, edge ); } ) ) {
      return false;
   }
   if ( links.size() > 2 ) {
      std::ranges::sort( links, {}, rank );
   } else {
      const CspfEdge pair[] = { links[ 0 ], links[ 1 ] };  // in order without a branch
      const bool swapped = rank( pair[ 1 ] ) < rank( pair[ 0 ] );
      links[ 0 ] = pair[ swapped ];
      links[ 1 ] = pair[ !swapped ];
   }
   return true;
}

/// A router that stands on a network several times is reached from it once, by its first link
/// there.
void
CspfTree::orderSteps( const CspfGraph & graph, CspfVertex router ) {
   Last & last = lasts_[ index( router ) ];
   const std::span< CspfEdge > links = group( last.edge );
   std::ranges::sort( links, {}, [ & ]( CspfEdge edge ) {
      const bool step = isStep( graph, edge );
      const CspfEdge key = step ? entryLink( graph, graph.from( edge ) ) : edge;
      const CspfEdge own = step ? graph.reverse( edge ) : edge;
      return std::tuple( step, graph.keyRank( key ), graph.keyRank( own ) );
   } );
   const auto end = std::unique( links.begin(), links.end(), [ & ]( CspfEdge a, CspfEdge b ) {
      return isStep( graph, a ) && isStep( graph, b ) && graph.from( a ) == graph.from( b );
   } );
   const auto kept = static_cast< std::size_t >( end - links.begin() );
   groups_[ index( last.edge ) & ~groupBit ] = CspfEdge{ static_cast< uint32_t >( kept ) };
   if ( kept == 1 ) {
      last = { links[ 0 ], graph.from( links[ 0 ] ) };
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
