#pragma once

#include <cstdarg>
#include <string>
#include <type_traits>
#include <unordered_set>

namespace Kiv {

/// Where a dump of internal state goes. Text is gathered and written to the file descriptor in
/// large pieces, the rest when the context ends. A descriptor that refuses to be written to, or
/// whose reader takes nothing for a second, ends the output; the dump itself goes on.
class DumpContext {
 public:
   explicit DumpContext( int fd ) : fd_( fd ) {}
   ~DumpContext() { flush(); }
   DumpContext( const DumpContext & ) = delete;
   DumpContext & operator=( const DumpContext & ) = delete;

   /// One object may be dumped more than once (default: not).
   void dumpDuplicatesIs( bool duplicates ) { dumpDuplicates_ = duplicates; }
   /// The dump runs outside of the loop's order, from a debugger or signal handler: it is written
   /// at once, piece by piece, so that what was said stands even if the process ends.
   void reviveRunningIs( bool reviveRunning ) { reviveRunning_ = reviveRunning; }

   /// Prints like std::printf. A format that begins with "%*c" is preceded by `indent` blanks; that
   /// prefix takes no argument, and at indent 0 nothing stands for it.
   template< class... Argument >
      requires( std::is_scalar_v< Argument > &&... )
   void printf( int indent, const char * format, Argument... arguments ) {
      print( indent, format, arguments... );
   }

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

   int fd_;
   bool dumpDuplicates_ = false;
   bool reviveRunning_ = false;
   std::string buffer_;
   std::unordered_set< const void * > dumped_;
};

}
