#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tests/RedisServer.h"
#include "tools/redis/Replica.h"
#include "tools/state/StateTypes.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

/// Entities and tables as JSON, by key: "e:PATH" or "t:PATH".
using Content = std::map< std::string, State::Json >;

/// The keys whose content differs, with both contents.
std::vector< std::string > differences( const Content & a, const Content & b );

/// The stores of one process, and what keeps them equal to a database, where one does.
struct Member {
   Member( Lum::ActivityLoop & loop, const RedisServer * server );

   /// All that there is.
   Content content() const;

   Corvdb::TypeRegistry types;
   Corvdb::StateStore state;
   Zorch::TableStore tables;
   std::vector< std::string > log;
   bool complete = false;
   std::unique_ptr< Redis::Replica > replica;
};

/// Several members of one state: of one process on the embedded stores, where all are the same one,
/// or each on a replica of its own.
class StateBackend {
 public:
   /// No members where no server is installed and one is needed.
   StateBackend( bool embedded, std::size_t members );
   bool isThere() const { return !server_ || RedisServer::isInstalled(); }

   Member & operator[]( std::size_t i ) { return *members_[ i ]; }
   std::size_t size() const { return members_.size(); }
   RedisServer & server() { return *server_; }
   Lum::ActivityLoop & loop() { return loop_; }
   /// One more; with `i`, in place of that one, which ends without a word.
   Member & add();
   void restart( std::size_t i );
   /// Serves the loop until all members have seen what all have written.
   void settle();
   void turns( int count );

 private:
   Lum::ActivityLoop loop_{ Lum::ActivityLoop::Time::real };
   std::unique_ptr< RedisServer > server_;
   std::vector< std::shared_ptr< Member > > members_;
};
