#pragma once

#include "platform/Trace/Trace.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/// The fast trace: a ring of records in a memory-mapped file, cheap enough to leave on. The file
/// outlives the process, whatever ends it.
///
/// File, all little endian: a header of 64 bytes (magic "VELOTRC3", capacity of the ring in bytes,
/// bytes ever written, nanoseconds from the framework clock to UTC, bytes that texts are cut to),
/// 128 KiB of names, then the ring. A record: check sum of the rest of it (32 bits), length (16),
/// level (8), 8 bits of 0, time of the framework clock in nanoseconds (64), bytes written before it
/// (64), the message's pieces (Pieces.h), zeros up to a multiple of 8. A record does not wrap; one
/// that does not fit before the end of the ring starts the next round. Names are records, too; they
/// stay as long as the file.
namespace Velotrace {

inline constexpr std::uint64_t defaultCapacity = 4u << 20;
inline constexpr std::uint32_t longestText = 65'000;
inline constexpr bool singleThreaded = true;

/// Opens the ring. "%d" in `fileName` stands for the process id; the directory is that of the
/// environment's VELOTRACEDIR where `fileName` has none. `sizeSpec` is the capacity in bytes, also
/// with K or M behind it, null for the default, and at most 2 to the power of `maxSizeLog2` (12 to
/// 30). `levelOffset` is added to each level that is recorded. One thread traces, and no form with
/// locks exists: REQUIRES `threads` is `singleThreaded`. With `replace` an earlier file of that
/// name goes; who has it open keeps it. Texts are cut to `maxTextLength` bytes, at most 65,000.
/// False where the file cannot be made; the trace then stays off. A file that is cut short while it
/// is in use is given up, and a new one begun; the process's SIGBUS is caught for that.
bool initialise( const std::string & fileName, const char * sizeSpec, int levelOffset,
                 int maxSizeLog2, bool threads, bool replace, std::uint32_t maxTextLength );

/// Records the levels up to `maxLevel` (default 7).
void maxLevelIs( int maxLevel );
/// Starts a new file under the same name, as after the old one was moved away.
bool reopen();
void close();
/// Where the ring is; "" while it is closed.
const std::string & path();

struct Record {
   int level;
   double time;  ///< seconds of the framework clock
   double utc;   ///< seconds since 1970, as the two clocks stood when the ring was opened
   std::string_view text;
};

/// Calls `visit` for each record of the file that is whole, oldest first; the text is there as long
/// as that. `damaged` counts the gaps between them and what has lost its names, `error` says why a
/// file is no ring at all; false then. A file that is cut off, overwritten in places, or being
/// written at the moment is no error.
bool decode( const std::string & file, const std::function< void( const Record & ) > & visit,
             std::size_t & damaged, std::string & error );

/// The same for the bytes of a file.
bool decodeBytes( std::string_view bytes, const std::function< void( const Record & ) > & visit,
                  std::size_t & damaged, std::string & error );

}
