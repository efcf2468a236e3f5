#pragma once

#include <string>

namespace Text {

/// For who renames a file to that name. Throws std::runtime_error, with the name, where something
/// stands there that is no regular file, such as a device or a link, which would be gone.
void checkReplaceable( const std::string & file );

/// Throws std::runtime_error where what was written to standard output did not get there.
void flushOutput();

}
