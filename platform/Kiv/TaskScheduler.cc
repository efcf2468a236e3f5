// Deferred work. A scheduled task is one timer of the loop and one link in the scheduler's list.

#include "platform/Kiv/TaskScheduler.h"

#include <algorithm>
#include <utility>

namespace Kiv {

std::vector< std::string >
TaskScheduler::pendingNames( std::size_t most ) const {
   std::vector< std::string > names;
   for ( const Task * task = scheduled_; task && names.size() < most; task = task->next_ ) {
      names.push_back( task->name() );
   }
   std::sort( names.begin(), names.end() );
   return names;
}

void
TaskScheduler::listenerIs( const void * owner, Listener listener ) {
   if ( listener.rests || listener.runs ) {
      listeners_[ owner ] = std::move( listener );
   } else {
      listeners_.erase( owner );
   }
}

std::size_t
TaskScheduler::grant( std::size_t rows ) {
   if ( std::exchange( grantedAt_, loop_.now() ) != loop_.now() ) {
      granted_ = 0;
   }
   const std::size_t now = std::min( rows, slice_ - std::min( slice_, granted_ ) );
   granted_ += now;
   return now;
}

bool
TaskScheduler::grantAll( std::size_t rows ) {
   const std::size_t now = grant( rows );
   granted_ -= now < rows ? now : 0;
   return now == rows;
}

void
TaskScheduler::tell( std::function< void() > Listener::*what ) const {
   for ( const auto & [ owner, listener ] : listeners_ ) {
      if ( listener.*what ) {
         ( listener.*what )();
      }
   }
}

void
Task::schedule( Lum::Seconds delay ) {
   unschedule();
   auto & loop = scheduler_->loop_;
   timer_ =
      loop.timerIs( scheduler_->repeatable_ ? loop.now() + delay : loop.deadlineAfter( delay ),
                    [ this ] { run(); } );
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
   if ( --scheduler_->pending_ == 0 ) {
      scheduler_->tell( &TaskScheduler::Listener::rests );
   }
}

void
Task::run() {
   scheduler_->tell( &TaskScheduler::Listener::runs );
   leave();
   if ( machine_ && machine_->isRetired() ) {
      return;
   }
   const auto callback = callback_;  // the task may be destroyed by it
   callback();
}

}
