// The service on a database, from outside: agents that are killed, wait for each other and come
// back; people and programs that read and write the database by hand; and servers that cannot
// serve.

#include "tests/SharedStateFixture.h"

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>

using Service::Client;
using Service::Json;
using testing::AllOf;
using testing::HasSubstr;

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
      return comesTrue( [ & ] { return log().find( place ) != std::string::npos; } );
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
        "/pathKey: expected the key that the entry stands under" },
      { { configKey, "pathConfig[x]", "{}" }, "pathConfig[x]: expected as key" },
      { { configKey, "pathConfig", "{}" }, "pathConfig: expected NAME[KEY]" },
      { { configKey, "noSuch[1]", "{}" }, "noSuch[1]: expected a field of Cspf::Config" },
      { { "e:routing/topoDbExport/x", "@type", "Routing::Topology::ExportPath", "initialized",
          "true" },
        "e:routing/topoDbExport/x: /af: expected" },
   };
   for ( const auto & [ write, line ] : cases ) {
      EXPECT_THAT( set( write ), testing::Not( HasSubstr( "ERR" ) ) ) << line;
      EXPECT_TRUE( refused( line ) ) << line << "\n" << log();
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
