#pragma once

#include "tests/LabText.h"
#include "tests/RedisServer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// A service on a database of its own, and what people see of it. A patience is so long that only
/// a broken program outlasts it.
struct SharedStateTest : testing::Test {
   static constexpr const char * statusPath = "te/cspf/status/vrf/default/ipv4/rsvp";
   static constexpr const char * usagePath = "te/cspf/bwUsage/vrf/default/ipv4";
   static constexpr const char * configKey = "t:te/cspf/config/vrf/default/ipv4/rsvp";

   void SetUp() override {
      if ( !RedisServer::isInstalled() ) {
         GTEST_SKIP() << "no redis-server here";
      }
   }

   std::unique_ptr< RunnerProcess > run( std::vector< std::string > more = {} ) {
      more.insert( more.begin(), { "--state", server.url() } );
      return std::make_unique< RunnerProcess >( directory, more );
   }
   ProgramResult ctl( std::vector< std::string > arguments ) const {
      arguments.insert( arguments.begin(), { "--state", server.url() } );
      return runProgram( "cspfctl", arguments );
   }
   static bool comesTrue( const std::function< bool() > & condition );

   /// The text of a published path; empty while there is none.
   std::string published( const std::string & path = "10.0.0.3#1" ) const {
      return server.cli( { "HGET", std::string( "t:" ) + statusPath, "pathStatus[" + path + "]" } );
   }
   bool isPublished( const std::string & lastHop, const std::string & path = "10.0.0.3#1" ) const {
      return comesTrue(
         [ & ] { return published( path ).find( lastHop + "\"]" ) != std::string::npos; } );
   }
   /// What the service has said.
   std::string log() const;
   /// Four routers, of which A asks, with a client "rsvp".
   static void loadSquare( const RunnerProcess & runner );
   /// A network of which A asks, with clients of that name.
   static void load( const RunnerProcess & runner, const nlohmann::json & topology,
                     const std::vector< std::string > & clients );

   RedisServer server;
   TemporaryDirectory directory;
};
