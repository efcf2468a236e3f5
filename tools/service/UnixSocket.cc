// The control socket in the file system. Its mode keeps others out; the peer's credentials are
// checked as well, since a directory may have been made by somebody else.

#include "tools/service/UnixSocket.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Service {

namespace {

[[noreturn]] void
fail( const std::string & path, const std::string & what ) {
   throw std::runtime_error( path + ": " + what );
}

sockaddr_un
addressOf( const std::string & path ) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if ( path.size() >= sizeof address.sun_path ) {
      fail( path, "the path is too long for a socket" );
   }
   std::memcpy( address.sun_path, path.c_str(), path.size() + 1 );
   return address;
}

int
tryConnect( const sockaddr_un & address ) {
   const int fd = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   if ( fd >= 0
        && connect( fd, reinterpret_cast< const sockaddr * >( &address ), sizeof address ) == 0 ) {
      return fd;
   }
   const int error = errno;
   close( fd );
   errno = error;
   return -1;
}

}

std::string
defaultSocketPath() {
   if ( const char * path = std::getenv( "CSPF_SOCKET" ) ) {
      return path;
   }
   if ( geteuid() == 0 ) {
      return "/run/cspf/control.sock";
   }
   if ( const char * directory = std::getenv( "XDG_RUNTIME_DIR" ) ) {
      return std::string( directory ) + "/cspf.sock";
   }
   return "/tmp/cspf-" + std::to_string( geteuid() ) + "/control.sock";
}

int
listenAt( const std::string & path ) {
   const sockaddr_un address = addressOf( path );
   std::error_code ignored;
   const auto directory = std::filesystem::path( path ).parent_path();
   if ( !directory.empty() && std::filesystem::create_directories( directory, ignored ) ) {
      chmod( directory.c_str(), 0700 );
   }
   if ( const int served = tryConnect( address ); served >= 0 ) {
      close( served );
      fail( path, "another process serves this socket" );
   }
   struct stat present;
   if ( lstat( path.c_str(), &present ) == 0 && !S_ISSOCK( present.st_mode ) ) {
      fail( path, "a file that is no socket stands here" );
   }
   unlink( path.c_str() );
   const int fd = socket( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 );
   const mode_t mask = umask( 0177 );
   const bool bound =
      fd >= 0 && bind( fd, reinterpret_cast< const sockaddr * >( &address ), sizeof address ) == 0;
   const int error = errno;
   umask( mask );
   if ( !bound || listen( fd, 64 ) != 0 ) {
      close( fd );
      fail( path, std::strerror( bound ? errno : error ) );
   }
   return fd;
}

int
acceptOwner( int listener ) {
   const int fd = accept4( listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC );
   if ( fd < 0 ) {
      return -1;
   }
   ucred peer{};
   socklen_t length = sizeof peer;
   if ( getsockopt( fd, SOL_SOCKET, SO_PEERCRED, &peer, &length ) == 0
        && ( peer.uid == geteuid() || peer.uid == 0 ) ) {
      return fd;
   }
   close( fd );
   return -1;
}

int
connectTo( const std::string & path ) {
   const int fd = tryConnect( addressOf( path ) );
   if ( fd < 0 ) {
      fail( path, std::string( "no agentrunner answers here (" ) + std::strerror( errno ) + ")" );
   }
   return fd;
}

}
