#include "tools/lab/AgentListening.h"

#include "platform/Trace/Gemtrace.h"
#include "tools/lab/LabRunner.h"

#include <cstdlib>
#include <iomanip>
#include <ostream>
#include <stdexcept>

namespace Lab {

namespace {

/// Where a broken invariant and the agent's log are told: handlers are plain functions.
struct Streams {
   std::ostream * out = nullptr;
   std::ostream * err = nullptr;
} streams;

[[noreturn]] void
exitBroken( std::string_view text ) {
   streams.out->flush();
   *streams.err << text << std::endl;
   std::_Exit( exitBrokenInvariant );
}

void
logToErr( const Trace::LogMessage & message, std::string_view text ) {
   *streams.err << Trace::logLine( message, text ) << std::endl;
}

}

AgentListening::AgentListening( std::ostream & out, std::ostream & err,
                                const Lum::ActivityLoop & loop, bool verbose )
   : start_( loop.now() ) {
   streams = { &out, &err };
   previous_ = Lum::assertHandlerIs(
      []( std::string_view expression, const char *, int ) { exitBroken( expression ); } );
   Trace::logSinkIs( logToErr );
   if ( verbose ) {
      Gemtrace::sinkIs( [ this, &err, &loop ]( int level, std::string_view text ) {
         err << std::fixed << std::setprecision( 6 ) << std::setw( 12 ) << loop.now() - start_
             << " " << level << " " << text << "\n";
      } );
   }
}

AgentListening::~AgentListening() {
   Gemtrace::sinkIs( nullptr );
   Trace::logSinkIs( nullptr );
   Lum::assertHandlerIs( previous_ );
}

void
withoutTraceRing() {
   if ( !std::getenv( "VELOTRACEDIR" ) ) {
      setenv( "VELOTRACE_DISABLE", "1", 0 );
   }
}

void
untilBroken( const std::function< void() > & work ) {
   try {
      work();
   } catch ( const std::range_error & broken ) {
      exitBroken( broken.what() );
   }
}

}
