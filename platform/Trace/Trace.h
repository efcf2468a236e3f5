#pragma once

#include <charconv>
#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

/// Trace statements: `TRACE7( "Creating TopoDbExportSm for " << name )`. The message begins with
/// the function's signature and ": ". It goes to the fast ring and to the text trace at once, is
/// put together only when one of them wants its level, and costs one predictable branch otherwise.
/// Level 7: creation, deletion, mounts; level 9: detail of each router and link.
namespace Trace {

inline constexpr int levels = 10;

/// Bit n: some sink wants level n. Written by the sinks only.
inline unsigned wantedLevels = 0;

inline bool
wanted( int level ) {
   return __builtin_expect( wantedLevels >> level & 1, 0 );
}

/// Whether some sink wants the level from this source file, a literal. For levels that some sink
/// wants somewhere.
bool wantedFrom( int level, const char * file );

/// Traces the levels up to `maxLevel` (0 to 9) from now on, in the ring and in the text trace, each
/// as far as it is open. With a pattern (fnmatch(3), such as "View.cc" or "Runs/*") this is about
/// source files whose path ends so, beside what is traced anyway; without one it is about all
/// files, and patterns that were given before are forgotten. REQUIRES: the level is in its range.
void levelIs( int maxLevel, const std::string & filePattern = {} );
/// Forgets all that was chosen so: each sink has the levels that it was opened with.
void levelDel();

/// The text of a message in the making.
class Message {
 public:
   /// Begins with the signature.
   explicit Message( std::string_view signature );
   ~Message() { spareText = std::move( text_ ); }
   Message( const Message & ) = delete;
   Message & operator=( const Message & ) = delete;

   Message & operator<<( std::string_view text ) {
      text_ += text;
      return *this;
   }
   Message & operator<<( const std::string & text ) { return *this << std::string_view( text ); }
   Message & operator<<( const char * text ) { return *this << std::string_view( text ); }
   Message & operator<<( char letter ) { return *this << std::string_view( &letter, 1 ); }
   Message & operator<<( bool value ) { return *this << ( value ? "1" : "0" ); }
   template< class T >
      requires( std::integral< T > || std::floating_point< T > )
   Message & operator<<( T value ) {
      char digits[ 32 ];
      text_.append( digits, std::to_chars( digits, digits + sizeof digits, value ).ptr );
      return *this;
   }
   template< class T >
      requires requires( const T & t ) {
         { t.stringValue() } -> std::convertible_to< std::string >;
      }
   Message & operator<<( const T & value ) { return *this << value.stringValue(); }
   const std::string & text() const noexcept { return text_; }

 private:
   static inline std::string spareText;  // one thread traces, and a message follows the other

   std::string text_;
};

/// "void Cspf::PathSm::handleX(const Key&)", the compiler's text of a function, without its type.
std::string_view signature( std::string_view prettyFunction );

/// Hands a complete message to the sinks that want its level from that file.
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

/// The signature of a function is cut out of its name once.
#define TRACE_AT_( level, ... )                                                                    \
   TRACE_UNDER_( level, static const, __PRETTY_FUNCTION__, __VA_ARGS__ )
/// In a helper of an operation: the message begins with the signature of the operation, which the
/// helper is given as the operation's own `__PRETTY_FUNCTION__`.
#define TRACE7_FOR( operation, ... ) TRACE_UNDER_( 7, const, operation, __VA_ARGS__ )
#define TRACE8_FOR( operation, ... ) TRACE_UNDER_( 8, const, operation, __VA_ARGS__ )
#define TRACE9_FOR( operation, ... ) TRACE_UNDER_( 9, const, operation, __VA_ARGS__ )
#define TRACE_UNDER_( level, kept, operation, ... )                                                \
   do {                                                                                            \
      if ( ::Trace::wanted( level ) && ::Trace::wantedFrom( level, __FILE__ ) ) {                  \
         kept std::string_view signature_ = ::Trace::signature( operation );                       \
         ::Trace::Message message_( signature_ );                                                  \
         message_ << __VA_ARGS__;                                                                  \
         ::Trace::emit( level, message_.text(), __FILE__ );                                        \
      }                                                                                            \
   } while ( false )
#define TRACE0( ... ) TRACE_AT_( 0, __VA_ARGS__ )
#define TRACE7( ... ) TRACE_AT_( 7, __VA_ARGS__ )
#define TRACE8( ... ) TRACE_AT_( 8, __VA_ARGS__ )
#define TRACE9( ... ) TRACE_AT_( 9, __VA_ARGS__ )
