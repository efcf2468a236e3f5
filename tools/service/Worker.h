#pragma once

#include "platform/Lum/ActivityLoop.h"

#include <functional>
#include <string_view>
#include <sys/types.h>

namespace Service {

/// A long piece of reading, done by a copy of the process: it sees all state as it stands when it
/// begins, while the loop goes on. What it writes comes back through a pipe; whatever it changes is
/// its own and goes with it.
class Worker {
 public:
   /// Writes all of the text, and waits for the reader where it must.
   using Write = std::function< void( std::string_view text ) >;
   /// Runs in the copy.
   using Work = std::function< void( const Write & write ) >;
   struct Handlers {
      /// Takes what was written, piece by piece.
      std::function< void( std::string_view text ) > text;
      /// The work is over: done, or ended by an exception or for want of memory. The worker may be
      /// destroyed here.
      std::function< void( bool done ) > ended;
   };

   /// Throws std::runtime_error where no process can be made. The loop outlives the worker.
   Worker( Lum::ActivityLoop & loop, const Work & work, Handlers handlers );
   /// Ends the work, done or not.
   ~Worker();
   Worker( const Worker & ) = delete;
   Worker & operator=( const Worker & ) = delete;

   /// While paused, nothing is taken from the copy, which waits once the pipe is full.
   void pausedIs( bool paused );

 private:
   void take();
   /// Whether the copy did all of its work.
   bool ended();

   Lum::ActivityLoop & loop_;
   const Handlers handlers_;
   pid_t process_ = -1;
   int pipe_ = -1;
};

}
