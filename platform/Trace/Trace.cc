// Where messages go. Each sink says once which levels it wants; the union of that is the one word
// that a trace statement looks at.

#include "platform/Trace/Trace.h"

#include "platform/Trace/Gemtrace.h"
#include "platform/Trace/Sinks.h"

namespace Trace {

namespace {

Gemtrace::Sink textSink;
unsigned textLevels = 0;
unsigned ringLevels = 0;
LogSink logSink = nullptr;

unsigned
upTo( int maxLevel ) {
   return ( 2u << maxLevel ) - 1;
}

void
wantedLevelsAreUpdated() {
   wantedLevels = textLevels | ringLevels;
}

/// "void Cspf::PathSm::handleX(const Key&)" -> "Cspf::PathSm::handleX(const Key&)".
std::string_view
signature( std::string_view prettyFunction ) {
   const auto with = prettyFunction.rfind( " [with " );
   prettyFunction = prettyFunction.substr( 0, with );
   const auto arguments = prettyFunction.find( '(' );
   const auto type = prettyFunction.rfind( ' ', arguments );
   return type == prettyFunction.npos || arguments == prettyFunction.npos
             ? prettyFunction
             : prettyFunction.substr( type + 1 );
}

}

Message::Message( std::string_view prettyFunction ) {
   text_.reserve( 160 );
   text_.append( signature( prettyFunction ) ).append( ": " );
}

void
emit( int level, std::string_view text ) {
   if ( ringLevels >> level & 1 ) {
      Velotrace::record( level, text );
   }
   if ( textLevels >> level & 1 ) {
      textSink( level, text );
   }
}

void
ringLevelIs( int maxLevel ) {
   ringLevels = maxLevel < 0 ? 0 : upTo( maxLevel );
   wantedLevelsAreUpdated();
}

void
logMessage( const LogMessage & message, std::string_view text ) {
   if ( logSink ) {
      logSink( message, text );
   }
   TRACE0( message.id << ": " << text );
}

void
logSinkIs( LogSink sink ) {
   logSink = sink;
}

}

namespace Gemtrace {

void
sinkIs( Sink sink, int maxLevel ) {
   Trace::textSink = std::move( sink );
   Trace::textLevels = Trace::textSink ? Trace::upTo( maxLevel ) : 0;
   Trace::wantedLevelsAreUpdated();
}

}
