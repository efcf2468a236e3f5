#pragma once

#include "platform/Trace/Pieces.h"

#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

/// What the writer and the reader of a trace ring agree on.
namespace Velotrace {

inline constexpr std::string_view ringMagic = "VELOTRC3";
inline constexpr int minSizeLog2 = 12;
inline constexpr int maxSizeLog2Limit = 30;

struct RingHeader {
   char magic[ 8 ];
   std::uint64_t capacity;
   std::uint64_t written;  // the ends of rounds that were left out included
   std::int64_t utcOffset;
   std::uint64_t maxTextLength;
   std::uint64_t unused[ 3 ];
};
static_assert( sizeof( RingHeader ) == 64 );

struct RecordHeader {
   std::uint32_t checkSum;
   std::uint16_t length;
   std::uint8_t level;
   std::uint8_t unused;
   std::int64_t nanoseconds;
   std::uint64_t position;
};
static_assert( sizeof( RecordHeader ) == 24 );

/// Bytes that a record takes in the ring.
constexpr std::uint64_t
recordSize( std::size_t length ) {
   return ( sizeof( RecordHeader ) + length + 7 ) & ~std::uint64_t( 7 );
}

/// Check sum over the header behind the sum itself, and what follows the header. Never that of
/// plain zeros, which is what a part of the ring that was not written yet holds.
inline std::uint32_t
checkSum( const RecordHeader & header, std::string_view bytes ) {
   const auto mix = []( std::uint64_t & sum, std::uint64_t word ) {
      sum = ( sum ^ word ) * 0xd6e8feb86659fd93u;
      sum ^= sum >> 32;
   };
   // Two sums, so that one need not wait for the other.
   std::uint64_t sum = ~header.position;
   std::uint64_t other = static_cast< std::uint64_t >( header.nanoseconds );
   const std::uint64_t level = std::uint64_t( header.level ) << 8 | header.unused;
   mix( sum, std::uint64_t( header.length ) << 16 | level );
   while ( bytes.size() >= sizeof( std::uint64_t ) ) {
      std::uint64_t word;
      std::memcpy( &word, bytes.data(), sizeof word );
      bytes.remove_prefix( sizeof word );
      mix( sum, word );
      std::swap( sum, other );
   }
   if ( !bytes.empty() ) {
      std::uint64_t word = 0;
      std::memcpy( &word, bytes.data(), bytes.size() );
      mix( sum, word );
   }
   mix( sum, other );
   return static_cast< std::uint32_t >( sum );  // both halves are in it
}

/// The name of that place, which is an eighth of where its record stands among them. Nothing where
/// none stands there whole.
inline std::optional< std::string_view >
nameAt( std::string_view names, std::uint16_t place ) {
   const std::uint64_t offset = std::uint64_t( place ) * 8;
   RecordHeader header;
   if ( offset + sizeof header > names.size() ) {
      return std::nullopt;
   }
   std::memcpy( &header, names.data() + offset, sizeof header );
   const std::string_view text = names.substr( offset + sizeof header, header.length );
   if ( header.position != offset || text.size() != header.length
        || header.checkSum != checkSum( header, text ) ) {
      return std::nullopt;
   }
   return text;
}

}
