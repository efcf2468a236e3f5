#pragma once

#include "Cspf/Graph/Tree.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace Cspf {

enum class CspfHopListStatus : uint8_t { found, noPath, tooLong };

/// Hops of a path: edges that leave a router.
inline uint32_t
hopCount( const CspfGraph & graph, std::span< const CspfEdge > path ) {
   return static_cast< uint32_t >( std::ranges::count_if( path, [ & ]( CspfEdge edge ) {
      return graph.kind( edge ) != CspfEdgeKind::networkToRouter;
   } ) );
}

/// The path of a tree to `destination`, as edges in the order in which the tree walked them, the
/// source's link first. Crossing a network gives two edges (router to network, network to router)
/// and counts as one hop. In a reverse tree the packet takes the reverses, last one first.
///
/// `choose( vertex, links )`: which of several equal-cost last links to take; called from the
/// destination backwards, only where there are several; gives a position in `links`.
/// `maxHops`: a longer path is reported as too long, not cut. `hops` is overwritten; it is empty
/// unless the path is found, and for the source itself. `tree`: a CspfTree, or what answers as one.
/// REQUIRES: the graph has not changed since the run. O(hops).
template< typename Tree, typename Choose >
CspfHopListStatus
hopList( const CspfGraph & graph, const Tree & tree, CspfVertex destination, uint32_t maxHops,
         Choose && choose, std::vector< CspfEdge > & hops ) {
   LUM_ASSERT( tree.graphVersion() == graph.version() );
   hops.clear();
   if ( !tree.reached( destination ) ) {
      return CspfHopListStatus::noPath;
   }
   for ( CspfVertex vertex = destination; vertex != tree.source(); ) {
      const std::span< const CspfEdge > links = tree.lastLinks( vertex );
      if ( links.size() == 1 ) {
         hops.push_back( links[ 0 ] );
         vertex = tree.before( vertex );
      } else {
         hops.push_back( links[ choose( vertex, links ) ] );
         vertex = graph.from( hops.back() );
      }
   }
   if ( hops.size() > maxHops && hopCount( graph, hops ) > maxHops ) {
      hops.clear();
      return CspfHopListStatus::tooLong;
   }
   std::reverse( hops.begin(), hops.end() );
   return CspfHopListStatus::found;
}

}
