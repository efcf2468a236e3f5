#pragma once

#include <stdexcept>
#include <string>
#include <sys/types.h>

/// The control socket: a Unix stream socket at a path in the file system.
namespace Service {

/// The environment's CSPF_SOCKET; without it "/run/cspf/control.sock" for root, else a path in the
/// user's runtime directory.
std::string defaultSocketPath();

/// Where a socket stands, and whose it is beside its owner's and root's: the members' of a group,
/// "" for nobody's.
struct SocketFile {
   std::string path;
   std::string group;
};

/// A socket that takes callers. A lock file beside it, "PATH.lock", says that it is served, so that
/// of several processes that start at once one serves it.
class Listener {
 public:
   /// Takes the lock; makes the directory where there is none. Throws std::runtime_error with the
   /// reason, so where another process serves the socket.
   explicit Listener( const SocketFile & file );
   Listener( Listener && other ) noexcept;
   Listener & operator=( Listener && ) = delete;
   /// Removes the socket, if it is still the one that was made.
   ~Listener();

   /// Makes the socket, in place of a stale one. Throws std::runtime_error with the reason.
   void open();

   /// -1 before it is open.
   int fd() const noexcept { return fd_; }

   struct Caller {
      int socket = -1;      ///< non-blocking; -1: nobody, or somebody who may not come in
      bool failed = false;  ///< the caller still waits, for want of descriptors or memory
   };
   Caller accept() const;

 private:
   void makeDirectory() const;
   void lock();
   void checkFree() const;
   void bind();
   void findGroup();
   void giveToGroup() const;
   [[noreturn]] void fail( const std::string & what ) const;

   SocketFile file_;
   int lock_ = -1;
   int fd_ = -1;
   ino_t inode_ = 0;
   gid_t group_ = 0;  ///< 0: no group
};

/// The time that was given for an answer is over.
struct TimedOut : std::runtime_error {
   explicit TimedOut( const std::string & what = "timed out" ) : std::runtime_error( what ) {}
};

/// A connected, blocking socket. Who does not listen at the path yet is waited for, `patience`
/// seconds at most; throws TimedOut then, and std::runtime_error where waiting does not help.
int connectTo( const std::string & path, double patience = 0 );

}
