#pragma once

#include <string>

namespace Text {

/// All that the file holds; for "-" standard input, which can be read once. Throws
/// std::runtime_error with the reason, without the name, where it cannot be read.
std::string contentOf( const std::string & file );

}
