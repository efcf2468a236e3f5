// Reading a trace ring back, from a file that a crash, a full disk or a careless copy may have left
// in any state. Every record says its own position and carries a check sum, so nothing else in the
// file has to be right: the reader looks for whole records at every place where one may begin,
// drops those that a later round has passed, and puts the rest in order.

#include "platform/Trace/RingLayout.h"
#include "platform/Trace/Velotrace.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace Velotrace {

namespace {

struct Found {
   std::uint64_t position;
   std::uint64_t offset;
   RecordHeader header;

   std::uint64_t end() const { return position + recordSize( header.length ); }
};

/// The whole records in `ring`, whose full capacity may be more than what is left of it.
std::vector< Found >
wholeRecords( std::string_view ring, std::uint64_t capacity ) {
   std::vector< Found > found;
   std::uint64_t offset = 0;
   while ( offset + sizeof( RecordHeader ) <= ring.size() ) {
      RecordHeader header;
      std::memcpy( &header, ring.data() + offset, sizeof header );
      const std::uint64_t size = recordSize( header.length );
      if ( header.position % capacity == offset && header.position <= INT64_MAX
           && size <= ring.size() - offset
           && header.checkSum
                 == checkSum( header, ring.substr( offset + sizeof header, header.length ) ) ) {
         found.push_back( { header.position, offset, header } );
         offset += size;
      } else {
         offset += 8;
      }
   }
   return found;
}

/// Whether `next` stands where the writer puts what follows `last`.
bool
follows( const Found & next, const Found & last, std::uint64_t capacity ) {
   const std::uint64_t gap = next.position - last.end();
   return gap == 0
          || ( next.offset == 0 && gap == capacity - last.end() % capacity
               && gap < recordSize( next.header.length ) );
}

std::size_t
gaps( const std::vector< Found > & found, const RingHeader & header ) {
   if ( found.empty() ) {
      return header.written > 0;
   }
   std::size_t count = found.back().end() != header.written;
   const bool fromTheStart = header.written <= header.capacity;
   count += fromTheStart && found.front().position != 0;
   for ( std::size_t i = 1; i < found.size(); ++i ) {
      count += !follows( found[ i ], found[ i - 1 ], header.capacity );
   }
   return count;
}

}

bool
decodeBytes( std::string_view bytes, const std::function< void( const Record & ) > & visit,
             std::size_t & damaged, std::string & error ) {
   RingHeader header{};
   if ( bytes.size() >= sizeof header ) {
      std::memcpy( &header, bytes.data(), sizeof header );
   }
   if ( std::string_view( header.magic, sizeof header.magic ) != ringMagic
        || header.capacity < 1u << minSizeLog2 || header.capacity > 1u << maxSizeLog2Limit
        || header.capacity % 8 != 0 ) {
      error = "is no trace ring";
      return false;
   }
   bytes.remove_prefix( sizeof header );
   const std::string_view names = bytes.substr( 0, Trace::namesSize );
   const std::string_view ring = bytes.substr( names.size(), header.capacity );
   std::vector< Found > found = wholeRecords( ring, header.capacity );
   std::ranges::sort( found, {}, &Found::position );
   if ( !found.empty() ) {
      const std::uint64_t end = found.back().end();
      std::erase_if( found,
                     [ & ]( const Found & f ) { return f.position + header.capacity < end; } );
   }
   damaged = gaps( found, header );
   const auto maxLength = std::min< std::uint64_t >( header.maxTextLength, longestText );
   for ( const Found & f : found ) {
      const double time = static_cast< double >( f.header.nanoseconds ) * 1e-9;
      std::string text;
      if ( Trace::appendText( ring.substr( f.offset + sizeof( RecordHeader ), f.header.length ),
                              names, maxLength, text ) ) {
         visit( { f.header.level, time, time + static_cast< double >( header.utcOffset ) * 1e-9,
                  text } );
      } else {
         ++damaged;
      }
   }
   return true;
}

bool
decode( const std::string & file, const std::function< void( const Record & ) > & visit,
        std::size_t & damaged, std::string & error ) {
   std::ifstream in( file, std::ios::binary );
   std::ostringstream bytes;
   bytes << in.rdbuf();
   std::error_code unknown;
   if ( !in.is_open() || std::filesystem::is_directory( file, unknown ) ) {
      error = "cannot be read";
      return false;
   }
   return decodeBytes( bytes.view(), visit, damaged, error );
}

}
