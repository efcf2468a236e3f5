#pragma once

#include "platform/Lum/ActivityLoop.h"

#include <functional>
#include <string>

/// Metrics in a file for a collector that reads files: written anew every 15 seconds, as a whole,
/// so that a reader never sees half of them.
class MetricsFile {
 public:
   /// `text` gives what is to stand in the file; "" as path: none is written. The loop outlives it.
   /// Throws std::runtime_error where the file cannot be written, or something that is no regular
   /// file would be replaced.
   MetricsFile( Lum::ActivityLoop & loop, std::string path, std::function< std::string() > text );
   ~MetricsFile();
   MetricsFile( const MetricsFile & ) = delete;
   MetricsFile & operator=( const MetricsFile & ) = delete;

 private:
   bool write() const;
   void writeAgain();

   Lum::ActivityLoop & loop_;
   const std::string path_, freshPath_;
   const std::function< std::string() > text_;
   Lum::ActivityLoop::TimerId timer_{ 0, 0 };
};
