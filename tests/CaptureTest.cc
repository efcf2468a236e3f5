// Captures of real routers, and what such texts can do to a reader: each trap once, and texts that
// were cut or mixed up.

#include "tests/RunnerProcess.h"
#include "tools/igp/IsisTopology.h"
#include "tools/igp/LabOfTopologies.h"
#include "tools/igp/OspfText.h"
#include "tools/igp/TopologyTable.h"
#include "tools/lab/LabFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>

using namespace Igp;
using Cspf::IgpRouterId;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::string
captured( const std::string & name ) {
   std::ifstream in( CSPF_SOURCE_DIR "/tests/captures/" + name );
   EXPECT_TRUE( in.is_open() ) << name;
   return { std::istreambuf_iterator< char >( in ), {} };
}

std::string
replaced( std::string text, const std::string & from, const std::string & to ) {
   const auto at = text.find( from );
   EXPECT_NE( at, text.npos ) << from;
   return at == text.npos ? text : text.replace( at, from.size(), to );
}

std::string
replacedAll( std::string text, const std::string & from, const std::string & to ) {
   for ( std::size_t at = 0; ( at = text.find( from, at ) ) != text.npos; at += to.size() ) {
      text.replace( at, from.size(), to );
   }
   return text;
}

IsisNetwork
isis( const std::string & text ) {
   IsisCapture capture;
   readIsis( text, "capture", capture );
   return isisNetwork( capture, L3::VrfName::defaultVrf() );
}

OspfNetwork
ospf( const std::string & text ) {
   OspfCapture capture;
   readOspf( text, "capture", capture );
   return ospfNetwork( capture, 0 );
}

std::string
isisCapture() {
   return captured( "isis-database.txt" ) + captured( "isis-hostnames.txt" );
}

std::string
ospfCapture() {
   return captured( "ospf-router.txt" ) + captured( "ospf-network.txt" )
          + captured( "ospf-opaque.txt" );
}

const Router &
routerOf( const Topology & topology, const std::string & name ) {
   for ( const auto & [ id, router ] : topology.routers ) {
      if ( router.name == name ) {
         return router;
      }
   }
   throw std::runtime_error( "no router " + name );
}

/// "to metric teMetric mask local>remote intf" of each link.
std::vector< std::string >
linksOf( const Router & router ) {
   std::vector< std::string > texts;
   for ( const LinkEnd & link : router.links ) {
      const auto first = []( const Addresses & list ) {
         return list.empty() ? "-" : list.front().stringValue();
      };
      texts.push_back( link.to.stringValue() + " " + std::to_string( link.metric ) + " "
                       + ( link.te.teMetric ? std::to_string( *link.te.teMetric ) : "-" ) + " "
                       + std::to_string( link.te.adminGroup ) + " " + first( link.local ) + ">"
                       + first( link.remote ) + ( link.intf.empty() ? "" : " " + link.intf ) );
   }
   return texts;
}

TEST( Capture, ofIsisGivesTheNetwork ) {
   const IsisNetwork network = isis( isisCapture() + captured( "isis-adjacencies.txt" ) );
   EXPECT_THAT( network.findings, IsEmpty() );
   ASSERT_EQ( network.topologies.size(), 1U );
   const Topology & core = network.topologies[ 0 ];
   EXPECT_EQ( core.name, "core-l2" );
   EXPECT_EQ( core.self.stringValue(), "0000.0000.0001" );
   ASSERT_EQ( core.routers.size(), 6U );
   const Router & r1 = routerOf( core, "r1" );
   EXPECT_THAT( linksOf( r1 ), ElementsAre( "0000.0000.0002 10 10 1 10.1.1.1>10.1.1.2 l12a",
                                            "0000.0000.0002 15 30 2 10.1.2.1>10.1.2.2 l12b",
                                            "0000.0000.0004 10 20 4 10.1.4.1>10.1.4.4 l14" ) );
   EXPECT_EQ( r1.teRouterId.stringValue(), "10.0.0.1" );
   EXPECT_EQ( r1.links[ 1 ].te.unreserved[ 2 ], 2.5e8F );
   EXPECT_EQ( r1.links[ 1 ].te.unreserved[ 3 ], 5e7F );
   EXPECT_EQ( r1.prefixes.size(), 4U );
   ASSERT_EQ( core.lans.size(), 1U );
   EXPECT_EQ( core.lans.begin()->first.stringValue(), "0000.0000.0005.04" );
   EXPECT_EQ( core.lans.begin()->second.size(), 3U );
   ASSERT_EQ( network.adjacencies.size(), 3U );
   EXPECT_EQ( network.adjacencies.begin()->second.nexthopV4().stringValue(), "10.1.1.2" );
   // A number stays with its link whatever else goes.
   const IsisNetwork other = isis( replaced(
      isisCapture(), "  Extended Reachability: 0000.0000.0002.00 (Metric: 10)\n", "  Nothing\n" ) );
   const auto & links = routerOf( other.topologies[ 0 ], "r1" ).links;
   EXPECT_EQ( links[ 0 ].linkId, r1.links[ 1 ].linkId );
   EXPECT_THAT( other.findings,
                ElementsAre( "the link r2 to r1 from 10.1.1.2: the far end says nothing of it" ) );
}

TEST( Capture, ofIsisKeepsTheTopologyOfIpv6Apart ) {
   const IsisNetwork network = isis( captured( "isis-multi-topology.txt" ) );
   ASSERT_EQ( network.topologies.size(), 2U );
   const Topology &v4 = network.topologies[ 0 ], &v6 = network.topologies[ 1 ];
   EXPECT_EQ( v6.name, "core-l2-ipv6" );
   EXPECT_TRUE( routerOf( v4, "r6" ).overload );
   EXPECT_FALSE( routerOf( v6, "r6" ).overload );
   EXPECT_TRUE( routerOf( v6, "r4" ).overload );
   EXPECT_FALSE( routerOf( v4, "r4" ).overload );
   // The name of r5 is cut in the packet's name, and whole in the packet.
   const Router & r5 = routerOf( v6, "a-very-long-hostname-of-r5.example.net" );
   EXPECT_EQ( r5.prefixes.size(), 4U );
   for ( const LinkEnd & link : routerOf( v6, "r2" ).links ) {
      EXPECT_TRUE( link.lan || link.reverse );
      ASSERT_FALSE( link.local.empty() );
      EXPECT_EQ( link.local.front().af(), Kivnet::AddressFamily::ipv6 );
      EXPECT_FALSE( link.remote.empty() );  // one end leaves it out, the other knows it
   }
   // Without a topology of its own, IPv6 follows the links of IPv4.
   const IsisNetwork one = isis(
      replacedAll( captured( "isis-multi-topology.txt" ), "  MT Router Info: ipv6", "  No" ) );
   EXPECT_EQ( routerOf( one.topologies[ 1 ], "r1" ).links.size(), 3U );
}

TEST( Capture, ofOspfGivesTheNetwork ) {
   const OspfNetwork network = ospf( ospfCapture() );
   EXPECT_THAT( network.findings, IsEmpty() );
   ASSERT_EQ( network.topologies.size(), 1U );
   const Topology & area = network.topologies[ 0 ];
   EXPECT_EQ( area.self.stringValue(), "10.0.0.1" );
   EXPECT_THAT( linksOf( routerOf( area, "10.0.0.1" ) ),
                ElementsAre( "10.0.0.2 10 10 1 10.1.1.1>10.1.1.2",
                             "10.0.0.2 15 30 2 10.1.2.1>10.1.2.2",
                             "10.0.0.4 10 20 4 10.1.4.1>10.1.4.4" ) );
   EXPECT_EQ( routerOf( area, "10.0.0.3" ).teRouterId.stringValue(), "10.0.0.3" );
   ASSERT_EQ( area.lans.size(), 1U );
   EXPECT_EQ( area.lans.begin()->second.size(), 3U );
   // Without traffic engineering the ends meet in their subnet.
   const OspfNetwork plain = ospf( captured( "ospf-router.txt" ) + captured( "ospf-network.txt" ) );
   EXPECT_THAT( plain.findings, IsEmpty() );
   EXPECT_THAT( linksOf( routerOf( plain.topologies[ 0 ], "10.0.0.1" ) ),
                testing::Contains( "10.0.0.2 15 - 0 10.1.2.1>10.1.2.2" ) );
}

struct Trap {
   const char * from;
   const char * to;
   const char * finding;
};

TEST( Capture, ofIsisIsReadInSpiteOfItsTraps ) {
   const std::vector< Trap > traps = {
      { "     * 0000.0000.0001 r1", "", "LSP of r1: no system id for that host name; not used" },
      { "TE Router ID: 10.0.0.2", "TE Router ID: 10.0.0.1",
        "TE router id 10.0.0.1: of r1 and of r2" },
      { "Maximum Bandwidth: 2.5e+08", "Maximum Bandwidth: -nan",
        "LSP of r1: a bandwidth of -nan counts as 0" },
      { "    Administrative Group: 0x1\n", "    Extended Admin Group: 0x100000001\n",
        "LSP of r1: an extended administrative group is not used" },
      { "    Adjacency-SID: 15000, ", "    Unknown Sub-TLV: Type 250, ",
        "LSP of r1: not used: Unknown Sub-TLV: Type 250, Weight: 0, Flags: F:0 B:0, V:1, L:1, "
        "S:0, P:0" },
      { "r3.00-00 ", "r3.00-01 ", "LSPs of 0000.0000.0003: without the first one, so not used" },
      { "  Extended Reachability: 0000.0000.0006.00 (Metric: 10)", "  Nothing",
        "the link r6 to r3 from 10.1.7.6: the far end says nothing of it" },
      { "  Extended Reachability: 0000.0000.0006.00 (Metric: 10)",
        "  Extended Reachability: r7.00 (Metric: 10)",
        "the link r3 to r7: no system id for that host name; not used" },
      { "  Extended Reachability: 0000.0000.0006.00 (Metric: 0)", "  Nothing",
        "the link r6 to LAN 0000.0000.0005.04: the far end says nothing of it" },
   };
   for ( const Trap & trap : traps ) {
      EXPECT_THAT( isis( replaced( isisCapture(), trap.from, trap.to ) ).findings,
                   testing::Contains( trap.finding ) );
   }
   const auto after = []( const char * from, const char * to ) {
      return isis( replaced( isisCapture(), from, to ) );
   };
   // No address where the circuit was up too early: the far end knows it.
   const IsisNetwork silent = after( "    Local Interface IP Address(es): 10.1.4.1\n", "" );
   EXPECT_THAT( linksOf( routerOf( silent.topologies[ 0 ], "r1" ) ),
                testing::Contains( "0000.0000.0004 10 20 4 10.1.4.1>10.1.4.4" ) );
   // A packet on its way out, and a metric that forbids.
   const IsisNetwork purged = after( "0x17f5    1190 ", "0x17f5    (58) " );
   EXPECT_EQ( purged.topologies[ 0 ].routers.size(), 5U );
   EXPECT_THAT( purged.findings,
                testing::Contains( HasSubstr( "the link r2 to 0000.0000.0003" ) ) );
   EXPECT_EQ(
      routerOf(
         after( "10.0.0.1/32 (Metric: 10)", "10.0.0.1/32 (Metric: 4294967295)" ).topologies[ 0 ],
         "r1" )
         .prefixes.size(),
      3U );
   EXPECT_TRUE(
      routerOf( after( "0x6362    1164    0/0/0", "0x6362    1164    0/0/1" ).topologies[ 0 ],
                "r1" )
         .overload );
   // Narrow metrics count only where there are no wide ones.
   const IsisNetwork narrow = after( "  IPv4 Interface Address: 10.0.0.1\n",
                                     "  IS Reachability: 0000.0000.0004.00 (Metric: 63)\n" );
   EXPECT_EQ( routerOf( narrow.topologies[ 0 ], "r1" ).links.size(), 3U );
   const IsisNetwork old = isis( replacedAll( isisCapture(), "  Extended Re", "  IS Re" ) );
   EXPECT_EQ( routerOf( old.topologies[ 0 ], "r1" ).links.size(), 3U );
   const std::string wide = "  Extended IP Reachability: 10.0.0.1/32 (Metric: 10)\n",
                     low = "  IP Reachability: 10.0.0.1/32 (Metric: 5)\n";
   for ( const std::string & both : { low + wide, wide + low } ) {
      EXPECT_EQ( routerOf( after( wide.c_str(), both.c_str() ).topologies[ 0 ], "r1" )
                    .prefixes.at( *Kivnet::IpGenPrefix::parse( "10.0.0.1/32" ) ),
                 10U );
   }
   // IPv6 has wide metrics alone, which say nothing of those of IPv4.
   const IsisNetwork older =
      isis( replaced( replacedAll( replacedAll( isisCapture(), "  Extended Re", "  IS Re" ),
                                   "  Extended IP Re", "  IP Re" ),
                      "  IPv4 Interface Address: 10.0.0.1\n",
                      "  MT Reachability: 0000.0000.0004.00 (Metric: 1) ipv6-unicast\n"
                      "  IPv6 Reachability: 2001:db8::1/128 (Metric: 1)\n" ) );
   EXPECT_EQ( routerOf( older.topologies[ 0 ], "r1" ).links.size(), 3U );
   EXPECT_EQ( routerOf( older.topologies[ 0 ], "r1" ).prefixes.size(), 4U );
}

TEST( Capture, ofIsisTakesTheLaterOfTwoOfOneDatabase ) {
   const std::string older = captured( "isis-database.txt" );
   const std::string newer = replaced( replaced( older, "0x00000003", "0x00000103" ),
                                       "0002.00 (Metric: 10)", "0002.00 (Metric: 77)" );
   for ( const std::string & text : { older + newer, newer + older } ) {
      const IsisNetwork network = isis( text + captured( "isis-hostnames.txt" ) );
      EXPECT_THAT( network.findings, IsEmpty() );
      EXPECT_EQ( routerOf( network.topologies.at( 0 ), "r1" ).links[ 0 ].metric, 77U );
   }
}

TEST( Capture, ofIsisTellsRoutersWithTheSameCutNameApart ) {
   std::string text = captured( "isis-database.txt" );
   const auto rename = [ & ]( const std::string & r, const std::string & end ) {
      text = replaced( text, r + ".00-00", "edge-of-the-net.00-00" );
      text = replaced( text, "Hostname: " + r, "Hostname: edge-of-the-network-" + end );
   };
   rename( "r2", "west" );
   rename( "r5", "east" );
   text = replaced( text, "r5.04-00", "edge-of-the-net.04-00" );
   const IsisNetwork network = isis(
      text
      + replaced( replaced( captured( "isis-hostnames.txt" ), "r2", "edge-of-the-network-west" ),
                  "r5", "edge-of-the-network-east" ) );
   EXPECT_THAT( network.findings, IsEmpty() );
   EXPECT_EQ( routerOf( network.topologies[ 0 ], "edge-of-the-network-west" ).links.size(), 4U );
   EXPECT_TRUE( network.topologies[ 0 ].lans.contains( IgpRouterId(
      IgpRouterId( *Routing::Isis::SystemId::parse( "0000.0000.0005" ) ).pseudonode( 4 ) ) ) );
}

TEST( Capture, ofOspfIsReadInSpiteOfItsTraps ) {
   const auto after = []( const std::string & from, const std::string & to ) {
      return ospf( replaced( ospfCapture(), from, to ) );
   };
   EXPECT_THAT(
      after( "  Resource class/color: 0x1\n", "  Unknown TLV: [type(0x10), length(0x4)]\n" )
         .findings,
      ElementsAre( "opaque LSA 1.0.0.1 of 10.0.0.1: sub-TLV 16 is not used" ) );
   const std::size_t age = ospfCapture().find( "LS age: " );
   const std::string line = ospfCapture().substr( age, ospfCapture().find( '\n', age ) - age );
   EXPECT_EQ( after( line, "LS age: 3600" ).topologies[ 0 ].routers.size(), 5U );
   EXPECT_EQ( after( line, "LS age: DNA:3599" ).topologies[ 0 ].routers.size(), 6U );
   std::string overloaded = ospfCapture();
   for ( int link = 0; link < 3; ++link ) {
      const std::string data = "address: 10.1." + std::string( 1, "124"[ link ] ) + ".1\n"
                               + "      Number of TOS metrics: 0\n       TOS 0 Metric: 1";
      overloaded = replaced( overloaded, data + ( link == 1 ? "5" : "0" ),
                             data.substr( 0, data.size() - 1 ) + "65535" );
   }
   EXPECT_TRUE( routerOf( ospf( overloaded ).topologies[ 0 ], "10.0.0.1" ).overload );
   EXPECT_FALSE( routerOf( ospf( overloaded ).topologies[ 0 ], "10.0.0.2" ).overload );
   // An address that is not set is none: the far end knows it.
   EXPECT_THAT(
      linksOf( routerOf( after( "#0: 10.1.1.2\n", "#0: 0.0.0.0\n" ).topologies[ 0 ], "10.0.0.1" ) ),
      testing::Contains( "10.0.0.2 10 10 1 10.1.1.1>10.1.1.2" ) );
   // The LAN's router says nothing of the LAN.
   EXPECT_THAT( ospf( captured( "ospf-router.txt" ) ).findings,
                testing::Contains( HasSubstr( "to network 10.2.0." ) ) );
}

TEST( Capture, thatWasCutIsRefused ) {
   const std::string isisText = captured( "isis-database.txt" );
   const std::string ospfText = captured( "ospf-opaque.txt" );
   std::size_t refused = 0;
   for ( std::size_t end = 0; ( end = isisText.find( '\n', end ) ) != isisText.npos; ++end ) {
      IsisCapture capture;
      try {
         readIsis( std::string_view( isisText ).substr( 0, end + 1 ), "cut", capture );
         EXPECT_TRUE( capture.lsps.empty() || capture.lsps.size() == 7 );
      } catch ( const CaptureError & error ) {
         EXPECT_THAT( error.what(), HasSubstr( "cut: the database of level 2" ) );
         ++refused;
      }
   }
   EXPECT_GT( refused, 300U );
   for ( std::size_t end = 0; ( end = ospfText.find( '\n', end ) ) != ospfText.npos; ++end ) {
      OspfCapture capture;
      try {
         readOspf( std::string_view( ospfText ).substr( 0, end + 1 ), "cut", capture );
         for ( const auto & [ vrf, process ] : capture.processes ) {
            for ( const auto & [ area, lsas ] : process.areas ) {
               for ( const Lsa & lsa : lsas ) {
                  EXPECT_GT( lsa.teLink.value().attributes.unreserved[ 7 ], 0 );
               }
            }
         }
      } catch ( const CaptureError & error ) {
         EXPECT_THAT( error.what(), HasSubstr( "expected the rest of the LSA" ) );
      }
   }
   const auto error = []( const std::string & text ) {
      try {
         isis( text );
         return std::string( "read" );
      } catch ( const CaptureError & error ) {
         return std::string( error.what() );
      }
   };
   EXPECT_EQ( error( replaced( isisText, "(Metric: 15)", "(Metric: 99999999999)" ) ),
              "capture:27: expected a number of at most 32 bits, found \"99999999999\"" );
   EXPECT_EQ( error( replaced( isisText, "    7 LSPs", "    8 LSPs" ) ),
              "capture:346: expected the count of the 7 LSPs above, found \"8 LSPs\"" );
}

/// Whatever the text, it is refused in one line or gives tables that hold together.
template< class Read >
void
expectSound( const std::string & text, Read read ) {
   try {
      const std::vector< Topology > topologies = read( text ).topologies;
      for ( const Topology & topology : topologies ) {
         const Lab::LabTable table = tableOf( topology );
         for ( const auto & [ key, link ] : table.neighbor ) {
            ASSERT_TRUE( table.router.at( key.routerId() ).neighborHas( key ) );
         }
      }
      Findings findings;
      Lab::LabFile::parse( labOf( topologies, "", true, findings ).dump() );
   } catch ( const CaptureError & error ) {
      ASSERT_THAT( error.what(), Not( HasSubstr( "\n" ) ) );
   }
}

TEST( Capture, thatIsMixedUpDoesNoHarm ) {
   std::mt19937 random( 7 );
   const auto below = [ & ]( std::size_t n ) { return random() % n; };
   for ( int round = 0; round < 400; ++round ) {
      const bool isIsis = round % 2 == 0;
      std::istringstream in( isIsis ? isisCapture() : ospfCapture() );
      std::vector< std::string > lines;
      for ( std::string line; std::getline( in, line ); ) {
         lines.push_back( line );
      }
      for ( std::size_t n = 1 + below( 4 ); n > 0; --n ) {
         std::string & line = lines[ below( lines.size() ) ];
         switch ( below( 4 ) ) {
         case 0: line.clear(); break;
         case 1: std::swap( line, lines[ below( lines.size() ) ] ); break;
         case 2: line = lines[ below( lines.size() ) ]; break;
         default: line.insert( line.empty() ? 0 : below( line.size() ), "0" );
         }
      }
      std::string text;
      for ( const std::string & line : lines ) {
         text += line + "\n";
      }
      if ( isIsis ) {
         expectSound( text, isis );
      } else {
         expectSound( text, ospf );
      }
   }
}

TEST( Capture, isImportedAsALabThatRuns ) {
   const std::string captures = CSPF_SOURCE_DIR "/tests/captures/";
   const TemporaryDirectory directory;
   const auto import = [ & ]( const std::vector< std::string > & arguments ) {
      std::vector< std::string > all = { "import" };
      all.insert( all.end(), arguments.begin(), arguments.end() );
      const ProgramResult result = runProgram( "cspfctl", all );
      EXPECT_EQ( result.exitStatus, 0 ) << result.err;
      std::ofstream( directory / "lab.json" ) << result.out;
      return runProgram( "cspfctl", { "run", directory / "lab.json" } ).out;
   };
   EXPECT_THAT(
      import( { "isis", captures + "isis-database.txt", captures + "isis-hostnames.txt" } ),
      HasSubstr( "rsvp   to-r3 r3 (10.0.0.3) 1  20     r2, r3\n" ) );
   EXPECT_THAT( import( { "ospf", captures + "ospf-router.txt", captures + "ospf-network.txt",
                          captures + "ospf-opaque.txt", "--router", "10.0.0.6" } ),
                HasSubstr( "rsvp   to-10.0.0.1 10.0.0.1    1  20     10.0.0.2, 10.0.0.1\n" ) );
   // A router in two areas is asked for once.
   Findings findings;
   const auto twice =
      labOf( ospf( ospfCapture() + replacedAll( ospfCapture(), "(Area 0.0.0.0", "(Area 0.0.0.1" ) )
                .topologies,
             "10.0.0.1", true, findings );
   EXPECT_EQ( twice[ "topologies" ].size(), 2U );
   EXPECT_EQ( twice[ "paths" ][ "rsvp" ].size(), 5U );
   const ProgramResult nameless =
      runProgram( "cspfctl", { "import", "isis", captures + "isis-database.txt" } );
   EXPECT_EQ( nameless.exitStatus, 2 );
   EXPECT_THAT( nameless.err, HasSubstr( "LSP of r1: no system id for that host name" ) );
   EXPECT_EQ( runProgram( "cspfctl", { "import", "isis", "/dev/null" } ).err,
              "cspfctl: no LSP in the capture: expected `show isis database detail`\n" );
}

}
