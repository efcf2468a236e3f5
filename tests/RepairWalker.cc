// Packets against repairs. Nothing here follows the reasoning of the repair computation: a packet
// is put on each link that plain forwarding could choose, and the fewest repair nodes are found by
// trying all.

#include "tests/RepairWalker.h"

#include <algorithm>
#include <map>
#include <queue>

using namespace Cspf;

RandomNetwork::RandomNetwork( uint32_t routers, std::mt19937 & random ) : routers( routers ) {
   const auto pick = [ & ]( uint32_t n ) { return static_cast< uint32_t >( random() % n ); };
   const uint32_t largest = pick( 2 ) ? 4 : 40, asymmetry = pick( 3 );
   const auto metric = [ & ]() { return pick( 60 ) ? 1 + pick( largest ) : 0xFFFFFF; };
   const auto connect = [ & ]( uint32_t a, uint32_t b ) {
      if ( a != b ) {
         const auto same = [ & ]( const Link & link ) { return link.a == a && link.b == b; };
         const auto before = std::ranges::count_if( links, same );
         const uint32_t there = metric();
         links.push_back( { a, b, there, pick( 3 ) < asymmetry ? metric() : there,
                            pick( 2 ) * ( 1 + pick( routers ) / 3 ), pick( 4 ),
                            pick( 25 ) ? State::up : State::oneWay,
                            name( a ) + "-" + name( b )
                               + ( before ? ":" + std::to_string( before + 1 ) : "" ) } );
      }
   };
   for ( uint32_t i = 0; i < routers; ++i ) {  // a ring, parts of it doubled, and chords
      connect( i, ( i + 1 ) % routers );
      if ( pick( 6 ) == 0 ) {
         connect( i, ( i + 1 ) % routers );
      }
      if ( pick( 2 ) ) {
         connect( pick( routers ), pick( routers ) );
      }
      rest += pick( 15 ) ? "" : "; overload " + name( i );
   }
   for ( uint32_t lan = pick( routers / 10 + 2 ); lan > 0; --lan ) {
      const uint32_t first = pick( routers );
      rest += "; " + name( first ) + " =lan" + std::to_string( lan ) + " "
              + std::to_string( 1 + pick( largest ) ) + "= " + name( ( first + 2 ) % routers ) + " "
              + ( routers > 5 ? name( ( first + 5 ) % routers ) : "" );
   }
}

std::string
RandomNetwork::text() const {
   std::string text;
   for ( uint32_t i = 0; i < routers; ++i ) {
      text += ( i ? "; " : "" ) + name( i );
   }
   for ( const Link & link : links ) {
      if ( link.state != State::down ) {
         text += "; " + name( link.a ) + " -" + std::to_string( link.metric ) + "{back "
                 + std::to_string( link.back ) + " group " + std::to_string( link.group )
                 + ( link.srlg ? " srlg " + std::to_string( link.srlg ) : "" )
                 + ( link.state == State::up ? "}- " : "}> " ) + name( link.b );
      }
   }
   return text + rest;
}

CspfEdge
RandomNetwork::edgeFrom( CspfVertex router, size_t link ) const {
   const bool fromA = links[ link ].a == index( router );
   uint32_t edge = fromA ? 0 : 1;
   for ( size_t i = 0; i < link; ++i ) {
      edge += links[ i ].state == State::down ? 0 : links[ i ].state == State::oneWay ? 1 : 2;
   }
   const bool isThere =
      links[ link ].state == State::up || ( links[ link ].state == State::oneWay && fromA );
   return isThere ? CspfEdge{ edge } : noEdge;
}

RepairWalker::RepairWalker( const CspfGraph & graph )
   : graph_( graph ),
     steps_( graph.vertexBound() ),
     visited_( graph.vertexBound() ) {
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      if ( !graph.isRouter( CspfVertex{ v } ) ) {
         continue;
      }
      for ( const uint32_t out : graph.out( CspfVertex{ v } ) ) {
         const CspfEdge link{ out };
         const CspfVertex to = graph.to( link );
         const uint32_t metric = graph.record( link ).igpMetric;
         if ( !graph.twoWay( link ) || metric == 0 || metric > 0xFFFFFE ) {
            continue;
         }
         if ( graph.isRouter( to ) ) {
            steps_[ v ].push_back( { index( to ), metric, link, link } );
            continue;
         }
         for ( const uint32_t member : graph.out( to ) ) {
            const uint32_t other = index( graph.to( CspfEdge{ member } ) );
            if ( other != v && graph.twoWay( CspfEdge{ member } ) ) {
               steps_[ v ].push_back( { other, metric, link, CspfEdge{ member } } );
            }
         }
      }
   }
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      before_.push_back( costsFrom( v, false ) );
   }
}

void
RepairWalker::resourceIs( const Resource & resource ) {
   resource_ = resource;
   fails_.assign( graph_.edgeBound(), false );
   for ( const CspfEdge edge : resource.edges ) {
      if ( edge != noEdge ) {
         fails_[ index( edge ) ] = true;
      }
   }
   after_.assign( graph_.vertexBound(), {} );
}

const std::vector< uint32_t > &
RepairWalker::after( uint32_t router ) const {
   if ( after_[ router ].empty() ) {
      after_[ router ] = costsFrom( router, true );
   }
   return after_[ router ];
}

RepairWalker::Resource
RepairWalker::behind( CspfEdge link, bool isLink ) const {
   const CspfVertex plr = graph_.from( link );
   return isLink ? Resource{ plr, { link, graph_.reverse( link ) } }
                 : Resource{ plr, {}, graph_.to( link ) };
}

bool
RepairWalker::fails( const Step & step ) const {
   return fails_[ index( step.link ) ] || fails_[ index( step.arrival ) ]
          || CspfVertex{ step.to } == resource_.node || graph_.from( step.link ) == resource_.node;
}

std::vector< uint32_t >
RepairWalker::costsFrom( uint32_t source, bool afterFailure ) const {
   std::vector< uint32_t > costs( graph_.vertexBound(), far );
   std::priority_queue< std::pair< int64_t, uint32_t > > queue;
   costs[ source ] = 0;
   queue.push( { 0, source } );
   while ( !queue.empty() ) {
      const auto [ negative, at ] = queue.top();
      queue.pop();
      if ( -negative != costs[ at ] || ( at != source && !mayCross( at ) ) ) {
         continue;
      }
      for ( const Step & step : steps_[ at ] ) {
         if ( costs[ at ] + step.metric < costs[ step.to ] && !( afterFailure && fails( step ) ) ) {
            costs[ step.to ] = costs[ at ] + step.metric;
            queue.push( { -int64_t( costs[ step.to ] ), step.to } );
         }
      }
   }
   return costs;
}

uint32_t
RepairWalker::cost( const std::vector< uint32_t > & costs, const Originators & destination ) {
   uint32_t least = far;
   for ( const auto & originator : destination ) {
      least = std::min( least, costs[ index( originator.router ) ] + originator.metric );
   }
   return least;
}

/// What is left of the way at a router, which packets may end at but not cross when it is
/// overloaded.
uint32_t
RepairWalker::rest( uint32_t at, const std::vector< uint32_t > & costs,
                    const Originators & destination ) const {
   return mayCross( at ) ? cost( costs, destination ) : own( at, destination );
}

/// The metric at which the router originates the destination itself.
uint32_t
RepairWalker::own( uint32_t at, const Originators & destination ) {
   uint32_t least = far;
   for ( const auto & originator : destination ) {
      least = index( originator.router ) == at ? std::min( least, originator.metric ) : least;
   }
   return least;
}

/// Sends the packet by all next hops at once; whether it arrives by each of them. Begun at the
/// router that is nearest after the failure, and originates the destination, it is there; elsewhere
/// a router that originates it may as well use another one at the same cost.
bool
RepairWalker::forward( uint32_t from, const Originators & destination ) const {
   if ( own( from, destination ) == rest( from, after( from ), destination ) ) {
      return true;
   }
   ++packet_;
   std::vector< uint32_t > waiting{ from };
   visited_[ from ] = packet_;
   bool delivered = false;
   while ( !waiting.empty() ) {
      const uint32_t at = waiting.back();
      waiting.pop_back();
      const uint32_t left = rest( at, before_[ at ], destination );
      delivered |= left < far && left == own( at, destination );
      if ( !mayCross( at ) ) {
         continue;
      }
      for ( const Step & step : steps_[ at ] ) {
         if ( step.metric + rest( step.to, before_[ step.to ], destination ) != left ) {
            continue;
         }
         if ( fails( step ) ) {
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
RepairWalker::crosses( uint32_t from, const CspfRepairSegment & segment ) const {
   return std::ranges::any_of( steps_[ from ], [ & ]( const Step & step ) {
      return step.link == segment.link && step.arrival == segment.arrival
             && CspfVertex{ step.to } == segment.node && !fails( step );
   } );
}

/// Whether a link that does not fail is a shortest path after the failure.
bool
RepairWalker::adjacent( uint32_t from, uint32_t to ) const {
   return std::ranges::any_of( steps_[ from ], [ & ]( const Step & step ) {
      return step.to == to && !fails( step ) && step.metric == after( from )[ to ];
   } );
}

bool
RepairWalker::walk( const CspfRepair & repair, const Originators & destination ) const {
   uint32_t at = index( repair.firstHop );
   for ( const CspfEdge link : repair.firstLinks ) {
      const auto leaves = [ & ]( const Step & s ) {
         return s.link == link && s.to == at && !fails( s ) && s.metric == after( plr() )[ at ];
      };
      if ( std::ranges::none_of( steps_[ plr() ], leaves ) ) {
         return false;
      }
   }
   for ( const CspfRepairSegment & segment : repair.segments ) {
      const uint32_t next = index( segment.node );
      if ( !( segment.link == noEdge ? forward( at, { { segment.node, 0 } } )
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
RepairWalker::onPath( uint32_t from, uint32_t to, const Originators & destination ) const {
   const uint32_t passed = after( plr() )[ from ] + after( from )[ to ];
   return passed == after( plr() )[ to ]
          && passed + rest( to, after( to ), destination ) == cost( after( plr() ), destination );
}

/// By breadth: from every router where a segment may begin, to every router further on the path.
uint32_t
RepairWalker::fewestNodes( uint32_t firstHop, const Originators & destination ) const {
   std::vector< uint32_t > begins{ firstHop };
   std::vector< bool > used( graph_.vertexBound() );
   for ( uint32_t nodes = 0; !begins.empty(); ++nodes ) {
      std::vector< uint32_t > next;
      for ( const uint32_t from : begins ) {
         if ( forward( from, destination ) ) {
            return nodes;
         }
         for ( uint32_t to = 0; to < graph_.vertexBound(); ++to ) {
            if ( used[ to ] || to == plr() || !graph_.isRouter( CspfVertex{ to } )
                 || after( from )[ to ] >= far || !onPath( from, to, destination ) ) {
               continue;
            }
            if ( ( nodes && adjacent( from, to ) )
                 || forward( from, { { CspfVertex{ to }, 0 } } ) ) {
               used[ to ] = true;
               next.push_back( to );
            }
         }
      }
      begins = next;
   }
   return far;
}

std::string
RepairWalker::fault( const CspfRepairs & result, const Originators & destination,
                     bool tryAll ) const {
   const auto & repairs = result.repairs;
   const uint32_t cheapest = cost( after( plr() ), destination );
   if ( cheapest >= far || own( plr(), destination ) == cheapest ) {
      return repairs.empty() ? "" : "a repair where there is none";
   }
   std::map< CspfVertex, size_t > found, wanted;  // nodes, by first hop
   for ( const CspfRepair & repair : repairs ) {
      if ( repair.firstLinks.empty() || !walk( repair, destination ) ) {
         return "by " + std::to_string( index( repair.firstHop ) ) + " packets do not arrive";
      }
      found[ repair.firstHop ] = repair.segments.size();
   }
   if ( !tryAll && !repairs.empty() ) {
      return "";
   }
   size_t least = far;
   for ( const Step & step : steps_[ plr() ] ) {
      if ( !fails( step ) && after( plr() )[ step.to ] == step.metric
           && onPath( step.to, step.to, destination ) ) {
         const uint32_t nodes = fewestNodes( step.to, destination );
         least = std::min< size_t >( least, nodes );
         if ( nodes <= 8 ) {
            wanted[ CspfVertex{ step.to } ] = nodes;
         }
      }
   }
   const bool right = found == wanted
                      && ( repairs.empty() ? result.nodesNeeded == ( least < far ? least : 0 )
                                           : repairs[ 0 ].segments.size() == least );
   return right ? "" : "would need " + std::to_string( least ) + " nodes";
}
