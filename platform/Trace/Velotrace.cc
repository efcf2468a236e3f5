// The ring in a file. One writer appends; a reader that looks at the file at any moment, also after
// a crash, finds whole records by their check sums: a record's sum covers its position, so
// that what is left of an earlier round is not taken for new.

#include "platform/Trace/Velotrace.h"

#include "platform/Lum/Clock.h"
#include "platform/Trace/Sinks.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace Velotrace {

namespace {

constexpr char magic[ 8 ] = { 'V', 'E', 'L', 'O', 'T', 'R', 'C', '1' };
constexpr int defaultMaxLevel = 7;

struct Header {
   char magic[ 8 ];
   std::uint64_t capacity;
   std::uint64_t written;  // bytes since the beginning, unwritten ends of rounds included
   std::uint64_t unused[ 5 ];
};
static_assert( sizeof( Header ) == 64 );

struct RecordHeader {
   std::uint32_t length;  // of the record, a multiple of 8; 0: go on at the start
   std::uint32_t levelAndTextLength;
   std::int64_t nanoseconds;
   std::uint32_t checkSum;
   std::uint32_t unused;
};
static_assert( sizeof( RecordHeader ) == 24 );

struct Ring {
   std::string fileName;
   std::string path;
   Header * header = nullptr;
   char * data = nullptr;
   std::uint64_t capacity = defaultCapacity;
   int levelOffset = 0;
   std::uint32_t maxTextLength = 0;
   int maxLevel = defaultMaxLevel;
} ring;

std::uint32_t
checkSum( std::string_view text, std::uint64_t position ) {
   std::uint64_t sum = position * 0x9e3779b97f4a7c15u + text.size();
   while ( text.size() >= 8 ) {
      std::uint64_t word;
      std::memcpy( &word, text.data(), 8 );
      sum = ( sum ^ word ) * 0xd6e8feb86659fd93u;
      sum ^= sum >> 32;
      text.remove_prefix( 8 );
   }
   for ( const char c : text ) {
      sum = ( sum ^ static_cast< unsigned char >( c ) ) * 0x100000001b3u;
   }
   return static_cast< std::uint32_t >( sum ^ sum >> 32 );
}

std::uint64_t
capacityOf( const char * sizeSpec ) {
   if ( !sizeSpec ) {
      return defaultCapacity;
   }
   char * end = nullptr;
   std::uint64_t size = std::strtoull( sizeSpec, &end, 10 );
   size <<= *end == 'K' ? 10 : *end == 'M' ? 20 : 0;
   return std::clamp< std::uint64_t >( size & ~std::uint64_t( 7 ), 4096, 1u << 30 );
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

bool
open() {
   ring.path = pathOf( ring.fileName );
   const int fd = ::open( ring.path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644 );
   const std::uint64_t size = sizeof( Header ) + ring.capacity;
   void * memory = MAP_FAILED;
   if ( fd >= 0 && ftruncate( fd, static_cast< off_t >( size ) ) == 0 ) {
      memory = mmap( nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0 );
   }
   if ( fd >= 0 ) {
      ::close( fd );
   }
   if ( memory == MAP_FAILED ) {
      ring.path.clear();
      return false;
   }
   ring.header = static_cast< Header * >( memory );
   std::memcpy( ring.header->magic, magic, sizeof magic );
   ring.header->capacity = ring.capacity;
   ring.data = static_cast< char * >( memory ) + sizeof( Header );
   Trace::ringLevelIs( ring.maxLevel );
   return true;
}

/// Walks the records that stand between two positions of one round.
class Reader {
 public:
   Reader( std::string_view data, const std::function< void( const Record & ) > & visit )
      : data_( data ), visit_( visit ) {}

   /// `position`: bytes written before the record; gives that after the last whole record.
   void read( std::uint64_t position, std::uint64_t end ) {
      while ( position + sizeof( RecordHeader ) <= end ) {
         const std::uint64_t offset = position % data_.size();
         RecordHeader header;
         const bool fits = data_.size() - offset >= sizeof header;
         if ( fits ) {
            std::memcpy( &header, data_.data() + offset, sizeof header );
         }
         if ( !fits || header.length == 0 ) {
            position += data_.size() - offset;
         } else if ( whole( header, position, offset ) ) {
            const std::uint32_t textLength = header.levelAndTextLength & 0xFFFFFF;
            visit_( { static_cast< int >( header.levelAndTextLength >> 24 ),
                      static_cast< double >( header.nanoseconds ) * 1e-9,
                      data_.substr( offset + sizeof header, textLength ) } );
            position += header.length;
         } else {
            damaged_ += position >= firstCertain_;
            position += 8;
         }
      }
   }
   /// Before this position bytes may belong to records whose beginning is overwritten.
   void firstCertainIs( std::uint64_t position ) { firstCertain_ = position; }
   std::size_t damaged() const { return damaged_; }

 private:
   bool whole( const RecordHeader & header, std::uint64_t position, std::uint64_t offset ) const {
      const std::uint32_t textLength = header.levelAndTextLength & 0xFFFFFF;
      return header.length % 8 == 0 && header.length >= sizeof header + textLength
             && header.length <= data_.size() - offset
             && header.checkSum
                   == checkSum( data_.substr( offset + sizeof header, textLength ), position );
   }

   std::string_view data_;
   const std::function< void( const Record & ) > & visit_;
   std::uint64_t firstCertain_ = 0;
   std::size_t damaged_ = 0;
};

}

bool
initialise( const std::string & fileName, const char * sizeSpec, int traceOffsetLevel, int,
            bool, bool, std::uint32_t maxTextLength ) {
   close();
   ring.fileName = fileName;
   ring.capacity = capacityOf( sizeSpec );
   ring.levelOffset = traceOffsetLevel;
   ring.maxTextLength = maxTextLength;
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
   const std::string fileName = ring.fileName;
   close();
   ring.fileName = fileName;
   return !fileName.empty() && open();
}

void
close() {
   if ( ring.header ) {
      munmap( ring.header, sizeof( Header ) + ring.capacity );
      Trace::ringLevelIs( -1 );
   }
   ring.header = nullptr;
   ring.path.clear();
   ring.fileName.clear();
}

const std::string &
path() {
   return ring.path;
}

void
record( int level, std::string_view text ) {
   text = text.substr( 0, ring.maxTextLength );
   const auto length =
      static_cast< std::uint32_t >( ( sizeof( RecordHeader ) + text.size() + 7 ) & ~std::size_t( 7 ) );
   std::uint64_t position = ring.header->written;
   std::uint64_t offset = position % ring.capacity;
   if ( ring.capacity - offset < length ) {
      std::memset( ring.data + offset, 0, std::min< std::uint64_t >( 4, ring.capacity - offset ) );
      position += ring.capacity - offset;
      offset = 0;
   }
   const RecordHeader header{
      length,
      static_cast< std::uint32_t >( level + ring.levelOffset ) << 24
         | static_cast< std::uint32_t >( text.size() ),
      static_cast< std::int64_t >( Lum::now() * 1e9 ), checkSum( text, position ), 0 };
   std::memcpy( ring.data + offset, &header, sizeof header );
   std::memcpy( ring.data + offset + sizeof header, text.data(), text.size() );
   ring.header->written = position + length;
}

bool
decode( const std::string & file, const std::function< void( const Record & ) > & visit,
        std::size_t & damaged, std::string & error ) {
   std::ifstream in( file, std::ios::binary );
   if ( !in ) {
      error = "cannot be read";
      return false;
   }
   const std::string bytes( ( std::istreambuf_iterator< char >( in ) ),
                            std::istreambuf_iterator< char >() );
   Header header{};
   if ( bytes.size() >= sizeof header ) {
      std::memcpy( &header, bytes.data(), sizeof header );
   }
   if ( std::memcmp( header.magic, magic, sizeof magic ) != 0 || header.capacity == 0
        || header.capacity % 8 != 0 ) {
      error = "is no trace ring";
      return false;
   }
   std::string ringBytes = bytes.substr( sizeof header, header.capacity );
   ringBytes.resize( header.capacity );
   Reader reader( ringBytes, visit );
   const bool wrapped = header.written > header.capacity;
   const std::uint64_t begin = wrapped ? header.written - header.capacity : 0;
   reader.firstCertainIs( wrapped ? begin + header.capacity / 8 : 0 );
   reader.read( begin & ~std::uint64_t( 7 ), header.written );
   damaged = reader.damaged();
   return true;
}

}
