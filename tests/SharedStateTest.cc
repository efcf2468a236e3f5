// The service on a database, from outside: agents that are killed, wait for each other and come
// back; people and programs that read and write the database by hand; and servers that cannot
// serve.

#include "tests/SharedStateFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <random>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using Service::Client;
using Service::Json;
using testing::AllOf;
using testing::HasSubstr;

namespace {

/// Answers everything that comes with one text, as a server of another kind may.
class FakeServer {
 public:
   FakeServer( const std::string & path, const std::string & text )
      : path_( path ),
        answer_( "$" + std::to_string( text.size() ) + "\r\n" + text + "\r\n" ) {
      sockaddr_un address{ AF_UNIX, {} };
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      bind( listener_, reinterpret_cast< const sockaddr * >( &address ), sizeof address );
      listen( listener_, 1 );
      thread_ = std::thread( [ this ] {
         for ( int caller; ( caller = accept( listener_, nullptr, nullptr ) ) >= 0; ) {
            for ( char bytes[ 4096 ]; read( caller, bytes, sizeof bytes ) > 0; ) {
               send( caller, answer_.data(), answer_.size(), MSG_NOSIGNAL );
            }
            close( caller );
         }
      } );
   }
   ~FakeServer() {
      shutdown( listener_, SHUT_RDWR );
      thread_.join();
      close( listener_ );
      unlink( path_.c_str() );
   }
   FakeServer( const FakeServer & ) = delete;
   FakeServer & operator=( const FakeServer & ) = delete;
   std::string url() const { return "unix:" + path_; }

 private:
   const std::string path_, answer_;
   const int listener_ = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   std::thread thread_;
};

}

TEST_F( SharedStateTest, peopleAndProgramsReadAndWriteTheDatabaseByHand ) {
   const auto runner = run();
   loadSquare( *runner );
   server.cli( { "FCALL", "state_set", "1", configKey, "@type", "Cspf::Config",
                 "pathConfig[10.0.0.3#1]", R"({"constraint":{}})" } );
   ASSERT_TRUE( isPublished( "10.64.0.5" ) );
   EXPECT_THAT( ctl( { "paths" } ).out, HasSubstr( "B, D" ) );
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
   EXPECT_THAT( ctl( { "paths" } ).out, HasSubstr( "B, D" ) );
   EXPECT_EQ( ctl( { "patch", "te/config", R"({"enabled":false})" } ).exitStatus, 0 );
   EXPECT_EQ( server.cli( { "HGET", "e:te/config", "enabled" } ), "false\n" );
}

TEST_F( SharedStateTest, whatCannotBeIsRefusedWithItsPlaceAndTheRestGoesOn ) {
   const auto runner = run( { "--record", directory / "record" } );
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
      { { "e:te/cspf/client/pl\xffnner", "@type", "Cspf::Client" }, "expected a path in UTF-8" },
      { { "t:te/cspf/config/vrf/default/ipv4/pl\xffnner", "@type", "Cspf::Config" },
        "ipv4/pl\\xffnner: /@type: expected a path in UTF-8" },
      { { "e:te/cspf/client/rsvp", "vrf[]", "true" },
        "vrf[]: expected as key, a name of 1 to 100" },
      { { "e:te/config", "intfSrlg[\xed\xa0\x80]", "[7]" }, "expected a name in UTF-8" },
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

TEST_F( SharedStateTest, anAnnouncementLosesItsFamilyWithItsReadinessOrNotAtAll ) {
   const auto runner = run();
   loadSquare( *runner );
   const std::string path = "routing/topoDbExport/x", key = "e:" + path;
   const auto set = [ & ]( std::vector< std::string > fields ) {
      fields.insert( fields.begin(), { "FCALL", "state_set", "1", key } );
      server.cli( fields );
   };
   const auto has = [ & ]( bool initialized, const std::string & af ) {
      return comesTrue( [ & ] {
         const Json all =
            Client( runner->socket() ).call( "get", { { "path", "routing/topoDbExport" } } );
         const Json entries = all[ "value" ][ "entity" ];
         return entries.contains( "x" ) && entries[ "x" ][ "value" ][ "initialized" ] == initialized
                && entries[ "x" ][ "value" ][ "af" ] == af;
      } );
   };
   const auto refused = [ & ]( int times ) {
      return comesTrue( [ & ] {
         const std::string said = log();
         int found = 0;
         for ( auto at = said.find( "/af: expected" ); at != said.npos;
               at = said.find( "/af: expected", at + 1 ) ) {
            ++found;
         }
         return found >= times;
      } );
   };
   set( { "@type", "Routing::Topology::ExportPath", "igpSource", "\"ospf\"", "vrfName",
          "\"default\"", "af", "\"ipv4\"", "initialized", "true" } );
   EXPECT_TRUE( has( true, "ipv4" ) );
   server.cli( { "FCALL", "state_del", "1", key, "af" } );
   EXPECT_TRUE( refused( 1 ) );
   server.kill();
   server.start();
   EXPECT_TRUE( refused( 2 ) ) << "when all is read again";
   EXPECT_TRUE( has( true, "ipv4" ) );
   set( { "af", "\"\"", "initialized", "false" } );
   EXPECT_TRUE( has( false, "" ) );
   set( { "initialized", "true", "af", "\"ipv4\"" } );
   EXPECT_TRUE( has( true, "ipv4" ) );
   Client( runner->socket() )
      .call( "patch",
             { { "path", path }, { "patch", { { "initialized", false }, { "af", "" } } } } );
   EXPECT_TRUE( has( false, "" ) );
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
   const auto onStandby = [ & ]( const std::string & command ) {
      return runProgram( "cspfctl", { command, "--socket", standby.socket() } ).out;
   };
   EXPECT_TRUE( comesTrue( [ & ] {
      return onStandby( "status" )
                .find( "none yet, waits for the end of CspfAgent (process "
                       + std::to_string( first->pid() ) )
             != std::string::npos;
   } ) );
   EXPECT_THAT( onStandby( "paths" ), HasSubstr( "B, D" ) );
   EXPECT_THAT( onStandby( "save" ), HasSubstr( "10.64.0.5" ) );
   first->end( SIGKILL );
   EXPECT_TRUE( comesTrue( [ & ] {
      return !Client( standby.socket() ).call( "status", Json::object() )[ "agent" ].is_null();
   } ) );
   server.cli( { "FCALL", "state_set", "1", configKey, "pathConfig[10.0.0.3#2]", "{}" } );
   EXPECT_TRUE( isPublished( "10.64.0.5", "10.0.0.3#2" ) );
   EXPECT_EQ( published(), before );
}

TEST_F( SharedStateTest, whoWaitsOutlastsADatabaseThatIsAwayAndEndsWithOneThatIsNone ) {
   const auto wait = [ & ]( const std::string & log ) {
      const pid_t pid =
         startProgram( "cspfctl", { "--state", server.url(), "wait", "--for", "rsvp/10.0.0.3=up" },
                       directory / log );
      // There is no answer yet: it listens once it has read what there is.
      EXPECT_TRUE( comesTrue( [ & ] {
         return server.cli( { "CLIENT", "LIST" } ).find( "cmd=xread" ) != std::string::npos;
      } ) );
      return pid;
   };
   const auto statusOf = []( pid_t pid ) {
      int status = 0;
      waitpid( pid, &status, 0 );
      return WEXITSTATUS( status );
   };
   const auto said = [ & ]( const std::string & log, const std::string & text ) {
      return comesTrue( [ & ] {
         std::ifstream in( directory / log );
         return std::string( std::istreambuf_iterator< char >( in ), {} ).find( text )
                != std::string::npos;
      } );
   };
   const pid_t patient = wait( "patient" );
   server.kill();
   EXPECT_TRUE( said( "patient", "; going on with what is known\n" ) );
   server.start();
   EXPECT_TRUE( said( "patient", ": back\n" ) );
   auto runner = run();
   loadSquare( *runner );
   server.cli( { "FCALL", "state_set", "1", configKey, "@type", "Cspf::Config",
                 "pathConfig[10.0.0.3#1]", "{}" } );
   EXPECT_EQ( statusOf( patient ), 0 );
   EXPECT_EQ( ctl( { "wait", "--for", "rsvp/10.0.0.3=up", "--timeout", "0" } ).exitStatus, 0 );
   runner->end( SIGTERM );
   server.stopAndContinue( true );
   const ProgramResult silent = ctl( { "wait", "--for", "rsvp/10.0.0.3", "--timeout", "0.2" } );
   EXPECT_EQ( silent.exitStatus, 4 );
   EXPECT_THAT( silent.err, HasSubstr( "timed out: " + server.url() + ": not read in time" ) );
   server.stopAndContinue( false );
   const pid_t refused = wait( "refused" );
   server.kill();
   const FakeServer other( server.socket(), "# Server\r\nlooks:other\r\n" );
   EXPECT_EQ( statusOf( refused ), 1 );
   EXPECT_TRUE( said( "refused", "does not say which version" ) );
}

TEST_F( SharedStateTest, whatWasHeldBeforeAKillIsHeldAfterIt ) {
   const std::string ofTilfa = "te/cspf/status/vrf/default/ipv4/tilfa";
   const auto at = [ & ]( const RunnerProcess & runner, const std::string & path ) {
      return Client( runner.socket() ).call( "get", { { "path", path } } )[ "value" ];
   };
   const auto patch = [ & ]( const RunnerProcess & runner, const std::string & client,
                             const Json & paths ) {
      Client( runner.socket() )
         .call( "patch", { { "path", "te/cspf/config/vrf/default/ipv4/" + client },
                           { "patch", { { "pathConfig", paths } } } } );
   };
   auto runner = run();
   Json topology =
      labTopology( "A -10{bw 100}- B -10{bw 100}- D; A -20{bw 100}- C -20{bw 100}- D" );
   load( *runner, topology, { "rsvp", "tilfa" } );
   patch( *runner, "rsvp", { { "10.0.0.3#1", { { "constraint", { { "bandwidth", 60 } } } } } } );
   const Json repair = { { "constraint",
                           { { "excludeIntf", "A-B.a" },
                             { "neighborLink", "10.64.0.2" },
                             { "pathComputationType", "tilfa" },
                             { "sourceType", "plr" } } } };
   patch( *runner, "tilfa", { { "0000.0000.0002#1", repair }, { "0000.0000.0003#1", repair } } );
   Json repairs;
   ASSERT_TRUE( isPublished( "10.64.0.5" ) );
   ASSERT_TRUE( comesTrue( [ & ] {
      repairs = at( *runner, ofTilfa );
      return repairs[ "pathStatus" ].size() == 2 && repairs[ "pqInfo" ].size() == 2;
   } ) )
      << repairs;
   // A newcomer would give the repair that stays the identifier of the one that goes, and would
   // find too little bandwidth left where the path is.
   for ( const auto & [ key, status ] : repairs[ "pathStatus" ].items() ) {
      if ( status[ "repairPathIdx" ] == 1 ) {
         patch( *runner, "tilfa", { { key, nullptr } } );
      }
   }
   for ( const char * link : { "A-B", "B-D" } ) {
      topology[ "links" ][ link ][ "unreserved" ] = 40;
   }
   load( *runner, topology, { "rsvp", "tilfa" } );
   ASSERT_TRUE( comesTrue( [ & ] { return at( *runner, ofTilfa )[ "pathStatus" ].size() == 1; } ) );
   const auto content = [ & ] {
      std::string all = at( *runner, usagePath ).dump() + "\n";
      for ( const std::string & path : { std::string( statusPath ), ofTilfa } ) {
         all += server.cli( { "HGETALL", "t:" + path } );  // with the revision of the last write
      }
      return all;
   };
   const auto rests = [ & ] {
      const Json status = Client( runner->socket() ).call( "status", Json::object() );
      return !status[ "agent" ].is_null() && status[ "pendingTasks" ].empty()
             && status[ "state" ][ "pending" ] == 0;
   };
   ASSERT_TRUE( comesTrue( rests ) );
   const std::string before = content();
   EXPECT_THAT( before, AllOf( HasSubstr( "\"60\":true" ), HasSubstr( "pqInfo[2]" ) ) );
   std::mt19937 random( 5 );
   for ( int death = 0; death < 10; ++death ) {
      runner->end( SIGKILL );
      runner = run();
      usleep( random() % 30'000 );
   }
   ASSERT_TRUE( comesTrue( rests ) );
   EXPECT_EQ( content(), before );
}

TEST_F( SharedStateTest, whatTheAgentWritesStandsThereInTheEndWhateverElseStood ) {
   const std::string statusKey = std::string( "t:" ) + statusPath,
                     constraintKey = "t:te/cspf/constraintStatus/vrf/default/ipv4";
   const auto spoil = [ & ] {
      server.cli( { "HSET", statusKey, "pathStatus[10.9.9.9#7]", R"({"junk":1})", "noSuch[1]", "{}",
                    "noSuch\xff", "{}" } );
   };
   const auto stands = [ & ] {
      const std::string fields = server.cli( { "HKEYS", statusKey } );
      return fields.find( "10.0.0.3#1" ) != fields.npos && fields.find( "10.9.9.9" ) == fields.npos
             && fields.find( "noSuch" ) == fields.npos;
   };
   const auto request = [ & ]( const char * field, const char * text ) {
      server.cli( { "FCALL", "state_set", "1", configKey, "@type", "Cspf::Config", field, text } );
   };
   auto runner = run();
   loadSquare( *runner );
   request( "pathConfig[10.0.0.3#1]", "{}" );
   ASSERT_TRUE( isPublished( "10.64.0.5" ) );
   runner->end( SIGKILL );
   spoil();
   server.cli( { "DEL", constraintKey } );
   server.cli( { "SET", constraintKey, "junk" } );
   runner = run();
   EXPECT_TRUE( comesTrue( stands ) ) << server.cli( { "HKEYS", statusKey } );
   EXPECT_TRUE( comesTrue( [ & ] {
      return log().find( constraintKey + ": not written: a string stands there" )
             != std::string::npos;
   } ) );
   request( "pathConfig[10.0.0.3#2]", "{}" );
   EXPECT_TRUE( isPublished( "10.64.0.5", "10.0.0.3#2" ) );
   spoil();
   server.cli( { "DEL", constraintKey } );
   server.cli( { "SET", "epoch", "other" } );  // all is read again
   EXPECT_TRUE( comesTrue( stands ) ) << server.cli( { "HKEYS", statusKey } );
   EXPECT_TRUE( comesTrue( [ & ] { return server.cli( { "HLEN", constraintKey } ) != "0\n"; } ) );
}

TEST_F( SharedStateTest, anAgentThatEndsLeavesRequestsAndNothingElse ) {
   const auto runner = run();
   load( *runner, labTopology( "A -10- B -10- D; A -20- C -20- D" ), { "rsvp", "planner" } );
   const std::string plannersKey = "t:te/cspf/config/vrf/default/ipv4/planner";
   server.cli( { "FCALL", "state_set", "1", plannersKey, "@type", "Cspf::Config",
                 "pathConfig[10.0.0.2#1]", "{}" } );
   Json many;
   for ( int id = 1; id <= 1000; ++id ) {  // more than leave at once
      many[ "10.0.0.3#" + std::to_string( id ) ] = Json::object();
   }
   Client( runner->socket() )
      .call( "patch", { { "path", std::string( configKey ).substr( 2 ) },
                        { "patch", { { "pathConfig", many } } } } );
   ASSERT_TRUE( isPublished( "10.64.0.5", "10.0.0.3#1000" ) );
   runner->end( SIGTERM );
   EXPECT_EQ( server.cli( { "HLEN", configKey } ), "1002\n" );  // with type and revision
   EXPECT_EQ( server.cli( { "HLEN", plannersKey } ), "3\n" );
   EXPECT_EQ( std::ranges::count( server.cli( { "KEYS", "t:te/cspf/*" } ), '\n' ), 2 );
}

TEST_F( SharedStateTest, aLabIsThereWhenTheAgentStartsOrThePlaceOfItsErrorIsSaid ) {
   const std::string file = directory / "lab.json";
   Json lab{ { "router", "A" },
             { "topologies", { { "net", labTopology( "A -10- B -10- D; A -20- C -20- D" ) } } },
             { "clients", { { "rsvp", { { "vrf", { { "default", true } } } } } } },
             { "paths", { { "rsvp", { { "p", { { "dst", "X" }, { "id", 1 } } } } } } } };
   std::ofstream( file ) << lab;
   const ProgramResult wrong = runProgram(
      "agentrunner", { "--state", server.url(), "--socket", directory / "other", "--lab", file } );
   EXPECT_EQ( wrong.exitStatus, 1 );
   EXPECT_THAT( wrong.err, HasSubstr( file + ": /paths/rsvp/p/dst" ) );
   lab[ "paths" ][ "rsvp" ][ "p" ][ "dst" ] = "10.0.0.3";
   lab[ "clients" ][ "rsvp" ][ "addressFamily" ][ "ipv4" ] = true;
   std::ofstream( file ) << lab;
   const auto runner = run( { "--lab", file } );
   EXPECT_TRUE( isPublished( "10.64.0.5" ) );
   runner->end( SIGTERM );
   // Who is told to stop while a lab is being written starts no agent any more.
   for ( int id = 2; id <= 20'000; ++id ) {
      lab[ "paths" ][ "rsvp" ][ std::to_string( id ) ] = { { "dst", "10.0.0.3" }, { "id", id } };
   }
   std::ofstream( file ) << lab;
   server.cli( { "FLUSHALL" } );
   EXPECT_EQ( run( { "--lab", file } )->end( SIGTERM ), 0 );
   EXPECT_EQ( server.cli( { "EXISTS", std::string( "t:" ) + statusPath } ), "0\n" );
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
   const RedisServer full( { "--maxmemory", "1" } );  // a byte
   const RunnerProcess patient( directory, { "--state", full.url() } );
   EXPECT_TRUE( comesTrue( [ & ] { return log().find( "OOM command" ) != std::string::npos; } ) );
   full.cli( { "CONFIG", "SET", "maxmemory", "0" } );
   EXPECT_TRUE( comesTrue( [ & ] {
      return !Client( patient.socket() ).call( "status", Json::object() )[ "agent" ].is_null();
   } ) );
   // One line each, of whatever answers there.
   const struct {
      const char *info, *line;
   } others[] = {
      { "# Server\r\nredis_version:6.0.16\r\nrun_id:1\r\n",
        "is Redis 6.0.16; 7.0 or later is needed" },
      { "# Server\r\nlooks:other\r\n", "does not say which version of Redis it is" },
   };
   for ( const auto & [ info, line ] : others ) {
      const FakeServer other( directory / "fake", info );
      const ProgramResult result =
         runProgram( "agentrunner", { "--state", other.url(), "--socket", directory / "other" } );
      EXPECT_EQ( result.exitStatus, 1 );
      EXPECT_THAT( result.err, HasSubstr( line ) );
      EXPECT_EQ( std::ranges::count( result.err, '\n' ), 2 )
         << result.err;  // "serving", and why not
      EXPECT_THAT( runProgram( "cspfctl", { "--socket", directory / "fake", "status" } ).err,
                   HasSubstr( "no agent" ) );
   }
   for ( const char * url : { "unix:", "redis://", "rediss://host/0", "redis://a:b@host/0",
                              "redis://127.0.0.1:x/0", "file" } ) {
      EXPECT_EQ( runProgram( "agentrunner", { "--state", url } ).exitStatus, 1 ) << url;
   }
}
