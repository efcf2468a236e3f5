// Preloaded into a program: the allocation whose number stands in the environment's
// FAILING_ALLOCATION fails, and all that follow succeed again.

#include <cerrno>
#include <cstddef>
#include <cstdlib>

extern "C" void * __libc_malloc( std::size_t size );

extern "C" void *
malloc( std::size_t size ) {
   static long left = -1;
   if ( left < 0 ) {
      const char * const number = std::getenv( "FAILING_ALLOCATION" );
      left = number ? std::strtol( number, nullptr, 10 ) : 0;
   }
   if ( left > 0 && --left == 0 ) {
      errno = ENOMEM;
      return nullptr;
   }
   return __libc_malloc( size );
}
