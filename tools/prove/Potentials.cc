#include "tools/prove/Potentials.h"

#include <algorithm>
#include <queue>

namespace Prove {

Potentials
search( std::span< const Arc > arcs, std::size_t nodes, std::uint32_t source ) {
   std::vector< std::vector< const Arc * > > leaving( nodes );
   for ( const Arc & arc : arcs ) {
      leaving[ arc.from ].push_back( &arc );
   }
   using Entry = std::pair< Cost, std::uint32_t >;
   std::priority_queue< Entry, std::vector< Entry >, std::greater<> > queue;
   Potentials found( nodes );
   found[ source ] = Cost();
   queue.push( { Cost(), source } );
   while ( !queue.empty() ) {
      const auto [ cost, at ] = queue.top();
      queue.pop();
      if ( cost != found[ at ] ) {
         continue;
      }
      for ( const Arc * arc : leaving[ at ] ) {
         const Cost next = cost + arc->cost;
         auto & known = found[ arc->to ];
         if ( next.metric <= maximumPathMetric && ( !known || next < *known ) ) {
            known = next;
            queue.push( { next, arc->to } );
         }
      }
   }
   return found;
}

bool
certifies( const Potentials & potentials, std::span< const Arc > arcs, std::uint32_t source ) {
   std::vector< bool > entered( potentials.size() );
   entered[ source ] = potentials[ source ] == Cost();
   for ( const Arc & arc : arcs ) {
      if ( !potentials[ arc.from ] ) {
         continue;
      }
      const Cost next = *potentials[ arc.from ] + arc.cost;
      const auto & known = potentials[ arc.to ];
      if ( next.metric > maximumPathMetric ) {
         continue;
      }
      if ( !known || next < *known ) {
         return false;
      }
      entered[ arc.to ] = entered[ arc.to ] || next == *known;
   }
   for ( std::size_t node = 0; node < potentials.size(); ++node ) {
      if ( potentials[ node ] && !entered[ node ] ) {
         return false;
      }
   }
   return true;
}

}
