#pragma once

#include "tools/pace/Queue.h"
#include "tools/redis/Change.h"
#include "tools/redis/Connection.h"

#include <memory>
#include <set>

namespace Redis {

/// Reads a database once, key by key, each as it is at one moment. What comes is told as work of a
/// queue.
class Picture {
 public:
   /// One key: its fields, its type among them, and the revision at which it was written last.
   struct Key {
      KeyChanges content;
      std::uint64_t revision = 0;
   };
   struct Handlers {
      /// Whether a key is to be read.
      std::function< bool( const std::string & key ) > concerns;
      std::function< void( const Key & key ) > key;
      /// All keys have been told, each once.
      std::function< void() > complete;
      std::function< void( const std::string & why ) > failed;
   };

   /// The connection may end before the picture; the handlers do not destroy either. The queue
   /// outlives both.
   Picture( Connection & connection, Pace::Queue & work, Handlers handlers );
   ~Picture() { *alive_ = false; }
   Picture( const Picture & ) = delete;
   Picture & operator=( const Picture & ) = delete;

   /// Reads one key alone.
   static void readKey( Connection & connection, Pace::Queue & work, const std::string & key,
                        std::function< void( const Key & key ) > read,
                        std::function< void( const std::string & why ) > failed );

 private:
   void scan( const std::string & cursor );
   void handleKeys( const redisReply & reply );
   void readMore();
   void handleKey( const Key & key );

   Connection & connection_;
   Pace::Queue & work_;
   const Handlers handlers_;
   std::set< std::string > found_;
   std::size_t asked_ = 0, told_ = 0;
   std::set< std::string >::const_iterator next_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

}
