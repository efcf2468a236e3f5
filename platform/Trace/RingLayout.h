#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

/// What the writer and the reader of a trace ring agree on.
namespace Velotrace {

inline constexpr std::string_view ringMagic = "VELOTRC2";
inline constexpr int minSizeLog2 = 12;
inline constexpr int maxSizeLog2Limit = 30;

struct RingHeader {
   char magic[ 8 ];
   std::uint64_t capacity;
   std::uint64_t written;  // the ends of rounds that were left out included
   std::int64_t utcOffset;
   std::uint64_t unused[ 4 ];
};
static_assert( sizeof( RingHeader ) == 64 );

struct RecordHeader {
   std::uint32_t checkSum;
   std::uint16_t textLength;
   std::uint8_t level;
   std::uint8_t unused;
   std::int64_t nanoseconds;
   std::uint64_t position;
};
static_assert( sizeof( RecordHeader ) == 24 );

/// Bytes that a record takes in the ring.
constexpr std::uint64_t
recordSize( std::size_t textLength ) {
   return ( sizeof( RecordHeader ) + textLength + 7 ) & ~std::uint64_t( 7 );
}

/// Check sum over the header behind the sum itself, and the text. Never that of plain zeros, which
/// is what a part of the ring that was not written yet holds.
inline std::uint32_t
checkSum( const RecordHeader & header, std::string_view text ) {
   std::uint64_t sum = ~header.position;
   const auto mix = [ &sum ]( std::uint64_t word ) {
      sum = ( sum ^ word ) * 0xd6e8feb86659fd93u;
      sum ^= sum >> 32;
   };
   mix( std::uint64_t( header.textLength ) << 16 | std::uint64_t( header.level ) << 8
        | header.unused );
   mix( static_cast< std::uint64_t >( header.nanoseconds ) );
   while ( !text.empty() ) {
      std::uint64_t word = 0;
      const std::size_t length = text.size() < 8 ? text.size() : 8;
      std::memcpy( &word, text.data(), length );
      mix( word );
      text.remove_prefix( length );
   }
   return static_cast< std::uint32_t >( sum );  // both halves are in it
}

}
