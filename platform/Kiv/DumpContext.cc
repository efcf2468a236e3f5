// Text of a dump on its way to a file descriptor. The loop stands while a dump is made, so the
// reader of a pipe or a socket is asked before each write, and a write is no larger than what such
// a descriptor takes at once when it says that it takes anything.

#include "platform/Kiv/DumpContext.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace Kiv {

namespace {

constexpr std::size_t pieceSize = 65'536;
constexpr char indentPrefix[] = "%*c";
constexpr std::size_t indentPrefixLength = sizeof indentPrefix - 1;

}

void
DumpContext::print( int indent, const char * format, ... ) {
   if ( fd_ < 0 ) {
      return;
   }
   va_list arguments;
   va_start( arguments, format );
   if ( std::strncmp( format, indentPrefix, indentPrefixLength ) == 0 ) {
      append( indent, format + indentPrefixLength, arguments );
   } else {
      append( 0, format, arguments );
   }
   va_end( arguments );
   if ( reviveRunning_ || buffer_.size() >= pieceSize ) {
      flush();
   }
}

void
DumpContext::dumpAge( int indent, const char * label, Lum::Seconds at ) {
   if ( at == 0 ) {
      printf( indent, "%*c%s: never\n", label );
   } else {
      printf( indent, "%*c%s: %.3f seconds ago\n", label, std::max( Lum::now() - at, 0.0 ) );
   }
}

void
DumpContext::append( int indent, const char * format, va_list arguments ) {
   buffer_.append( static_cast< std::size_t >( indent ), ' ' );
   va_list again;
   va_copy( again, arguments );
   char line[ 512 ];
   const int length = std::vsnprintf( line, sizeof line, format, arguments );
   if ( length >= static_cast< int >( sizeof line ) ) {
      const std::size_t end = buffer_.size();
      buffer_.resize( end + static_cast< std::size_t >( length ) + 1 );
      std::vsnprintf( &buffer_[ end ], static_cast< std::size_t >( length ) + 1, format, again );
      buffer_.pop_back();
   } else if ( length > 0 ) {
      buffer_.append( line, static_cast< std::size_t >( length ) );
   }
   va_end( again );
}

/// Waits where that is needed, and as long as patience lasts.
bool
DumpContext::readerTakesMore() {
   pollfd reader{ fd_, POLLOUT, 0 };
   if ( poll( &reader, 1, 0 ) == 0 ) {
      const Lum::Seconds before = Lum::RealClock::read();
      const Lum::Seconds wait = std::max( patience_, 0.0 );
      poll( &reader, 1, static_cast< int >( wait * 1000 ) );
      patience_ -= Lum::RealClock::read() - before;
   }
   return ( reader.revents & ( POLLOUT | POLLERR ) ) == POLLOUT;
}

void
DumpContext::flush() {
   std::string_view rest = buffer_;
   while ( fd_ >= 0 && !rest.empty() ) {
      const std::size_t length = std::min< std::size_t >( rest.size(), PIPE_BUF );
      const ssize_t n = readerTakesMore() ? write( fd_, rest.data(), length ) : 0;
      if ( n > 0 ) {
         rest.remove_prefix( static_cast< std::size_t >( n ) );
      } else if ( n == 0 || errno != EINTR ) {
         fd_ = -1;
      }
   }
   buffer_.clear();
}

}
