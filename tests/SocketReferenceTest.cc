// The reference of the control socket as a reader pastes it into a live service, and its client.

#include "tests/LabText.h"
#include "tests/RunnerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <unistd.h>

using Service::Json;

namespace {

std::string
textOf( const std::string & file ) {
   std::ifstream in( file );
   return { std::istreambuf_iterator< char >( in ), {} };
}

const std::string reference = textOf( CSPF_SOURCE_DIR "/docs/socket.md" );

}

TEST( SocketReference, hasAFrameForEachCallAndEachIsTaken ) {
   const TemporaryDirectory directory;
   const RunnerProcess runner( directory );
   Service::Client client( runner.socket() );
   std::set< std::string > shown;
   std::istringstream lines( reference );
   for ( std::string line; std::getline( lines, line ); ) {
      if ( line.starts_with( "{\"jsonrpc\"" ) && line.find( "\"id\"" ) != line.npos ) {
         const Json frame = Json::parse( line );
         shown.insert( frame[ "method" ] );
         EXPECT_NO_THROW( client.call( frame[ "method" ], frame.value( "params", Json::object() ),
                                       []( const std::string &, const Json & ) {} ) )
            << line;
      }
   }
   const std::string served = textOf( CSPF_SOURCE_DIR "/tools/service/Session.cc" );
   const std::regex method( R"re(if \( method == "(\w+)" \))re" );
   std::set< std::string > methods;
   for ( std::sregex_iterator at( served.begin(), served.end(), method ), end; at != end; ++at ) {
      methods.insert( ( *at )[ 1 ] );
   }
   EXPECT_EQ( shown, methods );
}

TEST( SocketReference, clientFollowsAPath ) {
   const TemporaryDirectory directory;
   const std::string begin = "```python\n";
   const auto from = reference.find( begin ) + begin.size();
   std::ofstream( directory / "client.py" )
      << reference.substr( from, reference.find( "```", from ) - from );
   const Json lab{ { "router", "A" },
                   { "topologies", { { "net", labTopology( "A -- B -- C" ) } } } };
   std::ofstream( directory / "lab.json" ) << lab.dump();
   if ( access( "/usr/bin/python3", X_OK ) != 0 ) {
      GTEST_SKIP() << "Python is not installed";
   }
   const RunnerProcess runner( directory, { "--lab", directory / "lab.json" } );
   // The client goes when the service does.
   const ProgramResult client = runProgram(
      "/bin/bash", { "-c", "export CSPF_SOCKET=" + runner.socket() + "; head -n 1 < <( python3 "
                              + ( directory / "client.py" ) + " 2>&1 )" } );
   EXPECT_EQ( client.out, "10.0.0.3#1 ['10.64.0.3', '10.64.0.5']\n" );
}
