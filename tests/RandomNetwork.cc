#include "tests/RandomNetwork.h"

#include <algorithm>

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

namespace {

Prove::RepairNetwork
repairNetwork( const CspfGraph & graph ) {
   Prove::RepairNetwork network;
   network.links = graph.edgeBound();
   network.steps.resize( graph.vertexBound() );
   network.overloaded.resize( graph.vertexBound() );
   for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
      if ( !graph.isRouter( CspfVertex{ v } ) ) {
         continue;
      }
      network.overloaded[ v ] = graph.overloaded( CspfVertex{ v } );
      for ( const uint32_t out : graph.out( CspfVertex{ v } ) ) {
         const CspfEdge link{ out };
         const CspfVertex to = graph.to( link );
         const uint32_t metric = graph.record( link ).igpMetric;
         if ( !graph.twoWay( link ) || metric == 0 || metric > 0xFFFFFE ) {
            continue;
         }
         if ( graph.isRouter( to ) ) {
            network.steps[ v ].push_back( { index( to ), metric, out, out } );
            continue;
         }
         for ( const uint32_t member : graph.out( to ) ) {
            const uint32_t other = index( graph.to( CspfEdge{ member } ) );
            if ( other != v && graph.twoWay( CspfEdge{ member } ) ) {
               network.steps[ v ].push_back( { other, metric, out, member } );
            }
         }
      }
   }
   return network;
}

Prove::Repair
repairOf( const CspfRepair & repair ) {
   Prove::Repair plain{ index( repair.firstHop ), {}, {} };
   for ( const CspfEdge link : repair.firstLinks ) {
      plain.firstLinks.push_back( index( link ) );
   }
   for ( const CspfRepairSegment & segment : repair.segments ) {
      plain.segments.push_back(
         { index( segment.node ), index( segment.link ), index( segment.arrival ) } );
   }
   return plain;
}

Prove::Originators
originatorsOf( const GraphWalker::Originators & destination ) {
   Prove::Originators to;
   for ( const auto & originator : destination ) {
      to.push_back( { index( originator.router ), originator.metric } );
   }
   return to;
}

}

GraphWalker::GraphWalker( const CspfGraph & graph ) : walker_( repairNetwork( graph ) ) {}

void
GraphWalker::resourceIs( const Resource & resource ) {
   Prove::Failure failure{ index( resource.plr ), {}, index( resource.node ) };
   for ( const CspfEdge edge : resource.edges ) {
      if ( edge != noEdge ) {
         failure.links.push_back( index( edge ) );
      }
   }
   walker_.failureIs( failure );
}

GraphWalker::Resource
GraphWalker::behind( const CspfGraph & graph, CspfEdge link, bool isLink ) {
   const CspfVertex plr = graph.from( link );
   return isLink ? Resource{ plr, { link, graph.reverse( link ) } }
                 : Resource{ plr, {}, graph.to( link ) };
}

std::string
GraphWalker::fault( const CspfRepairs & result, const Originators & destination, bool tryAll,
                    uint32_t maxNodes ) const {
   const Prove::Originators to = originatorsOf( destination );
   std::vector< Prove::Repair > repairs;
   for ( const CspfRepair & repair : result.repairs ) {
      repairs.push_back( repairOf( repair ) );
   }
   std::string fault = walker_.fault( repairs, to, tryAll, maxNodes );
   const auto needed = repairs.empty() ? walker_.nodesNeeded( to ) : std::nullopt;
   if ( fault.empty() && needed && *needed != result.nodesNeeded ) {
      fault = std::to_string( result.nodesNeeded ) + " nodes are said to be needed";
   }
   return fault;
}

bool
GraphWalker::arrive( const CspfRepairs & result, const Originators & destination ) const {
   const Prove::Originators to = originatorsOf( destination );
   return std::ranges::all_of( result.repairs, [ & ]( const CspfRepair & repair ) {
      return walker_.walk( repairOf( repair ), to, true );
   } );
}
