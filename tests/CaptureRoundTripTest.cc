// Random networks, printed as a routing daemon prints them and read back: their tables, and the lab
// that is made of them.

#include "tests/CapturePrinter.h"
#include "tests/RandomLab.h"
#include "tools/igp/IsisTopology.h"
#include "tools/igp/LabOfTopologies.h"
#include "tools/igp/OspfText.h"
#include "tools/igp/TopologyTable.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabRecords.h"
#include "tools/state/JsonCodec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

using namespace Igp;
using testing::ContainerEq;
using Json = nlohmann::json;

namespace {

std::vector< Topology >
isisTopologies( const std::string & text ) {
   IsisCapture capture;
   readIsis( text, "capture", capture );
   return isisNetwork( capture, L3::VrfName::defaultVrf() ).topologies;
}

std::vector< Topology >
ospfTopologies( const std::string & text ) {
   OspfCapture capture;
   readOspf( text, "capture", capture );
   return ospfNetwork( capture, 0 ).topologies;
}

/// Its rows, without what no packet says: numbers of links, interfaces, shared risks, numbers of
/// OSPF's LANs. Where there is no TE metric the other one counts.
std::multiset< std::string >
rowsOf( const Lab::LabTable & table ) {
   std::map< std::string, std::string > lans;
   for ( const auto & [ id, address ] : lanAddresses( table ) ) {
      if ( id.type() == Cspf::VertexType::ospfRouter ) {
         lans[ id.stringValue() ] = address.stringValue();
      }
   }
   std::multiset< std::string > rows;
   const auto add = [ & ]( const auto & row ) {
      std::string text = State::valueToJson( row ).dump();
      for ( const auto & [ id, address ] : lans ) {
         if ( const auto at = text.find( id ); at != text.npos ) {
            text.replace( at, id.size(), address );
         }
      }
      rows.insert( text );
   };
   for ( const auto & [ id, router ] : table.router ) {
      add( Routing::Topology::Router{ id, router.teRouterId(), router.overload(), {} } );
   }
   for ( const auto & [ key, link ] : table.neighbor ) {
      Routing::Topology::Neighbor row = link;
      row.keyIs( { key.routerId(), key.neighborType(), key.neighborId(), 0 } );
      row.intfIdIs( {} );
      row.srlg_.clear();
      row.teMetricIs( link.teMetric().value_or( link.metric() ) );
      add( row );
   }
   for ( const auto & [ id, network ] : table.network ) {
      add( network );
   }
   for ( const auto & [ id, reachability ] : table.reachability ) {
      add( reachability );
   }
   return rows;
}

/// The topologies are those tables, in that order, and so is the lab that they make.
void
expectTables( const std::vector< Topology > & read, const std::vector< Lab::LabTable > & tables,
              const std::string & text ) {
   ASSERT_EQ( read.size(), tables.size() ) << text;
   Findings findings;
   const auto lab = Lab::LabFile::parse(
      labOf( read, read.front().routers.begin()->second.name, false, findings ).dump() );
   Lab::LabLinkIds linkIds;
   auto imported = lab.document().topologies.begin();
   for ( std::size_t i = 0; i < tables.size(); ++i, ++imported ) {
      const auto rows = ContainerEq( rowsOf( tables[ i ] ) );
      ASSERT_THAT( rowsOf( tableOf( read[ i ] ) ), rows ) << text;
      ASSERT_THAT( rowsOf( Lab::tableOf( imported->first, imported->second, linkIds ) ), rows )
         << text;
   }
}

TEST( CaptureRoundTrip, ofARandomNetworkGivesItsTableAndItsLab ) {
   for ( unsigned seed = 1; seed <= 300 && !HasFatalFailure(); ++seed ) {
      const auto document = Lab::LabFile::parse( RandomLab( seed ).document().dump() ).document();
      for ( const auto & [ name, topology ] : document.topologies ) {
         if ( topology.id.igpSource() == Cspf::IgpSource::isis ) {
            Lab::LabLinkIds linkIds;
            const Lab::LabTable table = Lab::tableOf( name, topology, linkIds );
            const std::string text = isisPrinted( table );
            expectTables( isisTopologies( text ), { table }, text );
         }
      }
   }
}

/// "10.128.N."
std::string
subnet( unsigned number ) {
   return "10." + std::to_string( 128 + number / 250 ) + "." + std::to_string( number % 250 ) + ".";
}

/// Addresses at both ends or at none, in a subnet that both advertise. What only one end says of a
/// link is left to routers of traffic engineering; nobody else would hear of it at the other end.
void
giveAddresses( Json & link, Json & routers, unsigned number ) {
   const bool numbered = link.contains( "aAddr" ) && link.contains( "bAddr" );
   const bool te = routers[ link[ "a" ] ].contains( "teRouterId" )
                   && routers[ link[ "b" ] ].contains( "teRouterId" );
   for ( const char * end : { "a", "b" } ) {
      Json & own = link[ end + std::string( "Addr" ) ];
      const std::string first = subnet( number ) + ( *end == 'a' ? "1" : "2" );
      own = !numbered              ? Json::array()
            : te && own.is_array() ? Json{ first, own[ 1 ] }
                                   : Json{ first };
      routers[ link[ end ] ][ "prefixes" ][ subnet( number ) + "0/30" ] = 1;
   }
   if ( !te ) {
      link.erase( "ab" );
      link.erase( "ba" );
   }
}

/// Two in place of one, with the same routers. The bytes of an address add up to the same in both.
Json
twoLans( Json lan, unsigned number ) {
   Json lans;
   for ( const unsigned copy : { 0U, 1U } ) {
      unsigned end = 2 - copy;
      for ( Json & member : lan[ "members" ] ) {
         member[ "addr" ] = subnet( number + copy ) + std::to_string( end++ );
         member.erase( "intf" );
      }
      lan[ "pseudonode" ] = number + copy;
      lans[ "lan" + std::to_string( copy ) ] = lan;
   }
   return lans;
}

/// A random lab as areas of OSPF, in which each router advertises something wide, too.
Json
ospfLab( unsigned seed ) {
   Json document = RandomLab( seed ).document();
   unsigned number = 1, area = 0;
   for ( Json & topology : document[ "topologies" ] ) {
      topology.update( { { "igp", "ospf" }, { "numbers", { 0, area++ } } } );
      Json & routers = topology[ "routers" ];
      for ( auto & [ router, fields ] : routers.items() ) {
         fields[ "id" ] = "1.1.1." + router.substr( 1 );
         fields[ "prefixes" ][ "10.128.0.0/9" ] = 3;
      }
      for ( Json & link : topology[ "links" ] ) {
         giveAddresses( link, routers, number );
         link.update( { { "bandwidth", 1.25e8 * number++ }, { "unreserved", 1e7 } } );
      }
      if ( topology.contains( "lans" ) ) {
         topology[ "lans" ] = twoLans( *topology[ "lans" ].begin(), number );
         number += 2;
      }
   }
   return { { "router", "R0" }, { "topologies", document[ "topologies" ] } };
}

/// What OSPF can say: metrics of 16 bits, overload by the largest of them, and of a router without
/// a TE router id nothing for traffic engineering.
void
reduceToOspf( Lab::LabTable & table ) {
   for ( auto & [ id, router ] : table.router ) {
      router.overloadIs( router.overload() && !router.neighbor_.empty() );
   }
   for ( auto & [ key, link ] : table.neighbor ) {
      const Routing::Topology::Router & router = table.router.at( key.routerId() );
      link.metricIs( router.overload() ? 0xffff : link.metric() % 0xffff );
      if ( !router.teRouterId() ) {
         link.teMetricIs( {} );
         link.adminGroupIs( 0 );
         link.maxLinkBandwidthIs( 0 );
         link.unreservedBandwidthIs( {} );
      }
   }
}

/// A router of a LAN advertises the LAN's subnet.
Lab::LabTable
withLanPrefixes( Lab::LabTable table ) {
   for ( const auto & [ id, address ] : lanAddresses( table ) ) {
      for ( const auto & [ key, link ] : table.neighbor ) {
         if ( key.neighborId() == id ) {
            auto & reachability = table.reachability[ key.routerId() ];
            reachability.routerIdIs( key.routerId() );
            reachability.prefixIs( { { address, 24 }, link.metric() } );
         }
      }
   }
   return table;
}

TEST( CaptureRoundTrip, ofRandomAreasOfOspfGivesTheirTablesAndTheirLab ) {
   for ( unsigned seed = 1; seed <= 300 && !HasFatalFailure(); ++seed ) {
      const auto document = Lab::LabFile::parse( ospfLab( seed ).dump() ).document();
      std::map< std::pair< L3::VrfName, std::uint32_t >, Lab::LabTable > tables;
      std::string text = "seed " + std::to_string( seed ) + "\n";
      for ( const auto & [ name, topology ] : document.topologies ) {
         Lab::LabLinkIds linkIds;
         Lab::LabTable table = Lab::tableOf( name, topology, linkIds );
         reduceToOspf( table );
         const std::uint32_t area = topology.id.number2();
         text += ospfPrinted( table, topology.vrf.stringValue(), area );
         tables[ { topology.vrf, area } ] = withLanPrefixes( table );
      }
      std::vector< Lab::LabTable > inOrder;
      for ( const auto & [ key, table ] : tables ) {
         inOrder.push_back( table );
      }
      expectTables( ospfTopologies( text ), inOrder, text );
   }
}

}
