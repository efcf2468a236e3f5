// One system call a line, so that what was traced stands in the file whatever comes next, and what
// fails concerns one line.

#include "tools/agentrunner/TraceFile.h"

#include "platform/Trace/Gemtrace.h"
#include "tools/text/Plain.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace {

/// Seconds since 1970. A log is read beside those of other programs.
double
utcNow() {
   timespec time{};
   clock_gettime( CLOCK_REALTIME, &time );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) * 1e-9;
}

}

TraceFile::TraceFile( std::string path ) : path_( std::move( path ) ) {
   if ( path_.empty() ) {
      return;
   }
   reopen();
   if ( fd_ < 0 ) {
      throw std::runtime_error( path_
                                + ": the trace cannot be written: " + std::strerror( errno ) );
   }
   Gemtrace::sinkIs( [ this ]( int level, std::string_view text ) { write( level, text ); }, 7 );
}

TraceFile::~TraceFile() {
   Gemtrace::sinkIs( nullptr );
   close( fd_ );
}

void
TraceFile::reopen() {
   if ( !path_.empty() ) {
      close( fd_ );
      fd_ = open( path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0640 );
      torn_ = false;
   }
}

void
TraceFile::write( int level, std::string_view text ) {
   const std::string now = Text::utcText( utcNow() ) + " ";
   if ( lost_ && put( now + std::to_string( lost_ ) + " lines could not be written\n" ) ) {
      lost_ = 0;
   }
   if ( lost_ || !put( now + std::to_string( level ) + " " + Text::plain( text ) + "\n" ) ) {
      ++lost_;
   }
}

/// A line that was written in part counts as lost.
bool
TraceFile::put( std::string line ) {
   if ( torn_ ) {
      line.insert( 0, "\n" );
   }
   const ssize_t written = ::write( fd_, line.data(), line.size() );
   if ( written > 0 ) {
      torn_ = written < static_cast< ssize_t >( line.size() );
   }
   return written == static_cast< ssize_t >( line.size() );
}
