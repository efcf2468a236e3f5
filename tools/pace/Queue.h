#pragma once

#include "tools/pace/Job.h"

#include <deque>
#include <memory>

namespace Pace {

/// Work of a loop that is done in the order in which it came: what is short at once, while nothing
/// waits before it and the turn of the loop has only begun; all else in a job. Where no thread can
/// be made for that, everything is done at once.
class Queue {
 public:
   enum class Length { brief, unknown };

   /// `idle` is called in a turn of the loop when all that had to wait is done. The loop outlives
   /// the queue.
   Queue( Lum::ActivityLoop & loop, Job::Work idle );

   void add( Job::Work work, Length length );
   /// Nothing waits, and nothing is under way that had to.
   bool isEmpty() const noexcept { return !job_; }
   /// Gives up what waits, and what is under way where it breathes next. REQUIRES: not called by
   /// such work.
   void clear();

 private:
   std::unique_ptr< Job > makeJob();
   void workOff();

   Lum::ActivityLoop & loop_;
   const Job::Work idle_;
   std::deque< Job::Work > waiting_;
   std::unique_ptr< Job > job_;
};

}
