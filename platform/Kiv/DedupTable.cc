// Shared values. A handle that loses its last reference is held once more while it takes its leave:
// it goes out of the table, then the life-time notifiee hears of it, then it is deleted.

#include "platform/Kiv/DedupTable.h"

#include <utility>

namespace Kiv {

void
DedupHandle::lastReferenceGone() {
   if ( DedupHashTable * table = std::exchange( table_, nullptr ) ) {
      table->remove( this );
   } else {
      delete this;
   }
}

DedupHashTable::~DedupHashTable() {
   detach();
}

void
DedupHashTable::DedupHashTableUnorderedSetIs( bool unordered ) {
   LUM_ASSERT( size() == 0 );
   unordered_ = unordered;
}

Lum::Ptr< DedupHandle >
DedupHashTable::dedup( const Lum::Ptr< DedupHandle > & candidate ) {
   LUM_ASSERT( !beingDetached() );
   DedupHandle * const handle = candidate.ptr();
   if ( unordered_ ) {
      const auto [ at, fresh ] = unorderedSet_.insert( handle );
      if ( !fresh ) {
         return ( *at )->referencesIncReturnRef();
      }
   } else {
      const auto [ at, fresh ] = orderedSet_.insert( handle );
      if ( !fresh ) {
         return ( *at )->referencesIncReturnRef();
      }
   }
   LUM_ASSERT( !handle->table_ );
   handle->table_ = this;
   if ( const auto notifiee = notifiee_ ) {
      notifiee->handleInsert( candidate );
   }
   return candidate;
}

void
DedupHashTable::remove( DedupHandle * handle ) {
   const Lum::Ptr< DedupHandle > leaving( handle );
   if ( unordered_ ) {
      unorderedSet_.erase( handle );
   } else {
      orderedSet_.erase( handle );
   }
   if ( const auto notifiee = notifiee_ ) {
      notifiee->handleRemove( leaving );
   }
}

void
DedupHashTable::detach() {
   beingDetached_ = true;
   for ( DedupHandle * handle : unorderedSet_ ) {
      handle->table_ = nullptr;
   }
   for ( DedupHandle * handle : orderedSet_ ) {
      handle->table_ = nullptr;
   }
   unorderedSet_.clear();
   orderedSet_.clear();
}

}
