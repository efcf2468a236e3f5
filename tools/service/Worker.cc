// A copy of the process for long reads. The copy keeps no descriptor but its pipe: a socket that it
// held as well would stay open when the service closes it. It ends with the service, whatever ends
// that.

#include "tools/service/Worker.h"

#include "platform/Trace/Trace.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Service {

namespace {

constexpr int copysPipe = 3;
constexpr int outOfMemory = 2;
/// The copy gives way to the service.
constexpr int niceness = 5;

void
writeAll( std::string_view text ) {
   while ( !text.empty() ) {
      const ssize_t n = write( copysPipe, text.data(), text.size() );
      if ( n < 0 && errno != EINTR ) {
         _exit( 1 );
      }
      text.remove_prefix( n > 0 ? static_cast< std::size_t >( n ) : 0 );
   }
}

[[noreturn]] void
runCopy( int pipe, pid_t service, const Worker::Work & work ) {
   prctl( PR_SET_PDEATHSIG, SIGKILL );
   if ( getppid() != service ) {
      _exit( 1 );
   }
   dup2( pipe, copysPipe );
   close_range( copysPipe + 1, ~0u, 0 );
   Trace::wantedLevels = 0;  // the ring is the service's
   std::set_new_handler( [] { _exit( outOfMemory ); } );
   [[maybe_unused]] const int ignored = nice( niceness );
   try {
      work( writeAll );
   } catch ( const std::exception & ) {
      _exit( 1 );
   }
   _exit( 0 );
}

}

Worker::Worker( Lum::ActivityLoop & loop, const Work & work, Handlers handlers )
   : loop_( loop ),
     handlers_( std::move( handlers ) ) {
   int ends[ 2 ];
   const pid_t service = getpid();
   if ( pipe2( ends, O_CLOEXEC ) == 0 ) {
      pipe_ = ends[ 0 ];
      process_ = fork();
      if ( process_ == 0 ) {
         runCopy( ends[ 1 ], service, work );
      }
      close( ends[ 1 ] );
   }
   if ( process_ < 0 ) {
      const std::string reason = std::strerror( errno );
      close( pipe_ );
      throw std::runtime_error( "no process can be made for so large an answer: " + reason );
   }
   pausedIs( false );
}

Worker::~Worker() {
   if ( process_ > 0 ) {
      kill( process_, SIGKILL );
      ended();
   }
}

bool
Worker::ended() {
   loop_.fdDel( pipe_ );
   close( pipe_ );
   int status = 0;
   while ( waitpid( process_, &status, 0 ) < 0 && errno == EINTR ) {
   }
   process_ = -1;
   return WIFEXITED( status ) && WEXITSTATUS( status ) == 0;
}

void
Worker::take() {
   std::array< char, 65'536 > piece;
   const ssize_t n = read( pipe_, piece.data(), piece.size() );
   if ( n > 0 ) {
      handlers_.text( { piece.data(), static_cast< std::size_t >( n ) } );
   } else if ( n == 0 ) {
      const auto tellEnd = handlers_.ended;
      tellEnd( ended() );
   }
}

void
Worker::pausedIs( bool paused ) {
   if ( paused ) {
      loop_.fdDel( pipe_ );
   } else {
      loop_.fdIs( pipe_, EPOLLIN, [ this ]( std::uint32_t ) { take(); } );
   }
}

}
