#pragma once

#include <string_view>

namespace Lum {

using AssertHandler = void ( * )( std::string_view expression, const char * file, int line );

/// Replaces what a broken invariant runs before the process ends; the default prints the
/// expression as the last line on standard error. Gives the handler that was in force.
AssertHandler assertHandlerIs( AssertHandler handler );

/// Reports a broken invariant and ends the process: the handler runs first, then abort().
[[noreturn]] void assertFailed( std::string_view expression, const char * file, int line );

}

/// An invariant of the system. The text of the expression is the message, so expressions read
/// as the design states them. Always on: a state that breaks an invariant must not be served.
#define LUM_ASSERT( ... )                                                                          \
   ( __builtin_expect( static_cast< bool >( __VA_ARGS__ ), true )                                  \
        ? void( 0 )                                                                                \
        : ::Lum::assertFailed( #__VA_ARGS__, __FILE__, __LINE__ ) )
