// Packets against repairs. Nothing here follows the reasoning of the repair computation: a packet
// is put on each link that plain forwarding could choose, and the fewest repair nodes are found by
// trying all.

#include "tools/prove/RepairWalker.h"

#include <algorithm>
#include <map>
#include <queue>

namespace Prove {

RepairWalker::RepairWalker( RepairNetwork network )
   : network_( std::move( network ) ),
     before_( network_.steps.size() ),
     visited_( network_.steps.size() ) {}

void
RepairWalker::failureIs( const Failure & failure ) {
   failure_ = failure;
   fails_.assign( network_.links, false );
   for ( const std::uint32_t link : failure.links ) {
      fails_[ link ] = true;
   }
   after_.assign( network_.steps.size(), {} );
}

const RepairWalker::Costs &
RepairWalker::before( std::uint32_t router ) const {
   if ( before_[ router ].empty() ) {
      before_[ router ] = costsFrom( router, false );
   }
   return before_[ router ];
}

const RepairWalker::Costs &
RepairWalker::after( std::uint32_t router ) const {
   if ( after_[ router ].empty() ) {
      after_[ router ] = costsFrom( router, true );
   }
   return after_[ router ];
}

bool
RepairWalker::fails( std::uint32_t from, const Step & step ) const {
   return fails_[ step.link ] || fails_[ step.arrival ] || step.to == failure_.node
          || from == failure_.node;
}

RepairWalker::Costs
RepairWalker::costsFrom( std::uint32_t source, bool afterFailure ) const {
   Costs costs( network_.steps.size(), far );
   std::priority_queue< std::pair< std::int64_t, std::uint32_t > > queue;
   costs[ source ] = 0;
   queue.push( { 0, source } );
   while ( !queue.empty() ) {
      const auto [ negative, at ] = queue.top();
      queue.pop();
      if ( -negative != costs[ at ] || ( at != source && !mayCross( at ) ) ) {
         continue;
      }
      for ( const Step & step : network_.steps[ at ] ) {
         if ( costs[ at ] + step.metric < costs[ step.to ]
              && !( afterFailure && fails( at, step ) ) ) {
            costs[ step.to ] = costs[ at ] + step.metric;
            queue.push( { -std::int64_t( costs[ step.to ] ), step.to } );
         }
      }
   }
   return costs;
}

std::uint32_t
RepairWalker::cost( const Costs & costs, const Originators & destination ) {
   std::uint32_t least = far;
   for ( const auto & originator : destination ) {
      least = std::min( least, costs[ originator.router ] + originator.metric );
   }
   return least;
}

/// What is left of the way at a router, which packets may end at but not cross when it is
/// overloaded.
std::uint32_t
RepairWalker::rest( std::uint32_t at, const Costs & costs, const Originators & destination ) const {
   return mayCross( at ) ? cost( costs, destination ) : own( at, destination );
}

/// The metric at which the router originates the destination itself.
std::uint32_t
RepairWalker::own( std::uint32_t at, const Originators & destination ) {
   std::uint32_t least = far;
   for ( const auto & originator : destination ) {
      least = originator.router == at ? std::min( least, originator.metric ) : least;
   }
   return least;
}

/// Sends the packet by all next hops at once; whether it arrives by each of them. Begun at the
/// router that is nearest after the failure, and originates the destination, it is there; elsewhere
/// a router that originates it may as well use another one at the same cost.
bool
RepairWalker::forward( std::uint32_t from, const Originators & destination ) const {
   if ( own( from, destination ) == rest( from, after( from ), destination ) ) {
      return true;
   }
   ++packet_;
   std::vector< std::uint32_t > waiting{ from };
   visited_[ from ] = packet_;
   bool delivered = false;
   while ( !waiting.empty() ) {
      const std::uint32_t at = waiting.back();
      waiting.pop_back();
      const std::uint32_t left = rest( at, before( at ), destination );
      delivered |= left < far && left == own( at, destination );
      if ( !mayCross( at ) ) {
         continue;
      }
      for ( const Step & step : network_.steps[ at ] ) {
         if ( step.metric + rest( step.to, before( step.to ), destination ) != left ) {
            continue;
         }
         if ( fails( at, step ) ) {
            return false;
         }
         if ( visited_[ step.to ] != packet_ ) {
            visited_[ step.to ] = packet_;
            waiting.push_back( step.to );
         }
      }
   }
   return delivered;
}

/// The link that the segment names is there, leads to its node, and does not fail.
bool
RepairWalker::crosses( std::uint32_t from, const Repair::Segment & segment ) const {
   return std::ranges::any_of( network_.steps[ from ], [ & ]( const Step & step ) {
      return step.link == segment.link && step.arrival == segment.arrival && step.to == segment.node
             && !fails( from, step );
   } );
}

/// Whether a link that does not fail is a shortest path after the failure.
bool
RepairWalker::adjacent( std::uint32_t from, std::uint32_t to ) const {
   return std::ranges::any_of( network_.steps[ from ], [ & ]( const Step & step ) {
      return step.to == to && !fails( from, step ) && step.metric == after( from )[ to ];
   } );
}

bool
RepairWalker::walk( const Repair & repair, const Originators & destination ) const {
   std::uint32_t at = repair.firstHop;
   for ( const std::uint32_t link : repair.firstLinks ) {
      const auto leaves = [ & ]( const Step & s ) {
         return s.link == link && s.to == at && !fails( failure_.plr, s )
                && s.metric == after( failure_.plr )[ at ];
      };
      if ( std::ranges::none_of( network_.steps[ failure_.plr ], leaves ) ) {
         return false;
      }
   }
   for ( const Repair::Segment & segment : repair.segments ) {
      const std::uint32_t next = segment.node;
      if ( !( segment.link == none ? forward( at, { { segment.node, 0 } } )
                                   : crosses( at, segment ) )
           || !onPath( next, next, destination ) ) {
         return false;
      }
      at = next;
   }
   return forward( at, destination );
}

/// Whether some path after the failure leads from the PLR through `from` and then `to`.
bool
RepairWalker::onPath( std::uint32_t from, std::uint32_t to,
                      const Originators & destination ) const {
   const std::uint32_t passed = after( failure_.plr )[ from ] + after( from )[ to ];
   return passed == after( failure_.plr )[ to ]
          && passed + rest( to, after( to ), destination )
                == cost( after( failure_.plr ), destination );
}

/// By breadth: from every router where a segment may begin, to every router further on the path.
std::uint32_t
RepairWalker::fewestNodes( std::uint32_t firstHop, const Originators & destination ) const {
   std::vector< std::uint32_t > begins{ firstHop };
   std::vector< bool > used( network_.steps.size() );
   for ( std::uint32_t nodes = 0; !begins.empty(); ++nodes ) {
      std::vector< std::uint32_t > next;
      for ( const std::uint32_t from : begins ) {
         if ( forward( from, destination ) ) {
            return nodes;
         }
         for ( std::uint32_t to = 0; to < network_.steps.size(); ++to ) {
            if ( used[ to ] || to == failure_.plr || after( from )[ to ] >= far
                 || !onPath( from, to, destination ) ) {
               continue;
            }
            if ( ( nodes && adjacent( from, to ) ) || forward( from, { { to, 0 } } ) ) {
               used[ to ] = true;
               next.push_back( to );
            }
         }
      }
      begins = next;
   }
   return far;
}

/// Calls it for each neighbour on a shortest path after the failure.
template< class Visit >
void
RepairWalker::forEachFirstHop( const Originators & destination, Visit && visit ) const {
   for ( const Step & step : network_.steps[ failure_.plr ] ) {
      if ( !fails( failure_.plr, step ) && after( failure_.plr )[ step.to ] == step.metric
           && onPath( step.to, step.to, destination ) ) {
         visit( step.to );
      }
   }
}

std::optional< std::uint32_t >
RepairWalker::nodesNeeded( const Originators & destination ) const {
   const std::uint32_t cheapest = cost( after( failure_.plr ), destination );
   if ( cheapest >= far || own( failure_.plr, destination ) == cheapest ) {
      return std::nullopt;
   }
   std::uint32_t least = far;
   forEachFirstHop( destination, [ & ]( std::uint32_t firstHop ) {
      least = std::min( least, fewestNodes( firstHop, destination ) );
   } );
   return least < far ? std::optional( least ) : std::nullopt;
}

bool
RepairWalker::reaches( std::uint32_t router, const Originators & destination ) const {
   return cost( before( router ), destination ) < far;
}

std::string
RepairWalker::fault( const std::vector< Repair > & repairs, const Originators & destination,
                     bool tryAll, std::uint32_t nodesAllowed ) const {
   const std::uint32_t cheapest = cost( after( failure_.plr ), destination );
   if ( cheapest >= far || own( failure_.plr, destination ) == cheapest ) {
      return repairs.empty() ? "" : "a repair where there is none";
   }
   std::map< std::uint32_t, std::size_t > found, wanted;  // nodes, by first hop
   for ( const Repair & repair : repairs ) {
      if ( repair.firstLinks.empty() || !walk( repair, destination ) ) {
         return "by " + std::to_string( repair.firstHop ) + " packets do not arrive";
      }
      found[ repair.firstHop ] = repair.segments.size();
   }
   if ( !tryAll && !repairs.empty() ) {
      return "";
   }
   std::size_t least = far;
   forEachFirstHop( destination, [ & ]( std::uint32_t firstHop ) {
      const std::uint32_t nodes = fewestNodes( firstHop, destination );
      least = std::min< std::size_t >( least, nodes );
      if ( nodes <= nodesAllowed ) {
         wanted[ firstHop ] = nodes;
      }
   } );
   const bool right =
      found == wanted && ( repairs.empty() || repairs[ 0 ].segments.size() == least );
   return right ? "" : "would need " + std::to_string( least ) + " nodes";
}

}
