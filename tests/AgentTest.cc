// The frame around the path service: when the agent is enabled, which services there are for which
// clients, what it mounts and publishes meanwhile, and what it leaves behind. All of it is seen
// from outside, in state and tables.

#include "Cspf/Agent/CommandCallback.h"
#include "platform/Lum/Blocks.h"
#include "platform/Trace/Gemtrace.h"
#include "platform/Trace/Velotrace.h"
#include "tests/Lab.h"
#include "tools/service/StateView.h"
#include "tools/state/StateTypes.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <malloc.h>
#include <random>
#include <set>

namespace {

using Json = TestLab::Json;
using Paths = std::set< std::string >;
using Routing::Topology::ExportPath;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Zorch::MountMode;

const Json noClients{ { "clients", { { "cli", nullptr }, { "rsvp", nullptr } } } };

Json
client( const Json & vrfs, const Json & families, bool bwmRequired = false ) {
   return { { "vrf", vrfs }, { "addressFamily", families }, { "bwmRequired", bwmRequired } };
}

const Json ordinaryClient = client( { { "default", true } }, { { "ipv4", true } } );
const Json fullClient =
   client( { { "default", true }, { "red", true } }, { { "ipv4", true }, { "ipv6", true } }, true );

bool
enabled( TestLab & lab ) {
   return lab.state().entityIs< Cspf::AgentStatus >( "te/cspf/agentStatus" )->agentEnabled();
}

Paths
tablesBelow( TestLab & lab, const std::string & prefix ) {
   const auto paths = lab.tables().list( prefix );
   return Paths( paths.begin(), paths.end() );
}

/// Collects the traces that contain a text, from that text on.
class Traces {
 public:
   explicit Traces( std::string wanted ) {
      Gemtrace::sinkIs( [ this, wanted ]( int, std::string_view text ) {
         if ( const auto at = text.find( wanted ); at != text.npos ) {
            texts.emplace_back( text.substr( at ) );
         }
      } );
   }
   ~Traces() { Gemtrace::sinkIs( nullptr ); }
   Traces( const Traces & ) = delete;
   Traces & operator=( const Traces & ) = delete;

   std::vector< std::string > texts;
};

}

// ---- Enablement ----

TEST( Agent, IsEnabledByTheClientsAtItsStartAndDisabledByTheLastOneThatGoes ) {
   TestLab lab( "A -10- B", noClients );
   lab.settle();
   EXPECT_FALSE( enabled( lab ) );

   lab.patch( { { "clients", { { "cli", ordinaryClient } } } } );
   lab.request( "cli", "p", "B" );
   lab.settle();
   EXPECT_FALSE( enabled( lab ) );
   EXPECT_EQ( lab.path( "cli", "p" ), "A B" );

   lab.restart();
   lab.settle();
   EXPECT_TRUE( enabled( lab ) );

   lab.patch( { { "clients", { { "rsvp", ordinaryClient } } } } );
   lab.patch( { { "clients", { { "cli", nullptr } } } } );
   EXPECT_TRUE( enabled( lab ) );
   Traces traces( "No client present, disabling the agent" );
   lab.patch( { { "clients", { { "rsvp", nullptr } } } } );
   EXPECT_FALSE( enabled( lab ) );
   EXPECT_EQ( traces.texts.size(), 1u );
   EXPECT_EQ( tablesBelow( lab, "te/cspf/status" ), Paths() );
}

TEST( AgentDeathTest, DoesNotRunWithoutItsMounts ) {
   TestLab lab( "A -10- B" );
   lab.stop();
   lab.state().entityDel( "te/config" );
   lab.state().entityIs< Lum::Dir >( "te/config" );
   lab.start();
   EXPECT_DEATH( lab.settle(), "status == Corvdb::mountSuccess_" );
}

TEST( Agent, NamesItsTraceFileAndMayGoWithoutOne ) {
   TestLab lab( "A -10- B" );
   const std::filesystem::path dir = testing::TempDir() + "agentTraces";
   std::filesystem::create_directories( dir );
   setenv( "VELOTRACEDIR", dir.c_str(), 1 );
   lab.restart();
   EXPECT_TRUE( std::filesystem::is_empty( dir ) );
   unsetenv( "VELOTRACE_DISABLE" );
   lab.restart();
   EXPECT_TRUE( std::filesystem::exists( dir / "CspfAgent.qt" ) );
   Velotrace::close();
   unsetenv( "VELOTRACEDIR" );
   std::filesystem::remove_all( dir );
}

// ---- Intake of clients ----

namespace {

const char * const needsOf[] = { "routing/export/topodb/client/cspf",
                                 "routing6/export/topodb/client/cspf" };

/// What the agent is to keep for the document's clients, worked out from the document alone: paths
/// of tables, and of entries of entities.
Paths
expectedServices( const Json & document ) {
   Paths paths;
   const auto addFamily = [ & ]( const std::string & name, const std::string & vrf,
                                 const std::string & af ) {
      const bool hasIdentity = vrf == "default" || document[ "segmentRouting" ].contains( vrf );
      if ( name == "tilfa" ? hasIdentity : af == "ipv4" ) {
         paths.insert( { "te/cspf/status/vrf/" + vrf + "/" + af + "/" + name,
                         "te/cspf/intfIpToRouterId/vrf/" + vrf + "/" + af,
                         std::string( needsOf[ af == "ipv6" ] ) + "/" + vrf } );
      }
   };
   const Json none = Json::object();
   const auto in = [ & ]( const Json & whole, const char * key ) -> const Json & {
      return whole.contains( key ) ? whole[ key ] : none;
   };
   for ( const auto & [ name, client ] : in( document, "clients" ).items() ) {
      for ( const auto & [ vrf, isVrf ] : in( client, "vrf" ).items() ) {
         for ( const auto & [ af, isAf ] : in( client, "addressFamily" ).items() ) {
            if ( isVrf == true && isAf == true ) {
               addFamily( name, vrf, af );
            }
         }
         if ( isVrf == true && client.value( "bwmRequired", false ) ) {
            paths.insert( { "te/bwm/client/status/vrf/" + vrf + "/" + name,
                            "te/bwm/status/vrf/" + vrf, "te/bwm/activeStatus/" + vrf } );
         }
      }
   }
   return paths;
}

/// Whether there is all that clients want while TE is on. While it is off nothing is added, a
/// restart leaves the tables of those who still want them, and a client that has left none that
/// nobody wants.
testing::AssertionResult
servesAsExpected( const Paths & before, const Paths & now, const Json & document, bool restarted,
                  bool left ) {
   const Paths expected = expectedServices( document );
   if ( document[ "te" ][ "enabled" ] == true ) {
      return now == expected ? testing::AssertionSuccess()
                             : testing::AssertionFailure() << testing::PrintToString( now );
   }
   for ( const std::string & path : before ) {
      const bool isStatus = path.starts_with( "te/cspf/status" );
      if ( restarted && isStatus && expected.contains( path ) && !now.contains( path ) ) {
         return testing::AssertionFailure() << path << " is gone";
      }
   }
   for ( const std::string & path : left ? now : Paths() ) {
      if ( path.starts_with( "te/cspf/" ) && !expected.contains( path ) ) {
         return testing::AssertionFailure() << path << " is nobody's";
      }
   }
   return std::ranges::includes( before, now ) ? testing::AssertionSuccess()
                                               : testing::AssertionFailure() << "there is more";
}

/// What there is of that.
Paths
services( TestLab & lab ) {
   Paths paths;
   for ( const char * kind : { "te/cspf/status", "te/cspf/intfIpToRouterId", "te/bwm/client/status",
                               "te/bwm/status" } ) {
      paths.merge( tablesBelow( lab, kind ) );
   }
   const auto addKeys = [ & ]( const std::string & path, const char * collection ) {
      if ( const auto entity = lab.state().entity( path ) ) {
         const Json json = State::toJson( *entity );
         for ( const auto & [ key, value ] : json[ collection ].items() ) {
            paths.insert( path + "/" + key );
         }
      }
   };
   addKeys( needsOf[ 0 ], "needTopoDb" );
   addKeys( needsOf[ 1 ], "needTopoDb" );
   addKeys( "te/bwm/activeStatus", "bwmActive" );
   return paths;
}

/// A random change of who is there and wants what.
Json
intakeEvent( std::mt19937 & engine ) {
   const auto oneOf = [ & ]( const std::vector< Json > & values ) {
      return values[ engine() % values.size() ];
   };
   const Json name = oneOf( { "cli", "rsvp", "tilfa" } );
   const std::string vrf = oneOf( { "default", "red" } ), af = oneOf( { "ipv4", "ipv6" } );
   const Json yesOrNo = oneOf( { true, true, false, nullptr } );
   Json part;
   switch ( engine() % 8 ) {
   case 0: return { { "te", { { "enabled", engine() % 2 == 0 } } } };
   case 1:
      return { { "segmentRouting",
                 { { "red", oneOf( { nullptr, { { "systemId", "0000.0000.0001" } } } ) } } } };
   case 2: part = oneOf( { nullptr, fullClient, fullClient } ); break;
   case 3: part = { { "bwmRequired", engine() % 2 == 0 } }; break;
   case 4:
   case 5: part = { { "vrf", { { vrf, yesOrNo } } } }; break;
   default: part = { { "addressFamily", { { af, yesOrNo } } } };
   }
   return { { "clients", { { name, part } } } };
}

}

TEST( Agent, ServesWhoIsThereAndLeavesNothingBehind ) {
   const Json systemId{ { "systemId", "0000.0000.0001" } };
   Json resting = noClients;
   resting.update( { { "te", { { "enabled", true } } },
                     { "segmentRouting", { { "default", systemId }, { "red", nullptr } } } } );
   for ( unsigned seed = 1; seed <= 40; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      std::mt19937 engine( seed );
      TestLab lab( "A -10{bw 100}- B -10{bw 100}- C; A -30{bw 100}- C", resting );
      lab.request( "cli", "p", "C" );
      lab.request( "rsvp", "p", "C", { { "bandwidth", 10 } } );
      lab.request( "rsvp", "q", "C",
                   { { "includeHop", { { { "addr", "10.0.0.2" }, { "loose", true } } } } },
                   { { "id", 2 } } );
      lab.request( "tilfa", "p", "C", { { "excludeIntf", "A-B.a" } } );
      lab.settle();
      const Json before = lab.snapshot();
      const auto liveBefore = Lum::census();
      lab.patch(
         { { "clients",
             { { "cli", fullClient }, { "rsvp", fullClient }, { "tilfa", fullClient } } } } );
      for ( int event = 0; event < 25; ++event ) {
         const bool dies = engine() % 8 == 0;
         const Paths served = services( lab );
         if ( dies ) {
            lab.restart();  // the new one looks when the event is over
         }
         const std::size_t clients = lab.document()[ "clients" ].size();
         lab.patch( intakeEvent( engine ) );
         const bool settles = dies || engine() % 2;
         if ( settles ) {
            lab.settle();
         }
         const bool left = settles && lab.document()[ "clients" ].size() < clients;
         ASSERT_TRUE( servesAsExpected( served, services( lab ), lab.document(), dies, left ) )
            << lab.document();
      }
      lab.patch( { { "clients", nullptr } } );
      lab.patch( resting );
      lab.settle();
      ASSERT_EQ( Json::diff( before, lab.snapshot() ), Json::array() );
      ASSERT_EQ( Lum::census(), liveBefore );
      lab.patch( { { "clients", { { "cli", ordinaryClient }, { "rsvp", ordinaryClient } } } } );
      lab.settle();
      lab.stop();
      lab.patch( noClients );
      ASSERT_EQ( Json::diff( before, lab.snapshot() ), Json::array() );
   }
}

TEST( Agent, TakesNoMoreMemoryForWhatHasComeAndGone ) {
   TestLab lab( "A -10- B -10- C; A -30- C" );
   const auto heapAfter = [ & ]( unsigned begin, unsigned end ) {
      for ( unsigned n = begin; n < end; ++n ) {
         const std::string address =
            "10." + std::to_string( 70 + n / 200 ) + ".0." + std::to_string( 1 + n % 200 );
         Json srlgs = Json::array();
         for ( unsigned i = 0; i < 8; ++i ) {
            srlgs.push_back( 8 * n + i );
         }
         lab.link( "A-B", { { "srlg", srlgs }, { "adminGroup", n }, { "bAddr", address } } );
         lab.request( "cli", "p", "C", { { "excludeLinkWithIp", { address } }, { "bandwidth", n } },
                      { { "id", n } } );
         lab.settle();
      }
      const struct mallinfo2 info = mallinfo2();
      return std::int64_t( info.uordblks + info.hblkhd ) - std::int64_t( Lum::freeBlockBytes() );
   };
   const std::int64_t before = heapAfter( 1, 400 );
   // Logs and the like are as long as they are.
   EXPECT_LT( heapAfter( 400, 1000 ) - before, 600 * 128 ) << "bytes";
}

TEST( Agent, AClientDoesNotNoticeThatAnotherOneGoes ) {
   TestLab lab( "A -10- B" );
   lab.request( "cli", "p", "B" );
   lab.settle();
   const auto status = lab.statusTable( "cli" );
   const auto writes = Lum::make< WriteCount >( *status );
   lab.patch( { { "clients", { { "rsvp", nullptr } } } } );
   lab.settle();
   EXPECT_EQ( lab.statusTable( "cli" ), status );
   EXPECT_EQ( writes->writes(), 0u );

   const Json ended[] = { nullptr,
                          { { "vrf", { { "default", false } } } },
                          { { "addressFamily", { { "ipv4", false } } } } };
   for ( const Json & end : ended ) {
      lab.patch( { { "clients", { { "tilfa", ordinaryClient } } } } );
      lab.settle();
      EXPECT_THAT( lab.dump(), HasSubstr( "isisAdjacencyInfo: 0x" ) );
      lab.patch( { { "clients", { { "tilfa", end } } } } );
      lab.settle();
      EXPECT_THAT( lab.dump(), Not( HasSubstr( "isisAdjacencyInfo: 0x" ) ) ) << end;
   }
   EXPECT_EQ( lab.statusTable( "cli" ), status );
}

TEST( Agent, RemovesWhatAnEarlierRunLeftAndKeepsWhatIsInUse ) {
   const Json inTwoVrfs{ { "vrf", { { "red", true } } }, { "bwmRequired", true } };
   TestLab lab( "A -10- B -10- C", { { "clients", { { "cli", inTwoVrfs } } } } );
   lab.request( "cli", "p", "C" );
   lab.settle();
   const auto seen = [ & ] {
      Json state = lab.snapshot();
      state.erase( "te/cspf/constraintStatus/vrf/default/ipv4" );  // counts runs
      return state;
   };
   const Json before = seen();
   const std::pair< const char *, const char * > stale[] = {
      { "te/cspf/status/vrf/blue/ipv4/cli", "Cspf::Status" },
      { "te/cspf/status/vrf/default/ipv4/gone", "Cspf::Status" },
      { "te/cspf/status/vrf/default/ipv6/cli", "Cspf::Status" },
      { "te/cspf/intfIpToRouterId/vrf/old/ipv4", "Cspf::IntfIpToRouterIdTable" },
      { "te/bwm/client/status/vrf/default/rsvp", "TrafficEngineering::BandwidthClientStatus" },
      { "te/bwm/status/vrf/old", "TrafficEngineering::BwmStatus" },
      { "te/cspf/constraintStatus/vrf/default/ipv4", "Cspf::ConstraintStatusTable" },
      { "te/cspf/constraintStatus/vrf/red/ipv4", "Cspf::ConstraintStatusTable" },
      { "te/cspf/bwUsage/vrf/default/ipv4", "Cspf::BwUsageTable" },
      { "te/cspf/bwUsage/vrf/red/ipv4", "Cspf::BwUsageTable" } };
   std::vector< std::string > deletions;
   for ( const auto & [ path, type ] : stale ) {
      lab.tables().alwaysIs( path, type );
      deletions.push_back( std::string( "Deleting path : " ) + path );
   }
   const auto bwmActive =
      lab.state().entityIs< TrafficEngineering::BwmActiveStatus >( "te/bwm/activeStatus" );
   bwmActive->bwmActiveIs( "old", true );
   for ( const char * path : needsOf ) {
      lab.state().entityIs< Routing::Topology::Client >( path )->needTopoDbIs( "old", true );
   }

   lab.restart();
   const auto statusWrites = Lum::make< WriteCount >( *lab.statusTable( "cli" ) );
   const auto activeWrites = Lum::make< WriteCount >( *bwmActive );
   Traces traces( "Deleting path : " );
   lab.settle();
   EXPECT_EQ( traces.texts, deletions );
   EXPECT_EQ( Json::diff( before, seen() ), Json::array() );
   EXPECT_EQ( statusWrites->writes(), 0u );
   EXPECT_EQ( activeWrites->writes(), 1u );
}

// ---- Announced topologies ----

TEST( Agent, MountsAnAnnouncedTopologyWhileItIsReadyAndNeeded ) {
   TestLab lab( "A -10- B" );
   lab.settle();
   const std::string table = "routing/ospf/topodb/ip/0/5/default";
   const auto isMounted = [ & ] { return lab.tables().table( table ) != nullptr; };
   const auto announce = [ & ]( const std::string & name, const char * vrf ) {
      const auto path = lab.state().entityIs< ExportPath >( "routing/topoDbExport/" + name );
      path->igpSourceIs( Cspf::IgpSource::ospf );
      path->number2Is( 5 );
      path->vrfNameIs( vrf );
      path->afIs( Kivnet::AddressFamily::ipv4 );
      return path;
   };
   const auto ready = announce( "area5", "default" );
   announce( "elsewhere", "red" )->initializedIs( true );
   EXPECT_FALSE( isMounted() );
   ready->initializedIs( true );
   EXPECT_TRUE( isMounted() );

   lab.patch( { { "clients", nullptr } } );
   EXPECT_FALSE( isMounted() );
   lab.patch( { { "clients", { { "cli", ordinaryClient } } } } );
   EXPECT_TRUE( isMounted() );
   EXPECT_EQ( lab.tables().table( "routing/ospf/topodb/ip/0/5/red" ), nullptr );

   ready->initializedIs( false );
   EXPECT_FALSE( isMounted() );
   ready->number2Is( 6 );
   ready->initializedIs( true );
   EXPECT_FALSE( isMounted() );
   EXPECT_NE( lab.tables().table( "routing/ospf/topodb/ip/0/6/default" ), nullptr );
   lab.state().entityDel( "routing/topoDbExport/area5" );
   EXPECT_EQ( tablesBelow( lab, "routing/ospf" ), Paths() );
}

TEST( Agent, ATopologyStandsWhileOneOfItsAnnouncementsIsReady ) {
   TestLab lab( "A -10- B" );
   lab.patch( { { "topologies", { { "core", { { "export", true } } } } } } );
   lab.request( "cli", "p", "B" );
   lab.settle();
   ASSERT_EQ( lab.path( "cli", "p" ), "A B" );
   const auto dir = Lum::cast< Lum::Dir >( lab.state().entity( "routing/topoDbExport" ) );
   ASSERT_EQ( dir->entitys(), 1u );
   const auto original = Lum::cast< ExportPath >( dir->entityColl().begin()->second );
   const auto again = lab.state().entityIs< ExportPath >( "routing/topoDbExport/again" );
   const auto announcementIs = [ & ]( const Lum::Ptr< ExportPath > & path ) {
      path->igpSourceIs( original->igpSource() );
      path->number1Is( original->number1() );
      path->number2Is( original->number2() );
      path->vrfNameIs( original->vrfName() );
      path->afIs( original->af() );
      path->initializedIs( true );
   };
   announcementIs( again );
   const std::uint32_t number = original->number1();
   for ( const bool originalGoes : { true, false } ) {
      const auto & going = originalGoes ? original : again;
      going->initializedIs( false );
      lab.settle();
      EXPECT_EQ( lab.path( "cli", "p" ), "A B" );
      going->initializedIs( true );
   }
   again->initializedIs( false );
   original->number1Is( 7 );  // names an empty table
   lab.settle();
   EXPECT_EQ( lab.path( "cli", "p" ), "" );
   original->number1Is( number );
   lab.settle();
   EXPECT_EQ( lab.path( "cli", "p" ), "A B" );
}

TEST( AgentDeathTest, DoesNotServeAnUnknownSourceOfTopologiesUnlessTheToggleIsOff ) {
   const auto announceOdd = []( bool toggle, const Lum::Ptr< Lum::Entity > & announcement ) {
      TestLab lab( "A -10- B", { { "toggles", { { "OspfTopoDbExport", toggle } } } } );
      lab.request( "cli", "p", "B" );
      lab.state().entityIs< Lum::Dir >( "routing/topoDbExport" )->entityIs( "odd", announcement );
      lab.settle();
      return lab.path( "cli", "p" );
   };
   const auto odd = Lum::make< ExportPath >();
   odd->igpSourceIs( Cspf::IgpSource( 7 ) );
   EXPECT_EQ( announceOdd( false, odd ), "A B" );
   EXPECT_DEATH( announceOdd( true, odd ), "Invalid IGP source" );
   EXPECT_DEATH( announceOdd( true, Lum::make< Lum::Dir >() ), "exportPathPtr" );
}

// ---- Sources of computations ----

TEST( Agent, ComputesFromTheTeRouterIdAndTheSegmentRoutingIdentity ) {
   TestLab lab( "A -10- B" );
   lab.settle();
   EXPECT_THAT( lab.dump(), HasSubstr( " Client: 0, sourceId: 10.0.0.1\n" ) );
   lab.patch( { { "te", { { "routerId", "0.0.0.0" } } } } );
   EXPECT_THAT( lab.dump(), Not( HasSubstr( " Client: 0" ) ) );
   lab.patch( { { "routing", { { "routerIdV4", "10.0.0.2" } } } } );
   EXPECT_THAT( lab.dump(), HasSubstr( " Client: 0, sourceId: 10.0.0.2\n" ) );
   lab.patch( { { "te", { { "routerId", "10.0.0.1" } } } } );
   EXPECT_THAT( lab.dump(), HasSubstr( " Client: 0, sourceId: 10.0.0.1\n" ) );

   lab.settle();
   lab.advance( 100 );
   const std::string before = lab.dump();
   lab.patch( { { "routing", { { "routerIdV4", "10.0.0.3" } } } } );
   EXPECT_EQ( lab.dump(), before ) << "the same source, set anew";

   lab.patch( { { "te", { { "enabled", false } } } } );
   EXPECT_THAT( lab.dump(), Not( HasSubstr( " Client: 0" ) ) );
   EXPECT_THAT( lab.dump(), HasSubstr( " Client: 1, sourceId: 0000.0000.0001\n" ) );
   const auto identity = [ & ]( const char * vrf, const Json & status ) {
      lab.patch( { { "segmentRouting", { { vrf, status } } } } );
   };
   identity( "default", { { "systemId", "0000.0000.0008" } } );
   identity( "red", { { "systemId", "0000.0000.0009" } } );
   EXPECT_THAT( lab.dump(), HasSubstr( "Vrf: default\n   Client: 1, sourceId: 0000.0000.0008\n" ) );
   EXPECT_THAT( lab.dump(), HasSubstr( "Vrf: red\n   Client: 1, sourceId: 0000.0000.0009\n" ) );
   identity( "red", nullptr );
   EXPECT_THAT( lab.dump(), Not( HasSubstr( "Vrf: red" ) ) );
}

// ---- Bandwidth manager ----

TEST( Agent, TellsABandwidthClientWhatTheOthersLeave ) {
   using TrafficEngineering::BandwidthClientUsage;
   const Json bwmClient = client( { { "default", true }, { "red", true } }, Json::object(), true );
   TestLab lab( "A -10- B", { { "clients", { { "cli", bwmClient }, { "rsvp", bwmClient } } } } );
   const std::string ofAll = "te/bwm/status/vrf/default";
   lab.tables().alwaysIs( ofAll, "TrafficEngineering::BwmStatus" );
   lab.tables()
      .mount< TrafficEngineering::BwmStatus >( ofAll, MountMode::writer )
      ->usageIs( Kivnet::IntfId( "ofAnEarlierRun" ), 5 );
   lab.settle();
   const auto told = [ & ]( const std::string & name, const std::string & vrf = "default" ) {
      return State::toJson( *lab.tables().table( "te/bwm/client/status/vrf/" + vrf + "/" + name ) )
         .at( "maxReservableBandwidth" );
   };
   const auto sum = [ & ] { return State::toJson( *lab.tables().table( ofAll ) ).at( "usage" ); };
   const auto & local = *lab.runner().agent()->entityManager();
   const auto ports =
      local.entity< Interface::AllEthPhyIntfStatusDir >( "interface/status/eth/phy/all" );
   const auto lags = local.entity< Interface::EthLagIntfStatusDir >( "interface/status/eth/lag" );
   const Kivnet::IntfId et1( "et1" ), po1( "po1" ), ghost( "ghost" );
   ports->bandwidthIs( et1, 1000 );
   lags->bandwidthIs( po1, 500 );
   EXPECT_EQ( told( "cli" ), ( Json{ { "et1", 1000 }, { "po1", 500 } } ) );

   const std::string input = "te/bwm/client/input/vrf/default/";
   const auto cli = lab.tables().mount< BandwidthClientUsage >( input + "cli", MountMode::writer );
   const auto rsvp =
      lab.tables().mount< BandwidthClientUsage >( input + "rsvp", MountMode::writer );
   cli->usageIs( et1, 300 );
   rsvp->usageIs( et1, 200 );
   rsvp->usageIs( ghost, 7 );
   EXPECT_EQ( told( "cli" ), ( Json{ { "et1", 800 }, { "po1", 500 } } ) );
   EXPECT_EQ( told( "rsvp" ), ( Json{ { "et1", 700 }, { "po1", 500 } } ) );
   EXPECT_EQ( told( "cli", "red" ), ( Json{ { "et1", 1000 }, { "po1", 500 } } ) );
   EXPECT_EQ( sum(), ( Json{ { "et1", 500 }, { "ghost", 7 } } ) );

   constexpr auto huge = std::numeric_limits< std::uint64_t >::max();
   cli->usageIs( et1, huge );
   EXPECT_EQ( told( "rsvp" )[ "et1" ], 0 );
   EXPECT_EQ( sum()[ "et1" ], huge );
   Traces traces( "active VRF: " );
   lab.patch( { { "clients", { { "cli", { { "bwmRequired", false } } } } } } );
   EXPECT_EQ( told( "rsvp" ), ( Json{ { "et1", 1000 }, { "po1", 500 } } ) );
   EXPECT_EQ( sum(), ( Json{ { "et1", 200 }, { "ghost", 7 } } ) );
   ports->bandwidthDel( et1 );
   EXPECT_EQ( told( "rsvp" ), ( Json{ { "po1", 500 } } ) );
   EXPECT_THAT( traces.texts, IsEmpty() );
   lab.patch( { { "clients", { { "rsvp", { { "vrf", { { "default", false } } } } } } } } );
   EXPECT_THAT( traces.texts, ElementsAre( "active VRF: default" ) );
}

TEST( Agent, TakesTheBandwidthOfInterfacesFromState ) {
   TestLab lab(
      "A -10- B",
      { { "clients", { { "cli", client( { { "default", true } }, Json::object(), true ) } } },
        { "interfaces", { { "A-B.a", { { "bandwidth", 1000 } } } } } } );
   const auto told = [ & ] {
      lab.settle();
      return State::toJson( *lab.tables().table( "te/bwm/client/status/vrf/default/cli" ) )
         .at( "maxReservableBandwidth" );
   };
   EXPECT_EQ( told(), ( Json{ { "A-B.a", 1000 } } ) );
   Service::StateView view( lab.state(), lab.tables() );
   view.patch( "interface/status/eth/phy/all", { { "bandwidth", { { "et2", 70 } } } } );
   EXPECT_EQ( told(), ( Json{ { "A-B.a", 1000 }, { "et2", 70 } } ) );
   lab.restart();
   lab.patch(
      { { "interfaces", { { "A-B.a", { { "bandwidth", 5 }, { "aggregate", true } } } } } } );
   EXPECT_EQ( told(), ( Json{ { "A-B.a", 5 }, { "et2", 70 } } ) );
   lab.patch( { { "interfaces", nullptr } } );
   EXPECT_EQ( told(), ( Json{ { "et2", 70 } } ) );
}

// ---- Dump ----

TEST( Agent, DumpsItsFrame ) {
   TestLab lab( "A -10- B", noClients );
   lab.settle();
   const std::string family = "  Source ID per vrf per client\n  Vrf: default\n"
                              "   Client: 1, sourceId: 0000.0000.0001\n"
                              "   Last client source ID change: 0.000 seconds ago\n"
                              "  ClientData per vrf\n";
   EXPECT_EQ( lab.dump(),
              "\n-----------Cspf Internal State Dump-------------\n"
              "-----CSPF client config and status-----\n\n"
              "----CSPF Root ipv4----\n"
                 + family + "----CSPF Root ipv6----\n" + family
                 + "BwmRoot\n-------\n\ninitialVrfCount: 0\nbwmActiveStatusCleanupDone: True\n\n"
                   "BwmActiveStatus\n\n"
                   "VRF Name                       Active    \n"
                   "--------                       --------  \n"
                   "All BW values below are in Bps\n\n"
                   "\nStale BandwidthClientStatusTable entries\n"
                   "\nStale BandwidthClientUsageTable entries\n\n" );
   lab.patch( { { "clients", { { "cli", ordinaryClient } } } } );
   lab.request( "cli", "early", "B" );
   lab.settle();
   lab.advance( 1000 );
   lab.request( "cli", "late", "B", Json::object(), { { "id", 2 } } );
   lab.settle();
   const std::string served = lab.dump();
   EXPECT_THAT( served, HasSubstr( "-----CSPF client config and status-----\n"
                                   "  Client: cli\n  bwmRequired: False\n    Vrf: default\n"
                                   "      Dest: 10.0.0.2 Id: 1 RefreshReqSeq: 0" ) );
   EXPECT_THAT( served, HasSubstr( "        Last Updated: 1000." ) );
   EXPECT_THAT( served, HasSubstr( "        Last Updated: 0." ) );
   EXPECT_THAT( served, HasSubstr( "VRF default\n    Topology " ) );
}

TEST( Agent, SaysWhatItCannotDump ) {
   const auto written = []( auto && write ) {
      std::FILE * const file = std::tmpfile();
      write( fileno( file ) );
      std::string text( static_cast< std::size_t >( lseek( fileno( file ), 0, SEEK_CUR ) ), ' ' );
      EXPECT_EQ( pread( fileno( file ), text.data(), text.size(), 0 ), ssize_t( text.size() ) );
      std::fclose( file );
      return text;
   };
   EXPECT_EQ( written( Cspf::dumpStateTo ), "Cspf Agent addr not set\n" );
   TestLab lab( "A -10- B" );
   lab.settle();
   EXPECT_EQ( written( [ & ]( int fd ) { lab.runner().command( "CspfDump", fd, "DUMP" ); } ),
              "Unknown command DUMP" );
   const std::string all = written( Cspf::dumpStateTo );
   EXPECT_EQ( all.substr( 0, 20 ), "Cspf Internal State\n" );
   EXPECT_THAT( lab.dump(), HasSubstr( all.substr( 20 ) ) );
}
