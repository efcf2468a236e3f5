#pragma once

#include "platform/Lum/Attribute.h"

#include <cstdint>
#include <deque>
#include <limits>
#include <vector>

namespace Kiv {

/// The numbers `first` to `last`, both included.
struct Range {
   LUM_VALUE( Kiv, Range );
   LUM_FIELD( first, std::uint64_t );
   LUM_FIELD( last, std::uint64_t );

   std::uint64_t count() const { return last_ - first_ + 1; }
};

class NumAllocatorConfig : public Lum::Entity {
   LUM_ENTITY( Kiv, NumAllocatorConfig );
   explicit NumAllocatorConfig( const Range & range ) : range_( range ) {}
   LUM_ATTRIBUTE( range, Range );
};

class NumAllocatorStatus : public Lum::Entity {
   LUM_ENTITY( Kiv, NumAllocatorStatus );
   LUM_ATTRIBUTE( inUse, std::uint64_t );  ///< numbers that are out
};

/// Hands out the numbers of a range. Fresh numbers go first, in rising order; numbers that came
/// back are given again, oldest first, only when no fresh one is left.
class NumAllocator : public Lum::Entity {
   LUM_ENTITY( Kiv, NumAllocator );
   NumAllocator( const Lum::Ptr< const NumAllocatorConfig > & config,
                 Lum::Ptr< NumAllocatorStatus > status );

   static constexpr std::uint64_t invalidNumber() {
      return std::numeric_limits< std::uint64_t >::max();
   }
   /// A number that is not out, or `invalidNumber()`. O(1).
   std::uint64_t getNumber();
   /// REQUIRES: the number is out. O(1).
   void releaseNumber( std::uint64_t number );

 private:
   const Range range_;
   const Lum::Ptr< NumAllocatorStatus > status_;
   std::vector< bool > out_;  // by number - first, as far as fresh ones have gone
   std::deque< std::uint64_t > back_;
};

}
