#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// What a message consists of until somebody reads it. A piece is a tag byte and what follows it;
/// numbers are little endian.
namespace Trace {

enum class Piece : std::uint8_t {
   end,              ///< up to a multiple of 8 bytes; no piece follows
   empty,            ///< no text
   no,               ///< "False"
   yes,              ///< "True"
   text,             ///< length (8), bytes
   longText,         ///< length (32), bytes
   name,             ///< place (16) of a name that the ring holds once
   ownName,          ///< length (32), bytes: a name that it has no room for
   real,             ///< 64 bits
   ip4,              ///< 32 bits in host order
   ip6,              ///< 16 bytes
   number = 0x10,    ///< + n: n bytes, at most 8
   negative = 0x20,  ///< + n: the same with a minus
};

/// Stands in a name for the piece that follows the name, the first one for the first piece, and so
/// on; these may be names with pieces of their own.
inline constexpr char pieceHere = '\1';

/// Names as they stand in a ring, each under a place that says where.
inline constexpr std::size_t namesSize = 128u << 10;
inline constexpr std::uint16_t noPlace = 0xffff;

/// Appends to `text` what the pieces say until it has `maxLength` bytes. False where they are not
/// what a message writes, or name what `names` does not have; nothing is relied upon.
bool appendText( std::string_view pieces, std::string_view names, std::size_t maxLength,
                 std::string & text );

}
