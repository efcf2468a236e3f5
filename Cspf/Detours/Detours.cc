// The search for a way around by breadth: first the neighbours, then every router that plain
// forwarding from one of them reaches, and so on; each router counts where it is reached by the
// fewest nodes. These layers do not depend on the destination. From there one run backwards tells
// for all routers at once whether plain forwarding takes the rest.

#include "Cspf/Detours/Detours.h"

#include <algorithm>

namespace Cspf {

CspfDetours::CspfDetours( const CspfPlainForwarding & forwarding, CspfVertex plr )
   : forwarding_( forwarding ),
     plr_( plr ) {
   forwarding_.forEachNeighbor( plr,
                                [ & ]( CspfVertex router, CspfEdge link, CspfEdge,
                                       uint32_t metric ) { addFirstHop( router, link, metric ); } );
   layers_.push_back( 0 );
}

void
CspfDetours::addFirstHop( CspfVertex router, CspfEdge link, uint32_t metric ) {
   const auto at = std::ranges::find( firstHops_, router, &FirstHop::router );
   if ( at == firstHops_.end() ) {
      firstHops_.push_back( { router, { link } } );
      starts_.push_back( { .router = router, .cost = metric } );
      return;
   }
   Start & start = starts_[ static_cast< size_t >( at - firstHops_.begin() ) ];
   if ( metric < start.cost ) {
      start.cost = metric;
      at->links.clear();
   }
   if ( metric == start.cost ) {
      at->links.push_back( link );
   }
}

std::optional< CspfRepair >
CspfDetours::find( std::span< const CspfOriginator > destination, uint32_t maxNodes ) {
   const Arrivals arrivals = forwarding_.arrivals( destination );
   isNode_.resize( arrivals.size() );
   for ( uint32_t nodes = 0; nodes <= maxNodes; ++nodes ) {
      if ( nodes == layers_.size() && !addLayer() ) {
         break;
      }
      if ( const uint32_t last = cheapest( nodes, arrivals ); last != none ) {
         return repair( last );
      }
   }
   return std::nullopt;
}

/// Of the starts after so many nodes from which packets arrive.
uint32_t
CspfDetours::cheapest( uint32_t nodes, const Arrivals & arrivals ) const {
   const size_t end = nodes + 1 < layers_.size() ? layers_[ nodes + 1 ] : starts_.size();
   uint32_t best = none;
   uint64_t least = 0;
   for ( uint32_t i = layers_[ nodes ]; i < end; ++i ) {
      const auto & arrival = arrivals[ index( starts_[ i ].router ) ];
      const uint64_t cost = starts_[ i ].cost + arrival.cost;
      if ( arrival.isSound && ( best == none || cost < least ) ) {
         best = i;
         least = cost;
      }
   }
   return best;
}

CspfRepair
CspfDetours::repair( uint32_t last ) const {
   CspfRepair repair;
   for ( ; starts_[ last ].before != none; last = starts_[ last ].before ) {
      const Start & start = starts_[ last ];
      repair.segments.push_back( { start.router, start.link, start.arrival } );
   }
   std::ranges::reverse( repair.segments );
   repair.firstHop = starts_[ last ].router;
   repair.firstLinks = firstHops_[ last ].links;
   return repair;
}

/// The routers that take one node more than the last layer; false where there are none.
bool
CspfDetours::addLayer() {
   const uint32_t begin = layers_.back(), end = static_cast< uint32_t >( starts_.size() );
   std::vector< uint32_t > startOf( isNode_.size(), none );
   layers_.push_back( end );
   for ( uint32_t start = begin; start < end; ++start ) {
      addFrom( start, startOf );
      if ( begin > 0 ) {  // the first hop is no repair node, and has no adjacency segment
         addNeighbors( start, startOf );
      }
   }
   for ( size_t i = end; i < starts_.size(); ++i ) {
      isNode_[ index( starts_[ i ].router ) ] = true;
   }
   return starts_.size() > end;
}

void
CspfDetours::offer( const Start & start, std::vector< uint32_t > & startOf ) {
   if ( isNode_[ index( start.router ) ] || start.router == plr_ ) {
      return;
   }
   uint32_t & at = startOf[ index( start.router ) ];
   if ( at == none ) {
      at = static_cast< uint32_t >( starts_.size() );
      starts_.push_back( start );
   } else if ( start.cost < starts_[ at ].cost
               || ( start.cost == starts_[ at ].cost && start.before == starts_[ at ].before
                    && starts_[ at ].link == noEdge ) ) {
      starts_[ at ] = start;
   }
}

void
CspfDetours::addFrom( uint32_t start, std::vector< uint32_t > & startOf ) {
   const Start from = starts_[ start ];
   for ( const CspfPlainForwarding::Sound & end : forwarding_.soundFrom( from.router ) ) {
      offer( { .router = end.router, .before = start, .cost = from.cost + end.cost }, startOf );
   }
}

/// Neighbours in a row are joined by their link.
void
CspfDetours::addNeighbors( uint32_t start, std::vector< uint32_t > & startOf ) {
   const Start from = starts_[ start ];
   forwarding_.forEachNeighbor(
      from.router, [ & ]( CspfVertex router, CspfEdge link, CspfEdge arrival, uint32_t metric ) {
         offer( { router, start, link, arrival, from.cost + metric }, startOf );
      } );
}

}
