#pragma once

#include "platform/Lum/Clock.h"

#include <cstdarg>
#include <string>
#include <type_traits>
#include <unordered_set>

namespace Kiv {

/// Where a dump of internal state goes. Text is gathered and written to the file descriptor in
/// large pieces, the rest when the context ends. Readers may keep the dump waiting for a fifth of a
/// second, all in all; one that is slower, or gone, gets no more, and the dump goes on without.
class DumpContext {
 public:
   explicit DumpContext( int fd ) : fd_( fd ) {}
   ~DumpContext() { flush(); }
   DumpContext( const DumpContext & ) = delete;
   DumpContext & operator=( const DumpContext & ) = delete;

   /// One object may be dumped more than once (default: not).
   void dumpDuplicatesIs( bool duplicates ) { dumpDuplicates_ = duplicates; }
   /// The dump runs outside of the loop's order, from a debugger or signal handler: it is written
   /// at once, line by line, so that what was said stands even if the process ends, and readers may
   /// keep it waiting for five seconds.
   void reviveRunningIs( bool reviveRunning ) {
      reviveRunning_ = reviveRunning;
      patience_ = reviveRunning ? 5 : 0.2;
   }

   /// Prints like std::printf. A format that begins with "%*c" is preceded by `indent` blanks; that
   /// prefix takes no argument, and at indent 0 nothing stands for it.
   template< class... Argument >
      requires( std::is_scalar_v< Argument > &&... )
   void printf( int indent, const char * format, Argument... arguments ) {
      print( indent, format, arguments... );
   }

   /// Prints the line "<label>: <age> ago", where `at` is in seconds of the framework clock, which
   /// counts from the start of the machine and means nothing to a reader; "<label>: never" where it
   /// is 0.
   void dumpAge( int indent, const char * label, Lum::Seconds at );

   /// Dumps the object unless it stands in this dump already.
   template< class T >
   void dump( const T & object, int indent ) {
      if ( dumpDuplicates_ || dumped_.insert( &object ).second ) {
         object.dumpState( *this, indent );
      }
   }
   void flush();

 private:
   void print( int indent, const char * format, ... );
   void append( int indent, const char * format, va_list arguments );
   bool readerTakesMore();

   int fd_;  // -1: nobody reads any more
   bool dumpDuplicates_ = false;
   bool reviveRunning_ = false;
   Lum::Seconds patience_ = 0.2;
   std::string buffer_;
   std::unordered_set< const void * > dumped_;
};

}
