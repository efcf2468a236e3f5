#pragma once

#include "platform/Lum/Blocks.h"

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace Lum {

/// A short array whose copies share their elements, in one block of memory, until one of them is
/// written: a copy costs a pointer, an empty one no more. At most 65,535 elements. Counted without
/// locks, for one thread.
template< class T >
class SharedArray {
 public:
   SharedArray() = default;
   SharedArray( const SharedArray & other ) noexcept : block_( other.block_ ) {
      if ( block_ ) {
         ++block_->holders;
      }
   }
   SharedArray( SharedArray && other ) noexcept
      : block_( std::exchange( other.block_, nullptr ) ) {}
   SharedArray & operator=( SharedArray other ) noexcept {
      std::swap( block_, other.block_ );
      return *this;
   }
   ~SharedArray() { clear(); }

   const T * begin() const noexcept { return elements(); }
   const T * end() const noexcept { return elements() + size(); }
   std::size_t size() const noexcept { return block_ ? block_->size : 0; }
   const T & operator[]( std::size_t i ) const noexcept { return elements()[ i ]; }

   /// To be written: nobody else's, with room for so many elements.
   T * own( std::size_t room ) {
      if ( room && ( !block_ || block_->holders > 1 || block_->capacity < room ) ) {
         SharedArray owned( std::max( room, size() ) );
         const auto to = owned.elements();
         if ( block_ && block_->holders == 1 ) {
            std::uninitialized_move_n( elements(), size(), to );
         } else {
            std::uninitialized_copy_n( elements(), size(), to );
         }
         owned.block_->size = static_cast< std::uint16_t >( size() );
         std::swap( block_, owned.block_ );
      }
      return elements();
   }
   /// Default elements behind those that are there. REQUIRES: it has none less.
   void resize( std::size_t count ) {
      const bool grows = !block_ || block_->capacity < count;
      T * const own = this->own( grows ? std::max( count, size() + size() / 2 ) : count );
      std::uninitialized_value_construct( own + size(), own + count );
      block_->size = static_cast< std::uint16_t >( count );
   }
   /// REQUIRES: the element is there.
   void erase( std::size_t i ) {
      T * const own = this->own( size() );
      std::move( own + i + 1, own + size(), own + i );
      std::destroy_at( own + --block_->size );
   }
   void clear() noexcept {
      Block * const block = std::exchange( block_, nullptr );
      if ( block && --block->holders == 0 ) {
         std::destroy_n( elements( block ), block->size );
         giveBlock( block, bytes( block->capacity ) );
      }
   }
   /// Whether both are copies of one, and so the same without a look at either.
   bool shares( const SharedArray & other ) const noexcept { return block_ == other.block_; }

 private:
   struct Block {
      std::uint32_t holders = 1;
      std::uint16_t size = 0;
      std::uint16_t capacity;
   };
   static constexpr std::size_t offset = std::max( sizeof( Block ), alignof( T ) );
   static_assert( alignof( T ) <= 8 );

   static constexpr std::size_t bytes( std::size_t capacity ) noexcept {
      return offset + bytesOf< T >( capacity );
   }

   explicit SharedArray( std::size_t capacity )
      : block_( new ( takeBlock( bytes( capacity ) ) )
                   Block{ .capacity = static_cast< std::uint16_t >( capacity ) } ) {}

   static T * elements( Block * block ) noexcept {
      return block ? reinterpret_cast< T * >( reinterpret_cast< std::byte * >( block ) + offset )
                   : nullptr;
   }
   T * elements() const noexcept { return elements( block_ ); }

   Block * block_ = nullptr;
};

}
