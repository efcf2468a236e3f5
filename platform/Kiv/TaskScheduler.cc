// Deferred work. A scheduled task is one timer of the loop and one link in the scheduler's list.

#include "platform/Kiv/TaskScheduler.h"

#include <algorithm>

namespace Kiv {

std::vector< std::string >
TaskScheduler::pendingNames() const {
   std::vector< std::string > names;
   for ( const Task * task = scheduled_; task; task = task->next_ ) {
      names.push_back( task->name() );
   }
   std::sort( names.begin(), names.end() );
   return names;
}

void
Task::schedule( Lum::Seconds delay ) {
   unschedule();
   auto & loop = scheduler_->loop_;
   timer_ = loop.timerIs( loop.deadlineAfter( delay ), [ this ] { run(); } );
   next_ = scheduler_->scheduled_;
   if ( next_ ) {
      next_->previous_ = this;
   }
   scheduler_->scheduled_ = this;
   ++scheduler_->pending_;
}

void
Task::unschedule() {
   if ( scheduled() ) {
      scheduler_->loop_.timerDel( timer_ );
      leave();
   }
}

void
Task::leave() {
   timer_ = { 0, 0 };
   ( previous_ ? previous_->next_ : scheduler_->scheduled_ ) = next_;
   if ( next_ ) {
      next_->previous_ = previous_;
   }
   previous_ = next_ = nullptr;
   --scheduler_->pending_;
}

void
Task::run() {
   leave();
   if ( machine_ && machine_->isRetired() ) {
      return;
   }
   const auto callback = callback_;  // the task may be destroyed by it
   callback();
}

}
