#pragma once

#include "tools/pace/Queue.h"
#include "tools/redis/Border.h"
#include "tools/redis/Lease.h"
#include "tools/redis/LocalState.h"
#include "tools/redis/LogReader.h"
#include "tools/redis/Outbox.h"
#include "tools/redis/Picture.h"

#include <unordered_map>

namespace Redis {

/// Keeps the two stores of this process and a database equal, both ways.
///
/// What changes here in one turn of the loop is written in one step. What others wrote comes
/// through the database's log; where the log has a hole, or the database is another one than
/// before, all of it is read again, and only what differs is touched. While the database is away
/// the process goes on with what it knows, and writes what has changed when it is back. Where this
/// process holds a lease its own state is the truth, elsewhere the database's.
///
/// What is long to take over is taken over in slices, between which the loop goes on.
class Replica {
 public:
   struct Settings {
      Url url;
      std::string name;  ///< of this process, for people
      /// As of `LocalState::Handlers`: what may come in from the database.
      std::function< std::string( const std::string & key, const std::string & type ) > refusal =
         refusalOf;
      std::function< Judge( const std::string & type ) > judge = judgeOf;
      /// A path whose lease another process may hold, asked for when a connection comes.
      std::string observed{};
      /// Which keys this process reads; it writes no others.
      std::function< bool( const std::string & key ) > concerns = []( const auto & ) {
         return true;
      };
   };
   /// The handlers do not destroy the replica.
   struct Handlers {
      /// The stores hold what the database holds. Told once.
      std::function< void() > complete;
      /// The database cannot be reached (it is tried again), or cannot be used at all.
      std::function< void( const std::string & why, bool isHopeless ) > unusable;
      /// Something that an operator should see: one line.
      std::function< void( const std::string & line ) > log;
   };
   struct Status {
      bool connected = false;
      std::uint64_t revision = 0;  ///< up to which the log has been followed
      std::size_t pending = 0;     ///< fields that are not yet written
      std::uint64_t resyncs = 0;   ///< readings of the whole database after the first
      std::uint64_t refused = 0;   ///< keys and fields that were refused
      bool holdsLease = false;
      std::string holder;  ///< of the lease, own or observed, where it is another process
   };

   /// Loop and stores outlive it. What the stores hold already counts as written here.
   Replica( Lum::ActivityLoop & loop, Corvdb::StateStore & state, Zorch::TableStore & tables,
            Settings settings, Handlers handlers );
   ~Replica();
   Replica( const Replica & ) = delete;
   Replica & operator=( const Replica & ) = delete;

   struct LeaseHandlers {
      /// It is held, and the stores hold all that earlier holders wrote.
      std::function< void() > granted = [] {};
      std::function< void( const std::string &why ) > refused = []( const auto & ) {},
                                                      lost = []( const auto & ) {};
   };
   /// Asks for the lease of all at and below the prefixes. REQUIRES: not asked before.
   void leaseIs( std::vector< std::string > prefixes, bool waits, LeaseHandlers handlers );
   /// Gives the lease back, after everything that is pending.
   void leaseDel();
   /// What changes here from now on is not written: this process writes no more.
   void mute() { muted_ = true; }

   /// The log has been followed to its end as far as is known, and all changes stand in it.
   bool isSettled() const {
      return phase_ == Phase::following && outbox_.isEmpty() && !spares_ && work_.isEmpty();
   }
   /// Serves the loop until that is so, for at most so many seconds; false if it was not enough.
   bool settle( Lum::Seconds most );
   Status status() const;

 private:
   enum class Phase { away, opening, reading, following };

   void connect();
   void open();
   void handleServer( const redisReply & reply );
   void handleOpen( const redisReply & reply );
   void anotherDatabase();
   void graceIs();
   void readAll();
   void handlePictureKey( const Picture::Key & key );
   void compareOwn( const Picture::Key & key );
   void take( const Picture::Key & key );
   void handlePictureComplete();
   void sweepKeys();
   void writeWhole( const std::string & key );
   void follow();
   void handleTurn( Turn && turn );
   void takeTurn( const Turn & turn, bool isLong );
   void writeAgain( const KeyChanges & changes );
   void handleProgress();

   void handleChanged( const std::string & key, const std::string & field );
   void flushSoon();
   void flush();
   void handleWritten( const redisReply & reply );
   void handleRefusedKey( std::string_view why );
   void readKeyAgain( const std::string & key );
   void handleKeyAgain( const Picture::Key & read, std::uint64_t followed );

   void beat();
   void handleBeat( const redisReply & reply, std::uint64_t followed );
   void failed( const std::string & why, bool rereads = false, bool isHopeless = false );
   bool owns( const std::string & key ) const;
   void refused( const std::string & key, std::string_view field, const std::string & line );

   Lum::ActivityLoop & loop_;
   const Settings settings_;
   const Handlers handlers_;
   LeaseHandlers leaseHandlers_;
   const std::string writer_;  ///< of this process in the log, with a number for each connection
   std::string session_;
   std::uint64_t sessions_ = 0;
   LocalState local_;
   Outbox outbox_;
   bool awaitsAnswer_ = false;  ///< to a `state_write`
   Phase phase_ = Phase::away;
   std::unique_ptr< Connection > commands_;
   std::unique_ptr< Picture > picture_;
   std::unique_ptr< LogReader > log_;
   std::unique_ptr< Lease > lease_;
   std::string client_, run_, epoch_, observedHolder_;
   bool complete_ = false, muted_ = false, rereads_ = true, wasToldAway_ = false;
   /// The database may have lost what others wrote, who will write it again: nothing ends yet.
   bool spares_ = false;
   std::uint64_t revision_ = 0;  ///< of the last turn that was taken over
   std::uint64_t openedAt_ = 0;  ///< of the database when this connection came
   bool catchesUp_ = false;      ///< up to that one
   std::uint64_t progress_ = 0, silentBeats_ = 0;
   std::uint64_t grantedAt_ = 0;  ///< when the lease was granted; 0: told
   bool isAuthority_ = false;     ///< lease and picture were both had
   /// Of what the lease is about: keys and fields that were refused, which are this process's own
   /// once it is the authority.
   std::vector< std::pair< std::string, std::string > > unreadable_;
   std::set< std::string > foreign_;  ///< keys at which something stands that is no state
   std::set< std::string > seen_;
   std::unordered_map< std::string, std::uint64_t > readAt_;
   std::uint64_t lastRead_ = 0;
   std::uint64_t beats_ = 0, stuckAt_ = 0, stuckBeats_ = 0;
   bool awaitsBeat_ = false;
   std::uint64_t resyncs_ = 0, refused_ = 0;
   /// On the stores, of what has come from the database. It begins and ends with a connection.
   Pace::Queue work_;
   Lum::Seconds delay_ = 0;
   Lum::ActivityLoop::TimerId flush_{ 0, 0 }, beat_{ 0, 0 }, connect_{ 0, 0 }, grace_{ 0, 0 };
};

}
