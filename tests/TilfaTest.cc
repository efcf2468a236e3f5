// Repairs as the client "tilfa" reads them from a running agent: what is shared, what stays, and
// what is computed anew.

#include "Cspf/Repairs/DedupPqInfoTable.h"
#include "platform/Trace/Gemtrace.h"
#include "schema/Isis.h"
#include "tests/Lab.h"
#include "tests/LabText.h"
#include "tests/TilfaLab.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace Cspf;

namespace {

using namespace TilfaLab;

/// Reads what is published at every change: a path never names a repair that is not there, and,
/// once told to, never goes without.
class Reader : public Lum::Reactor {
   LUM_ENTITY( Test, Reader );
   explicit Reader( const Lum::Ptr< Status > & status ) : status_( status ) {
      watchAny< &Reader::handleChange >( *status_, this );
   }
   bool mustStay = false;
   int changes = 0;

 private:
   void handleChange( const Lum::AnyChange & ) {
      ++changes;
      for ( const auto & [ key, path ] : status_->pathStatusColl() ) {
         EXPECT_TRUE( path.repairPathIdx() == 0 ? !mustStay
                                                : status_->pqInfoHas( path.repairPathIdx() ) );
      }
   }
   const Lum::Ptr< Status > status_;
};

/// "0002 A-B.a: 0003 0004": address and interface of the next hop, then the repair nodes.
std::string
repair( const TestLab & lab, const std::string & path ) {
   const PathStatus * published = lab.status( "tilfa", path );
   if ( !published || published->repairPathIdx() == 0 ) {
      return "";
   }
   const PqInfo & info = lab.statusTable( "tilfa" )->pqInfo( published->repairPathIdx() );
   std::string text = info.nhIp().stringValue() + " " + info.nhIntf().stringValue() + ":";
   for ( const auto & node : info.pathList() ) {
      text += " " + node.stringValue().substr( 10 );
   }
   return text;
}

// A is the router itself, B the neighbour behind the protected link: a ring of five with a tail.
const char * const ring = "A -1- B -1- C -1- D -1- E -1- A; B -1- F; E -1- G";

TEST( Tilfa, equalRepairsShareAnIdentifierThatIsUsedAgainWhenTheyAreGone ) {
   const auto status = Lum::make< Status >();
   PqInfo ofNoPath;
   ofNoPath.idxIs( 2 );
   status->pqInfoIs( ofNoPath );
   const auto table = Lum::make< Lfa::DedupPqInfoTable >( status, Kiv::Range{ 1, 3 } );
   const auto need = [ & ]( const char * intf ) {
      return table->dedup( { Kivnet::IpGenAddr(), Kivnet::IntfId( intf ), {} } );
   };
   EXPECT_FALSE( status->pqInfoHas( 2 ) );
   const auto first = need( "et1" );
   EXPECT_EQ( need( "et1" ), first );
   EXPECT_EQ( need( "et2" )->pqIdx(), 2u );
   EXPECT_FALSE( status->pqInfoHas( 2 ) );
   const auto third = need( "et3" );
   EXPECT_EQ( third->pqIdx(), 3u ) << "fresh ones go first";
   auto second = need( "et2" );
   EXPECT_EQ( second->pqIdx(), 2u );
   EXPECT_EQ( need( "et4" )->pqIdx(), 0u ) << "none is left";
   PathStatus path;
   path.repairPathIdxIs( 2 );
   status->pathStatusIs( path );
   second = nullptr;
   EXPECT_EQ( need( "et4" )->pqIdx(), 0u ) << "a published path still names it";
   status->pathStatusDel( path.pathKey() );
   EXPECT_EQ( need( "et4" )->pqIdx(), 2u );
}

TEST( Tilfa, aRepairStaysWhileWhatIsProtectedChanges ) {
   TestLab lab( "A -1- B -1- C; A -1- N -1- B; N -9- C", client );
   lab.request( "tilfa", "toC", "C", linkOf( "A-B.a" ) );
   lab.settle();
   Reader reader( lab.statusTable( "tilfa" ) );
   reader.mustStay = true;
   EXPECT_EQ( repair( lab, "toC" ), "10.64.0.7 A-N.a:" );
   const auto trees = [ & ] { return lab.outcome().constraints.size(); };
   const std::size_t ofLink = trees();
   lab.request( "tilfa", "toC", "C", nodeBehind( "A-B.a", "B" ) );
   EXPECT_GT( trees(), ofLink ) << "those of before are there until the new ones have a result";
   lab.request( "tilfa", "toC", "C", linkOf( "A-N.a" ) );
   EXPECT_GT( trees(), ofLink );
   lab.request( "tilfa", "toC", "C", nodeBehind( "A-B.a", "B" ) );
   lab.settle();
   EXPECT_EQ( trees(), ofLink );
   EXPECT_EQ( repair( lab, "toC" ), "10.64.0.7 A-N.a: 0004 0003" );
   lab.request( "tilfa", "toC", "C", linkOf( "A-N.a" ) );
   lab.settle();
   EXPECT_EQ( repair( lab, "toC" ), "10.64.0.3 A-B.a:" );
   lab.link( "N-C", { { "metric", 3 } } );
   lab.settle();

   const std::uint32_t before = idx( lab, "toC" );
   lab.restart();
   lab.settle();
   EXPECT_EQ( repair( lab, "toC" ), "10.64.0.3 A-B.a:" );
   EXPECT_EQ( idx( lab, "toC" ), before ) << "an agent that starts anew finds its entries";

   lab.down( "A-N" );
   lab.settle();
   lab.link( "N-B", { { "metric", 50 } } );  // what follows is no concern of the repair
   lab.request( "tilfa", "toC", "C", linkOf( "A-N.a" ), { { "refreshReqSeq", 7 } } );
   lab.settle();
   EXPECT_EQ( idx( lab, "toC" ), before ) << "the failure is what it is for";
   EXPECT_EQ( lab.status( "tilfa", "toC" )->refreshRespSeq(), 7u );
   EXPECT_GT( reader.changes, 0 );
   reader.mustStay = false;
   lab.request( "tilfa", "toC", "C", nodeBehind( "A-N.a", "N" ) );
   lab.settle();
   EXPECT_EQ( repair( lab, "toC" ), "" ) << "not worked out for that";
   lab.up( "A-N" );
   lab.settle();
   EXPECT_NE( repair( lab, "toC" ), "" );
   lab.request( "tilfa", "toC", "C", Json::object(), { { "refreshReqSeq", 8 } } );
   lab.settle();
   EXPECT_EQ( repair( lab, "toC" ), "" ) << "nothing is protected any more";
   EXPECT_EQ( lab.status( "tilfa", "toC" )->refreshRespSeq(), 8u );
   lab.request( "tilfa", "toC", "C", linkOf( "A-B.a" ) );
   lab.settle();
   lab.request( "tilfa", "toC", "C", nodeBehind( "A-B.a", "B" ) );
   lab.withdraw( "tilfa", "toC" );
   EXPECT_EQ( trees(), 0u ) << "for whom neither the old ones nor the new ones wait";
}

TEST( Tilfa, aSegmentNamesTheAddressesThatItsLinkHas ) {
   TestLab lab( "A -1- B -1- C; A -1- N -1- B; N -9- C", client );
   lab.request( "tilfa", "toC", "C", nodeBehind( "A-B.a", "B" ) );
   const auto addresses = [ & ]() {
      lab.settle();
      const auto & segments = lab.statusTable( "tilfa" )->pqInfo( idx( lab, "toC" ) ).segmentList();
      const RepairSegment & last = *std::prev( segments.end() );
      return last.nearAddr().stringValue() + " " + last.farAddr().stringValue();
   };
   EXPECT_EQ( addresses(), "10.64.0.10 10.64.0.11" );
   lab.link( "N-C", { { "aAddr", "10.65.0.1" } } );
   EXPECT_EQ( addresses(), "10.65.0.1 10.64.0.11" );
   lab.link( "N-C", { { "bAddr", "10.65.0.2" }, { "metric", 8 } } );
   EXPECT_EQ( addresses(), "10.65.0.1 10.65.0.2" );
}

TEST( Tilfa, saysWhyThereIsNone ) {
   TestLab lab( std::string( ring ) + "; A =lan1 5= H I; A -1- P; A -1- Q -5- R -1- P", client );
   Json few = linkOf( "A-P.a" ), hops = linkOf( "A-B.a" ), stranger = linkOf( "lan1.A" );
   few[ "maxRepairNodes" ] = 1;
   hops[ "includeHop" ] = { { { "addr", "10.0.0.3" }, { "loose", true } } };
   stranger[ "neighbor" ] = "0000.0000.0003";
   struct Request {
      const char *dst, *reason;
      Json constraint;
   };
   const std::vector< Request > requests{
      { "C", "no protected interface asked for", Json::object() },
      { "A", "source is the destination", linkOf( "E-A.b" ) },
      { "E", "destination is the protected node", nodeBehind( "E-A.b", "E" ) },
      { "D", "another node is behind interface A-B.a", nodeBehind( "A-B.a", "C" ) },
      { "D", "interface B-C.a not found in topology", linkOf( "B-C.a" ) },
      { "D", "neighbor not found on the LAN behind lan1.A", stranger },
      { "0000.0000.0099", "destination not found in topology", linkOf( "A-B.a" ) },
      { "10.99.0.0/16", "prefix is not announced", linkOf( "A-B.a" ) },
      { "F", "no path to the destination that avoids what is protected",
        nodeBehind( "A-B.a", "B" ) },
      { "P", "2 repair nodes would be needed, more than there may be", few },
      { "C", "a repair has no explicit hops", hops },
      { "E", "", linkOf( "A-B.a" ) } };
   for ( std::size_t i = 0; i < requests.size(); ++i ) {
      lab.request( "tilfa", std::to_string( i ), requests[ i ].dst, requests[ i ].constraint,
                   { { "id", i } } );
   }
   lab.settle();
   for ( std::size_t i = 0; i < requests.size(); ++i ) {
      EXPECT_EQ( lab.error( "tilfa", std::to_string( i ) ), requests[ i ].reason );
      EXPECT_EQ( repair( lab, std::to_string( i ) ).empty(), requests[ i ].reason[ 0 ] != '\0' );
   }
   EXPECT_EQ( lab.statusTable( "tilfa" )->pqInfos(), 1u );
   lab.down( "A-B" );
   lab.settle();
   EXPECT_EQ( lab.error( "tilfa", "7" ), "interface A-B.a not found in topology" );
}

TEST( Tilfa, theFarEndMaySpeakFirst ) {
   TestLab lab( "A -1{srlg 7}- B -1- C -1- D -1- E -1- A", client );
   const Json strict{
      { "excludeIntf", "A-B.a" }, { "excludeSrlg", true }, { "srlgStrictMode", true } };
   lab.request( "tilfa", "link", "C", linkOf( "A-B.a" ) );
   lab.request( "tilfa", "risk", "C", strict, { { "id", 2 } } );
   lab.settle();
   const std::uint32_t before = idx( lab, "link" );
   EXPECT_EQ( repair( lab, "link" ), "10.64.0.10 E-A.b:" );
   EXPECT_EQ( idx( lab, "risk" ), before );
   const auto stays = [ & ]( const char * when ) {
      lab.settle();
      EXPECT_EQ( idx( lab, "link" ), before ) << when;
      EXPECT_EQ( idx( lab, "risk" ), before ) << when;
   };
   lab.link( "A-B", { { "ba", false } } );
   stays( "the far end has withdrawn its side" );
   lab.request( "tilfa", "late", "D", linkOf( "A-B.a" ) );
   stays( "a new request" );
   EXPECT_EQ( lab.error( "tilfa", "late" ), "interface A-B.a has no neighbor" );
   lab.patch( { { "interfaces", { { "A-B.a", { { "srlg", Json::array() } } } } } } );
   stays( "the interface has lost its attributes" );
   lab.down( "A-B" );
   stays( "the link is gone" );
   EXPECT_EQ( lab.error( "tilfa", "late" ), "interface A-B.a not found in topology" );
   lab.restart();
   stays( "an agent that starts meanwhile" );
   lab.patch( { { "interfaces", nullptr } } );
   lab.link( "A-B", { { "up", true }, { "ba", nullptr } } );
   stays( "the link is back" );
   EXPECT_EQ( lab.error( "tilfa", "late" ), "" );
}

/// One router's levels 1 and 2.
Json
inTwoLevels( const char * level1, const char * level2 ) {
   Json document{
      { "router", "A" },
      { "topologies",
        { { "level1", labTopology( level1 ) }, { "level2", labTopology( level2 ) } } } };
   document[ "topologies" ][ "level1" ][ "numbers" ] = { 1, 0 };
   document.update( client );
   return document;
}

/// The router's identity in segment routing; null: it has none.
Json
identity( const Json & systemId ) {
   return { { "segmentRouting",
              { { "other", { { "systemId", "0000.0000.0001" } } },
                { "default", systemId.is_null() ? Json() : Json{ { "systemId", systemId } } } } } };
}

TEST( Tilfa, aRepairKeepsToOneLevel ) {
   // Level 1 has A-B and A-C, level 2 A-B as well, and a way by C that level 1 does not know.
   Json document = inTwoLevels( "A -10- B; A -1- C", "A -10- B; A -1- C; C -1- B; B -1- D" );
   const char * const prefix = "10.9.0.0/16";
   Json & levels = document[ "topologies" ];
   for ( Json * level : { &levels[ "level1" ], &levels[ "level2" ] } ) {
      ( *level )[ "routers" ][ "B" ][ "prefixes" ][ prefix ] = 0;
   }
   levels[ "level2" ][ "routers" ][ "C" ][ "prefixes" ][ prefix ] = 0;
   for ( const Json & before : { Json( "0000.0000.0001" ), Json(), Json( "0000.0000.0099" ) } ) {
      Json started = document;
      started.merge_patch( identity( before ) );
      TestLab lab = TestLab::of( started );
      lab.slicesOf( 1 );
      const auto ask = [ & ]( const char * path, const char * id, int number ) {
         lab.request( "tilfa", path, id, linkOf( "A-B.a" ), { { "id", number } } );
      };
      ask( "toB", "0000.0000.0002", 1 );
      ask( "toD", "0000.0000.0004", 2 );
      ask( "toPrefix", prefix, 3 );
      lab.settle();
      lab.patch( identity( "0000.0000.0001" ) );
      lab.settle();
      EXPECT_EQ( repair( lab, "toPrefix" ), "" ) << "in level 1 it is at B alone";
      EXPECT_EQ( repair( lab, "toB" ), "" ) << "packets follow level 1";
      EXPECT_EQ( lab.error( "tilfa", "toB" ),
                 "no path to the destination that avoids what is protected" );
      EXPECT_EQ( repair( lab, "toD" ), "10.64.0.5 A-C.a:" ) << "only level 2 has D";
      for ( const Json & metric : { Json(), Json( 0 ) } ) {
         const Json prefixes{ { "B", { { "prefixes", { { prefix, metric } } } } } };
         lab.patch( { { "topologies", { { "level1", { { "routers", prefixes } } } } } } );
         lab.settle();
         EXPECT_EQ( repair( lab, "toPrefix" ), metric.is_null() ? "10.64.0.5 A-C.a:" : "" );
      }
      lab.patch( { { "topologies",
                     { { "level1",
                         { { "routers", { { "B", nullptr } } },
                           { "links", { { "A-B", nullptr } } } } } } } } );
      lab.settle();
      EXPECT_EQ( repair( lab, "toB" ), "10.64.0.5 A-C.a:" ) << "the interface is in level 2 alone";
      EXPECT_EQ( repair( lab, "toPrefix" ), "10.64.0.5 A-C.a:" );
   }
}

TEST( Tilfa, aRequestOfAMomentWithoutItsInterfaceKeepsToTheLevelToo ) {
   TestLab lab = TestLab::of( inTwoLevels( "A -1- C -1- B", "A -10- B" ) );
   const auto linkIs = [ & ]( bool up ) {
      const Json links{ { "A-B", { { "up", up } } } };
      lab.patch( { { "topologies", { { "level2", { { "links", links } } } } } } );
   };
   lab.settle();
   linkIs( false );
   lab.request( "tilfa", "meanwhile", "0000.0000.0002", linkOf( "A-B.a" ) );
   linkIs( true );
   lab.settle();
   EXPECT_EQ( lab.error( "tilfa", "meanwhile" ),
              "no path to the destination that avoids what is protected" );
}

TEST( Tilfa, requestsInTwoLevelsKeepNobodyFromHisPathWhileChangesNeverCease ) {
   Json document = inTwoLevels( "A -10- B; A -1- C; C -1- B; C -1- E", "A -10- B; A -1- C" );
   document[ "throttle" ] = { { "initialInt", 0 } };
   document[ "te" ] = { { "routerId", "10.0.0.1" } };
   document[ "clients" ][ "cli" ] = document[ "clients" ][ "tilfa" ];
   TestLab lab = TestLab::of( document );
   lab.slicesOf( 1 );
   for ( unsigned id = 0; id < 12; ++id ) {
      lab.request( "tilfa", std::to_string( id ), "0000.0000.0002", linkOf( "A-B.a" ),
                   { { "id", id } } );
   }
   lab.settle();
   lab.request( "cli", "late", "10.0.0.2" );
   for ( unsigned change = 0; change < 300; ++change ) {
      const Json links{ { "C-E", { { "up", change % 2 != 0 } } } };
      lab.patch( { { "topologies", { { "level1", { { "links", links } } } } } } );
      lab.work( 3 );
   }
   EXPECT_EQ( lab.path( "cli", "late" ), "A C B" );
}

TEST( Tilfa, protectsOnALanOfTheRepairsLevel ) {
   TestLab lab =
      TestLab::of( inTwoLevels( "A =lan1 5= B C", "A =lan1 5= B C; B -1- D; C -2- D; A -9- D" ) );
   Json place{ { "excludeIntf", "lan1.A" }, { "neighbor", "0000.0000.0002" } };
   lab.request( "tilfa", "derived", "0000.0000.0004", place );
   place[ "topoId" ] = "level2";
   lab.request( "tilfa", "named", "0000.0000.0004", place, { { "id", 2 } } );
   place[ "neighbor" ] = "10.0.0.2";
   lab.request( "tilfa", "by address", "0000.0000.0004", place, { { "id", 3 } } );
   lab.settle();
   for ( const char * path : { "derived", "named", "by address" } ) {
      EXPECT_EQ( repair( lab, path ), "10.128.1.3 lan1.A:" ) << path;
   }
}

/// The run from the LAN comes first: the others are held down when most of the topology changes.
TEST( Tilfa, protectsALanThatIsRunFromBeforeAnyRouter ) {
   TestLab lab( "A =lan1 5= B C; A -20- D; B -1- D; C -1- D", client );
   lab.request( "tilfa", "link", "0000.0000.0003", linkOf( "A-D.a" ) );
   lab.settle();
   lab.link( "A-D", { { "metric", 21 } } );
   lab.advance( 0.06 );
   for ( const char * link : { "A-D", "B-D", "C-D" } ) {
      lab.down( link );
      lab.up( link );
   }
   lab.request( "tilfa", "lan", "0000.0000.0002", linkOf( "lan1.A" ) );
   lab.settle();
   EXPECT_NE( idx( lab, "link" ), 0u );
   EXPECT_NE( idx( lab, "lan" ), 0u );
}

TEST( Tilfa, protectsOnALan ) {
   TestLab lab( "A =lan1 5= B C; A -20- D; B -1- D; C -1- D -1- E", client );
   const Json place{ { "excludeIntf", "lan1.A" }, { "neighbor", "0000.0000.0002" } };
   lab.request( "tilfa", "interface", "E", linkOf( "lan1.A" ) );
   lab.request( "tilfa", "place", "E", place, { { "id", 2 } } );
   lab.request( "tilfa", "node", "E",
                { { "excludeNode", { { "node", "B" }, { "nexthopIntf", "lan1.A" } } } },
                { { "id", 3 } } );
   lab.request( "tilfa", "stranger", "E",
                { { "excludeIntf", "lan1.A" }, { "neighbor", "0000.0000.0005" } },
                { { "id", 4 } } );
   lab.settle();
   EXPECT_EQ( repair( lab, "interface" ), "10.64.0.3 A-D.a:" );
   EXPECT_EQ( repair( lab, "place" ), "10.128.1.3 lan1.A:" ) << "C is on the LAN still";
   EXPECT_EQ( repair( lab, "node" ), "10.64.0.3 A-D.a:" );
   EXPECT_EQ( lab.status( "tilfa", "node" )->achieved(), RepairKind::node );
   EXPECT_EQ( lab.status( "tilfa", "place" )->achieved(), RepairKind::link );
   EXPECT_EQ( lab.error( "tilfa", "stranger" ), "neighbor not found on the LAN behind lan1.A" );
}

/// Has the requests that exclude a node name it by that TE router id.
void
nameNodes( TestLab & lab, const char * teRouterId ) {
   const auto config =
      Lum::cast< Config >( lab.tables().table( "te/cspf/config/vrf/default/ipv4/tilfa" ) );
   const auto requests = config->pathConfigColl();
   for ( auto [ key, request ] : requests ) {
      if ( request.constraint().excludeNode() ) {
         request.constraint_.excludeNode_.nodeIdIs(
            NodeId( *Kivnet::IpGenAddr::parse( teRouterId ) ) );
         config->pathConfigIs( request );
      }
   }
}

void
teRouterIds( TestLab & lab, const Json & ids ) {
   Json routers;
   for ( const auto & [ name, id ] : ids.items() ) {
      routers[ name ] = { { "teRouterId", id } };
   }
   lab.patch( { { "topologies", { { "core", { { "routers", routers } } } } } } );
   lab.settle();
}

// Who has an address, or a TE router id, changes without the graph. Of two routers with one TE
// router id the first has it.

TEST( Tilfa, whatALinkProtectionRefusesIsWhatItsNamesMeanNow ) {
   TestLab lab( "A -1- B -1- D; A -1- M -1- B; M -9- D; A -5- E -1- D; plain B", client );
   Json refused = linkOf( "A-B.a" );
   refused[ "excludeLinkWithIp" ] = { "10.65.0.1" };
   lab.request( "tilfa", "link", "D", refused );
   lab.request( "tilfa", "node", "D", nodeBehind( "A-B.a", "B" ), { { "id", 2 } } );
   lab.request( "tilfa", "other", "D", nodeBehind( "A-M.a", "M" ), { { "id", 3 } } );
   nameNodes( lab, "10.0.0.2" );
   lab.settle();
   EXPECT_EQ( lab.error( "tilfa", "node" ), "another node is behind interface A-B.a" );
   teRouterIds( lab, { { "B", "10.0.0.2" } } );
   EXPECT_EQ( repair( lab, "node" ), "10.64.0.13 A-E.a:" );
   teRouterIds( lab, { { "M", "10.0.0.2" } } );
   EXPECT_EQ( repair( lab, "node" ), "10.64.0.13 A-E.a:" );
   EXPECT_EQ( lab.error( "tilfa", "other" ), "another node is behind interface A-M.a" );
   for ( int round = 0; round < 2; ++round ) {
      lab.link( "A-M", { { "aAddr", "10.64.0.6" } } );
      lab.settle();
      EXPECT_EQ( repair( lab, "link" ), "10.64.0.7 A-M.a:" );
      lab.link( "A-M", { { "aAddr", { "10.64.0.6", "10.65.0.1" } } } );
      lab.settle();
      EXPECT_EQ( repair( lab, "link" ), "10.64.0.13 A-E.a:" );
   }
}

TEST( Tilfa, whatALanProtectionRefusesIsWhatItsNamesMeanNow ) {
   TestLab lab( "A =lan1 5= B C; A -20- D; B -1- D; C -1- D", client );
   Json place = linkOf( "lan1.A" );
   place[ "neighbor" ] = "10.0.0.2";
   lab.request( "tilfa", "place", "D", place );
   lab.request( "tilfa", "node", "D", nodeBehind( "lan1.A", "B" ), { { "id", 2 } } );
   nameNodes( lab, "10.0.0.2" );
   lab.settle();
   const auto expect = [ & ]( const std::string & repaired, const char * when ) {
      EXPECT_EQ( repair( lab, "place" ), repaired ) << when;
      EXPECT_EQ( repair( lab, "node" ), "10.64.0.3 A-D.a:" ) << when;
      EXPECT_EQ( lab.status( "tilfa", "node" )->achieved(), RepairKind::node ) << when;
   };
   expect( "10.128.1.3 lan1.A:", "by C" );
   teRouterIds( lab, { { "B", "10.0.0.9" }, { "C", "10.0.0.2" } } );
   expect( "10.128.1.2 lan1.A:", "by B" );
   teRouterIds( lab, { { "B", "10.0.0.2" } } );
   expect( "10.128.1.2 lan1.A:", "B waits for it" );
   teRouterIds( lab, { { "C", "10.0.0.9" } } );
   expect( "10.128.1.3 lan1.A:", "by C again" );
}

TEST( Tilfa, anIdentityThatComesBackFindsItsRepairs ) {
   TestLab lab( ring, client );
   lab.patch( identity( "0000.0000.0001" ) );
   lab.settle();
   lab.request( "tilfa", "before", "C", linkOf( "A-B.a" ) );
   lab.settle();
   lab.patch( identity( "0000.0000.0099" ) );
   lab.request( "tilfa", "meanwhile", "D", linkOf( "A-B.a" ) );
   lab.settle();
   EXPECT_EQ( lab.error( "tilfa", "meanwhile" ), "source not found in topology" );
   lab.patch( identity( "0000.0000.0001" ) );
   lab.settle();
   EXPECT_EQ( lab.error( "tilfa", "meanwhile" ), "" );
   EXPECT_NE( repair( lab, "meanwhile" ), "" );
   EXPECT_NE( repair( lab, "before" ), "" );
}

TEST( Tilfa, leavesNothingOfRequestsThatAreGone ) {
   TestLab lab( ring, client );
   Json fallBack = nodeBehind( "A-B.a", "B" );
   fallBack[ "fallBackToLink" ] = true;
   fallBack[ "bandwidth" ] = 1;
   lab.link( "E-A", { { "bandwidth", 9 } } );
   lab.link( "D-E", { { "bandwidth", 9 } } );
   lab.link( "C-D", { { "bandwidth", 9 } } );
   lab.request( "tilfa", "toC", "C", linkOf( "A-B.a" ) );
   lab.request( "tilfa", "toD", "D", linkOf( "A-B.a" ), { { "id", 2 } } );
   lab.request( "tilfa", "fallBack", "C", fallBack, { { "id", 3 } } );
   lab.settle();
   EXPECT_THAT( lab.dump(), testing::HasSubstr( "local ids in use: 2" ) );
   lab.withdraw( "tilfa", "fallBack" );
   EXPECT_THAT( lab.dump(), testing::HasSubstr( "local ids in use: 0" ) );
   lab.settle();
   EXPECT_GT( lab.statusTable( "tilfa" )->pqInfos(), 0u );
   lab.restart();
   lab.withdraw( "tilfa", "toC" );
   for ( const bool isAgain : { false, true } ) {
      if ( isAgain ) {
         lab.request( "tilfa", "toD", "D", linkOf( "A-B.a" ), { { "id", 2 } } );
         lab.patch(
            { { "paths",
                { { "tilfa",
                    { { "toD", { { "constraint", { { "sourceType", nullptr } } } } } } } } } } );
         lab.settle();
         EXPECT_EQ( lab.statusTable( "tilfa" )->pqInfos(), 1u );
      }
      lab.request( "tilfa", "toD", "D", { { "sourceType", "pathSegmentSource" } },
                   { { "id", 2 } } );
      lab.settle();
      EXPECT_EQ( lab.error( "tilfa", "toD" ), "source type pathSegmentSource is not served" );
      EXPECT_EQ( lab.statusTable( "tilfa" )->pqInfos(), 0u );
   }
}

TEST( Tilfa, protectsTheLinkWhereTheNodeCannotBeAvoided ) {
   TestLab lab( "A -1- B -1- C -1- D -1- A; B -1- E", client );
   Json fallBack = nodeBehind( "A-B.a", "B" );
   lab.request( "tilfa", "node", "B", fallBack );
   fallBack[ "fallBackToLink" ] = true;
   lab.request( "tilfa", "toB", "B", fallBack, { { "id", 2 } } );
   lab.request( "tilfa", "toE", "E", fallBack );
   lab.request( "tilfa", "toC", "C", fallBack );
   fallBack[ "maxRepairNodes" ] = 1;
   lab.request( "tilfa", "few", "E", fallBack, { { "id", 2 } } );
   lab.settle();
   EXPECT_EQ( lab.error( "tilfa", "node" ), "destination is the protected node" );
   EXPECT_EQ( repair( lab, "toB" ), "10.64.0.8 D-A.b: 0003" );
   EXPECT_EQ( repair( lab, "toE" ), "10.64.0.8 D-A.b: 0003" );
   EXPECT_EQ( idx( lab, "few" ), idx( lab, "toE" ) );
   EXPECT_EQ( lab.status( "tilfa", "toE" )->achieved(), RepairKind::link );
   EXPECT_EQ( lab.status( "tilfa", "toC" )->achieved(), RepairKind::node );
}

TEST( Tilfa, leavesByANextHopThatIsKnown ) {
   TestLab lab( "A -1- B -1- D; A -2- X -1- D; A -2- Y -1- D", client );
   lab.request( "tilfa", "toD", "D", linkOf( "A-B.a" ) );
   lab.settle();
   const auto table = Lum::cast< IsisExportImpl::IsisAdjacencyInfo >(
      lab.tables().table( "routing/isis/adjacency/default" ) );
   const auto adjacencies = table->adjacencyColl();
   const std::string preferred = repair( lab, "toD" );
   for ( std::string last = preferred; !last.empty(); ) {
      for ( const auto & [ key, adjacency ] : adjacencies ) {
         if ( last.find( key.intf().stringValue() ) != std::string::npos ) {
            table->adjacencyDel( key );
         }
      }
      lab.settle();
      ASSERT_NE( std::exchange( last, repair( lab, "toD" ) ), last );
   }
   EXPECT_EQ( table->adjacencys(), 1u ) << "one by one, B's alone is left";
   EXPECT_THAT( lab.error( "tilfa", "toD" ), testing::StartsWith( "no next hop known on A-" ) );
   for ( const bool hasAddress : { false, true } ) {
      for ( auto [ key, adjacency ] : adjacencies ) {
         if ( !hasAddress ) {
            adjacency.nexthopV4Is( {} );
         }
         table->adjacencyIs( key, adjacency );
      }
      lab.settle();
      EXPECT_EQ( repair( lab, "toD" ), preferred.substr( hasAddress ? 0 : preferred.find( ' ' ) ) );
   }
}

TEST( Tilfa, runsAreSharedAndMadeForTheGraphAlone ) {
   TestLab lab( ring, client );
   const std::string prefix = "10.9.0.0/16";
   const auto announce = [ & ]( const std::string & router, const Json & prefixes ) {
      lab.patch(
         { { "topologies",
             { { "core", { { "routers", { { router, { { "prefixes", prefixes } } } } } } } } } } );
      lab.settle();
   };
   announce( "B", { { prefix, 0 } } );
   lab.request( "tilfa", "prefix", prefix, linkOf( "A-B.a" ) );
   lab.settle();
   const std::uint32_t runs = lab.runs();
   EXPECT_EQ( runs, 4u ) << "constrained, forward, neighbour, reverse";
   EXPECT_EQ( repair( lab, "prefix" ), "10.64.0.10 E-A.b: 0003" );

   Json metrics, paths;
   for ( int i = 0; i < 1000; ++i ) {
      const std::string dst =
         "10." + std::to_string( 20 + i / 256 ) + "." + std::to_string( i % 256 ) + ".0/24";
      metrics[ dst ] = i;
      paths[ dst ] = { { "dst", dst }, { "constraint", linkOf( "A-B.a" ) } };
   }
   announce( "F", metrics );
   lab.patch( { { "paths", { { "tilfa", paths } } } } );
   lab.settle();
   EXPECT_EQ( lab.runs(), runs ) << "a thousand more destinations";
   for ( const auto & [ dst, metric ] : metrics.items() ) {
      EXPECT_EQ( idx( lab, dst ), idx( lab, "prefix" ) );
   }
   EXPECT_EQ( lab.statusTable( "tilfa" )->pqInfos(), 1u );
   announce( "G", { { prefix, 3 } } );
   EXPECT_EQ( repair( lab, "prefix" ), "10.64.0.10 E-A.b: 0003" ) << "G is farther";
   announce( "B", { { prefix, 3 } } );
   EXPECT_EQ( repair( lab, "prefix" ), "10.64.0.10 E-A.b:" ) << "G is nearer";
   announce( "G", { { prefix, nullptr } } );
   EXPECT_EQ( repair( lab, "prefix" ), "10.64.0.10 E-A.b: 0003" );
   EXPECT_EQ( lab.runs(), runs ) << "prefixes that move";
   lab.link( "C-D", { { "metric", 2 } } );
   lab.settle();
   EXPECT_EQ( lab.runs(), 2 * runs );
   lab.patch( { { "paths", nullptr } } );
   lab.settle();
   EXPECT_EQ( lab.statusTable( "tilfa" )->pqInfos(), 0u );
}

TEST( Tilfa, prefixesThatFlapAreHeldDownLongerAndLonger ) {
   TestLab lab( ring, client );
   const std::string prefix = "10.9.0.0/16";
   const auto announce = [ & ]( const char * router, unsigned metric ) {
      lab.patch(
         { { "topologies",
             { { "core",
                 { { "routers",
                     { { router, { { "prefixes", { { prefix, metric } } } } } } } } } } } } );
   };
   announce( "G", 3 );
   lab.request( "tilfa", "prefix", prefix, linkOf( "A-B.a" ) );
   lab.settle();
   std::mt19937 random( 1 );
   std::string last = repair( lab, "prefix" );
   int changes = 0;
   for ( int i = 0; i < 200; ++i ) {  // two seconds, in which B is now nearer, now farther than G
      announce( "B", random() % 2 ? 0 : 3 );
      lab.advance( 0.01 );
      const std::string now = repair( lab, "prefix" );
      changes += std::exchange( last, now ) != now;
   }
   EXPECT_GE( changes, 1 );
   EXPECT_LE( changes, 7 ) << "after 0, 50, 150, 350, 750 and 1550 ms at most";
   announce( "B", 0 );
   lab.settle();
   EXPECT_EQ( repair( lab, "prefix" ), "10.64.0.10 E-A.b: 0003" );

   int computed = 0;
   Gemtrace::sinkIs(
      [ & ]( int, std::string_view text ) {
         computed += text.find( "PqComputeSm::handleCspfData(): called for" ) != text.npos;
      },
      8 );
   lab.request( "tilfa", "prefix", prefix, linkOf( "A-B.a" ), { { "refreshReqSeq", 1 } } );
   announce( "B", 3 );
   lab.settle();
   Gemtrace::sinkIs( nullptr );
   EXPECT_EQ( computed, 1 ) << "one that asks anew is answered when its prefix moves, and once";
   EXPECT_EQ( lab.status( "tilfa", "prefix" )->refreshRespSeq(), 1u );
}

}
