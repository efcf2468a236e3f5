#pragma once

#include "platform/Lum/Blocks.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <type_traits>
#include <utility>

namespace Lum {

/// A vector of plain records for objects of which there are many: it takes one pointer, nothing
/// more while it is empty, and grows by one as long as it is short. One of pointers takes nothing
/// more while it has one element either.
template< class T >
class PackedVector {
   static_assert( std::is_trivially_copyable_v< T > && alignof( T ) <= 8 );
   static constexpr bool holdsOne = std::is_pointer_v< T >;

 public:
   using value_type = T;

   PackedVector() = default;
   /// Copies, with room for these alone.
   explicit PackedVector( std::span< const T > elements ) {
      if ( !elements.empty() ) {
         Block * const copy = blockFor( static_cast< std::uint32_t >( elements.size() ) );
         copy->size = copy->capacity;
         blockIs( copy );
         std::ranges::copy( elements, begin() );
      }
   }
   PackedVector( PackedVector && other ) noexcept
      : held_( std::exchange( other.held_, nullptr ) ) {}
   PackedVector & operator=( PackedVector other ) noexcept {
      std::swap( held_, other.held_ );
      return *this;
   }
   ~PackedVector() { clear(); }

   std::uint32_t size() const noexcept {
      const Block * const block = this->block();
      return block ? block->size : held_ ? 1 : 0;
   }
   bool empty() const noexcept { return size() == 0; }
   T * begin() noexcept {
      if ( Block * const block = this->block() ) {
         return elementsOf( block );
      }
      if constexpr ( holdsOne ) {
         return &held_;
      }
      return nullptr;
   }
   T * end() noexcept { return begin() + size(); }
   const T * begin() const noexcept { return const_cast< PackedVector * >( this )->begin(); }
   const T * end() const noexcept { return begin() + size(); }
   T & back() noexcept { return end()[ -1 ]; }
   void insert( T * before, const T & element ) {
      const std::ptrdiff_t index = size() ? before - begin() : 0;
      const T inserted = element;
      if constexpr ( holdsOne ) {
         if ( !held_ ) {
            held_ = inserted;
            return;
         }
      }
      grow();
      std::copy_backward( begin() + index, end(), end() + 1 );
      begin()[ index ] = inserted;
      ++block()->size;
   }
   void push_back( const T & element ) { insert( end(), element ); }
   void erase( T * from, T * to ) {
      if ( from == to ) {
         return;
      }
      if ( Block * const block = this->block() ) {
         block->size = static_cast< std::uint32_t >( std::copy( to, end(), from ) - begin() );
      } else {
         held_ = nullptr;
      }
   }
   void clear() noexcept {
      give( block() );
      held_ = nullptr;
   }

 private:
   struct alignas( 8 ) Block {
      std::uint32_t size, capacity;
   };

   static T * elementsOf( Block * block ) noexcept { return reinterpret_cast< T * >( block + 1 ); }
   static std::size_t bytes( std::uint32_t capacity ) {
      return sizeof( Block ) + bytesOf< T >( capacity );
   }
   static void give( Block * block ) noexcept {
      if ( block ) {
         giveBlock( block, bytes( block->capacity ) );
      }
   }
   static Block * blockFor( std::uint32_t capacity ) {
      return new ( takeBlock( bytes( capacity ) ) ) Block{ 0, capacity };
   }
   Block * block() const noexcept {
      if constexpr ( holdsOne ) {
         auto * const marked = const_cast< char * >( reinterpret_cast< const char * >( held_ ) );
         return reinterpret_cast< std::uintptr_t >( marked ) & 1
                   ? reinterpret_cast< Block * >( marked - 1 )
                   : nullptr;
      } else {
         return held_;
      }
   }
   void blockIs( Block * block ) noexcept {
      if constexpr ( holdsOne ) {
         held_ = reinterpret_cast< T >( reinterpret_cast< char * >( block ) + 1 );
      } else {
         held_ = block;
      }
   }
   void grow() {
      Block * const block = this->block();
      if ( block && block->size < block->capacity ) {
         return;
      }
      Block * const grown = blockFor( size() + 1 + size() / 4 );
      grown->size = size();
      std::copy( begin(), end(), elementsOf( grown ) );
      give( block );
      blockIs( grown );
   }

   /// The block; of pointers the only one, or the block's address with its lowest bit set.
   std::conditional_t< holdsOne, T, Block * > held_ = nullptr;
};

}
