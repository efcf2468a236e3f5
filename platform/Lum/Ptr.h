#pragma once

#include <compare>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace Lum {

/// Counted reference to an object that keeps its own count (`Lum::Entity`). A null reference
/// tests false. Not for use from several threads.
template< class T >
class Ptr {
 public:
   constexpr Ptr() noexcept = default;
   constexpr Ptr( std::nullptr_t ) noexcept {}
   Ptr( T * object ) noexcept : object_( object ) { retain(); }
   Ptr( const Ptr & other ) noexcept : object_( other.object_ ) { retain(); }
   Ptr( Ptr && other ) noexcept : object_( std::exchange( other.object_, nullptr ) ) {}
   template< class U >
      requires std::is_convertible_v< U *, T * > Ptr( const Ptr< U > & other )
   noexcept : object_( other.ptr() ) { retain(); }
   template< class U >
      requires std::is_convertible_v< U *, T * > Ptr( Ptr< U > && other )
   noexcept : object_( other.detach() ) {}
   ~Ptr() {
      if ( object_ ) {
         object_->referenceDec();
      }
   }
   Ptr & operator=( Ptr other ) noexcept {
      std::swap( object_, other.object_ );
      return *this;
   }

   T * ptr() const noexcept { return object_; }
   T & operator*() const noexcept { return *object_; }
   T * operator->() const noexcept { return object_; }
   explicit operator bool() const noexcept { return object_ != nullptr; }
   /// Gives up the reference without releasing it; the caller now owns one count.
   T * detach() noexcept { return std::exchange( object_, nullptr ); }

   friend bool operator==( const Ptr & a, const Ptr & b ) noexcept {
      return a.object_ == b.object_;
   }
   friend bool operator==( const Ptr & a, std::nullptr_t ) noexcept { return !a.object_; }

 private:
   void retain() const noexcept {
      if ( object_ ) {
         object_->referenceInc();
      }
   }

   T * object_ = nullptr;
};

template< class T >
inline constexpr bool isPtr = false;
template< class T >
inline constexpr bool isPtr< Ptr< T > > = true;

/// The object as a `T`, or null when it is of another type.
template< class T, class U >
Ptr< T >
cast( const Ptr< U > & object ) {
   return Ptr< T >( dynamic_cast< T * >( object.ptr() ) );
}

}
