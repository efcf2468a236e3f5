#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Bandwidths as people write them: with a letter in bits per second, "400M", "2.5G"; without one
/// in bytes per second, as state has them.
namespace Text {

/// From bytes per second: the shortest with a letter that says the same, of at most six digits;
/// plain bytes where there is none.
std::string bandwidthText( std::uint64_t bytesPerSecond );
/// In bytes per second. "k", "M", "G" and "T" stand for powers of 1000. Nothing where the text is
/// no bandwidth, is no whole number of bytes, or does not fit.
std::optional< std::uint64_t > parseBandwidth( std::string_view text );

}
