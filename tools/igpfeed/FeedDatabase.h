#pragma once

#include "tools/service/DatabaseState.h"

namespace IgpFeed {

/// What one source writes, in a database that needs no agent. One feed of a source at a time holds
/// it; another one waits until the first is gone. Its tables are the truth: a database that has
/// lost them gets them again.
class FeedDatabase {
 public:
   struct Handlers {
      /// This process is the one that writes; `state` lives as long as the database. Told once.
      std::function< void( Service::StateView & state ) > granted;
      /// The database cannot be used, or another process writes in this one's place.
      std::function< void( const std::string & why ) > failed;
   };
   /// `source`: "isis", "ospf" or "interfaces". The loop outlives it.
   FeedDatabase( Lum::ActivityLoop & loop, const Redis::Url & url, const std::string & source,
                 Handlers handlers );
   ~FeedDatabase() { loop_.timerDel( notice_ ); }
   FeedDatabase( const FeedDatabase & ) = delete;
   FeedDatabase & operator=( const FeedDatabase & ) = delete;

   const Redis::Replica & replica() const noexcept { return state_.replica(); }

 private:
   void tell( const std::string & line ) const;

   Lum::ActivityLoop & loop_;
   const std::string source_;
   const Handlers handlers_;
   Service::DatabaseState state_;
   Lum::ActivityLoop::TimerId notice_{ 0, 0 };
};

}
