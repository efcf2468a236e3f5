// The service from outside: a process that is started, talked to over its socket as an IGP, a
// client and an operator would, killed, and started again.

#include "tests/LabText.h"
#include "tests/RunnerProcess.h"
#include "tools/service/UnixSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using Service::Client;
using Service::Json;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char * statusPath = "te/cspf/status/vrf/default/ipv4/rsvp";

/// A square with a short and a long way from A to D, and a client that asks for the way.
Json
squareLab( bool shortWay ) {
   Json topology = labTopology( "A -10- B -10- D; A -20- C -20- D" );
   topology[ "links" ][ "B-D" ][ "up" ] = shortWay;
   return {
      { "router", "A" },
      { "topologies", { { "net", topology } } },
      { "clients",
        { { "rsvp",
            { { "vrf", { { "default", true } } }, { "addressFamily", { { "ipv4", true } } } } } } },
      { "paths", { { "rsvp", { { "t1", { { "dst", "10.0.0.3" } } } } } } } };
}

/// Hops of the only published path; none while there is no path.
Json
publishedHops( Client & client ) {
   try {
      const Json status = client.call( "get", { { "path", statusPath } } );
      for ( const Json & path : status[ "value" ][ "pathStatus" ] ) {
         return path[ "path" ];
      }
   } catch ( const std::runtime_error & ) {
   }
   return Json::array();
}

/// Asks until the published path has that last hop; false once patience is over.
bool
comesToLastHop( Client & client, const std::string & address ) {
   for ( int i = 0; i < 3000; ++i ) {
      const Json hops = publishedHops( client );
      if ( hops.empty() ? address.empty() : hops.back() == address ) {
         return true;
      }
      usleep( 10'000 );
   }
   return false;
}

std::string
errorOf( Client & client, const std::string & method, const Json & params ) {
   try {
      client.call( method, params );
   } catch ( const std::runtime_error & error ) {
      return error.what();
   }
   return "";
}

std::string
contentOf( const std::string & file ) {
   std::ifstream in( file );
   return { std::istreambuf_iterator< char >( in ), {} };
}

struct ServiceTest : testing::Test {
   TemporaryDirectory directory;
};

}

TEST_F( ServiceTest, aNetworkComesAPathIsPublishedALinkIsCutTheProcessDiesAndComesBack ) {
   auto runner = std::make_unique< RunnerProcess >( directory );
   for ( int life = 0; life < 3; ++life ) {
      Client client( runner->socket() );
      client.call( "load", { { "lab", squareLab( true ) } } );
      ASSERT_TRUE( comesToLastHop( client, "10.64.0.5" ) ) << life;
      client.call( "load", { { "lab", squareLab( false ) } } );
      ASSERT_TRUE( comesToLastHop( client, "10.64.0.9" ) ) << life;
      client.call( "patch", { { "path", "te/config" }, { "patch", { { "enabled", false } } } } );
      ASSERT_TRUE( comesToLastHop( client, "" ) ) << life;
      const int status = runner->end( life == 1 ? SIGKILL : SIGTERM );
      EXPECT_TRUE( life == 1 ? WIFSIGNALED( status )
                             : WIFEXITED( status ) && WEXITSTATUS( status ) == 0 );
      // A killed one leaves its socket behind, which the next one takes over.
      EXPECT_EQ( std::filesystem::exists( directory / "control.sock" ), life == 1 );
      runner = std::make_unique< RunnerProcess >( directory );
   }
}

TEST_F( ServiceTest, provesAndExplainsWhatIsPublished ) {
   const RunnerProcess runner( directory, { "--prove" } );
   Client client( runner.socket() );
   client.call( "load", { { "lab", squareLab( true ) } } );
   ASSERT_TRUE( comesToLastHop( client, "10.64.0.5" ) );
   const auto said = [ & ] { return contentOf( directory / "log" ); };
   for ( int i = 0; i < 3000 && said().find( "1 paths: all holds" ) == std::string::npos; ++i ) {
      usleep( 10'000 );
   }
   EXPECT_THAT( said(), HasSubstr( "agentrunner: 1 paths: all holds\n" ) );
   const ProgramResult proof =
      runProgram( "cspfctl", { "prove", "--json", "--socket", runner.socket() } );
   EXPECT_EQ( proof.exitStatus, 0 ) << proof.err;
   EXPECT_EQ( Json::parse( proof.out )[ "paths" ], 1 ) << proof.out;
   const ProgramResult why = runProgram( "cspfctl", { "explain", "rsvp/10.0.0.3", "--why-not",
                                                      "10.0.0.4", "--socket", runner.socket() } );
   EXPECT_EQ( why.exitStatus, 0 ) << why.err;
   EXPECT_THAT( why.out, HasSubstr( "metric 20: the least\n" ) );
   EXPECT_THAT( why.out, HasSubstr( "metric 40, 20 more than the best\n" ) );
   client.call( "patch",
                { { "path", "te/cspf/config/vrf/default/ipv4/rsvp" },
                  { "patch", { { "pathConfig", { { "10.0.0.1#1", Json::object() } } } } } } );
   client.call( "wait", Json::object() );
   EXPECT_THAT(
      runProgram( "cspfctl", { "explain", "rsvp/10.0.0.1", "--socket", runner.socket() } ).out,
      HasSubstr( "\nthe destination is this router\n" ) );
}

TEST_F( ServiceTest, waitsSavesAsksWhatWouldBeAndRecords ) {
   const std::string record = directory / "record", saved = directory / "saved.json";
   RunnerProcess runner( directory, { "--record", record } );
   Client client( runner.socket() );
   const auto ctl = [ & ]( std::vector< std::string > arguments ) {
      arguments.insert( arguments.end(), { "--socket", runner.socket() } );
      return runProgram( "cspfctl", arguments );
   };
   const ProgramResult none = ctl( { "wait", "--for", "rsvp/10.0.0.3", "--timeout", "0.1" } );
   EXPECT_EQ( none.exitStatus, 4 );
   EXPECT_EQ( none.err, "cspfctl: timed out: nobody asks for rsvp/10.0.0.3#1\n" );
   client.call( "load", { { "lab", squareLab( true ) } } );
   EXPECT_EQ( ctl( { "wait", "--for", "rsvp/10.0.0.3=up", "--timeout", "60" } ).exitStatus, 0 );
   EXPECT_EQ( publishedHops( client ).back(), "10.64.0.5" );
   client.call( "load", { { "lab", squareLab( false ) } } );
   EXPECT_THAT( ctl( { "status" } ).out, HasSubstr( "throttle " ) );
   EXPECT_EQ( ctl( { "wait", "--timeout", "20" } ).exitStatus, 0 );
   EXPECT_EQ( publishedHops( client ).back(), "10.64.0.9" );

   const Json before = client.call( "get", { { "path", "" } } );
   const ProgramResult each = ctl( { "whatif", "--each", "router", "--json" } );
   EXPECT_EQ( each.exitStatus, 0 ) << each.err;
   EXPECT_THAT( each.out, HasSubstr( "\"lost\":1" ) );
   const ProgramResult off = ctl( { "whatif", R"({"te": {"enabled": false}})", "--json" } );
   EXPECT_THAT( off.out, HasSubstr( "\"lost\":1" ) ) << off.err;
   EXPECT_EQ( client.call( "get", { { "path", "" } } ), before );

   std::ofstream( saved ) << ctl( { "save" } ).out;
   const TemporaryDirectory other;
   const RunnerProcess again( other, { "--lab", saved } );
   EXPECT_EQ( runProgram( "cspfctl", { "wait", "--socket", again.socket() } ).exitStatus, 0 );
   EXPECT_EQ( Client( again.socket() ).call( "get", { { "path", statusPath } } ),
              client.call( "get", { { "path", statusPath } } ) );

   EXPECT_EQ(
      runProgram( "cspfctl", { "wait", "--socket", "nobody", "--timeout", "0" } ).exitStatus, 4 );
   kill( runner.pid(), SIGSTOP );
   for ( const char * command : { "wait", "prove" } ) {
      const ProgramResult silent = ctl( { command, "--timeout", "0" } );
      EXPECT_EQ( silent.exitStatus, 4 ) << command;
      EXPECT_EQ( silent.err, "cspfctl: timed out: the agent does not answer\n" );
   }
   runner.end( SIGKILL );
   std::ofstream( record, std::ios::app ) << R"({"at": 1)";
   const ProgramResult played = runProgram( "cspfctl", { "replay", "--print", record } );
   EXPECT_EQ( played.exitStatus, 0 ) << played.err;
   EXPECT_THAT( played.err, HasSubstr( "the record is cut off" ) );
   EXPECT_THAT( played.out, HasSubstr( "10.64.0.9" ) );
}

TEST_F( ServiceTest, theSocketIsItsOwnersAndServedByOne ) {
   const RunnerProcess runner( directory );
   struct stat info;
   ASSERT_EQ( stat( runner.socket().c_str(), &info ), 0 );
   EXPECT_EQ( info.st_mode & 0777, 0600u );
   EXPECT_EQ( info.st_uid, getuid() );
   std::ofstream( directory / "letter" ) << "not to be lost";
   for ( const std::string & taken : { runner.socket(), directory / "letter" } ) {
      const ProgramResult second = runProgram( "agentrunner", { "--socket", taken } );
      EXPECT_EQ( second.exitStatus, 1 );
      EXPECT_THAT( second.err, HasSubstr( taken ) );
   }
   EXPECT_TRUE( std::filesystem::is_regular_file( directory / "letter" ) );
   Client( runner.socket() ).call( "status", Json::object() );
   const std::string tooLong = directory / std::string( 100, 'x' );
   EXPECT_EQ( runProgram( "agentrunner", { "--socket", tooLong } ).exitStatus, 1 );
   EXPECT_FALSE( std::filesystem::exists( tooLong + ".lock" ) );
}

TEST_F( ServiceTest, takesNoPlaceOfWhatIsNoFileAndSaysWhatItCannotWrite ) {
   std::ofstream( directory / "record" ) << "earlier";
   for ( const char * link : { "metrics", "other.tmp", "record.1", "dangling" } ) {
      std::filesystem::create_symlink( "/nowhere", directory / link );
   }
   std::filesystem::create_symlink( "record", directory / "linked" );
   const std::vector< std::string > cases[] = { { "--metrics", "metrics", "metrics" },
                                                { "--metrics", "other", "other.tmp" },
                                                { "--record", "record", "record.1" },
                                                { "--record", "dangling", "dangling" },
                                                { "--record", "linked", "linked" } };
   for ( const auto & words : cases ) {
      const ProgramResult refused =
         runProgram( "agentrunner",
                     { "--socket", directory / "other.sock", words[ 0 ], directory / words[ 1 ] } );
      EXPECT_EQ( refused.exitStatus, 1 );
      EXPECT_THAT( refused.err, HasSubstr( directory / words[ 2 ] + ": something stands here" ) );
      EXPECT_TRUE( std::filesystem::is_symlink( directory / words[ 2 ] ) );
   }
   EXPECT_EQ( contentOf( directory / "record" ), "earlier" );
   const RunnerProcess runner( directory, { "--name", "no/such" } );
   EXPECT_THAT( contentOf( directory / "log" ), HasSubstr( "agentrunner: no trace ring: " ) );
}

TEST_F( ServiceTest, everyWatcherHearsEachChangeOnceAndInOrder ) {
   const RunnerProcess runner( directory );
   Client writer( runner.socket() ), early( runner.socket() ), late( runner.socket() );
   const auto patch = [ & ]( const Json & patch ) {
      writer.call( "patch", { { "path", "te/cspf/cliConfig" }, { "patch", patch } } );
   };
   const Json watch{ { "paths", { "te/cspf/cliConfig" } } };
   const auto stateOf = []( Client & client, const Json & watch ) {
      return client.call( "watch", watch )[ "te/cspf/cliConfig" ][ "value" ];
   };
   patch( { { "holdInt", 1 } } );
   EXPECT_EQ( stateOf( early, watch )[ "holdInt" ], 1 );
   for ( int i = 2; i <= 500; ++i ) {
      patch( { { "holdInt", i } } );
      patch( { { "holdInt", i } } );  // no change
      if ( i == 100 ) {
         EXPECT_EQ( stateOf( late, watch )[ "holdInt" ], 100 );
      }
   }
   const auto expectFrom = []( Client & client, int first ) {
      for ( int next = first; next <= 500; ++next ) {
         const Json change = client.receive()[ "params" ];
         ASSERT_EQ( change[ "attribute" ], "holdInt" );
         ASSERT_EQ( change[ "value" ], next );
      }
   };
   expectFrom( early, 2 );
   expectFrom( late, 101 );
}

TEST_F( ServiceTest, aBadFrameGetsAnErrorAndNothingElse ) {
   const RunnerProcess runner( directory );
   Client raw( runner.socket() ), client( runner.socket() );
   const Json before = client.call( "get", { { "path", "" } } );
   const std::string deep( 1'000'000, '[' ), shallow( 1'000'000, ']' );
   for ( const auto & [ text, code ] : std::vector< std::pair< std::string, int > >{
            { "noise", -32700 },
            { "[]", -32600 },
            { R"({"jsonrpc": "2.0", "id": [1], "method": "status"})", -32600 },
            { R"({"jsonrpc": "2.0", "id": 1, "method": "fly"})", -32601 },
            { R"({"jsonrpc": "2.0", "id": 1, "method": "load", "params": []})", -32602 },
            { R"({"jsonrpc": "2.0", "id": 1, "method": "get", "params": {"path": 7}})", -32602 },
            { R"({"jsonrpc": "2.0", "id": 1, "method": "get", "params": )" + deep + shallow + "}",
              -32700 },
            { std::string( 9 << 20, 'x' ), -32600 } } ) {
      raw.send( text + "\n" );
      EXPECT_EQ( raw.receive()[ "error" ][ "code" ], code ) << text.substr( 0, 80 );
   }
   for ( const auto & [ path, patch, error ] : std::vector< std::array< std::string, 3 > >{
            { "te/config", R"({"enabled": 3})", "/enabled" },
            { "te/config", R"({"enabled": true, "colour": 1})", "/colour" },
            { "//te/cspf/agentStatus/", R"({"agentEnabled": true})", "by the agent alone" },
            { statusPath, R"({"pathStatus": null})", "by the agent alone" },
            { "te", R"({"entity": {"config": null}})", "stay" },
            { "", R"({"entity": {"x": {"type": "Lum::Dir"}}})", "stay" },
            { "routing/topoDbExport", R"({"entity": {"x": {"type": "Lum::Dir"}}})", "ExportPath" },
            { "routing/topoDbExport",
              R"({"entity": {"x": {"type": "Routing::Topology::ExportPath",
                                   "value": {"initialized": true}}}})",
              "af" },
            { "te/cspf/client", R"({"entity": {"a/b": {"type": "Cspf::Client"}}})", "name" },
            { "te/cspf/config/vrf/default/ipv5/rsvp", "{}", "nothing at" } } ) {
      EXPECT_THAT(
         errorOf( client, "patch", { { "path", path }, { "patch", Json::parse( patch ) } } ),
         HasSubstr( error ) )
         << path << patch;
   }
   EXPECT_NE( errorOf( client, "get", { { "path", "no/such/path" } } ), "" );
   EXPECT_NE( errorOf( client, "watch", { { "paths", { "te/config", "no/such" } } } ), "" );
   EXPECT_NE( errorOf( client, "command", { { "name", "Fly" }, { "text", "" } } ), "" );
   Json lab = squareLab( true );
   lab[ "paths" ][ "rsvp" ][ "t1" ][ "dst" ] = 7;
   EXPECT_THAT( errorOf( client, "load", { { "lab", lab } } ), HasSubstr( "/paths/rsvp/t1/dst" ) );
   EXPECT_EQ( client.call( "get", { { "path", "" } } ), before );
   // Frames in a row, one without an answer, and several requests in one.
   raw.send( R"({"jsonrpc": "2.0", "method": "fly"})"
             "\n\n"
             R"([{"jsonrpc": "2.0", "id": "a", "method": "status"}, 7,)"
             R"( {"jsonrpc": "2.0", "id": null, "method": "fly"}])"
             "\n" );
   const Json answers = raw.receive();
   ASSERT_EQ( answers.size(), 3u );
   EXPECT_EQ( answers[ 0 ][ "id" ], "a" );
   EXPECT_EQ( answers[ 1 ][ "error" ][ "code" ], -32600 );
   EXPECT_EQ( answers[ 2 ][ "error" ][ "code" ], -32601 );
   // What is asked beyond the bound of an array's answers is not served, and told so once.
   const std::string path = "routing/isis/hostname/default";
   const Json large{ { "hostname", { { "0000.0000.0001", std::string( 2u << 20, 'x' ) } } } };
   Client( runner.socket() ).call( "patch", { { "path", path }, { "patch", large } } );
   const Json get{
      { "jsonrpc", "2.0" }, { "id", 1 }, { "method", "get" }, { "params", { { "path", path } } } };
   raw.send( Json( 100, get ).dump() + "\n" );
   const Json most = raw.receive();
   ASSERT_EQ( most.size(), 33u );
   EXPECT_TRUE( most[ 31 ].contains( "result" ) );
   EXPECT_THAT( most[ 32 ][ "error" ].value( "message", "" ), HasSubstr( "64 MiB" ) );
}

TEST_F( ServiceTest, aWatcherThatDoesNotReadIsCutOffAndToldSoWhileOthersAreAnsweredInFull ) {
   // Without an agent, which the database that is not there keeps from starting, who waits for it
   // to settle waits for ever.
   const RunnerProcess runner( directory, { "--state", "unix:" + ( directory / "none" ) } );
   Client slow( runner.socket() ), waiting( runner.socket() ), writer( runner.socket() );
   const std::string path = "routing/isis/hostname/default";
   for ( Client * const one : { &slow, &waiting } ) {
      one->call( "watch", { { "paths", { path } } } );
   }
   waiting.send( R"({"jsonrpc":"2.0","id":2,"method":"wait","params":{}})"
                 "\n" );
   // Each change is 140 kB; 40 MB of them are more than may wait, and all of them one answer.
   for ( int i = 0; i < 300; ++i ) {
      char id[ 16 ];
      std::snprintf( id, sizeof id, "0000.0000.%04d", i );
      const Json change{ { "hostname", { { id, std::string( 140'000, 'x' ) } } } };
      writer.call( "patch", { { "path", path }, { "patch", change } } );
   }
   const Json state = writer.call( "get", { { "path", path } } )[ "value" ];
   EXPECT_EQ( state[ "hostname" ].size(), 300u );
   for ( Client * const one : { &slow, &waiting } ) {
      std::string last;
      one->timeoutIs( 60 );
      EXPECT_THROW(
         one->listen( [ & ]( const std::string & method, const Json & ) { last = method; } ),
         std::runtime_error );
      EXPECT_EQ( last, "cutOff" );
   }
   EXPECT_EQ( writer.call( "status", Json::object() )[ "clients" ], 1 );
}

TEST_F( ServiceTest, aWatcherHearsOfTablesThatComeAndGo ) {
   const RunnerProcess runner( directory );
   Client client( runner.socket() ), watcher( runner.socket() );
   EXPECT_EQ( watcher.call( "watch", { { "paths", { "te/cspf/status/vrf" } } } ), Json::object() );
   for ( int round = 0; round < 2; ++round ) {
      client.call( "load", { { "lab", squareLab( true ) } } );
      Json change;
      do {
         change = watcher.receive()[ "params" ];
         ASSERT_EQ( change[ "path" ], statusPath );
      } while ( change.value( "attribute", "" ) != "pathStatus" );
      EXPECT_EQ( change[ "value" ][ "path" ].back(), "10.64.0.5" );
      client.call( "patch", { { "path", "te/cspf/client" },
                              { "patch", { { "entity", { { "rsvp", nullptr } } } } } } );
      while ( change.contains( "attribute" ) ) {
         change = watcher.receive()[ "params" ];
      }
      EXPECT_EQ( change, ( Json{ { "path", statusPath } } ) );
   }
}

TEST_F( ServiceTest, whatIsLargeIsOfOneInstantAndChangesFollowIt ) {
   const RunnerProcess runner( directory );
   Client writer( runner.socket() ), reader( runner.socket() ), watcher( runner.socket() );
   const std::string path = "te/cspf/config/vrf/default/ipv4/many";
   const auto patch = [ & ]( unsigned first, unsigned last, unsigned sequence ) {
      Json rows = Json::object();
      for ( unsigned id = first; id <= last; ++id ) {
         rows[ "10.0.0.3#" + std::to_string( id ) ][ "refreshReqSeq" ] = sequence;
      }
      writer.call( "patch", { { "path", path }, { "patch", { { "pathConfig", rows } } } } );
   };
   patch( 1, 5000, 1 );
   const std::string request = R"({"jsonrpc": "2.0", "id": 1, "method": "%", "params": {"path": ")"
                               + path + R"(", "paths": [")" + path + R"("]}})";
   const auto ask = [ & ]( Client & client, const char * method ) {
      std::string text = request;
      client.send( text.replace( text.find( '%' ), 1, method ) + "\n" );
   };
   ask( reader, "get" );
   ask( reader, "status" );
   ask( watcher, "watch" );
   patch( 1, 5000, 2 );
   patch( 5001, 5001, 2 );
   const auto sequences = []( const Json & table ) {
      std::map< unsigned, unsigned > rows;
      for ( const Json & row : table[ "value" ][ "pathConfig" ] ) {
         ++rows[ row[ "refreshReqSeq" ].get< unsigned >() ];
      }
      return rows;
   };
   const auto read = sequences( reader.receive()[ "result" ] );
   ASSERT_EQ( read.size(), 1u ) << "two instants in one answer";
   EXPECT_GE( read.begin()->second, 5000u );
   EXPECT_TRUE( reader.receive()[ "result" ].contains( "pid" ) );

   // Each change behind the state that was read comes once.
   const auto state = sequences( watcher.receive()[ "result" ][ path ] );
   ASSERT_EQ( state.size(), 1u );
   const bool before = state.begin()->first == 1;
   for ( unsigned left = before ? 5001 : 5001 - state.begin()->second; left > 0; --left ) {
      EXPECT_EQ( watcher.receive()[ "params" ][ "value" ][ "refreshReqSeq" ], 2 );
   }
}

TEST_F( ServiceTest, whatIsLargeToWriteIsReadWholeOrNotAtAll ) {
   const RunnerProcess runner( directory );
   Client writer( runner.socket() ), other( runner.socket() );
   constexpr const char * table = "te/cspf/config/vrf/default/ipv4/rsvp";
   const auto send = []( Client & client, const char * method, const Json & params ) {
      const Json call{
         { "jsonrpc", "2.0" }, { "id", 1 }, { "method", method }, { "params", params } };
      client.send( call.dump() + "\n" );
   };
   const auto patch = [ & ]( const Json & rows ) {
      send( writer, "patch", { { "path", table }, { "patch", { { "pathConfig", rows } } } } );
   };
   const auto size = [ & ] {
      return other.call( "get", { { "path", table } } )[ "value" ][ "pathConfig" ].size();
   };
   // Whoever reads meanwhile sees what was there before, or all.
   const auto becomes = [ & ]( std::size_t before, std::size_t after ) {
      std::size_t now = before;
      while ( now == before ) {
         now = size();
      }
      EXPECT_EQ( now, after );
   };
   constexpr std::size_t many = 10'000;
   Json rows = Json::object();
   for ( std::size_t i = 0; i < many; ++i ) {
      rows[ "10.0.0.3#" + std::to_string( i ) ] = Json::object();
   }
   other.call( "patch", { { "path", table }, { "patch", Json::object() } } );
   patch( rows );
   becomes( 0, many );
   writer.receive();
   Json wrong = rows;
   wrong[ "10.0.0.3#9999" ] = { { "constraint", 7 } };
   wrong[ "10.0.0.3#1" ] = nullptr;
   patch( wrong );
   EXPECT_THAT( writer.receive().dump(),
                HasSubstr( "10.0.0.3#9999/constraint: expected an object" ) );
   EXPECT_EQ( size(), many );
   patch( nullptr );
   becomes( many, 0 );
   writer.receive();

   // The lab's writer goes away; the lab is there all the same.
   Json lab = squareLab( true );
   for ( std::size_t i = 0; i < many; ++i ) {
      lab[ "paths" ][ "rsvp" ][ "p" + std::to_string( i ) ] = { { "dst", "10.0.0.3" },
                                                                { "id", i + 2 } };
   }
   {
      Client leaver( runner.socket() );
      leaver.call( "load", { { "part", lab.dump() } } );
      send( leaver, "load", Json::object() );
      while ( size() == 0 ) {
      }
   }
   EXPECT_EQ( size(), many + 1 );
}

TEST_F( ServiceTest, theManagerHearsThatItIsReadyThatItsLoopTurnsAndThatItStops ) {
   sockaddr_un address{ AF_UNIX, {} };
   ( directory / "notify" ).copy( address.sun_path, sizeof address.sun_path - 1 );
   const int manager = socket( AF_UNIX, SOCK_DGRAM, 0 );
   ASSERT_EQ( bind( manager, reinterpret_cast< sockaddr * >( &address ), sizeof address ), 0 );
   setenv( "NOTIFY_SOCKET", address.sun_path, 1 );
   setenv( "WATCHDOG_USEC", "20000", 1 );
   RunnerProcess runner( directory );
   unsetenv( "NOTIFY_SOCKET" );
   unsetenv( "WATCHDOG_USEC" );
   std::map< std::string, int > heard;
   const auto hear = [ & ] {
      char text[ 100 ];
      const ssize_t n = recv( manager, text, sizeof text, 0 );
      ++heard[ std::string( text, n > 0 ? static_cast< std::size_t >( n ) : 0 ) ];
   };
   while ( heard[ "READY=1" ] == 0 || heard[ "WATCHDOG=1" ] < 4 ) {
      hear();
   }
   EXPECT_EQ( heard[ "STOPPING=1" ], 0 );
   runner.end( SIGTERM );
   while ( heard[ "STOPPING=1" ] == 0 ) {
      hear();
   }
   close( manager );
}

TEST_F( ServiceTest, whoMonitorsReadsAndChangesNothing ) {
   const RunnerProcess runner(
      directory, { "--monitor", directory / "monitor.sock", "--metrics", directory / "metrics" } );
   Client client( runner.socket() ), monitor( directory / "monitor.sock" );
   client.call( "load", { { "lab", squareLab( true ) } } );
   ASSERT_TRUE( comesToLastHop( client, "10.64.0.5" ) );
   for ( const char * method : { "patch", "load", "traceLevel" } ) {
      EXPECT_THAT( errorOf( monitor, method, { { "path", "te/config" }, { "level", 0 } } ),
                   HasSubstr( "for reading" ) );
   }
   EXPECT_TRUE( comesToLastHop( monitor, "10.64.0.5" ) );
   const auto metrics = monitor.call( "metrics", Json::object() ).get< std::string >();
   EXPECT_THAT( metrics, HasSubstr( "\ncspf_paths{vrf=\"default\",family=\"ipv4\",client=\"rsvp\","
                                    "state=\"up\"} 1\n" ) );
   EXPECT_THAT( metrics, testing::ContainsRegex( "\ncspf_run_seconds_count [1-9]" ) );
   EXPECT_THAT( contentOf( directory / "metrics" ),
                HasSubstr( "# TYPE cspf_run_seconds histogram\n" ) );
}

TEST_F( ServiceTest, operatorsCommandsReadALiveRunner ) {
   std::ofstream( directory / "lab.json" ) << squareLab( true );
   const RunnerProcess runner(
      directory, { "--trace", directory / "trace", "--lab", directory / "lab.json" } );
   Client client( runner.socket() );
   ASSERT_TRUE( comesToLastHop( client, "10.64.0.5" ) );
   const auto cspfctl = [ & ]( std::vector< std::string > arguments ) {
      arguments.insert( arguments.end(), { "--socket", runner.socket() } );
      const ProgramResult result = runProgram( "cspfctl", arguments );
      EXPECT_EQ( result.exitStatus, 0 ) << result.err;
      return result.out;
   };
   EXPECT_THAT( cspfctl( { "status" } ), HasSubstr( "CspfAgent" ) );
   EXPECT_TRUE( Json::parse( cspfctl( { "status", "--json" } ) )[ "agentEnabled" ] );
   EXPECT_THAT( cspfctl( { "paths" } ), HasSubstr( "D (10.0.0.3) 1  20     B, D" ) );
   EXPECT_THAT( cspfctl( { "dump" } ), HasSubstr( "10.0.0.3" ) );
   const ProgramResult unheard =
      runProgram( "/bin/sh", { "-c", CSPF_BINARY_DIR "/bin/cspfctl watch te/config --socket "
                                        + runner.socket() + " > /dev/full" } );
   EXPECT_EQ( unheard.exitStatus, 1 );
   EXPECT_EQ( unheard.err, "cspfctl: standard output cannot be written\n" );
   // Why a link is refused can be seen on a live agent.
   EXPECT_THAT( contentOf( directory / "trace" ), Not( HasSubstr( "is not included" ) ) );
   cspfctl( { "trace-level", "9", "--files", "Views/*" } );
   cspfctl( { "trace-level", "9", "--files", "Runs/Run.cc" } );
   cspfctl( { "patch", "te/cspf/config/vrf/default/ipv4/rsvp",
              R"({"pathConfig": {"10.0.0.3#9": {"constraint": {"includeAllAdminGroup": 64}}}})" } );
   for ( int i = 0;
         i < 3000 && contentOf( directory / "trace" ).find( "to tent list: " ) == std::string::npos;
         ++i ) {
      usleep( 10'000 );
   }
   EXPECT_THAT( contentOf( directory / "trace" ), HasSubstr( "to tent list: " ) );

   cspfctl( { "patch", "te/cspf/client", R"({"entity": {"tilfa": {"type": "Cspf::Client", "value":
      {"vrf": {"default": true}, "addressFamily": {"ipv4": true}}}}})" } );
   cspfctl( { "patch", "te/cspf/config/vrf/default/ipv4/tilfa", R"({"pathConfig": {
      "0000.0000.0003#1": {"constraint": {"excludeIntf": "A-B.a"}},
      "0000.0000.0002#1": {"constraint": {"excludeIntf": "nowhere"}}}})" } );
   Json coverage;
   for ( int i = 0; i < 300 && coverage.dump().find( "nowhere not" ) == std::string::npos; ++i ) {
      usleep( 10'000 );
      coverage = Json::parse( cspfctl( { "repairs", "--json" } ) )[ "interfaces" ];
   }
   ASSERT_EQ( coverage.size(), 2u ) << coverage;
   EXPECT_EQ( coverage[ 0 ][ "intf" ], "A-B.a" );
   EXPECT_EQ( coverage[ 0 ][ "direct" ], 1 ) << "by C";
   EXPECT_EQ( coverage[ 1 ][ "unprotected" ][ 0 ][ "dst" ], "0000.0000.0002#1" );
   EXPECT_THAT( cspfctl( { "repairs" } ), HasSubstr( "nowhere not found in topology" ) );

   cspfctl( { "patch", "te/config", R"({"enabled": false})" } );
   const auto teConfig = [ & ] {
      return Json::parse( cspfctl( { "get", "te/config", "--json" } ) )[ "value" ];
   };
   EXPECT_FALSE( teConfig()[ "enabled" ] );
   // The first topology of the text gives the TE router id.
   std::ofstream( directory / "two.json" ) << R"({"router": "a", "topologies": {
      "z": {"routers": {"a": {"id": "0000.0000.0001", "teRouterId": "10.0.0.26"}}},
      "b": {"numbers": [1, 0], "routers": {"a": {"id": "0000.0000.0001", "teRouterId": "10.0.0.2"}}}}})";
   cspfctl( { "load", directory / "two.json" } );
   EXPECT_EQ( teConfig()[ "routerId" ], "10.0.0.26" );
   EXPECT_TRUE( teConfig()[ "enabled" ] );
   EXPECT_THAT( runProgram( "cspfctl", { "trace", directory / "CspfAgent.qt" } ).out,
                HasSubstr( "enabling agent" ) );
   EXPECT_EQ( runProgram( "cspfctl", { "get", "x", "--socket", directory / "none" } ).exitStatus,
              1 );
   EXPECT_EQ( runProgram( "cspfctl", { "load", directory / "none" } ).exitStatus, 2 );

   cspfctl( { "support", directory / "support.tgz" } );
   EXPECT_THAT( runProgram( "/bin/tar", { "-tzf", directory / "support.tgz" } ).out,
                testing::AllOf( HasSubstr( "/state.json" ), HasSubstr( "/dump.txt" ),
                                HasSubstr( "/metrics.txt" ), HasSubstr( "/CspfAgent.qt" ),
                                HasSubstr( "/status.json" ), HasSubstr( "/trace" ) ) );

   // A trace that was moved away goes on in a new file after SIGHUP.
   std::filesystem::rename( directory / "trace", directory / "moved" );
   kill( runner.pid(), SIGHUP );
   for ( int i = 0; i < 3000 && !std::filesystem::exists( directory / "trace" ); ++i ) {
      usleep( 10'000 );
   }
   EXPECT_TRUE( std::filesystem::exists( directory / "trace" ) );
   EXPECT_GT( std::filesystem::file_size( directory / "moved" ), 0u );
}

TEST_F( ServiceTest, whatIsInstalledNeedsNothingElseWhereverItStands ) {
   const std::string root = directory / "root/", moved = directory / "moved/";
   const ProgramResult installed = runProgram(
      "/bin/sh", { "-c", "cmake --install '" CSPF_BINARY_DIR "' --prefix '" + root + "'" } );
   ASSERT_EQ( installed.exitStatus, 0 ) << installed.out << installed.err;
   for ( const char * file :
         { "lib/sysusers.d/cspf-agent.conf", "share/man/man1/cspfctl.1",
           "share/man/man8/agentrunner.8", "share/bash-completion/completions/cspfctl",
           "share/zsh/vendor-completions/_cspfctl", "share/fish/vendor_completions.d/cspfctl.fish",
           "include/cspf-agent/schema/CspfClient.h" } ) {
      EXPECT_TRUE( std::filesystem::exists( root + file ) ) << file;
   }
   std::ostringstream unit;
   unit << std::ifstream( root + "lib/systemd/system/cspf-agent.service" ).rdbuf();
   EXPECT_THAT( unit.str(),
                HasSubstr( "ExecStart=" + directory / "root/bin/agentrunner --socket" ) );
   std::filesystem::rename( root, moved );
   std::ofstream( directory / "lab.json" ) << squareLab( true );
   const ProgramResult run =
      runProgram( moved + "bin/cspfctl", { "run", "--json", directory / "lab.json" } );
   EXPECT_EQ( run.exitStatus, 0 ) << run.err;
   EXPECT_THAT( run.out, HasSubstr( R"(["10.64.0.3","10.64.0.5"])" ) );
}
