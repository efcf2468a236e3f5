// The event loop. Timers stand in a map ordered by deadline and arming; a timer is taken out before
// its callback runs, so a callback may arm, cancel or destroy anything, itself included. A
// descriptor's callback is shared for the duration of its call for the same reason.

#include "platform/Lum/ActivityLoop.h"

#include "platform/Lum/Assert.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <sys/epoll.h>
#include <unistd.h>

namespace Lum {

ActivityLoop::ActivityLoop( Time time )
   : isVirtual_( time == Time::virtualTime ), epollFd_( epoll_create1( EPOLL_CLOEXEC ) ) {
   LUM_ASSERT( epollFd_ >= 0 );
   if ( isVirtual_ ) {
      clock_ = std::make_unique< VirtualClock >();
   } else {
      clock_ = std::make_unique< RealClock >();
   }
   currentClockIs( clock_.get() );
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
ActivityLoop::fdIs( int fd, std::uint32_t events,
                    std::function< void( std::uint32_t ) > callback ) {
   epoll_event event{};
   event.events = events;
   event.data.fd = fd;
   const int operation = fds_.contains( fd ) ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
   LUM_ASSERT( epoll_ctl( epollFd_, operation, fd, &event ) == 0 );
   fds_[ fd ] = std::make_shared< std::function< void( std::uint32_t ) > >( std::move( callback ) );
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
      virtualClock().nowIs( timer.key().first );
   }
   timer.mapped()();
   return true;
}

void
ActivityLoop::serveDescriptors( Seconds maxWait ) {
   std::array< epoll_event, 64 > events;
   const double milliseconds = std::ceil( std::clamp( maxWait, 0.0, 3600.0 ) * 1000 );
   const int ready = epoll_wait( epollFd_, events.data(), events.size(),
                                 static_cast< int >( milliseconds ) );
   LUM_ASSERT( ready >= 0 || errno == EINTR );
   for ( int i = 0; i < ready; ++i ) {
      const auto at = fds_.find( events[ i ].data.fd );
      if ( at != fds_.end() ) {
         const auto callback = at->second;
         ( *callback )( events[ i ].events );
      }
   }
}

void
ActivityLoop::runOnce( Seconds maxWait ) {
   const Seconds wait = isVirtual_ ? 0 : std::min( maxWait, nextDeadline() - now() );
   if ( wait > 0 || !fds_.empty() ) {
      serveDescriptors( wait );
   }
   const std::uint64_t armedBefore = armed_;
   const Seconds due = now();
   while ( !timers_.empty() && timers_.begin()->first.second <= armedBefore && fireOne( due ) ) {
   }
}

void
ActivityLoop::run() {
   running_ = true;
   while ( running_ ) {
      runOnce( 3600 );
   }
}

void
ActivityLoop::advance( Seconds duration ) {
   const Seconds end = now() + duration;
   while ( fireOne( end ) ) {
   }
   virtualClock().nowIs( end );
}

bool
ActivityLoop::settle( std::size_t maxTimers, Seconds until ) {
   LUM_ASSERT( isVirtual_ );
   while ( maxTimers-- > 0 && fireOne( until ) ) {
   }
   return timers_.empty();
}

VirtualClock &
ActivityLoop::virtualClock() {
   LUM_ASSERT( isVirtual_ );
   return static_cast< VirtualClock & >( *clock_ );
}

}
