// Last links out of distances. A last link is an admitted edge that attains the cost of its far
// end; everything else, from the order of equals to the key of a step from a LAN, is a matter of
// ranks. The rules are those of a run's tree (CspfTree), and are tested against it.

#include "Cspf/Graph/LabelTree.h"

#include <algorithm>
#include <optional>
#include <tuple>

namespace Cspf {

template< class Cost, class Visit >
void
CspfLabelTree::forEachAttaining( CspfVertex vertex, Visit && visit ) const {
   const Cost cost = overlay_.cost< Cost >( labels_, vertex );
   if ( vertex == source() || cost == cspfUnreached< Cost > ) {
      return;
   }
   for ( const uint32_t e : graph_.in( vertex ) ) {
      const CspfEdge edge{ e };
      const Cost near = overlay_.cost< Cost >( labels_, graph_.from( edge ) );
      const Cost step = labels_.price< Cost >( graph_, edge );
      if ( mayFollow( near, step ) && costSum( near, step ) == cost
           && overlay_.step< Cost >( graph_, labels_, edge ) != cspfUnreached< Cost > ) {
         visit( edge );
      }
   }
}

template< class Visit >
void
CspfLabelTree::forEachLastLink( CspfVertex vertex, Visit && visit ) const {
   if ( labels_.countsSrlgs() ) {
      forEachAttaining< CspfCost >( vertex, visit );
   } else {
      forEachAttaining< uint32_t >( vertex, visit );
   }
}

CspfCost
CspfLabelTree::cost( CspfVertex vertex ) const {
   return labels_.countsSrlgs() ? overlay_.cost< CspfCost >( labels_, vertex )
                                : CspfCost{ 0, 0, metric( vertex ) };
}

std::span< const CspfEdge >
CspfLabelTree::lastLinks( CspfVertex vertex ) const {
   links_.clear();
   forEachLastLink( vertex, [ this ]( CspfEdge edge ) { links_.push_back( edge ); } );
   if ( links_.size() > 1 ) {
      order();
   }
   return links_;
}

/// A router that stands on a network several times is reached from it once, by its first link
/// there.
void
CspfLabelTree::order() const {
   const auto isStep = [ this ]( CspfEdge edge ) {
      return graph_.kind( edge ) == CspfEdgeKind::networkToRouter;
   };
   std::ranges::sort( links_, {}, [ & ]( CspfEdge edge ) {
      const CspfEdge key = isStep( edge ) ? entryLink( graph_.from( edge ) ) : edge;
      const CspfEdge own = isStep( edge ) ? graph_.reverse( edge ) : edge;
      return std::tuple( isStep( edge ), graph_.keyRank( key ), graph_.keyRank( own ) );
   } );
   const auto end = std::unique( links_.begin(), links_.end(), [ & ]( CspfEdge a, CspfEdge b ) {
      return isStep( a ) && isStep( b ) && graph_.from( a ) == graph_.from( b );
   } );
   links_.erase( end, links_.end() );
}

/// The first of the links by which a reached network is reached. One that cost something waited in
/// order with its equals, a free one came with its router.
CspfEdge
CspfLabelTree::entryLink( CspfVertex network ) const {
   std::vector< CspfEdge > links;
   forEachLastLink( network, [ & ]( CspfEdge edge ) { links.push_back( edge ); } );
   return *std::ranges::min_element( links, {}, [ & ]( CspfEdge link ) {
      const CspfVertex router = graph_.from( link );
      const bool isFree = labels_.options().reverse && cost( router ) == cost( network );
      return std::pair{ isFree ? std::optional( place( router ) ) : std::nullopt,
                        graph_.keyRank( link ) };
   } );
}

/// Whether it is reached through a network, and its rank among those of which this is equal.
std::pair< bool, uint64_t >
CspfLabelTree::place( CspfVertex router ) const {
   uint64_t least = ~uint64_t{ 0 };
   bool throughNetwork = router != source();
   forEachLastLink( router, [ & ]( CspfEdge edge ) {
      if ( graph_.kind( edge ) == CspfEdgeKind::routerToRouter ) {
         throughNetwork = false;
         least = std::min( least, graph_.keyRank( edge ) );
      }
   } );
   return { throughNetwork, throughNetwork ? graph_.nodeRank( router ) : least };
}

bool
CspfLabelTree::finalBefore( const CspfGraph &, CspfVertex a, CspfVertex b ) const {
   const CspfCost costA = cost( a ), costB = cost( b );
   return costA != costB ? costA < costB : place( a ) < place( b );
}

}
