#pragma once

#include "platform/Trace/Message.h"

#include <string>
#include <string_view>

/// Trace statements: `TRACE7( "Creating TopoDbExportSm for " << name )`. The message begins with
/// the function's signature and ": ". It goes to the fast ring and to the text trace at once, is
/// put together only when one of them wants its level, and costs one predictable branch otherwise.
/// The ring gets what the message is made of, the text trace its text. Level 7: creation, deletion,
/// mounts; level 9: detail of each router and link.
namespace Trace {

inline constexpr int levels = 10;

/// Bit n: some sink wants level n. Written by the sinks only.
inline unsigned wantedLevels = 0;

inline bool
wanted( int level ) {
   return __builtin_expect( wantedLevels >> level & 1, 0 );
}

/// Whether levels are chosen for some source files. Written by `levelIs` and `levelDel` only.
inline bool filesDiffer = false;

bool wantedByRules( int level, const char * file );

/// Whether some sink wants the level from this source file, a literal. For levels that some sink
/// wants somewhere.
[[gnu::always_inline]] inline bool
wantedFrom( int level, const char * file ) {
   return !filesDiffer || wantedByRules( level, file );
}

/// Traces the levels up to `maxLevel` (0 to 9) from now on, in the ring and in the text trace, each
/// as far as it is open. With a pattern (fnmatch(3), such as "View.cc" or "Runs/*") this is about
/// source files whose path ends so, beside what is traced anyway; without one it is about all
/// files, and patterns that were given before are forgotten. REQUIRES: the level is in its range.
void levelIs( int maxLevel, const std::string & filePattern = {} );
/// Forgets all that was chosen so: each sink has the levels that it was opened with.
void levelDel();

/// Hands a complete message to the sinks that want its level from that file.
void emit( int level, Message & message, const char * file = "" );
void emit( int level, std::string_view text, const char * file = "" );

enum class Severity { debug, info, notice, warning, error };

/// A kind of event for the operator's log.
struct LogMessage {
   std::string_view id;  ///< its lasting name
   Severity severity;
   std::string_view explanation;  ///< what it means whenever it is seen
};

/// The event as a line of the log: "ID: text (warning: explanation)".
std::string logLine( const LogMessage & message, std::string_view text );
/// An event for the operator's log, outside of the traces.
void logMessage( const LogMessage & message, std::string_view text );
using LogSink = void ( * )( const LogMessage & message, std::string_view text );
/// Who hears log messages from now on (null: nobody).
void logSinkIs( LogSink sink );

}

#define TRACE_AT_( level, ... )                                                                    \
   TRACE_UNDER_( level, static constinit ::Trace::Function function_( __PRETTY_FUNCTION__ ),       \
                 function_, __VA_ARGS__ )
/// In a helper of an operation: the message begins with the signature of the operation, which the
/// helper is given as the operation's own `__PRETTY_FUNCTION__`.
#define TRACE7_FOR( operation, ... ) TRACE_UNDER_( 7, , operation, __VA_ARGS__ )
#define TRACE8_FOR( operation, ... ) TRACE_UNDER_( 8, , operation, __VA_ARGS__ )
#define TRACE9_FOR( operation, ... ) TRACE_UNDER_( 9, , operation, __VA_ARGS__ )
#define TRACE_UNDER_( level, known, function, ... )                                                \
   do {                                                                                            \
      if ( ::Trace::wanted( level ) && ::Trace::wantedFrom( level, __FILE__ ) ) {                  \
         known;                                                                                    \
         ::Trace::Message message_( function );                                                    \
         message_ << __VA_ARGS__;                                                                  \
         ::Trace::emit( level, message_, __FILE__ );                                               \
      }                                                                                            \
   } while ( false )
#define TRACE0( ... ) TRACE_AT_( 0, __VA_ARGS__ )
#define TRACE7( ... ) TRACE_AT_( 7, __VA_ARGS__ )
#define TRACE8( ... ) TRACE_AT_( 8, __VA_ARGS__ )
#define TRACE9( ... ) TRACE_AT_( 9, __VA_ARGS__ )
