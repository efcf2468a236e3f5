#pragma once

#include "platform/Lum/Blocks.h"

#include <compare>
#include <cstdint>
#include <utility>

namespace Lum {

/// A value whose copies share one object until one of them is written: a copy costs a pointer. An
/// empty one reads as a default object. Counted without locks, for one thread.
template< class T >
class CopyOnWrite {
 public:
   CopyOnWrite() = default;
   CopyOnWrite( T value ) : shared_( new Shared{ std::move( value ) } ) {}
   CopyOnWrite( const CopyOnWrite & other ) noexcept : shared_( other.shared_ ) {
      if ( shared_ ) {
         ++shared_->holders;
      }
   }
   CopyOnWrite( CopyOnWrite && other ) noexcept
      : shared_( std::exchange( other.shared_, nullptr ) ) {}
   CopyOnWrite & operator=( CopyOnWrite other ) noexcept {
      std::swap( shared_, other.shared_ );
      return *this;
   }
   ~CopyOnWrite() { clear(); }

   const T & operator*() const noexcept { return shared_ ? shared_->value : none; }
   const T * operator->() const noexcept { return &**this; }
   /// To be written: nobody else's.
   T & own() {
      if ( !shared_ ) {
         shared_ = new Shared;
      } else if ( shared_->holders > 1 ) {
         auto * const copy = new Shared{ shared_->value };
         --shared_->holders;
         shared_ = copy;
      }
      return shared_->value;
   }
   /// It reads as a default object again.
   void clear() noexcept {
      Shared * const shared = std::exchange( shared_, nullptr );
      if ( shared && --shared->holders == 0 ) {
         delete shared;
      }
   }
   /// Whether both are copies of one, and so the same without a look at either.
   bool shares( const CopyOnWrite & other ) const noexcept { return shared_ == other.shared_; }
   friend bool operator==( const CopyOnWrite & a, const CopyOnWrite & b ) {
      return a.shares( b ) || *a == *b;
   }
   friend auto operator<=>( const CopyOnWrite & a, const CopyOnWrite & b ) {
      return a.shares( b ) ? std::strong_ordering::equal : *a <=> *b;
   }

 private:
   struct Shared {
      static void * operator new( std::size_t bytes ) { return takeBlock( bytes ); }
      static void operator delete( void * block, std::size_t bytes ) { giveBlock( block, bytes ); }

      T value{};
      std::uint32_t holders = 1;
   };
   static inline const T none{};

   Shared * shared_ = nullptr;
};

}
