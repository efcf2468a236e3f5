#pragma once

#include <string>
#include <vector>

namespace Service {

/// A directory that goes with its object.
class TemporaryDirectory {
 public:
   /// Throws std::runtime_error where none can be made.
   TemporaryDirectory();
   ~TemporaryDirectory();
   TemporaryDirectory( const TemporaryDirectory & ) = delete;
   TemporaryDirectory & operator=( const TemporaryDirectory & ) = delete;

   const std::string & path() const { return path_; }

 private:
   std::string path_;
};

/// Runs a program of the system to its end. Throws std::runtime_error where it is not there, with
/// `missing` as text where that is given, or fails.
void runProgram( const std::vector< std::string > & words, const std::string & missing = {} );

}
