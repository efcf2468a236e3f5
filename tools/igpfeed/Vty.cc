#include "tools/igpfeed/Vty.h"

#include "tools/service/UnixSocket.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace IgpFeed {

namespace {

constexpr int patience = 10'000;  // ms

int
connectOrThrow( const std::string & path ) {
   try {
      return Service::connectTo( path );
   } catch ( const std::runtime_error & ) {
      throw VtyError( path + ": no daemon answers" );
   }
}

}

Vty::Vty( const std::string & socketPath )
   : path_( socketPath ),
     fd_( connectOrThrow( socketPath ) ) {
   try {
      ask( "enable" );
   } catch ( ... ) {
      close( fd_ );
      throw;
   }
}

Vty::~Vty() {
   close( fd_ );
}

void
Vty::send( const std::string & command ) {
   const char * at = command.c_str();
   std::size_t left = command.size() + 1;
   while ( left > 0 ) {
      const ssize_t n = ::send( fd_, at, left, MSG_NOSIGNAL );
      if ( n < 0 && errno != EINTR ) {
         throw VtyError( path_ + ": the daemon is gone" );
      }
      at += n > 0 ? n : 0;
      left -= n > 0 ? static_cast< std::size_t >( n ) : 0;
   }
}

/// Gives the status.
int
Vty::receive( std::string & answer ) {
   constexpr std::size_t trailer = 4;
   for ( ;; ) {
      const std::size_t size = answer.size();
      if ( size >= trailer && answer.compare( size - trailer, 3, "\0\0\0", 3 ) == 0 ) {
         const int status = static_cast< unsigned char >( answer.back() );
         answer.resize( size - trailer );
         return status;
      }
      pollfd ready{ fd_, POLLIN, 0 };
      if ( poll( &ready, 1, patience ) == 0 ) {
         throw VtyError( path_ + ": the daemon does not answer" );
      }
      char buffer[ 64 * 1024 ];
      const ssize_t n = read( fd_, buffer, sizeof buffer );
      if ( n == 0 || ( n < 0 && errno != EINTR ) ) {
         throw VtyError( path_ + ": the daemon is gone" );
      }
      answer.append( buffer, n > 0 ? static_cast< std::size_t >( n ) : 0 );
   }
}

std::string
Vty::ask( const std::string & command ) {
   send( command );
   std::string answer;
   if ( const int status = receive( answer ); status != 0 ) {
      throw VtyError( path_ + ": refuses \"" + command + "\"" );
   }
   return answer;
}

}
