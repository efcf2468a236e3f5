// A real server. It writes its append-only file at every change, so that a killed one comes back
// with all that it had acknowledged.

#include "tests/RedisServer.h"

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char * serverProgram = "/usr/bin/redis-server";

}

RedisServer::RedisServer( std::vector< std::string > options ) : options_( std::move( options ) ) {
   if ( isInstalled() ) {
      start();
   }
}

bool
RedisServer::isInstalled() {
   return access( serverProgram, X_OK ) == 0;
}

RedisServer::~RedisServer() {
   if ( pid_ > 0 ) {
      kill();
   }
}

void
RedisServer::start() {
   std::vector< std::string > arguments{ "--port",        "0",
                                         "--unixsocket",  socket(),
                                         "--dir",         directory_.path(),
                                         "--appendonly",  "yes",
                                         "--appendfsync", "no",
                                         "--save",        "",
                                         "--logfile",     directory_ / "log" };
   arguments.insert( arguments.end(), options_.begin(), options_.end() );
   pid_ = startProgram( serverProgram, arguments );
   for ( int waited = 0; waited < 60'000; waited += 5 ) {
      const std::string answer = cli( { "PING" } );
      if ( answer == "PONG\n" || answer.starts_with( "NOAUTH" ) ) {
         return;
      }
      usleep( 5'000 );
   }
   throw std::runtime_error( "redis-server does not answer" );
}

void
RedisServer::kill() {
   ::kill( pid_, SIGKILL );
   waitpid( pid_, nullptr, 0 );
   pid_ = -1;
   std::filesystem::remove( socket() );
}

void
RedisServer::forget() {
   std::filesystem::remove_all( directory_ / "appendonlydir" );
}

void
RedisServer::stopAndContinue( bool stopped ) const {
   ::kill( pid_, stopped ? SIGSTOP : SIGCONT );
}

std::string
RedisServer::cli( std::vector< std::string > arguments ) const {
   arguments.insert( arguments.begin(), { "-s", socket() } );
   return runProgram( "/usr/bin/redis-cli", arguments ).out;
}
