#pragma once

#include "platform/Lum/Blocks.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace Lum {

/// A vector of plain records for objects of which there are many: it takes one pointer, nothing
/// more while it is empty, and grows by one as long as it is short.
template< class T >
class PackedVector {
   static_assert( std::is_trivially_copyable_v< T > && alignof( T ) <= 8 );

 public:
   PackedVector() = default;
   PackedVector( const PackedVector & ) = delete;
   PackedVector & operator=( const PackedVector & ) = delete;
   ~PackedVector() { clear(); }

   std::uint32_t size() const noexcept { return block_ ? block_->size : 0; }
   bool empty() const noexcept { return size() == 0; }
   T * begin() noexcept { return block_ ? reinterpret_cast< T * >( block_ + 1 ) : nullptr; }
   T * end() noexcept { return begin() + size(); }
   T & back() noexcept { return end()[ -1 ]; }
   void insert( T * before, const T & element ) {
      const std::ptrdiff_t index = size() ? before - begin() : 0;
      const T inserted = element;
      grow();
      std::copy_backward( begin() + index, end(), end() + 1 );
      begin()[ index ] = inserted;
      ++block_->size;
   }
   void push_back( const T & element ) { insert( end(), element ); }
   void erase( T * from, T * to ) {
      if ( from != to ) {
         block_->size = static_cast< std::uint32_t >( std::copy( to, end(), from ) - begin() );
      }
   }
   void clear() noexcept { give( std::exchange( block_, nullptr ) ); }

 private:
   struct alignas( 8 ) Block {
      std::uint32_t size, capacity;
   };

   static std::size_t bytes( std::uint32_t capacity ) {
      return sizeof( Block ) + bytesOf< T >( capacity );
   }
   static void give( Block * block ) noexcept {
      if ( block ) {
         giveBlock( block, bytes( block->capacity ) );
      }
   }
   void grow() {
      if ( block_ && block_->size < block_->capacity ) {
         return;
      }
      const std::uint32_t capacity = size() + 1 + size() / 4;
      auto * const grown = new ( takeBlock( bytes( capacity ) ) ) Block{ size(), capacity };
      std::copy( begin(), end(), reinterpret_cast< T * >( grown + 1 ) );
      give( std::exchange( block_, grown ) );
   }

   Block * block_ = nullptr;
};

}
