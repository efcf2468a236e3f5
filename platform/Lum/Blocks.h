#pragma once

#include <cstddef>
#include <new>

/// Memory of small objects, of which a service of many paths has many. Blocks of one size stand
/// side by side in slabs, without a word of their own beside each; those that are given back serve
/// the next of that size, and are never returned to the system. Under a sanitizer that watches the
/// heap they are the heap's own. Without locks, for one thread.
namespace Lum {

/// Aligned to 8 bytes. Throws std::bad_alloc.
void * takeBlock( std::size_t bytes );
/// To be called with the size that it was taken with.
void giveBlock( void * block, std::size_t bytes ) noexcept;

/// Of the slabs, what no block takes at the moment. O(free blocks).
std::size_t freeBlockBytes();

template< class T >
constexpr std::size_t
bytesOf( std::size_t count ) noexcept {
   return count * sizeof( T );  // NOLINT(bugprone-sizeof-expression): also of pointers
}

/// The same for the nodes of containers.
template< class T >
struct BlockAllocator {
   using value_type = T;

   BlockAllocator() = default;
   template< class U >
   BlockAllocator( const BlockAllocator< U > & ) noexcept {}
   T * allocate( std::size_t count ) {
      return static_cast< T * >( takeBlock( bytesOf< T >( count ) ) );
   }
   void deallocate( T * first, std::size_t count ) noexcept {
      giveBlock( first, bytesOf< T >( count ) );
   }
   template< class U >
   bool operator==( const BlockAllocator< U > & ) const noexcept {
      return true;
   }
};

}
