#pragma once

#include <charconv>
#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>

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

/// The text of a message in the making.
class Message {
 public:
   /// Takes the compiler's text of the function ("void Cspf::PathSm::handleX(Key)").
   explicit Message( std::string_view prettyFunction );

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
   std::string text_;
};

/// Hands a complete message to the sinks that want its level.
void emit( int level, std::string_view text );

enum class Severity { debug, info, notice, warning, error };

/// A kind of event for the operator's log.
struct LogMessage {
   std::string_view id;  ///< its lasting name
   Severity severity;
   std::string_view explanation;  ///< what it means whenever it is seen
};

/// An event for the operator's log, outside of the traces.
void logMessage( const LogMessage & message, std::string_view text );
using LogSink = void ( * )( const LogMessage & message, std::string_view text );
/// Who hears log messages from now on (null: nobody).
void logSinkIs( LogSink sink );

}

#define TRACE_AT_( level, ... )                                                                    \
   do {                                                                                            \
      if ( ::Trace::wanted( level ) ) {                                                            \
         ::Trace::Message message_( __PRETTY_FUNCTION__ );                                         \
         message_ << __VA_ARGS__;                                                                  \
         ::Trace::emit( level, message_.text() );                                                  \
      }                                                                                            \
   } while ( false )
#define TRACE0( ... ) TRACE_AT_( 0, __VA_ARGS__ )
#define TRACE7( ... ) TRACE_AT_( 7, __VA_ARGS__ )
#define TRACE8( ... ) TRACE_AT_( 8, __VA_ARGS__ )
#define TRACE9( ... ) TRACE_AT_( 9, __VA_ARGS__ )
