#pragma once

#include "platform/Lum/ActivityLoop.h"
#include "tools/igpfeed/FeedState.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>

namespace IgpFeed {

struct FeedOptions {
   std::string name;       ///< of the source, in messages
   std::string vtySocket;  ///< of the daemon
   double interval = 0.1;  ///< seconds between looks at the version
   double grace = 30;      ///< seconds for which a table outlives its daemon
};

/// Keeps the state current with one daemon. While the daemon is away the state stays as it is, for
/// the time of grace; then everything is withdrawn. A daemon that is back is believed when it knows
/// again what it knew, or has neighbours again and has been quiet for a while, or in the end.
class Feed {
 public:
   /// `openState` connects to the state; it is called again whenever that has failed. The loop
   /// outlives this object.
   using OpenState = std::function< std::unique_ptr< StateAccess >() >;
   Feed( Lum::ActivityLoop & loop, std::unique_ptr< Daemon > daemon, Cspf::IgpSource igp,
         FeedOptions options, OpenState openState );
   ~Feed() { loop_.timerDel( timer_ ); }
   Feed( const Feed & ) = delete;
   Feed & operator=( const Feed & ) = delete;

 private:
   void tick();
   void lookAtDaemon();
   void readDaemon( const std::string & version );
   void handleLoss( const std::string & why );
   bool isBelieved() const;
   void writeState();
   void tell( const std::string & text ) const;
   void tellOnce( std::string & last, const std::string & text ) const;
   void tellFindings( const Igp::Findings & findings );

   Lum::ActivityLoop & loop_;
   const std::unique_ptr< Daemon > daemon_;
   const Cspf::IgpSource igp_;
   const FeedOptions options_;
   const OpenState openState_;
   Lum::ActivityLoop::TimerId timer_;

   std::unique_ptr< Vty > vty_;
   std::string version_;
   double nextRead_ = 0;   ///< not before
   double holdUntil_ = 0;  ///< until then a view that does not come up to the state is not written
   bool holding_ = true;
   std::optional< FeedContent > wanted_;
   Selves selves_;
   double changedAt_ = 0;  ///< when the daemon last said something new

   std::unique_ptr< StateAccess > access_;
   std::unique_ptr< FeedState > state_;
   double nextOpen_ = 0;
   bool written_ = false;  ///< the state holds what is wanted

   std::set< std::string > told_;
   std::string daemonTrouble_, stateTrouble_;
};

}
