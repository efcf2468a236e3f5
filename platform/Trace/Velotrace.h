#pragma once

#include "platform/Trace/Trace.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/// The fast trace: a ring of records in a memory-mapped file, cheap enough to leave on. The file
/// outlives the process, whatever ends it.
///
/// File: a header of 64 bytes (magic "VELOTRC1", capacity of the ring in bytes, total bytes ever
/// written, all little endian 64-bit), then the ring. Record: total length (32-bit, a multiple of 8),
/// level (8-bit), text length (24-bit), time (64-bit, nanoseconds of the framework clock), a 32-bit
/// check sum of the text and the position, 32 bits of padding, text, padding. A record does not
/// wrap: a length of 0 sends the reader to the start.
namespace Velotrace {

inline constexpr std::uint64_t defaultCapacity = 4u << 20;

/// Opens the ring. "%d" in `fileName` stands for the process id; the directory is that of the
/// environment's VELOTRACEDIR where `fileName` has none. `sizeSpec`: bytes as a number with K or M,
/// null for the default. `traceOffsetLevel` is added to each level that is recorded, `maxFiles` is
/// the number of earlier files that are kept in reach of a clean-up by the operator,
/// `singleThreaded` skips locking (the only form there is), `overwrite` empties an earlier ring,
/// `maxTextLength` cuts longer texts. False where the file cannot be made; the trace then stays off.
bool initialise( const std::string & fileName, const char * sizeSpec, int traceOffsetLevel,
                 int maxFiles, bool singleThreaded, bool overwrite, std::uint32_t maxTextLength );
inline constexpr bool singleThreaded = true;

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
   std::string_view text;
};

/// Calls `visit` for each record of the file that is whole, oldest first. False, with a reason in
/// `error`, where the file is no ring at all; damaged records are passed over and counted.
bool decode( const std::string & file, const std::function< void( const Record & ) > & visit,
             std::size_t & damaged, std::string & error );

}
