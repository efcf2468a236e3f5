// How long all repairs of one protected link take, from the four runs to one repair for each router
// of the network, as a multiple of one CSPF run on the same network; and how that grows with the
// network.
//
// Both are timed in turn on the same graph, from the same router, with memory that was used before.
// The run is the constrained one that the repairs begin with, filter included. A figure is the
// median over protected links, the ratio the quotient of two medians.

#include "bench/NetworkGenerator.h"
#include "bench/RepairRuns.h"
#include "bench/Timing.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

using namespace Cspf;

namespace {

constexpr int protectedLinks = 41;

class Bench {
 public:
   Bench( uint32_t routers, bool isLink ) : isLink_( isLink ) {
      generateNetwork( routers, 7 ).fill( graph_ );
      graph_.renumber( CspfVertex{ 0 } );
   }

   /// Gives the time of all repairs, in microseconds.
   double report() {
      std::mt19937_64 random( 5 );
      std::vector< double > run, all;
      for ( int i = -2; i < protectedLinks; ++i ) {  // the first two warm the memory up
         const CspfEdge link{ static_cast< uint32_t >( random() % graph_.edgeBound() ) };
         const double oneRun = microseconds( [ & ]() {
            runs_.constrainedRun( { link, isLink_ } );
         } );
         const double repairs = microseconds( [ & ]() { allRepairs( link ); } );
         if ( i >= 0 ) {
            run.push_back( oneRun );
            all.push_back( repairs );
         }
      }
      const double repairs = median( all );
      std::printf( "%6u routers, %s protection: run %8.1f us, all repairs %9.1f us, ratio %5.1f; "
                   "%u repairs, %.2f nodes each\n",
                   graph_.vertices(), isLink_ ? "link" : "node", median( run ), repairs,
                   repairs / median( run ), repairs_ / ( protectedLinks + 2 ),
                   double( nodes_ ) / std::max( repairs_, 1u ) );
      return repairs;
   }

 private:
   void allRepairs( CspfEdge link ) {
      runs_.protect( { link, isLink_ } );
      for ( uint32_t v = 0; v < graph_.vertexBound(); ++v ) {
         const CspfRepairTable::Originator destination{ CspfVertex{ v }, 0 };
         if ( const auto all = runs_.to( { &destination, 1 }, v ).repairs; !all.empty() ) {
            ++repairs_;
            nodes_ += all.front().segments.size();
         }
      }
   }

   const bool isLink_;
   CspfGraph graph_;
   RepairRuns runs_{ graph_ };
   uint32_t repairs_ = 0;
   uint64_t nodes_ = 0;
};

}

/// Exit status 1 when a figure is beyond its limit.
int
main() {
   for ( const bool isLink : { true, false } ) {
      const double small = Bench( 1000, isLink ).report();
      const double large = Bench( 5000, isLink ).report();
      const double allowed = 5 * std::log( 5000.0 ) / std::log( 1000.0 );
      std::printf( "       growth %.1f; n log n would be %.1f\n", large / small, allowed );
      if ( large / small > 2 * allowed ) {
         std::fprintf( stderr, "repairs grow too fast\n" );
         return EXIT_FAILURE;
      }
   }
   return EXIT_SUCCESS;
}
