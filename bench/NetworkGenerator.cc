// Networks for measurements. A router belongs to a metro of twenty: a ring, chords across it to
// the next but one, and long links from some routers to anywhere. Nothing here is random beyond
// the seed, so figures of two days can be compared.

#include "bench/NetworkGenerator.h"

#include <algorithm>
#include <random>

namespace {

constexpr uint32_t metro = 20;

class Generator {
 public:
   Generator( uint32_t routers, uint32_t seed ) : random_( seed ) { network_.routers = routers; }

   GeneratedNetwork network() {
      const uint32_t routers = network_.routers;
      for ( uint32_t router = 0; router < routers; ++router ) {
         const uint32_t base = router / metro * metro;
         const uint32_t size = std::min( metro, routers - base );
         connect( router, base + ( router - base + 1 ) % size );
         if ( pick( 100 ) < 70 ) {
            connect( router, base + ( router - base + 2 ) % size );
         }
         if ( router % metro == 0 ) {
            connect( router, ( base + metro ) % routers );  // the metros' own ring
         }
      }
      while ( network_.links.size() * 10 < routers * 49ULL ) {
         connect( pick( routers ), pick( routers ) );
      }
      return std::move( network_ );
   }

 private:
   uint32_t pick( uint32_t below ) { return static_cast< uint32_t >( random_() % below ); }

   void connect( uint32_t a, uint32_t b ) {
      if ( a == b ) {
         return;
      }
      std::vector< uint32_t > srlgs( pick( 6 ) == 0 ? 1 + pick( 3 ) : 0 );
      std::ranges::generate( srlgs, [ & ]() { return pick( 400 ); } );
      for ( const auto & [ from, to ] : { std::pair{ a, b }, { b, a } } ) {
         network_.links.push_back( { from, to, 1 + pick( 1000 ), group(), srlgs,
                                     static_cast< float >( pick( 10000 ) ) * 1e6F } );
      }
   }

   /// Bit 0 nearly always, one of bits 1 to 4, bit 5 now and then.
   uint32_t group() {
      return ( pick( 100 ) < 95 ) | 2U << pick( 4 ) | ( pick( 100 ) < 8 ? 32U : 0U );
   }

   std::mt19937_64 random_;
   GeneratedNetwork network_;
};

}

GeneratedNetwork
generateNetwork( uint32_t routers, uint32_t seed ) {
   return Generator( routers, seed ).network();
}

void
GeneratedNetwork::fill( Cspf::CspfGraph & graph ) const {
   using namespace Cspf;
   for ( uint32_t router = 0; router < routers; ++router ) {
      graph.addRouter( router );
   }
   for ( uint32_t i = 0; i < links.size(); ++i ) {
      const Link & link = links[ i ];
      CspfEdgeRecord record;
      record.igpMetric = link.metric;
      record.adminGroup = link.adminGroup;
      record.srlgs = link.srlgs;
      record.unreserved.fill( link.unreserved );
      record.keyRank = record.interface = i + 1;
      const CspfEdge edge = graph.addEdge( CspfVertex{ link.from }, CspfVertex{ link.to }, record );
      if ( i % 2 ) {
         graph.pairIs( CspfEdge{ index( edge ) - 1 }, edge, true );
      }
   }
}
