#pragma once

#include "platform/Lum/Ptr.h"

#include <memory>

namespace Lum {

/// Seconds of the framework clock, double precision.
using Seconds = double;

/// Where time comes from. Nothing outside of the platform reads another clock.
class Clock {
 public:
   virtual ~Clock() = default;
   virtual Seconds now() const = 0;
};

/// Seconds since the machine started (CLOCK_MONOTONIC): never steps back, is never 0.
class RealClock : public Clock {
 public:
   Seconds now() const override { return standsAt_ > 0 ? standsAt_ : read(); }
   /// While it stands still, the clock gives the time at which it was stopped.
   void standsStillIs( bool standsStill ) { standsAt_ = standsStill ? read() : 0; }
   /// The time as it is, whether or not a clock stands still.
   static Seconds read();

 private:
   Seconds standsAt_ = 0;
};

/// Time that moves only when it is told to, so that every run is repeatable. It does not start
/// at 0, which code may take for "never".
class VirtualClock : public Clock {
 public:
   static constexpr Seconds start = 1000;

   Seconds now() const override { return now_; }
   /// REQUIRES: `time` is not before now().
   void nowIs( Seconds time );

 private:
   Seconds now_ = start;
};

/// Time of the process's current clock: the real one until another is installed.
Seconds now();

/// Installs `clock` as the process's clock (null: the real one). The caller keeps it alive.
void currentClockIs( const Clock * clock );

}
