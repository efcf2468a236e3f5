// Last links out of distances. A last link is an admitted edge that attains the metric of its far
// end; everything else, from the order of equals to the key of a step from a LAN, is a matter of
// ranks. The rules are those of a run's tree (CspfTree), and are tested against it.

#include "Cspf/Graph/LabelTree.h"

#include <algorithm>
#include <tuple>

namespace Cspf {

template< class Visit >
void
CspfLabelTree::forEachLastLink( CspfVertex vertex, Visit && visit ) const {
   const uint32_t metric = this->metric( vertex );
   if ( vertex == source() || metric == CspfLabels::unreached ) {
      return;
   }
   for ( const uint32_t e : graph_.in( vertex ) ) {
      const CspfEdge edge{ e };
      const uint64_t near = this->metric( graph_.from( edge ) );
      if ( near <= metric
           && near + CspfArcs::stepMetric( graph_, edge, labels_.options() ) == metric
           && labels_.step( graph_, edge ) != CspfLabels::unreached && !overlay_.refuses( edge ) ) {
         visit( edge );
      }
   }
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

/// The first of the links by which a reached network is reached.
CspfEdge
CspfLabelTree::entryLink( CspfVertex network ) const {
   CspfEdge first = noEdge;
   forEachLastLink( network, [ & ]( CspfEdge edge ) {
      if ( first == noEdge || graph_.keyRank( edge ) < graph_.keyRank( first ) ) {
         first = edge;
      }
   } );
   return first;
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
   const uint32_t metricA = metric( a ), metricB = metric( b );
   return metricA != metricB ? metricA < metricB : place( a ) < place( b );
}

}
