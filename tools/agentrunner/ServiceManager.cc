// Datagrams of NAME=VALUE lines to the manager's socket.

#include "tools/agentrunner/ServiceManager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

std::string
environment( const char * name ) {
   const char * const value = std::getenv( name );
   return value ? value : "";
}

/// The watchdog's period in seconds; 0 where it watches no process, or another one.
Lum::Seconds
watchdogPeriod() {
   const std::string watched = environment( "WATCHDOG_PID" );
   if ( !watched.empty() && watched != std::to_string( getpid() ) ) {
      return 0;
   }
   return std::strtod( environment( "WATCHDOG_USEC" ).c_str(), nullptr ) * 1e-6;
}

}

ServiceManager::ServiceManager( Lum::ActivityLoop & loop )
   : loop_( loop ),
     address_( environment( "NOTIFY_SOCKET" ) ),
     period_( watchdogPeriod() ) {
   if ( period_ > 0 ) {
      feed();
   }
}

ServiceManager::~ServiceManager() {
   loop_.timerDel( timer_ );
}

void
ServiceManager::ready() const {
   tell( "READY=1" );
}

void
ServiceManager::stopping() const {
   tell( "STOPPING=1" );
}

void
ServiceManager::feed() {
   tell( "WATCHDOG=1" );
   timer_ = loop_.timerIs( loop_.deadlineAfter( period_ / 2 ), [ this ] { feed(); } );
}

void
ServiceManager::tell( const std::string & state ) const {
   sockaddr_un to{};
   to.sun_family = AF_UNIX;
   if ( address_.empty() || address_.size() >= sizeof to.sun_path ) {
      return;
   }
   std::memcpy( to.sun_path, address_.data(), address_.size() );
   if ( address_[ 0 ] == '@' ) {
      to.sun_path[ 0 ] = '\0';  // an abstract address
   }
   const auto length =
      static_cast< socklen_t >( offsetof( sockaddr_un, sun_path ) + address_.size() );
   const int fd = socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   sendto( fd, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast< sockaddr * >( &to ),
           length );
   close( fd );
}
