#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// The text trace in a file, a line a message. A line that cannot be written, as on a full disk, is
/// lost; the next one that can be is preceded by the number of those. The file may be moved away
/// and reopened.
class TraceFile {
 public:
   /// Traces into the file at the path, behind what is there; "": not at all. Throws
   /// std::runtime_error where it cannot be opened.
   explicit TraceFile( std::string path );
   ~TraceFile();
   TraceFile( const TraceFile & ) = delete;
   TraceFile & operator=( const TraceFile & ) = delete;

   /// Goes on in a file of the same name, made where there is none.
   void reopen();

 private:
   void write( int level, std::string_view text );
   bool put( std::string line );

   const std::string path_;
   int fd_ = -1;
   std::uint64_t lost_ = 0;
   bool torn_ = false;  ///< the file ends amid a line
};
