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
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace Velotrace {

namespace {

constexpr int defaultMaxLevel = 7;
constexpr std::uint32_t maxTextOverhead = 16;  // a text as the only piece, padded

volatile std::sig_atomic_t fileIsCut = 0;
struct sigaction actionBefore;

struct Ring {
   std::string fileName;
   std::string path;
   RingHeader * header = nullptr;
   char * names = nullptr;
   std::size_t namesWritten = 0;
   char * data = nullptr;
   std::uint64_t capacity = defaultCapacity;
   std::uint64_t written = 0;
   std::uint64_t offset = 0;  // where the next record goes
   int levelOffset = 0;
   bool replace = true;
   std::uint32_t maxTextLength = 0;
   int maxLevel = defaultMaxLevel;

   std::size_t fileSize() const { return sizeof( RingHeader ) + Trace::namesSize + capacity; }
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
   void * const memory = mapNewFile( path.c_str(), ring.fileSize(), ring.replace );
   if ( !memory ) {
      return false;
   }
   ring.path = path;
   ring.header = static_cast< RingHeader * >( memory );
   ring.names = static_cast< char * >( memory ) + sizeof( RingHeader );
   ring.namesWritten = 0;
   ring.written = ring.offset = 0;
   ring.data = ring.names + Trace::namesSize;
   std::memcpy( ring.header->magic, ringMagic.data(), ringMagic.size() );
   ring.header->capacity = ring.capacity;
   ring.header->utcOffset = utcOffset();
   ring.header->maxTextLength = ring.maxTextLength;
   Trace::ringLevelIs( ring.maxLevel );
   return true;
}

/// A bus error that is not the ring's happens again, under the action that was in force before.
void
handleBusError( int signal, siginfo_t * info, void * ) {
   auto * const begin = reinterpret_cast< char * >( ring.header );
   const auto * const at = static_cast< const char * >( info->si_addr );
   const std::size_t size = ring.fileSize();
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
      munmap( ring.header, ring.fileSize() );
   }
   ring.header = nullptr;
   ring.path.clear();
}

void
writeNewNames() {
   const std::string_view names = Trace::names();
   if ( names.size() > ring.namesWritten ) {
      names.copy( ring.names + ring.namesWritten, names.npos, ring.namesWritten );
      ring.namesWritten = names.size();
   }
}

void
append( int level, std::string_view pieces ) {
   const std::uint64_t size = recordSize( pieces.size() );
   if ( ring.capacity - ring.offset < size ) {
      ring.written += ring.capacity - ring.offset;
      ring.offset = 0;
   }
   RecordHeader header{ 0,
                        static_cast< std::uint16_t >( pieces.size() ),
                        static_cast< std::uint8_t >( level + ring.levelOffset ),
                        0,
                        nanosecondsNow(),
                        ring.written };
   header.checkSum = checkSum( header, pieces );
   char * const at = ring.data + ring.offset;
   std::memcpy( at, &header, sizeof header );
   std::memcpy( at + sizeof header, pieces.data(), pieces.size() );
   ring.written += size;
   ring.offset += size;
   ring.header->written = ring.written;
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
   const auto fits =
      static_cast< std::uint32_t >( ring.capacity - sizeof( RecordHeader ) - maxTextOverhead );
   ring.maxTextLength = std::min( { maxTextLength, longestText, fits } );
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
record( int level, Trace::Message & message ) {
   if ( fileIsCut ) {
      fileIsCut = 0;
      if ( !reopen() ) {
         return;
      }
   }
   writeNewNames();
   const std::string_view pieces = message.pieces();
   if ( pieces.size() <= ring.maxTextLength ) {
      append( level, pieces );
   } else {
      Trace::Message begin;
      begin << message.text().substr( 0, ring.maxTextLength );
      append( level, begin.pieces() );
   }
}

}
