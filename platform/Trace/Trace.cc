// Where messages go. Each sink says once which levels it wants; the union of that is the one word
// that a trace statement looks at. What is chosen at run time stands
// before what a sink wants by itself, and opens no sink.

#include "platform/Trace/Trace.h"

#include "platform/Lum/Assert.h"
#include "platform/Trace/Gemtrace.h"
#include "platform/Trace/Sinks.h"

#include <fnmatch.h>
#include <optional>
#include <unordered_map>
#include <vector>

namespace Trace {

namespace {

Gemtrace::Sink textSink;
/// The levels that a sink wants by itself; 0 while it is closed.
unsigned textLevels = 0;
unsigned ringLevels = 0;
LogSink logSink = nullptr;

/// What somebody has chosen for both sinks while the process runs.
struct Rule {
   std::string filePattern;
   unsigned levels;
};
std::optional< unsigned > chosenLevels;
std::vector< Rule > rules;
std::unordered_map< const char *, unsigned > levelsOfFiles;  // by the rules, as far as asked for

unsigned
upTo( int maxLevel ) {
   return ( 2u << maxLevel ) - 1;
}

/// The levels of the rules for that file.
unsigned
levelsOf( const char * file ) {
   if ( rules.empty() ) {
      return 0;
   }
   const auto [ at, isNew ] = levelsOfFiles.try_emplace( file, 0 );
   for ( std::size_t i = 0; isNew && i < rules.size(); ++i ) {
      if ( fnmatch( rules[ i ].filePattern.c_str(), file, 0 ) == 0 ) {
         at->second |= rules[ i ].levels;
      }
   }
   return at->second;
}

bool
sinkWants( unsigned ownLevels, int level, const char * file ) {
   return ownLevels && ( chosenLevels.value_or( ownLevels ) | levelsOf( file ) ) >> level & 1;
}

void
wantedLevelsAreUpdated() {
   unsigned ofRules = 0;
   for ( const Rule & rule : rules ) {
      ofRules |= rule.levels;
   }
   const auto wants = [ & ]( unsigned own ) {
      return own ? chosenLevels.value_or( own ) | ofRules : 0;
   };
   wantedLevels = wants( textLevels ) | wants( ringLevels );
   filesDiffer = !rules.empty();
}

}

bool
wantedByRules( int level, const char * file ) {
   return sinkWants( textLevels | ringLevels, level, file );
}

void
levelIs( int maxLevel, const std::string & filePattern ) {
   LUM_ASSERT( maxLevel >= 0 && maxLevel < levels );
   levelsOfFiles.clear();
   if ( filePattern.empty() ) {
      rules.clear();
      chosenLevels = upTo( maxLevel );
   } else {
      rules.push_back( { "*/" + filePattern, upTo( maxLevel ) } );
   }
   wantedLevelsAreUpdated();
}

void
levelDel() {
   rules.clear();
   levelsOfFiles.clear();
   chosenLevels.reset();
   wantedLevelsAreUpdated();
}

void
emit( int level, Message & message, const char * file ) {
   if ( sinkWants( ringLevels, level, file ) ) {
      Velotrace::record( level, message );
   }
   if ( sinkWants( textLevels, level, file ) ) {
      textSink( level, message.text() );
   }
}

void
emit( int level, std::string_view text, const char * file ) {
   Message message;
   message << text;
   emit( level, message, file );
}

void
ringLevelIs( int maxLevel ) {
   ringLevels = maxLevel < 0 ? 0 : upTo( maxLevel );
   wantedLevelsAreUpdated();
}

std::string
logLine( const LogMessage & message, std::string_view text ) {
   constexpr std::string_view severities[] = { "debug", "info", "notice", "warning", "error" };
   std::string line( message.id );
   line.append( ": " ).append( text ).append( " (" );
   line.append( severities[ static_cast< std::size_t >( message.severity ) ] );
   return line.append( ": " ).append( message.explanation ).append( ")" );
}

void
logMessage( const LogMessage & message, std::string_view text ) {
   if ( logSink ) {
      logSink( message, text );
   }
   TRACE0( logLine( message, text ) );
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
