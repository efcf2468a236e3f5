#pragma once

#include "platform/Lum/ActivityLoop.h"

#include <exception>
#include <functional>
#include <semaphore>
#include <thread>

/// Long work beside an event loop.
namespace Pace {

/// Seconds of a slice.
inline constexpr Lum::Seconds sliceLength = 0.01;

/// Lets the loop go on where the slice of the job in hand is over; does nothing outside of a job.
/// Whoever has changed something calls it only when all that hear of it have returned.
void breathe();
/// As `breathe`, for destructors: a job that was given up goes on to where it breathes next.
void breatheQuietly() noexcept;
/// Whether this is the work of a job.
bool isAtWork() noexcept;

/// Destroys what the container holds, an element at a time, in a job; nothing is done outside of
/// one.
template< class Container >
void
takeApart( Container & all ) noexcept {
   while ( isAtWork() && !all.empty() ) {
      all.erase( all.begin() );
      breatheQuietly();
   }
}

/// Work that is done in slices of time, between which the loop serves others. It has a thread of
/// its own for its stack alone: either the work runs or the loop, never both, so that the work may
/// touch whatever the loop's thread may.
class Job {
 public:
   using Work = std::function< void() >;
   /// Called in a turn of the loop when the work is over, with what it threw or null. It may
   /// destroy the job.
   using Ended = std::function< void( std::exception_ptr failure ) >;

   /// The work begins in a later turn. The loop outlives the job. Throws std::system_error where no
   /// thread can be made.
   Job( Lum::ActivityLoop & loop, Work work, Ended ended );
   /// Gives the work up where it breathes next, and tells nobody.
   ~Job();
   Job( const Job & ) = delete;
   Job & operator=( const Job & ) = delete;

 private:
   friend void breathe();
   friend void breatheQuietly() noexcept;

   void arm();
   void slice();
   void run();
   void pause() noexcept;

   Lum::ActivityLoop & loop_;
   Work work_;
   const Ended ended_;
   Lum::ActivityLoop::TimerId next_{ 0, 0 };
   Lum::Seconds sliceEnd_ = 0;
   bool over_ = false;
   bool givenUp_ = false;
   std::exception_ptr failure_;
   std::binary_semaphore workGoes_{ 0 }, loopGoes_{ 0 };
   std::thread thread_;
};

}
