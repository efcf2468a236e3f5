#pragma once

#include "tools/redis/Connection.h"

#include <vector>

namespace Redis {

/// Whether the path is at or below one of the prefixes, of which one that ends in "*" stands for
/// all names that begin so.
bool isCovered( const std::vector< std::string > & prefixes, const std::string & path );

/// The right to write what is at and below some paths, held by one process at a time. Who writes
/// there without it is refused; below a prefix with "*" he is overruled, when the holder hears of
/// it.
///
/// It lasts ten seconds and is renewed all the while, so a holder may be busy, or cut off, for that
/// long. A holder whose connection is gone from the same server is known to be dead, and is
/// passed over when that has been seen twice. Each taking has a greater number than those before
/// it, the fence: what an earlier holder still sends is refused by that.
class Lease {
 public:
   struct Handlers {
      /// It is held. All that earlier holders wrote was written by that revision.
      std::function< void( std::uint64_t revision ) > granted;
      /// Another process holds it, and this one does not wait. Told once.
      std::function< void( const std::string & why ) > refused;
      /// It was held, and another process has it now. Told once.
      std::function< void( const std::string & why ) > lost;
   };

   /// `name` is the holder's, for people. `waits`: until the holder of today is gone.
   Lease( std::vector< std::string > prefixes, std::string name, bool waits, Handlers handlers );

   /// Takes or renews it. To be called on each new connection and then a few times a second; the
   /// handlers do not destroy it.
   void tick( Connection & connection, const std::string & client, const std::string & run );
   void release( Connection & connection );

   bool isHeld() const noexcept { return isHeld_; }
   bool isOver() const noexcept { return isOver_; }
   /// Who holds it instead, for people; empty if nobody is known to.
   const std::string & holder() const noexcept { return holder_; }
   /// "0" before it was ever held.
   const std::string & fence() const noexcept { return fence_; }
   /// The name in the text of a lease; empty for none.
   static std::string holderOf( std::string_view lease );
   bool covers( const std::string & path ) const { return isCovered( prefixes_, path ); }

 private:
   void handleClaim( const redisReply & reply, Connection & connection, const std::string & run );
   void handleHeld( std::string_view lease, Connection & connection, const std::string & run );
   void handleLook( bool isAlive, const std::string & fence );
   void end( const std::function< void( const std::string & ) > & tell, const std::string & why );

   const std::vector< std::string > prefixes_;
   const std::string name_;
   const bool waits_;
   const Handlers handlers_;
   std::string fence_ = "0";
   std::string seenDead_;  ///< fence of a holder that was found gone once
   std::string dead_;      ///< and twice
   std::string holder_;
   bool isHeld_ = false, isOver_ = false;
};

}
