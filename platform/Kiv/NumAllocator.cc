// Numbers out of a range. The bit vector has as many places as fresh numbers have been taken, so
// that a large range costs nothing before it is used.

#include "platform/Kiv/NumAllocator.h"

namespace Kiv {

NumAllocator::NumAllocator( const Lum::Ptr< const NumAllocatorConfig > & config,
                            Lum::Ptr< NumAllocatorStatus > status )
   : range_( config->range() ),
     status_( std::move( status ) ) {}

std::uint64_t
NumAllocator::getNumber() {
   std::uint64_t offset = out_.size();
   if ( offset < range_.count() ) {
      out_.push_back( true );
   } else if ( back_.empty() ) {
      return invalidNumber();
   } else {
      offset = back_.front();
      back_.pop_front();
      out_[ offset ] = true;
   }
   status_->inUseIs( status_->inUse() + 1 );
   return range_.first() + offset;
}

void
NumAllocator::releaseNumber( std::uint64_t number ) {
   const std::uint64_t offset = number - range_.first();
   LUM_ASSERT( offset < out_.size() && out_[ offset ] );
   out_[ offset ] = false;
   back_.push_back( offset );
   status_->inUseIs( status_->inUse() - 1 );
}

}
