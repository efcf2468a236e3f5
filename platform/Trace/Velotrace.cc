// The writer of the trace ring. It appends to memory that the kernel carries to the file, so a
// record costs no system call, and what was traced last is there whatever ends the process. A
// record is complete by its check sum, not by the order in which its bytes arrive.
//
// A file that somebody cuts short takes its pages away under the mapping. The write that meets this
// gets pages of its own instead, and the next record begins a new file.

#include "platform/Trace/Velotrace.h"

#include "platform/Lum/Assert.h"
#include "platform/Lum/Clock.h"
#include "platform/Trace/RingLayout.h"
#include "platform/Trace/Sinks.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace Velotrace {

namespace {

constexpr int defaultMaxLevel = 7;

volatile std::sig_atomic_t fileIsCut = 0;
struct sigaction actionBefore;

struct Ring {
   std::string fileName;
   std::string path;
   RingHeader * header = nullptr;
   char * data = nullptr;
   std::uint64_t capacity = defaultCapacity;
   int levelOffset = 0;
   bool replace = true;
   std::uint32_t maxTextLength = 0;
   int maxLevel = defaultMaxLevel;
} ring;

std::uint64_t
capacityOf( const char * sizeSpec, int maxSizeLog2 ) {
   std::uint64_t size = defaultCapacity;
   if ( sizeSpec ) {
      char * end = nullptr;
      size = std::strtoull( sizeSpec, &end, 10 );
      size = std::min( size, std::uint64_t( 1 ) << maxSizeLog2Limit );
      size <<= *end == 'K' ? 10 : *end == 'M' ? 20 : 0;
   }
   const int limit = std::clamp( maxSizeLog2, minSizeLog2, maxSizeLog2Limit );
   return std::clamp( size & ~std::uint64_t( 7 ), std::uint64_t( 1 ) << minSizeLog2,
                      std::uint64_t( 1 ) << limit );
}

std::string
pathOf( std::string fileName ) {
   if ( const auto at = fileName.find( "%d" ); at != fileName.npos ) {
      fileName.replace( at, 2, std::to_string( getpid() ) );
   }
   const char * directory = std::getenv( "VELOTRACEDIR" );
   if ( directory && fileName.find( '/' ) == fileName.npos ) {
      return std::string( directory ) + "/" + fileName;
   }
   return fileName;
}

std::int64_t
nanosecondsNow() {
   return static_cast< std::int64_t >( Lum::now() * 1e9 );
}

std::int64_t
utcOffset() {
   timespec utc;
   clock_gettime( CLOCK_REALTIME, &utc );
   return utc.tv_sec * std::int64_t( 1'000'000'000 ) + utc.tv_nsec - nanosecondsNow();
}

/// Maps a new file of the ring's size whose blocks are all there: a write into a hole of a
/// file on a full disk would end the process. Gives null where that cannot be had.
void *
mapNewFile( const char * path, std::uint64_t size, bool replace ) {
   if ( replace ) {
      unlink( path );
   }
   const int fd = ::open( path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644 );
   if ( fd < 0 ) {
      return nullptr;
   }
   void * memory = MAP_FAILED;
   if ( posix_fallocate( fd, 0, static_cast< off_t >( size ) ) == 0 ) {
      memory = mmap( nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0 );
   }
   ::close( fd );
   if ( memory == MAP_FAILED ) {
      unlink( path );
      return nullptr;
   }
   return memory;
}

bool
open() {
   const std::string path = pathOf( ring.fileName );
   void * const memory =
      mapNewFile( path.c_str(), sizeof( RingHeader ) + ring.capacity, ring.replace );
   if ( !memory ) {
      return false;
   }
   ring.path = path;
   ring.header = static_cast< RingHeader * >( memory );
   ring.data = static_cast< char * >( memory ) + sizeof( RingHeader );
   std::memcpy( ring.header->magic, ringMagic.data(), ringMagic.size() );
   ring.header->capacity = ring.capacity;
   ring.header->utcOffset = utcOffset();
   Trace::ringLevelIs( ring.maxLevel );
   return true;
}

/// A bus error that is not the ring's happens again, under the action that was in force before.
void
handleBusError( int signal, siginfo_t * info, void * ) {
   auto * const begin = reinterpret_cast< char * >( ring.header );
   const auto * const at = static_cast< const char * >( info->si_addr );
   const std::uint64_t size = sizeof( RingHeader ) + ring.capacity;
   if ( begin && at >= begin && at < begin + size
        && mmap( begin, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1,
                 0 )
              != MAP_FAILED ) {
      fileIsCut = 1;
   } else {
      sigaction( signal, &actionBefore, nullptr );
   }
}

void
catchBusErrors() {
   static bool caught = false;
   if ( !std::exchange( caught, true ) ) {
      struct sigaction action {};
      action.sa_sigaction = handleBusError;
      action.sa_flags = SA_SIGINFO;
      sigaction( SIGBUS, &action, &actionBefore );
   }
}

void
unmap() {
   if ( ring.header ) {
      Trace::ringLevelIs( -1 );
      munmap( ring.header, sizeof( RingHeader ) + ring.capacity );
   }
   ring.header = nullptr;
   ring.path.clear();
}

}

bool
initialise( const std::string & fileName, const char * sizeSpec, int levelOffset, int maxSizeLog2,
            bool threads, bool replace, std::uint32_t maxTextLength ) {
   LUM_ASSERT( threads == singleThreaded );
   unmap();
   ring.fileName = fileName;
   ring.capacity = capacityOf( sizeSpec, maxSizeLog2 );
   ring.levelOffset = levelOffset;
   ring.replace = replace;
   const std::uint32_t longest = std::numeric_limits< std::uint16_t >::max();
   const auto fits = static_cast< std::uint32_t >( ring.capacity - sizeof( RecordHeader ) );
   ring.maxTextLength = std::min( { maxTextLength, longest, fits } );
   catchBusErrors();
   return open();
}

void
maxLevelIs( int maxLevel ) {
   ring.maxLevel = maxLevel;
   if ( ring.header ) {
      Trace::ringLevelIs( maxLevel );
   }
}

bool
reopen() {
   unmap();
   return !ring.fileName.empty() && open();
}

void
close() {
   unmap();
   ring.fileName.clear();
}

const std::string &
path() {
   return ring.path;
}

void
record( int level, std::string_view text ) {
   if ( fileIsCut ) {
      fileIsCut = 0;
      if ( !reopen() ) {
         return;
      }
   }
   text = text.substr( 0, ring.maxTextLength );
   const std::uint64_t size = recordSize( text.size() );
   std::uint64_t position = ring.header->written;
   if ( ring.capacity - position % ring.capacity < size ) {
      position += ring.capacity - position % ring.capacity;
   }
   RecordHeader header{ 0,
                        static_cast< std::uint16_t >( text.size() ),
                        static_cast< std::uint8_t >( level + ring.levelOffset ),
                        0,
                        nanosecondsNow(),
                        position };
   header.checkSum = checkSum( header, text );
   char * const at = ring.data + position % ring.capacity;
   std::memcpy( at, &header, sizeof header );
   std::memcpy( at + sizeof header, text.data(), text.size() );
   ring.header->written = position + size;
}

}
