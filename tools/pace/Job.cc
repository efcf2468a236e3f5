#include "tools/pace/Job.h"

#include <utility>

namespace Pace {

namespace {

/// The work is given up. No handler of errors takes it for one.
struct GivenUp {};

/// The job that this thread works for.
thread_local Job * inHand = nullptr;

}

void
breathe() {
   breatheQuietly();
   if ( inHand && inHand->givenUp_ ) {
      throw GivenUp();
   }
}

void
breatheQuietly() noexcept {
   if ( inHand && !inHand->givenUp_ && inHand->loop_.deadlineAfter( 0 ) >= inHand->sliceEnd_ ) {
      inHand->pause();
   }
}

bool
isAtWork() noexcept {
   return inHand != nullptr;
}

Job::Job( Lum::ActivityLoop & loop, Work work, Ended ended )
   : loop_( loop ),
     work_( std::move( work ) ),
     ended_( std::move( ended ) ),
     thread_( [ this ] { run(); } ) {
   arm();
}

Job::~Job() {
   loop_.timerDel( next_ );
   if ( thread_.joinable() ) {
      givenUp_ = true;
      workGoes_.release();
      thread_.join();
   }
}

void
Job::arm() {
   next_ = loop_.timerIs( loop_.deadlineAfter( 0 ), [ this ] {
      next_ = { 0, 0 };
      slice();
   } );
}

void
Job::slice() {
   sliceEnd_ = loop_.deadlineAfter( sliceLength );
   workGoes_.release();
   loopGoes_.acquire();
   if ( !over_ ) {
      arm();
      return;
   }
   thread_.join();
   const auto tellEnd = ended_;
   tellEnd( std::exchange( failure_, nullptr ) );
}

void
Job::run() {
   inHand = this;
   workGoes_.acquire();
   try {
      if ( !givenUp_ ) {
         work_();
      }
   } catch ( const GivenUp & ) {
   } catch ( ... ) {
      failure_ = std::current_exception();
   }
   work_ = nullptr;
   over_ = true;
   loopGoes_.release();
}

void
Job::pause() noexcept {
   loopGoes_.release();
   workGoes_.acquire();
}

}
