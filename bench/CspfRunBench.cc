// How long one constrained run takes, as a multiple of what the Boost Graph Library takes for the
// same network.
//
// Both sides see the same routers under the same numbers and the same links, are compiled together
// with the same options, and run in turn from the same sources; a row is the median of CPU time
// over sources, with that of wall time beside it, and a ratio the median of the quotients, source
// by source. Our side is timed from the constraint to the finished tree: filter, arcs, walk, all
// equal-cost last links in order, destinations looked up. The peer's unconstrained run gives
// distances and one predecessor; its constrained run evaluates the same constraint at each link.
// Every tree is checked against the peer's distances outside of the timed part. Networks in which
// 16 bits do not hold the metric of one link, and of many, have rows of their own.

#include "Cspf/Graph/HopList.h"
#include "Cspf/Graph/TreeRun.h"
#include "bench/NetworkGenerator.h"
#include "bench/Timing.h"

#include <boost/graph/compressed_sparse_row_graph.hpp>
#include <boost/graph/dijkstra_shortest_paths.hpp>
#include <boost/graph/filtered_graph.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>

using namespace Cspf;

namespace {

constexpr int sources = 31;
constexpr uint32_t infinite = std::numeric_limits< uint32_t >::max();

/// What one side took, source by source.
class Times {
 public:
   template< typename Work >
   void time( Work && work ) {
      const Took took = timed( work );
      cpu_.push_back( took.cpu * 1000 );
      wall_.push_back( took.wall * 1000 );
   }
   /// Microseconds.
   double cpu() const { return median( cpu_ ); }
   double wall() const { return median( wall_ ); }
   /// The median of the quotients to another side, of CPU time.
   double to( const Times & other ) const {
      std::vector< double > quotients;
      for ( std::size_t i = 0; i < cpu_.size(); ++i ) {
         quotients.push_back( cpu_[ i ] / other.cpu_[ i ] );
      }
      return median( quotients );
   }

 private:
   std::vector< double > cpu_, wall_;
};

void
require( bool holds, const char * what ) {
   if ( !holds ) {
      std::fprintf( stderr, "wrong: %s\n", what );
      std::exit( 1 );
   }
}

/// Three masks, strict SRLGs and bandwidth: about two thirds of the links remain.
CspfLinkConstraint
hardConstraint() {
   CspfLinkConstraint c;
   c.includeAllAdminGroup = 1;
   c.includeAnyAdminGroup = 2 | 4 | 8 | 32;
   c.excludeAdminGroup = 32;
   c.srlgStrict = true;
   c.excludedSrlgs = { 3, 17, 42, 99, 180, 211, 305, 377 };
   c.bandwidth = 400'000'000;
   c.setupPriority = 3;
   return c;
}

struct PeerLink {
   uint32_t metric;
};
using PeerGraph =
   boost::compressed_sparse_row_graph< boost::directedS, boost::no_property, PeerLink,
                                       boost::no_property, uint32_t, uint32_t >;

/// The peer: a compressed graph, its links in our order, and their attributes beside it.
struct Peer {
   explicit Peer( const CspfGraph & graph ) {
      std::vector< std::pair< uint32_t, uint32_t > > ends;
      std::vector< PeerLink > links;
      for ( uint32_t v = 0; v < graph.vertexBound(); ++v ) {
         overloaded.push_back( graph.overloaded( CspfVertex{ v } ) );
         for ( uint32_t e : graph.out( CspfVertex{ v } ) ) {
            const CspfEdgeRecord record = graph.record( CspfEdge{ e } );
            ends.emplace_back( v, index( graph.to( CspfEdge{ e } ) ) );
            links.push_back( { record.igpMetric } );
            groups.push_back( record.adminGroup );
            srlgs.emplace_back( record.srlgs.begin(), record.srlgs.end() );
            unreserved.push_back( record.unreserved[ 3 ] );
            twoWay.push_back( graph.twoWay( CspfEdge{ e } ) );
         }
      }
      csr = PeerGraph( boost::edges_are_sorted, ends.begin(), ends.end(), links.begin(),
                       graph.vertexBound() );
      distance.resize( graph.vertexBound() );
      predecessor.resize( graph.vertexBound() );
   }

   template< typename Graph >
   void run( const Graph & graph, uint32_t source ) {
      const auto vertexIndex = boost::get( boost::vertex_index, graph );
      boost::dijkstra_shortest_paths(
         graph, source,
         boost::weight_map( boost::get( &PeerLink::metric, graph ) )
            .distance_map( boost::make_iterator_property_map( distance.begin(), vertexIndex ) )
            .predecessor_map(
               boost::make_iterator_property_map( predecessor.begin(), vertexIndex ) )
            .distance_inf( infinite ) );
   }

   PeerGraph csr;
   std::vector< uint32_t > groups;
   std::vector< std::vector< uint32_t > > srlgs;
   std::vector< float > unreserved;
   std::vector< uint8_t > twoWay, overloaded;  // by link, by router
   std::vector< uint32_t > distance, predecessor;
};

struct PeerFilter {
   const Peer * peer = nullptr;
   const CspfLinkConstraint * c = nullptr;

   bool operator()( const PeerGraph::edge_descriptor & edge ) const {
      const size_t e = boost::get( boost::edge_index, peer->csr, edge );
      const uint32_t group = peer->groups[ e ];
      return peer->twoWay[ e ] && !peer->overloaded[ boost::target( edge, peer->csr ) ]
             && ( group & c->includeAllAdminGroup ) == c->includeAllAdminGroup
             && ( group & c->includeAnyAdminGroup ) && !( group & c->excludeAdminGroup )
             && static_cast< uint64_t >( peer->unreserved[ e ] ) >= c->bandwidth
             && std::ranges::none_of( peer->srlgs[ e ], [ & ]( uint32_t srlg ) {
                   return std::ranges::binary_search( c->excludedSrlgs, srlg );
                } );
   }
};

/// One size of network: everything that is measured on it.
class Bench {
 public:
   /// `equalCosts`: with metrics of two values, so that very many costs are equal.
   Bench( uint32_t routers, bool equalCosts )
      : network_( generateNetwork( routers, 7 ) ),
        equalCosts_( equalCosts ),
        random_( 11 ) {
      if ( equalCosts ) {
         for ( GeneratedNetwork::Link & link : network_.links ) {
            link.metric = random_() % 4 ? 10 : 20;
         }
      }
      load_ = microseconds( [ & ]() { network_.fill( graph_ ); } );
      renumber_ = microseconds( [ & ]() { graph_.renumber( CspfVertex{ 0 } ); } );
      for ( int i = 0; i < 1000; ++i ) {
         destinations_.push_back( anyRouter() );
      }
   }

   void report() {
      Peer peer( graph_ );
      const CspfLinkConstraint c = hardConstraint();
      const boost::filtered_graph constrained( peer.csr, PeerFilter{ &peer, &c } );
      Times plainPeer, filteredPeer, plain, hard, pass, preferred, reverse;
      oneRun( c, false, anyRouter() );  // memory of the first run
      for ( int i = 0; i < sources; ++i ) {
         const CspfVertex source = anyRouter();
         hard.time( [ & ]() { oneRun( c, false, source ); } );
         filteredPeer.time( [ & ]() { peer.run( constrained, index( source ) ); } );
         compare( peer );
         plain.time( [ & ]() { oneRun( {}, false, source ); } );
         plainPeer.time( [ & ]() { peer.run( peer.csr, index( source ) ); } );
         compare( peer );
         pass.time( [ & ]() { filter_.apply( graph_, c ); } );
         CspfLinkConstraint preference;
         preference.excludedSrlgs = c.excludedSrlgs;
         preferred.time( [ & ]() { oneRun( preference, false, source ); } );
         reverse.time( [ & ]() { oneRun( c, true, source ); } );
      }
      filter_.apply( graph_, c );
      uint32_t admitted = 0;
      for ( uint32_t e = 0; e < graph_.edgeBound(); ++e ) {
         admitted += filter_.admitted( CspfEdge{ e } );
      }
      std::printf( "\n%u routers, %u links%s; the constraint leaves %.2f of them\n",
                   graph_.vertices(), graph_.edges(), equalCosts_ ? ", metrics of two values" : "",
                   admitted / double( graph_.edges() ) );
      row( "Boost, no constraint", plainPeer, plainPeer );
      row( "Boost filtered_graph, constraint", filteredPeer, plainPeer );
      row( "run, no constraint", plain, plainPeer );
      row( "run, constraint", hard, plainPeer );
      std::printf( "   %-38s %24s   %.2f of Boost filtered_graph\n", "", "",
                   hard.to( filteredPeer ) );
      row( "  of it the filter", pass, plainPeer );
      row( "run, SRLGs as preference", preferred, plainPeer );
      row( "reverse run, constraint", reverse, plainPeer );
      hopLists( c, hard.cpu() );
      wideMetrics();
      changes();
   }

 private:
   CspfVertex anyRouter() {
      return CspfVertex{ static_cast< uint32_t >( random_() % network_.routers ) };
   }

   static void row( const char * what, const Times & times, const Times & peer ) {
      std::printf( "   %-38s %10.1f us (wall %10.1f) %.2f of Boost, no constraint\n", what,
                   times.cpu(), times.wall(), times.to( peer ) );
   }

   void oneRun( const CspfLinkConstraint & constraint, bool reverse, CspfVertex source ) {
      filter_.apply( graph_, constraint );
      CspfRunOptions options;
      options.source = source;
      options.reverse = reverse;
      run_.run( graph_, filter_, options, tree_ );
      for ( CspfVertex destination : destinations_ ) {
         found_ += tree_.reached( destination );
      }
   }

   void compare( const Peer & peer ) {
      for ( uint32_t v = 0; v < network_.routers; ++v ) {
         require( tree_.metric( CspfVertex{ v } ) == peer.distance[ v ], "distances differ" );
      }
   }

   void hopLists( const CspfLinkConstraint & c, double runTime ) {
      Times lists;
      uint64_t hops = 0, count = 0;
      std::vector< CspfEdge > list;
      for ( int i = 0; i < sources; ++i ) {
         oneRun( c, false, anyRouter() );
         std::vector< CspfVertex > tens( 10000 );
         std::ranges::generate( tens, [ & ]() { return anyRouter(); } );
         lists.time( [ & ]() {
            for ( CspfVertex destination : tens ) {
               const auto first = []( CspfVertex, auto ) { return 0; };
               hopList( graph_, tree_, destination, 255, first, list );
               hops += list.size();
               ++count;
            }
         } );
      }
      std::printf( "   %-38s %10.1f us %.0f ns each, %.1f hops; %.2f of a run\n",
                   "hop lists of 10,000 destinations", lists.cpu(), lists.cpu() / 10,
                   double( hops ) / double( count ), lists.cpu() / runTime );
   }

   /// With metrics that 16 bits do not hold: that of one link, and those of all.
   void wideMetrics() {
      for ( const bool all : { false, true } ) {
         for ( uint32_t e = 0; e < ( all ? graph_.edgeBound() : 1 ); ++e ) {
            CspfEdgeRecord record = graph_.record( CspfEdge{ e } );
            const std::vector< uint32_t > srlgs( record.srlgs.begin(), record.srlgs.end() );
            record.srlgs = srlgs;
            record.igpMetric = all ? record.igpMetric * 100 : 100'000;
            graph_.updateEdge( CspfEdge{ e }, record );
         }
         Peer peer( graph_ );
         Times wide, widePeer;
         for ( int i = 0; i < sources; ++i ) {
            const CspfVertex source = anyRouter();
            wide.time( [ & ]() { oneRun( {}, false, source ); } );
            widePeer.time( [ & ]() { peer.run( peer.csr, index( source ) ); } );
            compare( peer );
         }
         row( all ? "run, all metrics wide" : "run, one metric wide", wide, widePeer );
      }
   }

   void changes() {
      const double count = 10000;
      std::vector< CspfEdge > edges;
      for ( int i = 0; i < count; ++i ) {
         edges.push_back( CspfEdge{ static_cast< uint32_t >( random_() % graph_.edgeBound() ) } );
      }
      const double update = microseconds( [ & ]() {
         for ( CspfEdge edge : edges ) {
            CspfEdgeRecord record = graph_.record( edge );
            record.igpMetric ^= 1;
            graph_.updateEdge( edge, record );
         }
      } );
      const double replace = microseconds( [ & ]() {
         for ( CspfEdge edge : edges ) {
            const CspfEdge reverse = graph_.reverse( edge );
            const CspfVertex from = graph_.from( edge ), to = graph_.to( edge );
            CspfEdgeRecord record = graph_.record( edge );
            const std::vector< uint32_t > srlgs( record.srlgs.begin(), record.srlgs.end() );
            record.srlgs = srlgs;
            graph_.removeEdge( edge );
            graph_.pairIs( graph_.addEdge( from, to, record ), reverse, true );
         }
      } );
      std::printf( "   one link changed %.2f us, removed and added %.2f us; bulk load %.1f ms, "
                   "renumbering %.1f ms\n",
                   update / count, replace / count, load_ / 1000, renumber_ / 1000 );
      require( graph_.inconsistency().empty(), "graph after changes" );
   }

   GeneratedNetwork network_;
   const bool equalCosts_;
   std::mt19937_64 random_;
   CspfGraph graph_;
   CspfLinkFilter filter_;
   CspfTreeRun run_;
   CspfTree tree_;
   std::vector< CspfVertex > destinations_;
   uint64_t found_ = 0;
   double load_ = 0, renumber_ = 0;
};

}

/// Arguments: numbers of routers; 1,000, 10,000 and 100,000 without any.
int
main( int argc, char ** argv ) {
   std::vector< uint32_t > sizes;
   for ( int i = 1; i < argc; ++i ) {
      sizes.push_back( static_cast< uint32_t >( std::atoi( argv[ i ] ) ) );
   }
   if ( sizes.empty() ) {
      sizes = { 1000, 10000, 100000 };
   }
   for ( const bool equalCosts : { false, true } ) {
      for ( const uint32_t routers : sizes ) {
         Bench( routers, equalCosts ).report();
      }
   }
}
