// Free blocks of each size stand in a list that runs through them. A slab is cut as its blocks are
// first taken, so that no memory is touched before it is used.

#include "platform/Lum/Blocks.h"

#include <array>
#include <cstdint>

#if defined( __SANITIZE_ADDRESS__ )
#define LUM_HEAP_IS_WATCHED
#elif defined( __has_feature )
#if __has_feature( address_sanitizer )
#define LUM_HEAP_IS_WATCHED
#endif
#endif

namespace Lum {

#ifdef LUM_HEAP_IS_WATCHED

void *
takeBlock( std::size_t bytes ) {
   return ::operator new( bytes );
}

void
giveBlock( void * block, std::size_t ) noexcept {
   ::operator delete( block );
}

std::size_t
freeBlockBytes() {
   return 0;
}

#else

namespace {

constexpr std::size_t unit = 8;
constexpr std::size_t mostBytes = 512;  // of a block; larger ones are the heap's
constexpr std::size_t slabBytes = 16384;

struct Free {
   Free * next;
};

struct Size {
   Free * free = nullptr;
   std::byte * uncut = nullptr;
   std::byte * end = nullptr;
};

thread_local constinit std::array< Size, mostBytes / unit + 1 > sizes{};

}

void *
takeBlock( std::size_t bytes ) {
   if ( bytes > mostBytes ) {
      return ::operator new( bytes );
   }
   const std::size_t units = ( bytes + unit - 1 ) / unit;
   Size & size = sizes[ units ];
   if ( Free * const block = size.free ) {
      size.free = block->next;
      return block;
   }
   if ( static_cast< std::size_t >( size.end - size.uncut ) < units * unit ) {
      size.uncut = static_cast< std::byte * >( ::operator new( slabBytes ) );
      size.end = size.uncut + slabBytes;
   }
   std::byte * const block = size.uncut;
   size.uncut += units * unit;
   return block;
}

void
giveBlock( void * block, std::size_t bytes ) noexcept {
   if ( bytes > mostBytes ) {
      ::operator delete( block );
   } else if ( block ) {
      Free *& free = sizes[ ( bytes + unit - 1 ) / unit ].free;
      free = new ( block ) Free{ free };
   }
}

std::size_t
freeBlockBytes() {
   std::size_t bytes = 0;
   for ( std::size_t units = 0; units < sizes.size(); ++units ) {
      bytes += static_cast< std::size_t >( sizes[ units ].end - sizes[ units ].uncut );
      for ( const Free * block = sizes[ units ].free; block; block = block->next ) {
         bytes += units * unit;
      }
   }
   return bytes;
}

#endif

}
