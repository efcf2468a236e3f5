// Clients, topologies and changes that come, go and meet each other while the agent works through
// more than a slice of rows: what it ends with is what one publishes that starts then.

#include "tests/Lab.h"
#include "tests/LabText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using Json = nlohmann::json;

namespace {

/// Both families and two VRFs, without clients. No two ways cost the same.
Json
worldOfServices() {
   const Json core = labTopology( "A -10- B -13- C; A -30- C; C =lan= D A" );
   Json v6 = Json::parse( R"( { "af": "ipv6", "routers": {
      "A": { "id": "0000.0000.0001", "teRouterId": "fc00::1", "prefixes": { "fc00::1/128": 0 } },
      "B": { "id": "0000.0000.0002", "teRouterId": "fc00::2", "prefixes": { "fc00::2/128": 0 } },
      "C": { "id": "0000.0000.0003", "teRouterId": "fc00::3", "prefixes": { "fc00::3/128": 0 } } },
      "links": { "A-B": { "a": "A", "b": "B", "aAddr": "fc00:1::1", "bAddr": "fc00:1::2" },
                 "B-C": { "a": "B", "b": "C", "aAddr": "fc00:2::1", "bAddr": "fc00:2::2" },
                 "C-A": { "a": "C", "b": "A", "aAddr": "fc00:3::1", "bAddr": "fc00:3::2" } } } )" );
   Json red = core;
   red[ "vrf" ] = "red";
   return { { "router", "A" },
            { "te", { { "routerId", "10.0.0.1" } } },
            { "topologies", { { "core", core }, { "red", red }, { "v6", v6 } } } };
}

/// Some requests of a client, others of its own taken back.
Json
requestsOf( const std::string & client, std::mt19937 & engine ) {
   const bool isRepair = client == "tilfa";
   Json paths;
   for ( unsigned n = 0; n < 6; ++n ) {
      const unsigned router = 2 + engine() % 3;
      const std::string name = "p" + std::to_string( n ), number = std::to_string( router );
      Json & path = paths[ name ];
      if ( engine() % 3 == 0 ) {
         continue;
      }
      path = { { "id", n }, { "vrf", "default" }, { "refreshReqSeq", engine() % 3 } };
      path[ "dst" ] = ( isRepair ? "0000.0000.000" : "10.0.0." ) + number;
      Json & constraint = path[ "constraint" ];
      constraint = { { "bandwidth", nullptr }, { "includeHop", nullptr } };
      if ( isRepair ) {
         constraint[ "excludeIntf" ] = "A-B.a";
      } else if ( engine() % 3 == 0 ) {
         path[ "vrf" ] = "red";
      } else if ( engine() % 2 ) {
         constraint[ "bandwidth" ] = 1;
      } else {
         const Json hop{ { "addr", "10.0.0." + std::to_string( 2 + router % 3 ) },
                         { "loose", true } };
         constraint[ "includeHop" ] = Json::array( { hop } );
      }
      if ( isRepair && engine() % 2 ) {
         path[ "af" ] = "ipv6";
      }
   }
   return { { "paths", { { client, paths } } } };
}

/// What clients read, the history of it left out.
Json
answers( TestLab & lab ) {
   Json answers;
   for ( const std::string & table : lab.tables().list( "te/cspf/status" ) ) {
      const auto status = Lum::cast< Cspf::Status >( lab.tables().table( table ) );
      for ( const auto & [ key, published ] : status->pathStatusColl() ) {
         Cspf::PathStatus answer = published;
         Cspf::PqInfo repair = status->pqInfo( answer.repairPathIdx() );
         repair.idxIs( 0 );
         answer.repairPathIdxIs( 0 );
         answer.changeCountIs( 0 );
         answers[ table ][ Lum::valueString( key ) ] = { Lum::valueString( answer ),
                                                         Lum::valueString( repair ) };
      }
      for ( const auto & [ key, error ] : status->pathErrorColl() ) {
         answers[ table ][ Lum::valueString( key ) ].push_back( error );
      }
   }
   return answers;
}

}

TEST( PathSlices, ClientsThatComeAndGoLeaveNothingBehind ) {
   const auto client = []( bool red, bool v6, bool bwm ) -> Json {
      return { { "vrf", { { "default", true }, { "red", red } } },
               { "addressFamily", { { "ipv4", true }, { "ipv6", v6 } } },
               { "bwmRequired", bwm } };
   };
   const Json paths{
      { "cli",
        { { "p", { { "dst", "10.0.0.3" } } },
          { "r", { { "dst", "10.0.0.2" }, { "vrf", "red" } } } } },
      { "rsvp",
        { { "b", { { "dst", "10.0.0.3" }, { "constraint", { { "bandwidth", 1 } } } } },
          { "h",
            { { "dst", "10.0.0.4" },
              { "constraint",
                { { "includeHop", { { { "addr", "10.0.0.3" }, { "loose", true } } } } } } } } } },
      { "tilfa",
        { { "t",
            { { "dst", "0000.0000.0002" }, { "constraint", { { "excludeIntf", "A-B.a" } } } } },
          { "s",
            { { "dst", "0000.0000.0002" },
              { "af", "ipv6" },
              { "constraint", { { "excludeIntf", "A-B.a" } } } } } } } };
   std::mt19937 engine( 7 );
   auto lab = TestLab::of( worldOfServices() );
   lab.slicesOf( 1 );
   lab.settle();
   const Json before = lab.snapshot();
   const auto census = Lum::census();
   Json left;
   for ( int life = 0; life < 12; ++life ) {
      std::vector< Json > acts;
      for ( const auto & [ name, asked ] : paths.items() ) {
         acts.push_back(
            { { "clients", { { name, client( engine() % 2, engine() % 2, engine() % 2 ) } } } } );
         acts.push_back(
            { { "clients", { { name, client( engine() % 2, true, engine() % 2 ) } } } } );
         acts.push_back( { { "paths", { { name, asked } } } } );
      }
      acts.push_back( { { "topologies",
                          { { "core", { { "links", { { "A-B", { { "up", false } } } } } } } } } } );
      acts.push_back( { { "te", { { "enabled", false } } } } );
      acts.push_back( { { "te", { { "enabled", true } } } } );
      std::ranges::shuffle( acts, engine );
      for ( const Json & act : acts ) {
         lab.patch( act );
         lab.advance( engine() % 3 ? 0.02 : 1 );
      }
      std::vector< Json > ends{ { { "paths", nullptr } },
                                { { "clients", { { "cli", nullptr }, { "tilfa", nullptr } } } },
                                { { "clients", { { "rsvp", nullptr } } } },
                                { { "te", { { "enabled", true } } } },
                                { { "topologies", worldOfServices()[ "topologies" ] } } };
      std::ranges::shuffle( ends, engine );
      for ( const Json & end : ends ) {
         lab.patch( end );
         lab.advance( engine() % 2 ? 0.02 : 1 );
      }
      lab.link( "A-B", { { "up", true } } );
      lab.settle();
      ASSERT_EQ( Json::diff( before, lab.snapshot() ), Json::array() ) << "life " << life;
      ASSERT_EQ( census, Lum::census() ) << "life " << life;
      if ( life % 4 == 3 ) {
         lab.stop();
         ASSERT_EQ( left.is_null() ? lab.snapshot() : left, lab.snapshot() );
         left = lab.snapshot();
         lab.start();
         lab.settle();
      }
   }
}

/// SRLGs of an interface are told to the paths that avoid it, reservations to the constraints of a
/// group: runs, stamps and answers are those of telling all at once.
TEST( PathSlices, InterfacesAndGroupsThatAreToldBySlicesEndAsAtOnce ) {
   for ( unsigned seed = 1; seed <= 30; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      Json seen[ 2 ];
      for ( const bool bySlices : { false, true } ) {
         std::mt19937 random( seed );
         const auto below = [ & ]( unsigned n ) { return random() % n; };
         TestLab lab( "A -30{bw 100}- B -10{bw 100}- D; A -10{bw 100}- C -10{bw 100}- D; "
                      "B -5{bw 100}- C; A -20{bw 100}- D",
                      { { "throttle", { { "initialInt", below( 2 ) * 50 } } } } );
         lab.slicesOf( bySlices ? 1 : 1000 );
         const char * const links[] = { "A-B", "B-D", "A-C", "C-D" };
         for ( unsigned srlg = 0; srlg < 4; ++srlg ) {
            lab.link( links[ srlg ], { { "srlg", { srlg } } } );
         }
         for ( unsigned id = 0; id < 12; ++id ) {
            Json constraint{ { "excludeIntf", "A-D.a" },
                             { "excludeSrlg", true },
                             { "srlgStrictMode", below( 2 ) == 0 } };
            if ( below( 2 ) ) {
               constraint[ "includeHop" ] = { { { "addr", below( 2 ) ? "10.0.0.4" : "10.0.0.3" },
                                                { "loose", below( 4 ) > 0 } } };
            } else {
               constraint[ "bandwidth" ] = 1 + below( 60 );
               constraint[ "sharedBwGroupId" ] = 1 + below( 2 );
            }
            lab.request( below( 2 ) ? "cli" : "rsvp", "p" + std::to_string( id ), "B", constraint,
                         { { "id", id } } );
         }
         lab.settle();
         for ( unsigned event = 0; event < 8; ++event ) {
            if ( below( 4 ) == 0 ) {
               lab.link( links[ below( 4 ) ], { { "up", below( 2 ) == 0 } } );
            } else {
               lab.patch( { { "interfaces", { { "A-D.a", { { "srlg", { below( 4 ) } } } } } } } );
            }
            lab.advance( below( 2 ) ? 0.01 : 1 );
         }
         lab.settle();
         const Json state = lab.snapshot();
         for ( const auto & [ path, table ] : state.items() ) {
            if ( path.starts_with( "te/cspf/status/" ) ) {
               seen[ bySlices ][ path ] = table;
            }
         }
      }
      EXPECT_EQ( seen[ 0 ].size(), 2u );
      EXPECT_EQ( Json::diff( seen[ 0 ], seen[ 1 ] ), Json::array() );
   }
}

TEST( PathSlices, ServicesThatComeAndGoBySlicesEndAsFromScratch ) {
   for ( unsigned seed = 1; seed <= 60; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 engine( seed );
      const auto is = [ & ]( unsigned oneIn ) { return engine() % oneIn == 0; };
      auto lab = TestLab::of( worldOfServices() );
      lab.slicesOf( 1 + engine() % 3 );
      lab.settle();
      const auto census = Lum::census();
      for ( int act = 0; act < 60; ++act ) {
         const char * const client = is( 2 ) ? "cli" : is( 2 ) ? "rsvp" : "tilfa";
         if ( const unsigned kind = engine() % 8; kind < 4 ) {
            lab.patch( requestsOf( client, engine ) );
         } else if ( kind == 4 ) {
            lab.patch( { { "clients", { { client, nullptr } } } } );
         } else if ( kind < 7 ) {
            const Json vrfs{ { "default", !is( 4 ) }, { "red", is( 2 ) } };
            const Json afs{ { "ipv4", !is( 4 ) }, { "ipv6", is( 2 ) } };
            lab.patch(
               { { "clients", { { client, { { "vrf", vrfs }, { "addressFamily", afs } } } } } } );
         } else if ( is( 4 ) ) {
            lab.restart();
         } else {
            lab.patch( { { "te", { { "enabled", !is( 3 ) } } } } );
         }
         lab.work( engine() % 30 );
      }
      lab.patch( { { "te", { { "enabled", true } } } } );
      lab.settle();
      {
         auto fresh = TestLab::of( lab.document() );
         fresh.settle();
         ASSERT_EQ( Json::diff( answers( fresh ), answers( lab ) ), Json::array() )
            << lab.document();
      }
      lab.patch( { { "clients", nullptr } } );
      lab.patch( { { "paths", nullptr } } );
      lab.settle();
      ASSERT_EQ( answers( lab ), Json() );
      ASSERT_EQ( census, Lum::census() );
   }
}

TEST( PathSlices, ASliceOfRowsIsTakenInAtOnceHoweverManyRequestsTheseAre ) {
   TestLab lab( "A -10- B -10- C" );
   const Json served = lab.document()[ "clients" ][ "cli" ];
   const auto rows = [ &lab ] {
      const std::string dump = lab.dump(), row = "PathConfigInfo 0x";
      std::size_t count = 0;
      for ( auto at = dump.find( row ); at != dump.npos; at = dump.find( row, at + 1 ) ) {
         ++count;
      }
      return count;
   };
   lab.slicesOf( 6 );
   for ( const std::size_t requests : { 1, 2, 3, 5 } ) {
      lab.patch( { { "clients", { { "cli", nullptr } } } } );
      for ( std::size_t id = 0; id < requests; ++id ) {
         lab.request( "cli", "p" + std::to_string( id ), "C",
                      { { "includeHop", { { { "addr", "10.0.0.2" }, { "loose", true } } } } },
                      { { "id", id } } );
      }
      lab.advance( 1 );  // what was taken away belongs to another turn's slice
      EXPECT_EQ( rows(), 0u );
      lab.patch( { { "clients", { { "cli", served } } } } );
      // The path and its two segments.
      EXPECT_EQ( rows(), std::min< std::size_t >( 3 * requests, 6 ) );
      lab.settle();
      EXPECT_EQ( rows(), 3 * requests );
   }
}

TEST( PathSlices, AVrfIsServedWhileTheRowsOfItsLastClientLeave ) {
   TestLab lab( "A -10- B -10- C", { { "clients", { { "rsvp", nullptr } } } } );
   const Json served = lab.document()[ "clients" ][ "cli" ];
   for ( unsigned id = 0; id < 3; ++id ) {
      lab.request( "cli", "p" + std::to_string( id ), "C", Json::object(), { { "id", id } } );
   }
   lab.settle();
   lab.slicesOf( 1 );
   const std::string addresses = "te/cspf/intfIpToRouterId/vrf/default/ipv4";
   const auto published = lab.snapshot()[ addresses ];
   ASSERT_FALSE( published.empty() );
   lab.patch( { { "clients", { { "cli", nullptr } } } } );
   lab.patch( { { "clients", { { "rsvp", served } } } } );
   lab.settle();
   EXPECT_EQ( lab.snapshot()[ addresses ], published );
}

TEST( PathSlices, ChangesThatNeverCeaseKeepNobodyFromHisPath ) {
   TestLab lab( "A -10{bw 100}- B -10{bw 100}- D; A -10{bw 100}- C -20{bw 100}- D; D -10- E",
                { { "throttle", { { "initialInt", 0 } } } } );
   lab.slicesOf( 1 );
   constexpr unsigned paths = 12;
   for ( unsigned id = 0; id < paths; ++id ) {
      lab.request( "rsvp", "p" + std::to_string( id ), "D",
                   { { "bandwidth", 1 }, { "excludeAdminGroup", 1 << id } }, { { "id", id } } );
   }
   lab.settle();
   lab.down( "A-B" );
   for ( unsigned change = 0; change < 300; ++change ) {  // several for each round of telling
      lab.link( "D-E", { { "metric", 10 + change % 2 } } );
      lab.work( 3 );
   }
   for ( unsigned id = 0; id < paths; ++id ) {
      EXPECT_EQ( lab.path( "rsvp", "p" + std::to_string( id ) ), "A C D" );
   }
}

TEST( PathSlices, APathInUseStaysWhileItsTopologyIsTakenInAnewBySlices ) {
   Json document = TestLab( "A -10- B -10- D; A -10- C -10- D; D -10- E" ).document();
   document[ "topologies" ][ "core" ][ "export" ] = true;
   document[ "te" ][ "routerId" ] = "10.0.0.1";
   document[ "throttle" ] = { { "initialInt", 0 } };
   for ( Json & link : document[ "topologies" ][ "core" ][ "links" ] ) {
      link[ "bandwidth" ] = 100;
   }
   auto lab = TestLab::of( document );
   lab.slicesOf( 1 );
   const auto ask = [ & ]( const std::string & name, const char * dst, unsigned id ) {
      lab.request( "rsvp", name, dst, { { "bandwidth", 10 }, { "excludeAdminGroup", 1 << id } },
                   { { "id", id } } );
   };
   ask( "in use", "E", 0 );
   ask( "new", "D", 1 );
   lab.settle();
   const std::string path = lab.path( "rsvp", "in use" );
   const Json core = lab.document()[ "topologies" ][ "core" ];
   unsigned id = 1;
   for ( const auto & [ name, link ] : core[ "links" ].items() ) {
      SCOPED_TRACE( name );
      lab.patch( { { "topologies", { { "core", nullptr } } } } );
      Json changed = core;
      changed[ "links" ][ name ][ "metric" ] = 1;
      lab.patch( { { "topologies", { { "core", changed } } } } );
      lab.patch( { { "paths", { { "rsvp", { { "new", nullptr } } } } } } );
      ask( "new", "D", ++id );
      lab.settle();
      auto fresh = TestLab::of( lab.document() );
      fresh.settle();
      EXPECT_EQ( lab.cost( "rsvp", "new" ), fresh.cost( "rsvp", "new" ) );
      EXPECT_EQ( lab.status( "rsvp", "new" )->changeCount(), 1u );
      lab.restart();
      lab.settle();
      EXPECT_EQ( lab.path( "rsvp", "in use" ), path );
      EXPECT_EQ( lab.status( "rsvp", "in use" )->changeCount(), 1u );
   }
}
