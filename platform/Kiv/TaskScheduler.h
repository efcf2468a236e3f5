#pragma once

#include "platform/Lum/ActivityLoop.h"
#include "platform/Lum/Attribute.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Kiv {

class Task;

/// Runs deferred work on the event loop.
class TaskScheduler : public Lum::Entity {
   LUM_ENTITY( Kiv, TaskScheduler );
   /// The loop outlives the scheduler.
   explicit TaskScheduler( Lum::ActivityLoop & loop ) : loop_( loop ) {}

   /// Number of tasks that are scheduled.
   std::size_t pending() const noexcept { return pending_; }
   /// Their names, sorted: what a system that does not come to rest is busy with. Of more than
   /// `most`, those that were scheduled last.
   std::vector< std::string > pendingNames( std::size_t most = ~std::size_t{ 0 } ) const;

   /// One for each owner; an empty one is none. `rests`: the last task that was scheduled is so no
   /// more, whatever happens next. `runs`: a task is about to run.
   struct Listener {
      std::function< void() > rests, runs;
   };
   void listenerIs( const void * owner, Listener listener );
   /// Deadlines count from the time at which a turn of the loop stands, so that whoever knows the
   /// turns knows in which order tasks run.
   void repeatableIs( bool repeatable ) { repeatable_ = repeatable; }

   /// How many rows of long work one task does before others are served. A number of rows, since
   /// work that is played again has to fall into the same pieces.
   std::size_t slice() const noexcept { return slice_; }
   /// REQUIRES: it is not 0.
   void sliceIs( std::size_t rows ) { slice_ = rows; }
   /// How many of so many rows may be done at once; the rest is for tasks. All who ask at one time
   /// share a slice.
   std::size_t grant( std::size_t rows );
   /// The same for all of them or none: false leaves the slice to others.
   bool grantAll( std::size_t rows );

 private:
   friend class Task;

   void tell( std::function< void() > Listener::*what ) const;

   Lum::ActivityLoop & loop_;
   bool repeatable_ = false;
   std::size_t slice_ = 400;
   std::size_t granted_ = 0;
   Lum::Seconds grantedAt_ = 0;
   std::size_t pending_ = 0;
   Task * scheduled_ = nullptr;
   std::map< const void *, Listener > listeners_;
};

/// A named piece of deferred work. It ends with its object, and where it is a state machine's, when
/// that machine is let go. The callback may schedule the task again or destroy it.
class Task {
 public:
   /// REQUIRES: `machine` owns the task.
   Task( const Lum::Reactor & machine, Lum::Ptr< TaskScheduler > scheduler, std::string name,
         std::function< void() > callback )
      : Task( std::move( scheduler ), std::move( name ), std::move( callback ) ) {
      machine_ = &machine;
   }
   Task( Lum::Ptr< TaskScheduler > scheduler, std::string name, std::function< void() > callback )
      : scheduler_( std::move( scheduler ) ),
        name_( std::move( name ) ),
        callback_( std::move( callback ) ) {}
   ~Task() { unschedule(); }
   Task( const Task & ) = delete;
   Task & operator=( const Task & ) = delete;

   /// Runs the callback once, `delay` seconds from now and never inside of this call. A task that
   /// is scheduled already gets the new deadline.
   void schedule( Lum::Seconds delay = 0 );
   void unschedule();
   bool scheduled() const noexcept { return timer_.second != 0; }
   const std::string & name() const noexcept { return name_; }

 private:
   friend class TaskScheduler;

   void run();
   void leave();

   Lum::Ptr< TaskScheduler > scheduler_;
   std::string name_;
   std::function< void() > callback_;
   const Lum::Reactor * machine_ = nullptr;
   Lum::ActivityLoop::TimerId timer_{ 0, 0 };
   Task * previous_ = nullptr;
   Task * next_ = nullptr;
};

}
