// Text of a dump on its way to a file descriptor.

#include "platform/Kiv/DumpContext.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace Kiv {

namespace {

constexpr std::size_t pieceSize = 65'536;
constexpr char indentPrefix[] = "%*c";
constexpr std::size_t indentPrefixLength = sizeof indentPrefix - 1;
constexpr int patience = 1000;  // milliseconds

/// Whether a write that came to nothing is worth another try, after waiting for the reader.
bool
mayRetry( int fd, ssize_t written ) {
   if ( written == 0 || ( errno != EAGAIN && errno != EINTR ) ) {
      return false;
   }
   pollfd wait{ fd, POLLOUT, 0 };
   return errno == EINTR || poll( &wait, 1, patience ) > 0;
}

}

void
DumpContext::print( int indent, const char * format, ... ) {
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

void
DumpContext::flush() {
   std::size_t written = 0;
   while ( fd_ >= 0 && written < buffer_.size() ) {
      const ssize_t n = write( fd_, buffer_.data() + written, buffer_.size() - written );
      if ( n > 0 ) {
         written += static_cast< std::size_t >( n );
      } else if ( !mayRetry( fd_, n ) ) {
         fd_ = -1;
      }
   }
   buffer_.clear();
}

}
