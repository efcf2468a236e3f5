#pragma once

#include <functional>
#include <string_view>

namespace Service {

/// Takes in what an agent writes to a file descriptor, however much, without ever making it wait
/// for a reader: a file in memory.
class CommandStream {
 public:
   /// Throws std::runtime_error when there is no memory for it.
   CommandStream();
   ~CommandStream();
   CommandStream( const CommandStream & ) = delete;
   CommandStream & operator=( const CommandStream & ) = delete;

   int fd() const noexcept { return fd_; }
   /// What was written, from the beginning, in pieces of whole lines that fit a frame.
   void forEachPiece( const std::function< void( std::string_view ) > & visit ) const;

 private:
   int fd_;
};

}
