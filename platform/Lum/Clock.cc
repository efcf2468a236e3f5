// The process's clock. The activity loop installs the clock that it runs on, so that stamps taken
// in handlers and the deadlines of tasks come from one source.

#include "platform/Lum/Clock.h"

#include "platform/Lum/Assert.h"

#include <ctime>

namespace Lum {

namespace {

const RealClock realClock;
const Clock * currentClock = &realClock;

}

Seconds
RealClock::read() {
   timespec time{};
   clock_gettime( CLOCK_MONOTONIC, &time );
   return static_cast< Seconds >( time.tv_sec ) + static_cast< Seconds >( time.tv_nsec ) * 1e-9;
}

void
VirtualClock::nowIs( Seconds time ) {
   LUM_ASSERT( time >= now_ );
   now_ = time;
}

Seconds
now() {
   return currentClock->now();
}

void
currentClockIs( const Clock * clock ) {
   currentClock = clock ? clock : &realClock;
}

}
