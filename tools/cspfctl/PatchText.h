#pragma once

#include <string>

/// What a person gives as a patch: itself, "@FILE" for what the file holds, or "-" for standard
/// input. Throws std::runtime_error where that cannot be read.
std::string patchText( const std::string & given );
/// What to call it: the file where it is one.
std::string patchName( const std::string & given );
