// The control socket in the file system. Its mode keeps others out; the peer's credentials are
// checked as well, since a directory may have been made by somebody else.

#include "tools/service/UnixSocket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <utility>

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
   if ( path.empty() || path.size() >= sizeof address.sun_path ) {
      fail( path.empty() ? "the socket" : path,
            path.empty() ? "expected a path" : "the path is too long for a socket" );
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

/// Whether the peer is this user, root, or in the group (0: none).
bool
mayComeIn( int socket, gid_t group ) {
   ucred peer{};
   socklen_t length = sizeof peer;
   if ( getsockopt( socket, SOL_SOCKET, SO_PEERCRED, &peer, &length ) != 0 ) {
      return false;
   }
   if ( peer.uid == geteuid() || peer.uid == 0 || ( group && peer.gid == group ) ) {
      return true;
   }
   std::array< gid_t, 1024 > groups;
   length = sizeof groups;
   return group && getsockopt( socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length ) == 0
          && std::find( groups.begin(), groups.begin() + length / sizeof( gid_t ), group )
                != groups.begin() + length / sizeof( gid_t );
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

Listener::Listener( const SocketFile & file ) : file_( file ) {
   addressOf( file_.path );  // nothing is made beside a path that can be none
   makeDirectory();
   lock();
   try {
      checkFree();
      findGroup();
   } catch ( const std::runtime_error & ) {
      close( lock_ );
      throw;
   }
}

Listener::Listener( Listener && other ) noexcept
   : file_( std::move( other.file_ ) ),
     lock_( std::exchange( other.lock_, -1 ) ),
     fd_( std::exchange( other.fd_, -1 ) ),
     inode_( other.inode_ ),
     group_( other.group_ ) {}

Listener::~Listener() {
   struct stat present;
   if ( fd_ >= 0 && lstat( file_.path.c_str(), &present ) == 0 && present.st_ino == inode_ ) {
      unlink( file_.path.c_str() );
   }
   close( fd_ );
   close( lock_ );
}

void
Listener::open() {
   bind();
   if ( !file_.group.empty() ) {
      giveToGroup();
   }
   if ( listen( fd_, 64 ) != 0 ) {
      fail( std::strerror( errno ) );
   }
}

void
Listener::fail( const std::string & what ) const {
   Service::fail( file_.path, what );
}

void
Listener::makeDirectory() const {
   std::error_code ignored;
   const auto directory = std::filesystem::path( file_.path ).parent_path();
   if ( !directory.empty() && std::filesystem::create_directories( directory, ignored ) ) {
      chmod( directory.c_str(), 0700 );
   }
}

void
Listener::lock() {
   const std::string name = file_.path + ".lock";
   lock_ = ::open( name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600 );
   if ( lock_ < 0 ) {
      fail( std::string( "its lock cannot be made: " ) + std::strerror( errno ) );
   }
   if ( flock( lock_, LOCK_EX | LOCK_NB ) != 0 ) {
      close( lock_ );
      fail( "another process serves this socket" );
   }
}

void
Listener::checkFree() const {
   if ( const int served = tryConnect( addressOf( file_.path ) ); served >= 0 ) {
      close( served );
      fail( "another process serves this socket" );
   }
   struct stat present;
   if ( lstat( file_.path.c_str(), &present ) == 0 && !S_ISSOCK( present.st_mode ) ) {
      fail( "a file that is no socket stands here" );
   }
}

void
Listener::bind() {
   const sockaddr_un address = addressOf( file_.path );
   unlink( file_.path.c_str() );
   fd_ = socket( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 );
   const mode_t mask = umask( 0177 );
   const bool bound =
      fd_ >= 0
      && ::bind( fd_, reinterpret_cast< const sockaddr * >( &address ), sizeof address ) == 0;
   const int error = errno;
   umask( mask );
   struct stat present;
   if ( !bound || lstat( file_.path.c_str(), &present ) != 0 ) {
      fail( std::strerror( bound ? errno : error ) );
   }
   inode_ = present.st_ino;
}

void
Listener::findGroup() {
   if ( file_.group.empty() ) {
      return;
   }
   const group * const entry = getgrnam( file_.group.c_str() );
   if ( !entry ) {
      fail( "there is no group \"" + file_.group + "\"" );
   }
   group_ = entry->gr_gid;
}

void
Listener::giveToGroup() const {
   if ( chown( file_.path.c_str(), static_cast< uid_t >( -1 ), group_ ) != 0
        || chmod( file_.path.c_str(), 0660 ) != 0 ) {
      fail( "it cannot be given to the group \"" + file_.group + "\": " + std::strerror( errno ) );
   }
}

Listener::Caller
Listener::accept() const {
   const int fd = accept4( fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC );
   if ( fd < 0 ) {
      return { -1, errno != EAGAIN && errno != EINTR && errno != ECONNABORTED };
   }
   if ( mayComeIn( fd, group_ ) ) {
      return { fd, false };
   }
   close( fd );
   return {};
}

int
connectTo( const std::string & path, double patience ) {
   constexpr std::chrono::milliseconds interval( 20 );
   const sockaddr_un address = addressOf( path );
   const auto end = std::chrono::steady_clock::now() + std::chrono::duration< double >( patience );
   for ( ;; ) {
      if ( const int fd = tryConnect( address ); fd >= 0 ) {
         return fd;
      }
      const int error = errno;
      const std::string why =
         path + ": no agentrunner answers here (" + std::strerror( error ) + ")";
      if ( error != ENOENT && error != ECONNREFUSED ) {
         throw std::runtime_error( why );
      }
      if ( std::chrono::steady_clock::now() >= end ) {
         throw TimedOut( why );
      }
      std::this_thread::sleep_for( interval );
   }
}

}
