#pragma once

#include "tools/redis/Change.h"
#include "tools/redis/Connection.h"

namespace Redis {

/// Follows the log of a database on a connection of its own: one turn after the other, each whole,
/// none left out.
class LogReader {
 public:
   struct Handlers {
      std::function< void( Turn turn ) > turn;
      /// Whether all that was told is done with. Until then nothing more is read.
      std::function< bool() > keepsUp;
      /// What comes next is not what follows: the reader has to look at the whole database again.
      std::function< void( const std::string & why ) > gap;
      std::function< void( const std::string & why ) > lost;
   };

   /// Reads what comes after the revision. Turns of the writer `own` come without their changes.
   /// The handlers do not destroy it.
   LogReader( Lum::ActivityLoop & loop, const Url & url, std::uint64_t revision, std::string own,
              Handlers handlers );
   /// What was told is done with.
   void goOn();
   /// Bytes that went either way: a long turn comes piece by piece.
   std::uint64_t progress() const noexcept { return connection_.progress(); }

   /// What this writer writes much of need not come back: asked for on the connection of the
   /// writing, before it, the reader waits until it is told from and to which revision that led.
   /// Where others wrote in between it reads all of it.
   void pause( Connection & writing );
   void resume( std::uint64_t from, std::uint64_t to );

 private:
   void handleReply( const redisReply & reply );
   bool handleEntry( const redisReply & entry );
   bool addFields( const redisReply & fields );
   bool addChanges( std::string_view key, std::string_view packed );

   const Handlers handlers_;
   const std::string own_;
   Connection connection_;
   std::uint64_t read_;  ///< the last entry, of a turn that may not be whole yet
   Turn turn_;
   bool more_ = false;
   std::string client_;  ///< id of the connection
   bool asked_ = false, paused_ = false;
};

}
