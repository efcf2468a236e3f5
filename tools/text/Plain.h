#pragma once

#include <string>
#include <string_view>

namespace Text {

/// The text with its control characters as "\u000a": on one line, and harmless to a terminal.
std::string plain( std::string_view text );

/// "2026-11-21T11:17:02.123456Z", from seconds since 1970.
std::string utcText( double seconds );

}
