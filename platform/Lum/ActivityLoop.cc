// The event loop. A turn waits, stops the clock, serves the descriptors that are ready, then the
// timers that are due, and lets time go on. Timers stand in a map ordered by deadline and
// arming; a timer is taken out before its callback runs, so a callback may arm, cancel or destroy
// anything, itself included. A descriptor's callback is shared for the duration of its call for
// the same reason. Timers that are armed in a turn wait for the next one, so that a task that keeps
// arming itself cannot starve the descriptors; nor can many that are due at once, since they get no
// more than a slice of time in a turn.

#include "platform/Lum/ActivityLoop.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <unistd.h>

namespace Lum {

namespace {

/// Seconds of one turn after which no further timer is begun.
constexpr Seconds slice = 0.02;

}

ActivityLoop::ActivityLoop( Time time )
   : isVirtual_( time == Time::virtualTime ),
     epollFd_( epoll_create1( EPOLL_CLOEXEC ) ) {
   LUM_ASSERT( epollFd_ >= 0 );
   currentClockIs( isVirtual_ ? static_cast< const Clock * >( &virtualClock_ ) : &realClock_ );
}

ActivityLoop::~ActivityLoop() {
   currentClockIs( nullptr );
   close( epollFd_ );
}

ActivityLoop::TimerId
ActivityLoop::timerIs( Seconds deadline, Callback callback ) {
   const TimerId id{ deadline, ++armed_ };
   timers_.emplace( id, std::move( callback ) );
   return id;
}

void
ActivityLoop::timerDel( const TimerId & id ) {
   timers_.erase( id );
}

Seconds
ActivityLoop::nextDeadline() const {
   return timers_.empty() ? std::numeric_limits< Seconds >::infinity()
                          : timers_.begin()->first.first;
}

void
ActivityLoop::fdIs( int fd, std::uint32_t events, FdCallback callback ) {
   const std::uint32_t number = ++watched_;
   epoll_event event{};
   event.events = events;
   event.data.u64 = std::uint64_t( number ) << 32 | static_cast< std::uint32_t >( fd );
   const int operation = fds_.contains( fd ) ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
   LUM_ASSERT( epoll_ctl( epollFd_, operation, fd, &event ) == 0 );
   fds_[ fd ] = { number, std::make_shared< FdCallback >( std::move( callback ) ) };
}

void
ActivityLoop::fdDel( int fd ) {
   if ( fds_.erase( fd ) ) {
      epoll_ctl( epollFd_, EPOLL_CTL_DEL, fd, nullptr );
   }
}

bool
ActivityLoop::fireOne( Seconds until ) {
   if ( timers_.empty() || timers_.begin()->first.first > until ) {
      return false;
   }
   auto timer = timers_.extract( timers_.begin() );
   if ( isVirtual_ && timer.key().first > now() ) {
      virtualClock_.nowIs( timer.key().first );
   }
   timer.mapped()();
   return true;
}

void
ActivityLoop::serveDescriptors( std::span< const epoll_event > ready ) {
   for ( const epoll_event & event : ready ) {
      const auto at = fds_.find( static_cast< int >( event.data.u64 & 0xffffffff ) );
      if ( at != fds_.end() && at->second.number == event.data.u64 >> 32 ) {
         const auto callback = at->second.callback;
         ( *callback )( event.events );
      }
   }
}

void
ActivityLoop::serveTimers() {
   const std::uint64_t armedBefore = armed_;
   const Seconds due = now();
   const Seconds end = deadlineAfter( slice );
   while ( !timers_.empty() && timers_.begin()->first.second <= armedBefore && fireOne( due )
           && deadlineAfter( 0 ) < end ) {
   }
}

void
ActivityLoop::runOnce( Seconds maxWait ) {
   const Seconds wait = isVirtual_ ? 0 : std::min( maxWait, nextDeadline() - now() );
   const double milliseconds = std::ceil( std::clamp( wait, 0.0, 3600.0 ) * 1000 );
   std::array< epoll_event, 64 > events;
   const int ready =
      epoll_wait( epollFd_, events.data(), events.size(), static_cast< int >( milliseconds ) );
   LUM_ASSERT( ready >= 0 || errno == EINTR );
   realClock_.standsStillIs( true );
   serveDescriptors( { events.data(), static_cast< std::size_t >( std::max( ready, 0 ) ) } );
   serveTimers();
   realClock_.standsStillIs( false );
}

void
ActivityLoop::run() {
   LUM_ASSERT( !isVirtual_ );
   running_ = true;
   while ( running_ ) {
      runOnce( 3600 );
   }
}

void
ActivityLoop::advance( Seconds duration ) {
   LUM_ASSERT( isVirtual_ );
   const Seconds end = now() + duration;
   while ( fireOne( end ) ) {
   }
   virtualClock_.nowIs( end );
}

void
ActivityLoop::nowIs( Seconds time ) {
   LUM_ASSERT( isVirtual_ );
   virtualClock_.nowIs( time );
}

bool
ActivityLoop::settle( std::size_t maxTimers, Seconds until ) {
   LUM_ASSERT( isVirtual_ );
   while ( maxTimers-- > 0 && fireOne( until ) ) {
   }
   return timers_.empty();
}

}
