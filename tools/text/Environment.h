#pragma once

#include <cstdlib>
#include <string>

namespace Text {

/// The value of a variable of the environment; "" where it is not set.
inline std::string
environment( const char * name ) {
   const char * const value = std::getenv( name );
   return value ? value : "";
}

}
