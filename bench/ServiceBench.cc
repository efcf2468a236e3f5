// What the service costs around its computations: a change of one link until every status is
// published, a dump of all state, and the memory of paths and links.
//
// Then what following saves: the same change with constraints that follow the topology, and with
// constraints that are run, in one agent, at three sizes. Of the three mixes of constraints the
// first avoids one link each, as a service that protects its paths does; the second draws masks and
// bandwidth for each constraint alone; the third has the few masks and bandwidths of a network with
// classes, some constraints avoiding a link. CPU time stands beside wall time; what is compared is
// CPU time, each change with runs of the same agent that were timed shortly before, so that a busy
// machine does not change the verdict.
//
// The network has 10,000 routers, the client asks for 20,000 paths under 1,000 distinct
// constraints. What the runs themselves take is measured by making them once more, each with its
// filter and destinations, in the same agent.

#include "bench/BenchAgent.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <numeric>
#include <random>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::uint32_t routers = 10'000;
constexpr std::uint32_t constraints = 1'000;
constexpr std::uint32_t paths = 20'000;
constexpr int rounds = 7;

/// Constraint n avoids the links of one address, so that all differ and none refuses much.
Lab::LabConstraint
constraintOf( std::uint32_t n, std::uint32_t links ) {
   Lab::LabConstraint constraint;
   constraint.excludeAdminGroup = 32;
   constraint.excludeLinkWithIp = {
      Kivnet::IpGenAddr( Kivnet::IpAddr( 0x0a000000 + n * ( links / constraints ) ) ) };
   return constraint;
}

void
askForPaths( Lab::LabDocument & document, std::uint32_t links, std::uint32_t count = paths,
             std::uint32_t distinct = constraints ) {
   document.clients[ "bench" ] = {
      { { Lab::Vrf::defaultVrf(), true } }, { { Lab::Af::ipv4, true } }, false };
   auto & wanted = document.paths[ "bench" ];
   std::mt19937 random( 3 );
   for ( std::uint32_t n = 0; n < count; ++n ) {
      Lab::LabPath & path = wanted[ "p" + std::to_string( n ) ];
      path.dst = Cspf::Destination( teRouterIdOf( 1 + random() % ( routers - 1 ) ) );
      path.id = n;
      path.constraint = constraintOf( n % distinct, links );
   }
}

/// Changes the metric of one link and lets the agent work it through; milliseconds.
double
oneLinkChange( BenchAgent & agent, const Routing::Topology::NeighborKey & key ) {
   const auto table = agent.topology();
   Routing::Topology::Neighbor link = table->neighbor( key );
   link.metricIs( link.metric() % 1000 + 1 );
   return milliseconds( [ & ]() {
      table->neighborIs( key, link );
      agent.settle();
   } );
}

/// How long the loop stands while all state is dumped, as the control socket does it.
void
measureDump( BenchAgent & agent ) {
   const int file = memfd_create( "dump", MFD_CLOEXEC );
   const double took =
      milliseconds( [ & ]() { agent.runner().command( "CspfDump", file, "DUMP_CSPF_STATE" ); } );
   std::printf( "dump of all state: %.3f of a second of the loop, %.1f MB\n", took / 1000,
                static_cast< double >( lseek( file, 0, SEEK_END ) ) / 1e6 );
   close( file );
}

void
measureChange() {
   const GeneratedNetwork network = generateNetwork( routers, 1 );
   const auto links = static_cast< std::uint32_t >( network.links.size() );
   BenchAgent agent;
   Lab::LabDocument document = labOf( network );
   agent.lab().write( document );
   agent.settle();
   askForPaths( document, links );
   const double first = milliseconds( [ & ]() {
      agent.lab().write( document );
      agent.settle();
   } );
   const auto status = agent.status( "bench" );
   std::size_t found = 0;
   for ( const auto & [ key, path ] : status->pathStatusColl() ) {
      found += path.paths() > 0;
   }
   std::printf( "%u routers, %u links, %u constraints, %u paths (%zu found)\n", routers, links,
                constraints, paths, found );
   std::printf( "all paths asked for and published: %.0f ms\n", first );

   agent.followingIs( false );
   const auto keys = Lum::sortedKeys( agent.topology()->neighborColl() );
   std::vector< double > whole, alone;
   std::uint64_t runs = 0;
   for ( int i = 0; i < rounds; ++i ) {
      const std::uint64_t runsBefore = agent.runs();
      whole.push_back( oneLinkChange( agent, keys[ keys.size() / rounds * i ] ) );
      runs = agent.runs() - runsBefore;
      alone.push_back( milliseconds( [ & ]() { agent.runAll(); } ) );
   }
   std::printf( "one link change: %.0f ms, %llu runs; the runs alone: %.0f ms, %.3f ms each\n",
                median( whole ), static_cast< unsigned long long >( runs ), median( alone ),
                median( alone ) / constraints );
   std::printf( "outside of the runs: %.3f of the whole\n", 1 - median( alone ) / median( whole ) );

   measureDump( agent );
}

/// Bytes of the table in which the client asks.
std::size_t
requestBytes( const Lab::LabDocument & document ) {
   const std::size_t before = heapInUse();
   const auto table = Lum::make< Cspf::Config >();
   for ( const auto & [ client, requests ] : Lab::configsOf( document ) ) {
      for ( const auto & [ key, request ] : requests ) {
         table->pathConfigIs( request );
      }
   }
   return heapInUse() - before;
}

/// What a path takes of the heap, its client's request apart, and its first answer of CPU time. The
/// topology is there before, and one path, with which the service begins.
void
measurePaths( std::uint32_t count, std::uint32_t distinct ) {
   const GeneratedNetwork network = generateNetwork( routers, 1 );
   const auto links = static_cast< std::uint32_t >( network.links.size() );
   BenchAgent agent;
   Lab::LabDocument document = labOf( network );
   askForPaths( document, links, 1, 1 );
   agent.lab().write( document );
   agent.settle();
   askForPaths( document, links, count, distinct );
   const Lab::LabConfigs configs = Lab::configsOf( document );
   const std::size_t before = heapInUse();
   const double took = cpuMilliseconds( [ & ]() {
      for ( const auto & [ client, requests ] : configs ) {
         const auto table =
            Lum::cast< Cspf::Config >( agent.tables().table( client.configPath() ) );
         for ( const auto & [ key, request ] : requests ) {
            table->pathConfigIs( request );
         }
      }
      agent.settle();
   } );
   const std::size_t taken = heapInUse() - before;
   const std::size_t requests = requestBytes( document );
   std::printf( "%u paths under %u constraints: %zu bytes each, beside a request of %zu; %.1f MiB "
                "in all; first answers %.0f ms\n",
                count, distinct, ( taken - requests ) / count, requests / count,
                static_cast< double >( taken - requests ) / 1048576, took );
}

constexpr std::uint32_t classes[] = { 0, 500'000'000, 1'000'000'000, 1'500'000'000, 2'000'000'000 };

Lab::LabConstraint
constraintOf( const std::string & mix, std::uint32_t n, const GeneratedNetwork & network,
              std::mt19937 & random ) {
   const auto links = static_cast< std::uint32_t >( network.links.size() );
   if ( mix == "service" ) {
      return constraintOf( n, links );
   }
   const auto pick = [ & ]( std::uint32_t below ) {
      return static_cast< std::uint32_t >( random() % below );
   };
   Lab::LabConstraint constraint;
   constraint.sharedBwGroupId = 1 + n;
   if ( mix == "dense" ) {
      constraint.includeAnyAdminGroup = 0x1E & pick( 32 );
      constraint.excludeAdminGroup = pick( 2 ) ? 32 : 0;
      constraint.bandwidth = pick( 3000 ) * 1'000'000ULL;
      constraint.bwSetupPriority = pick( 8 );
      return constraint;
   }
   const std::uint32_t mask = pick( 16 );
   constraint.excludeAdminGroup = mask & 1 ? 32 : 0;
   constraint.includeAllAdminGroup = mask & 2 ? 1 : 0;
   constraint.includeAnyAdminGroup = mask >> 2 ? ( 0x1E & ~( 2U << ( mask >> 2 ) ) ) | 32 : 0;
   constraint.bandwidth = classes[ pick( 5 ) ];
   constraint.bwSetupPriority = pick( 2 );
   if ( pick( 10 ) < 3 ) {
      constraint.excludeLinkWithIp = {
         Kivnet::IpGenAddr( Kivnet::IpAddr( 0x0a000000 + pick( links ) ) ) };
   }
   return constraint;
}

/// Changes of one link, and what each costs the agent.
class Changes {
 public:
   Changes( BenchAgent & agent, std::uint32_t seed )
      : agent_( agent ),
        table_( agent.topology() ),
        keys_( Lum::sortedKeys( table_->neighborColl() ) ),
        random_( seed ) {
      for ( const auto & key : keys_ ) {
         byNextHop_[ table_->neighbor( key ).neighborAddrList()[ 0 ] ] = key;
      }
   }

   Took metric( const Routing::Topology::NeighborKey & key ) {
      auto link = table_->neighbor( key );
      link.metricIs( 1 + random_() % 1000 );
      return timed( [ & ]() {
         table_->neighborIs( key, link );
         agent_.settle();
      } );
   }
   Took randomMetric() { return metric( anyKey() ); }
   Took refusedByAll() {
      for ( ;; ) {
         const auto & key = anyKey();
         if ( table_->neighbor( key ).adminGroup() & 32 ) {
            return metric( key );
         }
      }
   }
   /// The last link of a path: a link of a tree.
   Took linkOfTree() {
      const auto & statuses = agent_.status( "bench" )->pathStatusColl();
      for ( ;; ) {
         const auto & path = std::next( statuses.begin(), random_() % statuses.size() )->second;
         if ( path.paths() > 0 ) {
            return metric( byNextHop_.at( path.pathList()[ path.paths() - 1 ] ) );
         }
      }
   }
   Took down( Routing::Topology::NeighborKey & key ) {
      key = anyKey();
      down_ = table_->neighbor( key );
      return timed( [ & ]() {
         table_->neighborDel( key );
         agent_.settle();
      } );
   }
   Took up( const Routing::Topology::NeighborKey & key ) {
      return timed( [ & ]() {
         table_->neighborIs( key, down_ );
         agent_.settle();
      } );
   }

 private:
   const Routing::Topology::NeighborKey & anyKey() { return keys_[ random_() % keys_.size() ]; }

   BenchAgent & agent_;
   const Lum::Ptr< Routing::Topology::TopoDb > table_;
   const std::vector< Routing::Topology::NeighborKey > keys_;
   std::map< Kivnet::IpGenAddr, Routing::Topology::NeighborKey > byNextHop_;
   Routing::Topology::Neighbor down_;
   std::mt19937 random_;
};

/// One kind of change, in an agent whose constraints follow, beside the same agent's runs.
class Row {
 public:
   /// `run`: what such a change costs where all constraints are run; CPU milliseconds.
   explicit Row( double run ) : run_( run ) {}
   void add( const Took & took ) {
      cpu_.push_back( took.cpu );
      wall_.push_back( took.wall );
      faster_.push_back( run_ / took.cpu );
   }
   void print( const char * change ) const {
      std::printf( "| %s | %.0f | %.3f | %.2f | %.3f | %.0f | %.0f |\n", change, run_,
                   median( cpu_ ), quantile( cpu_, 0.9 ), median( wall_ ), median( faster_ ),
                   quantile( faster_, 0.1 ) );
      std::fflush( stdout );
   }

 private:
   double run_;
   std::vector< double > cpu_, wall_, faster_;
};

/// The agent on a generated network, with all paths of the mix asked for and published.
void
askForMix( BenchAgent & agent, const std::string & mix, std::uint32_t size ) {
   const GeneratedNetwork network = generateNetwork( size, 1 );
   Lab::LabDocument document = labOf( network );
   std::mt19937 random( 9 );
   document.clients[ "bench" ] = {
      { { Lab::Vrf::defaultVrf(), true } }, { { Lab::Af::ipv4, true } }, false };
   std::vector< Lab::LabConstraint > all( constraints );
   for ( std::uint32_t n = 0; n < constraints; ++n ) {
      all[ n ] = constraintOf( mix, n, network, random );
   }
   for ( std::uint32_t n = 0; n < paths; ++n ) {
      Lab::LabPath & path = document.paths[ "bench" ][ "p" + std::to_string( n ) ];
      path.dst = Cspf::Destination( teRouterIdOf( 1 + random() % ( size - 1 ) ) );
      path.id = n;
      path.constraint = all[ n % constraints ];
   }
   agent.lab().write( document );
   agent.settle();
}

/// What a change costs by runs, and what it takes to follow from nothing; CPU milliseconds.
double
measureRuns( BenchAgent & agent, Changes & change ) {
   std::vector< double > runs;
   agent.followingIs( false );
   for ( int i = 0; i < 3; ++i ) {
      runs.push_back( change.randomMetric().cpu );
   }
   const double alone = cpuMilliseconds( [ & ]() { agent.runAll(); } );
   const std::size_t before = heapInUse();
   agent.followingIs( true );
   for ( int i = 0; i < 3; ++i ) {
      change.randomMetric();  // from here on everybody follows
   }
   const auto mebibytes = []( std::size_t bytes ) {
      return static_cast< double >( bytes ) / 1048576;
   };
   const double kept = mebibytes( heapInUse() - before );
   const auto first = agent.followAll();
   std::printf( "from nothing %.1f ms, by runs %.0f ms (%.0f times faster); kept %.2f MiB, without "
                "the ways of paths %.2f\n\n",
                first.milliseconds, alone, alone / first.milliseconds, kept,
                mebibytes( first.bytes ) );
   return median( runs );
}

void
measureFollowing( const std::string & mix, std::uint32_t size, int changes ) {
   std::printf( "\n%s, %u routers: ", mix.c_str(), size );
   BenchAgent agent;
   askForMix( agent, mix, size );
   Changes change( agent, 17 );
   const double run = measureRuns( agent, change );
   std::printf( "| change | run, ms | followed, median | 9 in 10 | wall, median | times faster | "
                "9 in 10 |\n|---|---:|---:|---:|---:|---:|---:|\n" );
   const auto measure = [ & ]( const char * name, auto && one ) {
      Row row( run );
      for ( int i = 0; i < changes; ++i ) {
         one( row );
      }
      row.print( name );
   };
   if ( mix == "service" ) {
      measure( "a link that no constraint admits",
               [ & ]( Row & row ) { row.add( change.refusedByAll() ); } );
   }
   measure( "a random metric", [ & ]( Row & row ) { row.add( change.randomMetric() ); } );
   measure( "a link of a tree", [ & ]( Row & row ) { row.add( change.linkOfTree() ); } );
   measure( "down and up", [ & ]( Row & row ) {
      Routing::Topology::NeighborKey key;
      row.add( change.down( key ) );
      row.add( change.up( key ) );
   } );
}

/// What the store takes when the first client of a VRF comes, and with it the import of an IGP's
/// table that is there: CPU time, also as a ratio to copying the table's links into a map in key
/// order, and memory.
void
measureImport( std::uint32_t size ) {
   const GeneratedNetwork network = generateNetwork( size, 1 );
   const auto links = static_cast< double >( network.links.size() );
   std::vector< double > import, copy;
   std::size_t ofStore = 0, ofTable = 0;
   for ( int i = 0; i < 5; ++i ) {
      BenchAgent agent;
      Lab::LabDocument document = labOf( network );
      const std::size_t empty = heapInUse();
      agent.lab().write( document );
      agent.settle();
      const std::size_t withTable = heapInUse();
      document.clients[ "bench" ] = {
         { { Lab::Vrf::defaultVrf(), true } }, { { Lab::Af::ipv4, true } }, false };
      Lab::LabChange change;
      change.surroundings = true;
      const auto come = [ & ]() {
         agent.lab().write( document, change );
         agent.settle();
      };
      import.push_back( cpuMilliseconds( come ) );
      ofTable = withTable - empty;
      ofStore = heapInUse() - withTable;
      const auto & all = agent.topology()->neighborColl();
      copy.push_back( cpuMilliseconds( [ & ]() { std::map( all.begin(), all.end() ); } ) );
   }
   std::printf( "%u routers, one link: import %.2f us, ratio to a copy in a map %.2f; the store "
                "%.0f bytes, the IGP's table %.0f bytes\n",
                size, 1000 * median( import ) / links, median( import ) / median( copy ),
                static_cast< double >( ofStore ) / links,
                static_cast< double >( ofTable ) / links );
}

}

/// Arguments: "paths" for what a path takes alone; or mixes and numbers of routers for what
/// following saves alone, or "import" for imports, and with "xN" how many changes of a kind; none:
/// everything.
int
main( int argc, char ** argv ) {
   std::vector< std::string > mixes;
   std::vector< std::uint32_t > sizes;
   int changes = 41;
   for ( const std::string argument : std::vector( argv + 1, argv + argc ) ) {
      if ( argument[ 0 ] == 'x' ) {
         changes = std::max( 1, std::atoi( argument.c_str() + 1 ) );
      } else if ( const int size = std::atoi( argument.c_str() ); size > 0 ) {
         sizes.push_back( static_cast< std::uint32_t >( size ) );
      } else {
         mixes.push_back( argument );
      }
   }
   const bool pathsAlone = mixes == std::vector< std::string >{ "paths" };
   if ( argc == 1 || pathsAlone ) {
      measurePaths( paths, 1 );
      measurePaths( paths, constraints );
      measurePaths( 100'000, constraints );
   }
   if ( pathsAlone ) {
      return 0;
   }
   if ( argc == 1 ) {
      measureChange();
      for ( const std::uint32_t size : { 1'000U, 10'000U, 20'500U } ) {
         measureImport( size );
      }
   }
   for ( const std::string & mix :
         mixes.empty() ? std::vector< std::string >{ "service", "dense", "field" } : mixes ) {
      for ( const std::uint32_t size :
            sizes.empty() ? std::vector< std::uint32_t >{ 1'000, 3'000, 10'000 } : sizes ) {
         mix == "import" ? measureImport( size ) : measureFollowing( mix, size, changes );
      }
   }
}
