// How long all repairs of one protected link take, from the four runs to one repair for each router
// of the network, as a multiple of one CSPF run on the same network; and how that grows with the
// network.
//
// Both are timed in turn on the same graph, from the same router, with memory that was used before.
// The run is the constrained one that the repairs begin with, filter included. A figure is the
// median over protected links, the ratio the quotient of two medians. Rings are the hard case: half
// of the repairs need nodes.
//
// Then a router with twenty protected links, each as a link and as a node, in networks of two
// sizes: what a change costs that concerns none of its trees, one at random, and one of a link that
// all trees use; as CPU time, and as a share of what the same agent takes that runs every tree.
//
// Last the whole agent with N requests behind one link, each towards a prefix of its own: what a
// change costs that none of them minds, one that all mind, and a request in memory; for growing N,
// as CPU time and as its ratio to that of the smallest.

#include "bench/BenchAgent.h"
#include "bench/NetworkGenerator.h"
#include "bench/RepairRuns.h"
#include "bench/Timing.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

using namespace Cspf;

namespace {

constexpr int protectedLinks = 41;

class Bench {
 public:
   Bench( const GeneratedNetwork & network, bool isLink ) : isLink_( isLink ) {
      network.fill( graph_ );
      graph_.renumber( CspfVertex{ 0 } );
   }

   /// Gives the time of all repairs, in microseconds.
   double report() {
      std::mt19937_64 random( 5 );
      std::vector< double > run, all;
      for ( int i = -2; i < protectedLinks; ++i ) {  // the first two warm the memory up
         const CspfEdge link{ static_cast< uint32_t >( random() % graph_.edgeBound() ) };
         const double oneRun = 1000 * cpuMilliseconds( [ & ]() {
                                  runs_.constrainedRun( { link, isLink_ } );
                               } );
         const double repairs = 1000 * cpuMilliseconds( [ & ]() { allRepairs( link ); } );
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

/// Every link costs the same.
GeneratedNetwork
ring( uint32_t routers ) {
   GeneratedNetwork network;
   network.routers = routers;
   for ( uint32_t r = 0; r < routers; ++r ) {
      network.links.push_back( { r, ( r + 1 ) % routers, 10, 0, {}, 0 } );
      network.links.push_back( { ( r + 1 ) % routers, r, 10, 0, {}, 0 } );
   }
   return network;
}

/// ... and a router beside it, whose link no repair crosses.
GeneratedNetwork
ringAndStub( uint32_t routers ) {
   GeneratedNetwork network = ring( routers );
   network.links.push_back( { routers / 2, routers, 10, 0, {}, 0 } );
   network.links.push_back( { routers, routers / 2, 10, 0, {}, 0 } );
   ++network.routers;
   return network;
}

/// The agent with so many requests, on a ring, whose second quarter announces their prefixes.
class Growth {
 public:
   static constexpr uint32_t routers = 16;

   explicit Growth( uint32_t requests )
      : requests_( requests ),
        document_( labOf( ringAndStub( routers ) ) ) {
      Lab::LabTopology & topology = document_.topologies[ "net" ];
      document_.segmentRouting[ Lab::Vrf::defaultVrf() ] =
         topology.routers[ routerName( 0 ) ].id.isisSystemId();
      prefixesAre( true );
      for ( uint32_t i = 0; i < requests; ++i ) {
         Lab::LabPath & path = document_.paths[ "tilfa" ][ std::to_string( i ) ];
         path.dst = Cspf::Destination( prefix( i ) );
         path.constraint.excludeIntf = Kivnet::IntfId( "l0.a" );
      }
      agent_.lab().write( document_ );
      agent_.settle();
      const std::size_t before = heapInUse();
      document_.clients[ "tilfa" ] = {
         { { Lab::Vrf::defaultVrf(), true } }, { { Lab::Af::ipv4, true } }, false };
      change();
      bytes = double( heapInUse() - before ) / requests;
   }

   double bytes;  ///< of the agent, for each request

   /// CPU milliseconds: of the stub's link, which sorts last.
   double remoteChange() {
      const auto table = agent_.topology();
      const auto key = Lum::sortedKeys( table->neighborColl() ).back();
      std::vector< double > times;
      for ( int i = 0; i < 9; ++i ) {
         Routing::Topology::Neighbor link = table->neighbor( key );
         link.metricIs( link.metric() == 10 ? 11 : 10 );
         times.push_back( cpuMilliseconds( [ & ]() {
            table->neighborIs( key, link );
            agent_.settle();
         } ) );
      }
      return median( times );
   }
   double prefixesGoAndComeBack() {
      return cpuMilliseconds( [ & ]() {
         for ( const bool areThere : { false, true } ) {
            prefixesAre( areThere );
            change();
         }
      } );
   }
   double linkToNode() {
      for ( auto & [ name, path ] : document_.paths[ "tilfa" ] ) {
         path.constraint.excludeNode = { routerName( 1 ), Kivnet::IntfId( "l0.a" ) };
      }
      return cpuMilliseconds( [ & ]() { change(); } );
   }
   bool allAreProtected() const {
      const auto status = agent_.status( "tilfa" );
      uint32_t count = 0;
      for ( const auto & [ key, path ] : status->pathStatusColl() ) {
         count += path.repairPathIdx() > 0;
      }
      return count == requests_;
   }

 private:
   static Kivnet::IpGenPrefix prefix( uint32_t n ) {
      return Kivnet::IpGenPrefix( Kivnet::IpGenAddr( Kivnet::IpAddr( 0x14000000 + n * 256 ) ), 24 );
   }
   void prefixesAre( bool areThere ) {
      for ( uint32_t i = 0; i < requests_; ++i ) {
         const uint32_t router = routers / 4 + i % ( routers / 4 );
         auto & prefixes = document_.topologies[ "net" ].routers[ routerName( router ) ].prefixes;
         if ( areThere ) {
            prefixes[ prefix( i ) ] = 1;
         } else {
            prefixes.erase( prefix( i ) );
         }
      }
   }
   void change() {
      agent_.lab().write( document_ );
      agent_.settle();
   }

   const uint32_t requests_;
   Lab::LabDocument document_;
   BenchAgent agent_;
};

/// Whether all was as it should be.
bool
reportGrowth() {
   std::printf(
      "requests   remote change       prefixes gone, back  link to node         bytes each\n" );
   std::vector< double > first;
   bool isRight = true;
   for ( const uint32_t requests : { 1'000u, 2'000u, 4'000u, 8'000u } ) {
      Growth growth( requests );
      const std::vector< double > now{ growth.remoteChange(), growth.prefixesGoAndComeBack(),
                                       growth.linkToNode() };
      first = first.empty() ? now : first;
      std::printf( "%8u", requests );
      for ( size_t i = 0; i < now.size(); ++i ) {
         std::printf( "   %7.1f ms x%5.1f", now[ i ], now[ i ] / first[ i ] );
         isRight &= now[ i ] / first[ i ] < 3 * double( requests ) / 1'000;  // caches end between
      }
      std::printf( "   %10.0f\n", growth.bytes );
      isRight &= growth.allAreProtected() && growth.bytes <= 4096;
   }
   return isRight;
}

/// The agent of a router with many protected links, link and node, a few routers behind each.
class Protections {
 public:
   static constexpr uint32_t links = 20, destinations = 3;
   static constexpr int rounds = 15;

   explicit Protections( uint32_t routers ) : random_( 5 ) {
      GeneratedNetwork network = generateNetwork( routers, 7 );
      inner_ = static_cast< uint32_t >( network.links.size() / 2 );
      const auto connect = [ & ]( uint32_t from, uint32_t to, uint32_t metric ) {
         network.links.push_back( { from, to, metric, 0, {}, 0 } );
         network.links.push_back( { to, from, metric, 0, {}, 0 } );
         return "l" + std::to_string( network.links.size() / 2 - 1 );
      };
      std::vector< std::pair< std::string, uint32_t > > own;
      for ( uint32_t i = 1; i <= links; ++i ) {
         const uint32_t far = i * ( routers / ( links + 1 ) );
         own.emplace_back( connect( 0, far, 500 ), far );
      }
      dear_ = connect( 1, routers / 2, dearMetric );
      stub_ = connect( 2, network.routers++, 10 );
      Lab::LabDocument document = labOf( network );
      const auto & all = document.topologies[ "net" ].routers;
      document.segmentRouting[ Lab::Vrf::defaultVrf() ] =
         all.at( routerName( 0 ) ).id.isisSystemId();
      document.clients[ "tilfa" ] = {
         { { Lab::Vrf::defaultVrf(), true } }, { { Lab::Af::ipv4, true } }, false };
      for ( const auto & [ link, far ] : own ) {
         for ( uint32_t i = 0; i < 2 * destinations; ++i ) {
            Lab::LabPath & path = document.paths[ "tilfa" ][ link + "-" + std::to_string( i ) ];
            const auto & to = all.at( routerName( 1 + random_() % ( routers - 1 ) ) );
            path.dst = Cspf::Destination( to.id.isisSystemId() );
            path.id = ++paths_;
            path.constraint.excludeIntf = Kivnet::IntfId( link + ".a" );
            if ( i % 2 ) {
               path.constraint.excludeNode = { routerName( far ), path.constraint.excludeIntf };
            }
         }
      }
      agent_.lab().write( document );
      agent_.settle();
      for ( const auto & [ key, link ] : agent_.topology()->neighborColl() ) {
         keys_[ link.intfId().stringValue() ] = key;
      }
   }

   /// Gives the largest share of the whole that a change of these costs.
   double report( uint32_t routers ) {
      const uint64_t before = agent_.runs();
      change( dear_, dearMetric + 2 );
      std::printf( "%6u routers, %u protected links, link and node, %u requests, %llu trees\n",
                   routers, links, paths_,
                   static_cast< unsigned long long >( agent_.runs() - before ) );
      const double none = compare(
         "concerns no tree", [ & ]( int round ) { change( dear_, dearMetric + round % 2 ); } );
      const double random = compare( "at random", [ & ]( int ) {
         change( "l" + std::to_string( random_() % inner_ ), 1 + random_() % 1000 );
      } );
      const double every =
         compare( "of every tree", [ & ]( int round ) { change( stub_, 10 + round % 2 ); } );
      return std::max( { none, random, every } );
   }

 private:
   static constexpr uint32_t dearMetric = 100'000;

   void change( const std::string & name, uint64_t metric ) {
      const auto table = agent_.topology();
      const auto key = keys_.at( name + ".a" );
      Routing::Topology::Neighbor link = table->neighbor( key );
      link.metricIs( static_cast< uint32_t >( metric ) );
      table->neighborIs( key, link );
      agent_.settle();
   }
   /// Each change as an agent that keeps trees works it through, and one that runs them.
   double compare( const char * what, const std::function< void( int ) > & change ) {
      std::vector< double > kept, run;
      for ( int round = 0; round < 2 * rounds; ++round ) {
         const bool keeps = round / 2 % 2;
         agent_.followingIs( keeps );
         ( keeps ? kept : run ).push_back( cpuMilliseconds( [ & ]() { change( round ); } ) );
      }
      std::printf( "   a change %-18s kept %8.2f ms, run %8.2f ms, share %.3f\n", what,
                   median( kept ), median( run ), median( kept ) / median( run ) );
      return median( kept ) / median( run );
   }

   std::mt19937_64 random_;
   uint32_t inner_ = 0;  // links between others
   std::string dear_, stub_;
   uint32_t paths_ = 0;
   BenchAgent agent_;
   std::map< std::string, Routing::Topology::NeighborKey > keys_;  // by interface
};

}

/// Exit status 1 when a figure is beyond its limit.
int
main() {
   for ( const bool isLink : { true, false } ) {
      const double small = Bench( generateNetwork( 1000, 7 ), isLink ).report();
      const double large = Bench( generateNetwork( 5000, 7 ), isLink ).report();
      const double allowed = 5 * std::log( 5000.0 ) / std::log( 1000.0 );
      std::printf( "       growth %.1f; n log n would be %.1f\n", large / small, allowed );
      if ( large / small > 2 * allowed ) {
         std::fprintf( stderr, "repairs grow too fast\n" );
         return EXIT_FAILURE;
      }
      Bench( ring( 1000 ), isLink ).report();
   }
   for ( const uint32_t routers : { 1'000u, 10'000u } ) {
      if ( Protections( routers ).report( routers ) > 0.25 ) {
         std::fprintf( stderr, "a change costs too much of running all trees\n" );
         return EXIT_FAILURE;
      }
   }
   if ( !reportGrowth() ) {
      std::fprintf( stderr, "requests grow too fast, are too large, or not protected\n" );
      return EXIT_FAILURE;
   }
   return EXIT_SUCCESS;
}
