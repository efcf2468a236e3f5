#pragma once

#include "platform/Lum/Clock.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <span>
#include <sys/epoll.h>
#include <unordered_map>
#include <utility>

namespace Lum {

/// The one event loop of a process: timers and file descriptors, on epoll.
///
/// Its clock, real or virtual, is the process's clock while the loop lives. Timers of equal
/// deadline fire in order of arming. Time stands still while the handlers of one turn run, on
/// either clock; the virtual one moves only in `advance` and `settle`, from deadline to deadline.
/// Deadlines count from the time as it is, so that a delay that is longer than a turn has a rest.
///
/// A program with a loop of its own drives this one from there: it waits until `epollFd` is
/// readable or `nextDeadline` is reached, then calls `runOnce( 0 )`, and asks for the deadline
/// anew.
class ActivityLoop {
 public:
   using Callback = std::function< void() >;
   using FdCallback = std::function< void( std::uint32_t events ) >;
   /// A deadline and the number of its arming; {0, 0} is no timer.
   using TimerId = std::pair< Seconds, std::uint64_t >;

   enum class Time { real, virtualTime };
   explicit ActivityLoop( Time time );
   ~ActivityLoop();
   ActivityLoop( const ActivityLoop & ) = delete;
   ActivityLoop & operator=( const ActivityLoop & ) = delete;

   Seconds now() const { return isVirtual_ ? virtualClock_.now() : realClock_.now(); }

   /// The deadline of a timer that is armed now, to fire after `delay` seconds.
   Seconds deadlineAfter( Seconds delay ) const {
      return ( isVirtual_ ? virtualClock_.now() : RealClock::read() ) + delay;
   }
   TimerId timerIs( Seconds deadline, Callback callback );
   void timerDel( const TimerId & id );
   /// The earliest deadline, on the clock of `now`; infinity where no timer is armed. It moves with
   /// whatever is done to the process's state, in turns and between them.
   Seconds nextDeadline() const;
   /// An epoll descriptor that is readable while one of the loop's descriptors is ready. It stays
   /// the loop's, and is only to be waited for.
   int epollFd() const noexcept { return epollFd_; }

   /// Calls `callback( events )` when one of the epoll `events` is there. Replaces an earlier call
   /// for the same descriptor. The descriptor stays the caller's.
   void fdIs( int fd, std::uint32_t events, FdCallback callback );
   void fdDel( int fd );

   /// One turn: waits at most `maxWait` seconds for a timer or a descriptor, then serves those that
   /// are due; timers of which many are due go on in the next turn, after the descriptors. On the
   /// virtual clock it does not wait and time does not move.
   void runOnce( Seconds maxWait );
   /// Turns until `stop`. REQUIRES: the clock is real.
   void run();
   void stop() { running_ = false; }

   /// Virtual clock: serves everything due within `duration`, in order, and ends that much later.
   void advance( Seconds duration );
   /// Virtual clock: it is so late, and what is due waits. REQUIRES: time does not go back.
   void nowIs( Seconds time );
   /// Virtual clock: moves from deadline to deadline until no timer is armed. Gives up, and gives
   /// false, after `maxTimers` timers or when the next deadline lies beyond `until`.
   bool settle( std::size_t maxTimers = 10'000'000,
                Seconds until = std::numeric_limits< Seconds >::infinity() );

 private:
   struct Descriptor {
      std::uint32_t number;  // tells a descriptor from an earlier one of the same value
      std::shared_ptr< FdCallback > callback;
   };

   bool fireOne( Seconds until );
   void serveDescriptors( std::span< const epoll_event > ready );
   void serveTimers();

   const bool isVirtual_;
   bool running_ = false;
   int epollFd_;
   RealClock realClock_;
   VirtualClock virtualClock_;
   std::uint64_t armed_ = 0;
   std::map< TimerId, Callback > timers_;
   std::uint32_t watched_ = 0;
   std::unordered_map< int, Descriptor > fds_;
};

}
