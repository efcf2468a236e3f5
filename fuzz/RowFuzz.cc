// Rows of tables as an IGP or a client of another process may leave them: any value in any field,
// also another key than the one that a row stands under. The agent stands, and says what it knows.

#include "fuzz/FuzzAgent.h"
#include "tests/RandomValue.h"
#include "tools/service/CommandStream.h"

#include <array>
#include <cstring>

namespace {

constexpr std::array tables = {
   "te/cspf/config/vrf/default/ipv4/rsvp", "te/cspf/config/vrf/default/ipv4/tilfa",
   "routing/isis/topodb/ip/2/default",     "routing/isis/topodb/ip/1/default",
   "routing/isis/adjacency/default",
};

/// Makes, changes or removes rows of the table, one at a time.
template< class E >
void
disturb( E & table, RandomValue & random ) {
   if ( random.below( 4 ) ) {
      random.fillEntity( table );
      return;
   }
   Lum::forEachField( table, [ & ]( const auto & field, auto & value ) {
      using Field = std::remove_cvref_t< decltype( field ) >;
      if constexpr ( Field::kind == Lum::FieldKind::collection ) {
         using Member = std::remove_cvref_t< decltype( value ) >;
         if ( random.below( 2 ) && !value.empty() ) {
            field.del( table, value.begin()->first );
         } else {
            field.is( table, random.make< typename Member::key_type >(),
                      random.make< typename Member::mapped_type >() );
         }
      }
   } );
}

}

extern "C" int
LLVMFuzzerTestOneInput( const unsigned char * data, std::size_t size ) {
   FuzzAgent agent( Lum::ActivityLoop::Time::virtualTime );
   agent.settle();
   for ( ; size >= 3; data += 3, size -= 3 ) {
      const auto table = agent.tables.table( tables[ data[ 0 ] % tables.size() ] );
      std::uint16_t seed;
      std::memcpy( &seed, data + 1, sizeof seed );
      RandomValue random( seed );
      if ( const auto config = Lum::cast< Cspf::Config >( table ) ) {
         disturb( *config, random );
      } else if ( const auto topology = Lum::cast< Routing::Topology::TopoDb >( table ) ) {
         disturb( *topology, random );
      } else if ( const auto adjacency = Lum::cast< IsisExportImpl::IsisAdjacencyInfo >( table ) ) {
         disturb( *adjacency, random );
      }
      if ( data[ 0 ] & 0x80 ) {
         agent.settle();
      }
   }
   agent.settle();
   const Service::CommandStream stream;
   agent.runner.command( "CspfDump", stream.fd(), "DUMP_CSPF_STATE" );
   return 0;
}
