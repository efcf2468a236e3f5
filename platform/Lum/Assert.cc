// Broken invariants. There is one way out of them for every program: the handler says what
// broke, then the process ends. A handler may end it itself, with an exit status of its own.

#include "platform/Lum/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Lum {

namespace {

void
printExpression( std::string_view expression, const char * file, int line ) {
   std::fprintf( stderr, "%s:%d:\n%.*s\n", file, line, static_cast< int >( expression.size() ),
                 expression.data() );
}

AssertHandler currentHandler = printExpression;

}

AssertHandler
assertHandlerIs( AssertHandler handler ) {
   AssertHandler previous = currentHandler;
   currentHandler = handler;
   return previous;
}

void
assertFailed( std::string_view expression, const char * file, int line ) {
   currentHandler( expression, file, line );
   std::abort();
}

}
