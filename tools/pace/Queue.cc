#include "tools/pace/Queue.h"

#include <system_error>
#include <utility>

namespace Pace {

Queue::Queue( Lum::ActivityLoop & loop, Job::Work idle )
   : loop_( loop ),
     idle_( std::move( idle ) ) {}

void
Queue::add( Job::Work work, Length length ) {
   if ( !job_ && length == Length::brief && loop_.deadlineAfter( 0 ) < loop_.now() + sliceLength ) {
      work();
      return;
   }
   waiting_.push_back( std::move( work ) );
   try {
      if ( !job_ ) {
         job_ = makeJob();
      }
   } catch ( const std::system_error & ) {  // no thread can be made
      workOff();
   }
}

std::unique_ptr< Job >
Queue::makeJob() {
   return std::make_unique< Job >(
      loop_, [ this ] { workOff(); },
      [ this ]( const std::exception_ptr & failure ) {
         job_.reset();
         if ( failure ) {
            std::rethrow_exception( failure );
         }
         idle_();
      } );
}

void
Queue::workOff() {
   while ( !waiting_.empty() ) {
      const Job::Work next = std::move( waiting_.front() );
      waiting_.pop_front();
      next();
      breathe();
   }
}

void
Queue::clear() {
   waiting_.clear();
   job_.reset();
}

}
