#pragma once

#include "tools/redis/Change.h"
#include "tools/redis/Connection.h"

namespace Redis {

/// Follows the log of a database on a connection of its own: one turn after the other, each whole,
/// none left out.
class LogReader {
 public:
   struct Handlers {
      std::function< void( const Turn & turn ) > turn;
      /// What comes next is not what follows: the reader has to look at the whole database again.
      std::function< void( const std::string & why ) > gap;
      std::function< void( const std::string & why ) > lost;
   };

   /// Reads what comes after the revision. Turns of the writer `own` come without their changes.
   /// The handlers do not destroy it.
   LogReader( Lum::ActivityLoop & loop, const Url & url, std::uint64_t revision, std::string own,
              Handlers handlers );
   /// Bytes that went either way: a long turn comes piece by piece.
   std::uint64_t progress() const noexcept { return connection_.progress(); }

 private:
   void ask();
   void handleReply( const redisReply & reply );
   bool handleEntry( const redisReply & entry );
   bool addFields( const redisReply & fields );

   const Handlers handlers_;
   const std::string own_;
   Connection connection_;
   std::uint64_t read_;  ///< the last entry, of a turn that may not be whole yet
   Turn turn_;
   bool more_ = false;
};

}
