// The service on a database, from outside: agents that are killed, wait for each other and come
// back; people and programs that read and write the database by hand; and everything at once.

#include "schema/CspfClient.h"
#include "schema/Topology.h"
#include "tests/LabText.h"
#include "tests/RedisServer.h"
#include "tests/StateBackends.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <random>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using Service::Client;
using Service::Json;
using testing::AllOf;
using testing::HasSubstr;

namespace {

constexpr const char * statusPath = "te/cspf/status/vrf/default/ipv4/rsvp";
constexpr const char * configKey = "t:te/cspf/config/vrf/default/ipv4/rsvp";

Json
squareLab() {
   return { { "router", "A" },
            { "topologies", { { "net", labTopology( "A -10- B -10- D; A -20- C -20- D" ) } } },
            { "clients",
              { { "rsvp",
                  { { "vrf", { { "default", true } } },
                    { "addressFamily", { { "ipv4", true } } } } } } } };
}

bool
comesTrue( const std::function< bool() > & condition ) {
   for ( int i = 0; i < 3000; ++i ) {
      if ( condition() ) {
         return true;
      }
      usleep( 10'000 );
   }
   return false;
}

struct SharedStateTest : testing::Test {
   std::unique_ptr< RunnerProcess > run( std::vector< std::string > more = {} ) {
      more.insert( more.begin(), { "--state", server.url() } );
      return std::make_unique< RunnerProcess >( directory, more );
   }
   ProgramResult ctl( std::vector< std::string > arguments ) const {
      arguments.insert( arguments.begin(), { "--state", server.url() } );
      return runProgram( "cspfctl", arguments );
   }
   /// The text of a published path; empty while there is none.
   std::string published( const std::string & path = "10.0.0.3#1" ) const {
      return server.cli( { "HGET", std::string( "t:" ) + statusPath, "pathStatus[" + path + "]" } );
   }
   bool isPublished( const std::string & lastHop, const std::string & path = "10.0.0.3#1" ) const {
      return comesTrue(
         [ & ] { return published( path ).find( lastHop + "\"]" ) != std::string::npos; } );
   }
   std::string logOf( const std::string & name = "log" ) const {
      std::ifstream in( directory / name );
      return { std::istreambuf_iterator< char >( in ), {} };
   }
   void loadSquare( const RunnerProcess & runner ) const {
      Client( runner.socket() ).call( "load", { { "lab", squareLab() } } );
   }

   RedisServer server;
   TemporaryDirectory directory;
};

}

TEST_F( SharedStateTest, peopleAndProgramsReadAndWriteTheDatabaseByHand ) {
   const auto runner = run();
   loadSquare( *runner );
   server.cli( { "FCALL", "state_set", "1", configKey, "@type", "Cspf::Config",
                 "pathConfig[10.0.0.3#1]", R"({"constraint":{}})" } );
   ASSERT_TRUE( isPublished( "10.64.0.5" ) );
   EXPECT_THAT( ctl( { "paths" } ).out, HasSubstr( "10.64.0.5" ) );
   EXPECT_THAT( ctl( { "get", statusPath } ).out, HasSubstr( "10.64.0.5" ) );
   EXPECT_THAT( ctl( { "status" } ).out,
                AllOf( HasSubstr( "CspfAgent (process" ), HasSubstr( "rsvp" ) ) );
   const std::string request = R"({"pathConfig":{"10.0.0.3#2":{"constraint":{}}}})";
   EXPECT_EQ( ctl( { "patch", std::string( configKey ).substr( 2 ), request } ).exitStatus, 0 );
   EXPECT_TRUE( isPublished( "10.64.0.5", "10.0.0.3#2" ) );
   server.cli( { "FCALL", "state_del", "1", configKey, "pathConfig[10.0.0.3#1]" } );
   EXPECT_TRUE( comesTrue( [ & ] { return published() == "\n"; } ) );
   // What the agent writes is the agent's.
   EXPECT_THAT( server.cli( { "FCALL", "state_del", "1", std::string( "t:" ) + statusPath } ),
                HasSubstr( "OWNED" ) );
   EXPECT_EQ( ctl( { "patch", statusPath, "{}" } ).exitStatus, 1 );
   // Without an agent all of it is still there, and still to be changed.
   runner->end( SIGKILL );
   EXPECT_THAT( ctl( { "paths" } ).out, HasSubstr( "10.64.0.5" ) );
   EXPECT_EQ( ctl( { "patch", "te/config", R"({"enabled":false})" } ).exitStatus, 0 );
   EXPECT_EQ( server.cli( { "HGET", "e:te/config", "enabled" } ), "false\n" );
}

TEST_F( SharedStateTest, whatCannotBeIsRefusedWithItsPlaceAndTheRestGoesOn ) {
   const auto runner = run();
   loadSquare( *runner );
   const auto set = [ & ]( std::vector< std::string > arguments ) {
      arguments.insert( arguments.begin(), { "FCALL", "state_set", "1" } );
      return server.cli( arguments );
   };
   const auto refused = [ & ]( const std::string & place ) {
      return comesTrue( [ & ] { return logOf().find( place ) != std::string::npos; } );
   };
   const std::string row = "pathConfig[10.0.0.3#7]";
   const struct {
      std::vector< std::string > write;
      std::string line;
   } cases[] = {
      { { "e:te/cspf/client/odd", "@type", "Cspf::Config" },
        "e:te/cspf/client/odd: /@type: expected \"Cspf::Client\"" },
      { { "e:te/cspf", "@type", "Cspf::Client" }, "e:te/cspf: /@type: no entity stands" },
      { { "t:te/cspf/client", "@type", "No::Such" }, "t:te/cspf/client: /@type: no table stands" },
      { { configKey, "@type", "Cspf::Config", row, "{" }, "pathConfig[10.0.0.3#7]: expected JSON" },
      { { configKey, row, "7" }, "pathConfig[10.0.0.3#7]: expected an object" },
      { { configKey, row, R"({"refreshReqSeq":-1})" },
        "pathConfig[10.0.0.3#7]/refreshReqSeq: expected a number from 0 to 4294967295" },
      { { configKey, row, R"({"pathKey":{"dst":"10.0.0.4","id":7}})" }, "pathConfig[10.0.0.3#7]" },
      { { configKey, row, R"({"pathKey":"10.0.0.4#7"})" },
        "/pathKey: expected the key of its own" },
      { { configKey, "pathConfig[x]", "{}" }, "pathConfig[x]: expected as key" },
      { { configKey, "pathConfig", "{}" }, "pathConfig: expected NAME[KEY]" },
      { { configKey, "noSuch[1]", "{}" }, "noSuch[1]: expected a field of Cspf::Config" },
      { { "e:routing/topoDbExport/x", "@type", "Routing::Topology::ExportPath", "initialized",
          "true" },
        "e:routing/topoDbExport/x: /af: expected" },
   };
   for ( const auto & [ write, line ] : cases ) {
      EXPECT_THAT( set( write ), testing::Not( HasSubstr( "ERR" ) ) ) << line;
      EXPECT_TRUE( refused( line ) ) << line << "\n" << logOf();
   }
   server.cli( { "HSET", "t:routing/isis/adjacency/x", "a", "b" } );
   server.cli( { "XADD", "log", "*", "nonsense", "1" } );
   EXPECT_TRUE( refused( "t:routing/isis/adjacency/x: /@type: missing" ) );
   set( { configKey, "pathConfig[10.0.0.3#1]", "{}" } );
   EXPECT_TRUE( isPublished( "10.64.0.5" ) );
}

TEST_F( SharedStateTest, oneAgentWritesAndAnotherWaits ) {
   auto first = run();
   loadSquare( *first );
   server.cli( { "FCALL", "state_set", "1", configKey, "@type", "Cspf::Config",
                 "pathConfig[10.0.0.3#1]", "{}" } );
   ASSERT_TRUE( isPublished( "10.64.0.5" ) );
   const ProgramResult second =
      runProgram( "agentrunner", { "--state", server.url(), "--socket", directory / "other" } );
   EXPECT_EQ( second.exitStatus, 1 );
   EXPECT_THAT( second.err, HasSubstr( std::to_string( first->pid() ) ) );
   const std::string before = published();
   const TemporaryDirectory waiting;
   const RunnerProcess standby( waiting, { "--state", server.url(), "--standby" } );
   EXPECT_TRUE( Client( standby.socket() ).call( "status", Json::object() )[ "agent" ].is_null() );
   first->end( SIGKILL );
   EXPECT_TRUE( comesTrue( [ & ] {
      return !Client( standby.socket() ).call( "status", Json::object() )[ "agent" ].is_null();
   } ) );
   server.cli( { "FCALL", "state_set", "1", configKey, "pathConfig[10.0.0.3#2]", "{}" } );
   EXPECT_TRUE( isPublished( "10.64.0.5", "10.0.0.3#2" ) );
   EXPECT_EQ( published(), before );
}

TEST_F( SharedStateTest, aServerThatCannotServeIsSaidSo ) {
   const auto errorOf = [ & ]( const RedisServer & with, std::vector< std::string > more = {} ) {
      more.insert( more.begin(), { "--state", with.url(), "--socket", directory / "other" } );
      const ProgramResult result = runProgram( "agentrunner", more );
      EXPECT_EQ( result.exitStatus, 1 );
      EXPECT_THAT( result.err, HasSubstr( with.url() ) );
      return result.err;
   };
   const RedisServer locked( { "--requirepass", "secret" } );
   EXPECT_THAT( errorOf( locked ), HasSubstr( "NOAUTH" ) );
   std::ofstream( directory / "wrong" ) << "guess\n";
   EXPECT_THAT( errorOf( locked, { "--state-password", directory / "wrong" } ),
                HasSubstr( "WRONGPASS" ) );
   std::ofstream( directory / "right" ) << "secret\n";
   EXPECT_EQ( runProgram( "cspfctl", { "--state", locked.url(), "--state-password",
                                       directory / "right", "get", "te/config" } )
                 .exitStatus,
              0 );
   const RedisServer bare( { "--rename-command", "FUNCTION", "" } );
   EXPECT_THAT( errorOf( bare ), HasSubstr( "takes no functions" ) );
   for ( const char * url : { "unix:", "redis://", "rediss://host/0", "redis://a:b@host/0",
                              "redis://127.0.0.1:x/0", "file" } ) {
      EXPECT_EQ( runProgram( "agentrunner", { "--state", url } ).exitStatus, 1 ) << url;
   }
}

namespace {

/// What one writer's table holds in the end; random content before.
using Write = std::function< void( Member & member, std::mt19937 & random, bool isLast ) >;

/// A process that owns the paths and writes there, faster than anybody can follow, until the file
/// "last" is in the directory.
pid_t
startWriter( const RedisServer & server, const std::vector< std::string > & paths,
             const TemporaryDirectory & directory, const Write & write ) {
   const pid_t child = fork();
   if ( child != 0 ) {
      return child;
   }
   prctl( PR_SET_PDEATHSIG, SIGKILL );
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   Member member( loop, &server );
   bool granted = false, done = false;
   member.replica->leaseIs( paths, true, { [ & ] { granted = true; } } );
   std::mt19937 random( static_cast< unsigned >( getpid() ) );
   for ( ;; ) {
      loop.runOnce( 0.005 );
      if ( granted && !done ) {
         done = access( ( directory / "last" ).c_str(), F_OK ) == 0;
         write( member, random, done );
      }
   }
}

/// A client that asks for ever other paths to D, and in the end for ten, with `refreshReqSeq` 77.
void
writeRequests( Member & member, const std::string & name, std::mt19937 & random, bool isLast ) {
   const auto client = member.state.entityIs< Cspf::Client >( "te/cspf/client/" + name );
   client->vrfIs( L3::VrfName( "default" ), true );
   client->addressFamilyIs( Kivnet::AddressFamily::ipv4, true );
   const auto config = Lum::cast< Cspf::Config >(
      member.tables.alwaysIs( "te/cspf/config/vrf/default/ipv4/" + name, "Cspf::Config" ) );
   for ( std::uint32_t id = 1; id <= 20; ++id ) {
      Cspf::PathConfig request;
      request.pathKey_ = { Cspf::Destination( Kivnet::IpGenAddr( Kivnet::IpAddr( 0x0a000003 ) ) ),
                           id };
      request.refreshReqSeq_ = isLast ? 77 : static_cast< std::uint32_t >( random() % 5 );
      if ( isLast ? id <= 10 : random() % 2 == 0 ) {
         config->pathConfigIs( request );
      } else {
         config->pathConfigDel( request.pathKey() );
      }
   }
}

}

TEST_F( SharedStateTest, whoeverDiesAllAgreeInTheEndAndThePathsAreRight ) {
   constexpr const char * topologyPath = "routing/isis/topodb/ip/2/default";
   auto agent = run();
   loadSquare( *agent );
   const Json topology =
      Client( agent->socket() ).call( "get", { { "path", topologyPath } } )[ "value" ];
   std::vector< std::function< pid_t() > > starts;
   starts.push_back( [ & ] {
      return startWriter( server, { topologyPath }, directory,
                          [ & ]( Member & member, std::mt19937 & random, bool isLast ) {
                             const auto table =
                                Lum::cast< Routing::Topology::TopoDb >( member.tables.alwaysIs(
                                   topologyPath, "Routing::Topology::TopoDb" ) );
                             State::merge( *table, topology );
                             for ( const auto & key : Lum::sortedKeys( table->neighborColl() ) ) {
                                auto link = table->neighbor( key );
                                link.metricIs( isLast ? link.metric() : 1 + random() % 50 );
                                table->neighborIs( key, link );
                             }
                          } );
   } );
   for ( const std::string name : { "rsvp", "c2", "c3" } ) {
      starts.push_back( [ this, name ] {
         return startWriter(
            server, { "te/cspf/config/vrf/default/ipv4/" + name, "te/cspf/client/" + name },
            directory, [ name ]( Member & member, std::mt19937 & random, bool isLast ) {
               writeRequests( member, name, random, isLast );
            } );
      } );
   }
   std::vector< pid_t > writers;
   for ( const auto & start : starts ) {
      writers.push_back( start() );
   }
   std::mt19937 random( 5 );
   for ( int death = 0; death < 50; ++death ) {
      usleep( static_cast< useconds_t >( random() % 100'000 ) );
      if ( const std::size_t victim = random() % ( writers.size() + 1 );
           victim == writers.size() ) {
         agent->end( SIGKILL );
         agent = run();
      } else {
         kill( writers[ victim ], SIGKILL );
         waitpid( writers[ victim ], nullptr, 0 );
         writers[ victim ] = starts[ victim ]();
      }
      if ( death == 20 || death == 35 ) {
         server.kill();
         if ( death == 35 ) {
            server.forget();
         }
         server.start();
      }
   }
   loadSquare( *agent );  // what nobody owns is the operator's to write again
   std::ofstream( directory / "last" ) << "\n";
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   Member reader( loop, &server );
   const auto valueAt = [ & ]( const std::string & path ) {
      const auto table = reader.tables.table( path );
      return table ? State::toJson( *table ) : Json::object();
   };
   const auto seenByAgent = [ & ]( const std::string & path ) -> Json {
      try {
         return Client( agent->socket() ).call( "get", { { "path", path } } )[ "value" ];
      } catch ( const std::runtime_error & ) {
         return {};
      }
   };
   for ( const std::string name : { "rsvp", "c2", "c3" } ) {
      const std::string config = "te/cspf/config/vrf/default/ipv4/" + name,
                        status = "te/cspf/status/vrf/default/ipv4/" + name;
      const auto isAnswered = [ & ] {
         loop.runOnce( 0.01 );
         const Json answers = valueAt( status );
         std::size_t right = 0;
         for ( const Json & path : answers.value( "pathStatus", Json::object() ) ) {
            right += path[ "refreshRespSeq" ] == 77 && !path[ "path" ].empty()
                     && path[ "path" ].back() == "10.64.0.5";
         }
         return right == 10 && answers[ "pathStatus" ].size() == 10
                && seenByAgent( status ) == answers && seenByAgent( config ) == valueAt( config );
      };
      EXPECT_TRUE( comesTrue( isAnswered ) ) << name << ": " << valueAt( status ).dump();
      EXPECT_EQ( valueAt( config )[ "pathConfig" ].size(), 10u );
   }
   EXPECT_EQ( valueAt( topologyPath ), topology );
   EXPECT_EQ( seenByAgent( topologyPath ), topology );
   EXPECT_THAT( reader.log, testing::IsEmpty() );
   for ( const pid_t writer : writers ) {
      kill( writer, SIGKILL );
      waitpid( writer, nullptr, 0 );
   }
}
