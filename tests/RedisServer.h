#pragma once

#include "tests/RunnerProcess.h"

#include <string>
#include <vector>

/// A database server of the test's own, on a Unix socket in a directory of its own.
class RedisServer {
 public:
   /// `options`: as on the server's command line, such as { "--requirepass", "secret" }.
   /// Starts nothing where no server is installed.
   explicit RedisServer( std::vector< std::string > options = {} );
   ~RedisServer();
   RedisServer( const RedisServer & ) = delete;
   RedisServer & operator=( const RedisServer & ) = delete;

   static bool isInstalled();
   std::string url() const { return "unix:" + socket(); }
   std::string socket() const { return directory_ / "redis.sock"; }
   /// Waits until it answers.
   void start();
   /// Kills the process; what it wrote to its append-only file stays.
   void kill();
   /// Removes what it wrote. REQUIRES: it does not run.
   void forget();
   void stopAndContinue( bool stopped ) const;
   /// The answer of redis-cli, as it prints it.
   std::string cli( std::vector< std::string > arguments ) const;

 private:
   TemporaryDirectory directory_;
   std::vector< std::string > options_;
   pid_t pid_ = -1;
};
