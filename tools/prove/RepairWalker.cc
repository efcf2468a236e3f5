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

bool
RepairWalker::forward( std::uint32_t from, const Originators & destination,
                       Meeting * meeting ) const {
   const std::uint32_t here = own( from, destination );
   if ( here < far && here == rest( from, after( from ), destination ) ) {
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
            if ( meeting ) {
               *meeting = { at, step };
            }
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

const RepairWalker::Step *
RepairWalker::link( std::uint32_t from, std::uint32_t to, bool shortest ) const {
   for ( const Step & step : network_.steps[ from ] ) {
      if ( step.to == to && !fails( from, step )
           && !( shortest && step.metric != after( from )[ to ] ) ) {
         return &step;
      }
   }
   return nullptr;
}

bool
RepairWalker::walk( const Repair & repair, const Originators & destination, bool mayLeave ) const {
   std::uint32_t at = repair.firstHop;
   for ( const std::uint32_t link : repair.firstLinks ) {
      const auto leaves = [ & ]( const Step & s ) {
         return s.link == link && s.to == at && !fails( failure_.plr, s )
                && ( mayLeave || s.metric == after( failure_.plr )[ at ] );
      };
      if ( std::ranges::none_of( network_.steps[ failure_.plr ], leaves ) ) {
         return false;
      }
   }
   for ( const Repair::Segment & segment : repair.segments ) {
      const std::uint32_t next = segment.node;
      if ( !( segment.link == none ? forward( at, { { segment.node, 0 } } )
                                   : crosses( at, segment ) )
           || !( mayLeave || onPath( next, next, destination ) ) ) {
         return false;
      }
      at = next;
   }
   return forward( at, destination );
}

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
RepairWalker::fewestNodes( std::uint32_t firstHop, const Originators & destination,
                           bool mayLeave ) const {
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
                 || !( mayLeave || onPath( from, to, destination ) ) ) {
               continue;
            }
            if ( ( nodes && ( mayLeave ? joined( from, to ) : adjacent( from, to ) ) )
                 || forward( from, { { to, 0 } } ) ) {
               used[ to ] = true;
               next.push_back( to );
            }
         }
      }
      begins = next;
   }
   return far;
}

bool
RepairWalker::isFirst( const Step & step, const Originators & destination ) const {
   return !fails( failure_.plr, step ) && after( failure_.plr )[ step.to ] == step.metric
          && onPath( step.to, step.to, destination );
}

/// Of the repairs by all first hops.
std::uint32_t
RepairWalker::fewestNodes( const Originators & destination, bool mayLeave ) const {
   std::uint32_t least = far;
   for ( const Step & step : network_.steps[ failure_.plr ] ) {
      if ( mayLeave ? !fails( failure_.plr, step ) : isFirst( step, destination ) ) {
         least = std::min( least, fewestNodes( step.to, destination, mayLeave ) );
      }
   }
   return least;
}

std::optional< std::uint32_t >
RepairWalker::nodesNeeded( const Originators & destination, bool mayLeave ) const {
   const std::uint32_t cheapest = cost( after( failure_.plr ), destination );
   if ( cheapest >= far || own( failure_.plr, destination ) == cheapest ) {
      return std::nullopt;
   }
   const std::uint32_t least = fewestNodes( destination, mayLeave );
   return least < far ? std::optional( least ) : std::nullopt;
}

bool
RepairWalker::reaches( std::uint32_t router, const Originators & destination ) const {
   return cost( before( router ), destination ) < far;
}

std::uint32_t
RepairWalker::costBefore( std::uint32_t from, const Originators & destination ) const {
   return rest( from, before( from ), destination );
}

std::uint32_t
RepairWalker::costAfter( const Originators & destination ) const {
   return cost( after( failure_.plr ), destination );
}

std::uint32_t
RepairWalker::costAfterBy( std::uint32_t router, const Originators & destination ) const {
   return std::min( far, after( failure_.plr )[ router ]
                            + rest( router, after( router ), destination ) );
}

std::uint32_t
RepairWalker::costAfterOver( std::uint32_t from, const Step & step,
                             const Originators & destination ) const {
   const std::uint32_t begin =
      from == failure_.plr || mayCross( from ) ? after( failure_.plr )[ from ] : far;
   return std::min( far, begin + step.metric + rest( step.to, after( step.to ), destination ) );
}

/// In layers by the number of nodes, as each list of so few has a shortest path to be on.
RepairWalker::Shortest
RepairWalker::shortest( const Originators & destination, std::uint32_t firstHop,
                        std::uint32_t node ) const {
   std::map< std::uint32_t, std::uint64_t > with, without;  // lists that end there, by the node
   for ( const Step & step : network_.steps[ failure_.plr ] ) {
      if ( ( firstHop == none || step.to == firstHop ) && isFirst( step, destination ) ) {
         ( node == none ? with : without )[ step.to ] = 1;
      }
   }
   for ( std::uint32_t nodes = 0; nodes <= maxNodes; ++nodes ) {
      Shortest found{ nodes };
      for ( const auto & [ last, lists ] : with ) {
         found.count += forward( last, destination ) ? lists : 0;
      }
      if ( found.count > 0 ) {
         return found;
      }
      std::map< std::uint32_t, std::uint64_t > nextWith, nextWithout;
      for ( std::uint32_t to = 0; to < network_.steps.size(); ++to ) {
         const auto extend = [ & ]( const auto & lists, auto & longer ) {
            for ( const auto & [ from, count ] : lists ) {
               if ( extends( from, to, nodes > 0, destination ) ) {
                  longer[ to ] += count;
               }
            }
         };
         extend( with, nextWith );
         extend( without, to == node ? nextWith : nextWithout );
      }
      with = std::move( nextWith );
      without = std::move( nextWithout );
   }
   return {};
}

/// Whether a segment on the paths after the failure may lead there, by a link only where another
/// segment came before.
bool
RepairWalker::extends( std::uint32_t from, std::uint32_t to, bool byLink,
                       const Originators & destination ) const {
   return to != from && to != failure_.plr && after( from )[ to ] < far
          && onPath( from, to, destination )
          && ( ( byLink && adjacent( from, to ) ) || forward( from, { { to, 0 } } ) );
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
      const bool arrives = walk( repair, destination, false )
                           || ( fewestNodes( destination, false ) > nodesAllowed
                                && walk( repair, destination, true ) );
      if ( repair.firstLinks.empty() || !arrives || repair.segments.size() > nodesAllowed ) {
         return "by " + std::to_string( repair.firstHop ) + " packets do not arrive";
      }
      found[ repair.firstHop ] = repair.segments.size();
   }
   if ( !tryAll && !repairs.empty() ) {
      return "";
   }
   const std::uint32_t least = fewestNodes( destination, false );
   if ( least > nodesAllowed ) {
      const std::uint32_t leaving = fewestNodes( destination, true );
      const bool right = leaving <= nodesAllowed
                            ? repairs.size() == 1 && repairs[ 0 ].segments.size() == leaving
                            : repairs.empty();
      return right ? "" : "off the path would need " + std::to_string( leaving ) + " nodes";
   }
   for ( const Step & step : network_.steps[ failure_.plr ] ) {
      const std::uint32_t nodes =
         isFirst( step, destination ) ? fewestNodes( step.to, destination, false ) : far;
      if ( nodes <= nodesAllowed ) {
         wanted[ step.to ] = nodes;
      }
   }
   const bool right = found == wanted && repairs[ 0 ].segments.size() == least;
   return right ? "" : "would need " + std::to_string( least ) + " nodes";
}

}
