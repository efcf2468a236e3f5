#pragma once

#include "platform/Kiv/TaskScheduler.h"

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

namespace Kiv {

/// Goes over keys in their order, a slice of rows in a turn of the loop, so that others are served
/// between. What is visited may end the walk, or the machine that owns it.
template< class Key >
class Walk {
 public:
   struct Steps {
      /// Gives how many rows it has worked on, at least one.
      std::function< std::size_t( const Key & key ) > visit;
      /// Behind the last key. It may start the walk again.
      std::function< void() > ended;
   };

   /// REQUIRES: `machine` owns the walk. Where the scheduler is null nothing is left for later.
   Walk( const Lum::Reactor & machine, const Lum::Ptr< TaskScheduler > & scheduler,
         std::string name, Steps steps )
      : machine_( machine ),
        scheduler_( scheduler ),
        steps_( std::move( steps ) ),
        task_( machine, scheduler, std::move( name ), [ this ] { goOn(); } ) {}

   /// Begins inside of this call, and ends there where no more than a slice is to be done.
   /// REQUIRES: no walk is under way.
   void start( std::vector< Key > keys ) {
      LUM_ASSERT( !isUnderWay() );
      const auto alive = machineKeptAlive();
      left_ = std::move( keys );
      std::ranges::make_heap( left_, std::greater() );
      isUnderWay_ = true;
      while ( hasNext() && ( !scheduler_ || scheduler_->grant( 1 ) == 1 ) ) {
         const std::size_t rows = visitNext();
         if ( scheduler_ ) {
            scheduler_->grant( rows - 1 );
         }
      }
      endOrRest();
   }
   /// Likewise in a later turn of the loop, so that who is told of what led to it is told first.
   void startLater( std::vector< Key > keys ) {
      if ( !scheduler_ ) {
         start( std::move( keys ) );
         return;
      }
      LUM_ASSERT( !isUnderWay() );
      left_ = std::move( keys );
      std::ranges::make_heap( left_, std::greater() );
      isUnderWay_ = true;
      task_.schedule();
   }
   /// The keys that are left are not visited any more.
   void stop() {
      isUnderWay_ = false;
      std::exchange( left_, {} );  // with its memory
      task_.unschedule();
   }
   bool isUnderWay() const noexcept { return isUnderWay_; }

 private:
   Lum::Ptr< const Lum::Reactor > machineKeptAlive() const {
      return machine_.references() ? &machine_ : nullptr;
   }
   void goOn() {
      const auto alive = machineKeptAlive();
      for ( std::size_t rows = 0; hasNext() && rows < scheduler_->slice(); ) {
         rows += visitNext();
      }
      endOrRest();
   }
   bool hasNext() const noexcept { return isUnderWay_ && !left_.empty(); }
   std::size_t visitNext() {
      std::ranges::pop_heap( left_, std::greater() );
      const Key key = std::move( left_.back() );
      left_.pop_back();
      return steps_.visit( key );
   }
   void endOrRest() {
      if ( hasNext() ) {
         task_.schedule();
      } else if ( isUnderWay_ ) {
         stop();
         steps_.ended();
      }
   }

   const Lum::Reactor & machine_;
   const Lum::Ptr< TaskScheduler > scheduler_;
   const Steps steps_;
   Task task_;
   std::vector< Key > left_;  // a heap, the next one on top
   bool isUnderWay_ = false;
};

}
