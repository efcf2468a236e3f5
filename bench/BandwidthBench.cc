// One availability query against one hash look-up of the same key, with 50,000 reservations on a
// network of 2,000 routers.

#include "Cspf/Bandwidth/BwUsageManager.h"
#include "bench/BenchAgent.h"

#include <algorithm>
#include <cstdio>
#include <random>
#include <unordered_map>
#include <vector>

namespace {

using namespace Cspf;

constexpr std::uint32_t routers = 2'000;
constexpr std::uint32_t reservations = 50'000;
constexpr int rounds = 21;

struct KeyHash {
   std::size_t operator()( const BwUsageKey & key ) const { return Lum::hashOf( key ); }
};

}

int
main() {
   const GeneratedNetwork network = generateNetwork( routers, 1 );
   Lab::LabLinkIds linkIds;
   const auto table = Lum::make< Routing::Topology::TopoDb >();
   Lab::writeTable( *table,
                    Lab::tableOf( "net", labOf( network ).topologies.at( "net" ), linkIds ) );
   const auto allTopoDb = Lum::make< AllTopoDb >();
   allTopoDb->topoDbIs( TopoId::isisL2(), table );
   const auto accounts = Lum::make< BwUsageTable >();
   const auto manager = Lum::make< BwUsageManager >( allTopoDb, accounts );

   std::mt19937 random( 7 );
   const auto links = Lum::sortedKeys( table->neighborColl() );
   std::vector< Lum::Ptr< BwUsageDeduped > > held;
   std::vector< BwUsageKey > keys;
   std::unordered_map< BwUsageKey, std::uint64_t, KeyHash > peer;
   while ( peer.size() < reservations ) {
      AllTopoNeighborKey link;
      link.topoIdIs( TopoId::isisL2() );
      link.neighborKeyIs( links[ random() % links.size() ] );
      BwUsageId user;
      user.clientNameIs( "rsvp" );
      user.localIdIs( 1 + random() % 5'000 );
      const BwUsageKey key{ link, user };
      if ( peer.try_emplace( key, 1'000 ).second ) {
         keys.push_back( key );
         held.push_back( manager->updateReservedBandwidth( key, BwPriority( 3 ), 1'000 ) );
      }
   }
   std::ranges::shuffle( keys, random );

   std::uint64_t sum = 0;
   std::vector< double > query, lookUp;
   for ( int i = 0; i < rounds; ++i ) {
      lookUp.push_back( milliseconds( [ & ]() {
         for ( const BwUsageKey & key : keys ) {
            sum += peer.find( key )->second;
         }
      } ) );
      query.push_back( milliseconds( [ & ]() {
         for ( const BwUsageKey & key : keys ) {
            sum += manager->bandwidthAvailable( key, 3 );
         }
      } ) );
   }
   std::printf( "%u routers, %u reservations (%llu)\n", routers, reservations,
                static_cast< unsigned long long >( sum ) );
   std::printf( "availability query %.0f ns, hash look-up %.0f ns: ratio %.2f\n",
                median( query ) * 1e6 / reservations, median( lookUp ) * 1e6 / reservations,
                median( query ) / median( lookUp ) );
}
