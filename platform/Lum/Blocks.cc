// Free blocks of each size stand in a list that runs through them. A slab is cut as its blocks are
// first taken, so that no memory is touched before it is used.

#include "platform/Lum/Blocks.h"

#include <array>

#if defined( __SANITIZE_ADDRESS__ )
#define LUM_HEAP_IS_WATCHED 1
#elif defined( __has_feature )
#if __has_feature( address_sanitizer )
#define LUM_HEAP_IS_WATCHED 1
#endif
#endif

namespace Lum {

namespace {

#ifdef LUM_HEAP_IS_WATCHED
constexpr std::size_t mostBytes = 0;
#else
constexpr std::size_t mostBytes = 512;  // of a block; larger ones are the heap's
#endif
constexpr std::size_t unit = 8;
constexpr std::size_t slabBytes = 16384;

class BlockPool {
 public:
   void * take( std::size_t units ) {
      Size & size = sizes_[ units ];
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
   void give( void * block, std::size_t units ) noexcept {
      Free *& free = sizes_[ units ].free;
      free = new ( block ) Free{ free };
   }
   std::size_t freeBytes() const {
      std::size_t bytes = 0;
      for ( std::size_t units = 0; units < sizes_.size(); ++units ) {
         bytes += static_cast< std::size_t >( sizes_[ units ].end - sizes_[ units ].uncut );
         for ( const Free * block = sizes_[ units ].free; block; block = block->next ) {
            bytes += units * unit;
         }
      }
      return bytes;
   }

 private:
   struct Free {
      Free * next;
   };
   struct Size {
      Free * free = nullptr;
      std::byte * uncut = nullptr;
      std::byte * end = nullptr;
   };

   std::array< Size, mostBytes / unit + 1 > sizes_;
};

constinit BlockPool pool;

}

void *
takeBlock( std::size_t bytes ) {
   return bytes > mostBytes ? ::operator new( bytes ) : pool.take( ( bytes + unit - 1 ) / unit );
}

void
giveBlock( void * block, std::size_t bytes ) noexcept {
   if ( bytes > mostBytes ) {
      ::operator delete( block );
   } else if ( block ) {
      pool.give( block, ( bytes + unit - 1 ) / unit );
   }
}

std::size_t
freeBlockBytes() {
   return pool.freeBytes();
}

}
