#pragma once

#include <algorithm>
#include <cstdlib>

/// How many random cases a test goes through: few, or as many times more as `CSPF_SEEDS` in the
/// environment says.
inline unsigned
seedsOf( unsigned few ) {
   const char * const times = std::getenv( "CSPF_SEEDS" );
   return few * static_cast< unsigned >( std::max( 1, times ? std::atoi( times ) : 1 ) );
}
