// A record is what watchers of all state hear, written down as they hear it, and the agent's own
// pieces of work between. The watchers are there before the agent's.

#include "tools/record/Recorder.h"

#include "platform/Toggle/Toggle.h"
#include "tools/state/StateFields.h"
#include "tools/state/StateWalk.h"
#include "tools/text/Output.h"

#include <cmath>
#include <filesystem>

namespace Record {

namespace {

/// As JSON, whatever bytes it holds.
std::string
inQuotes( std::string_view text ) {
   using Json = nlohmann::json;
   return Json( text ).dump( -1, ' ', false, Json::error_handler_t::replace );
}

}

bool
isRecorded( const std::string & path ) {
   return path.starts_with( "te/cspf/status/" ) || path.starts_with( "te/cspf/bwUsage/" );
}

Recorder::Recorder( const std::string & file, const Lum::ActivityLoop & loop,
                    AgentRunner::Runner & runner, Corvdb::StateStore & state,
                    Zorch::TableStore & tables, Say say )
   : file_( file ),
     loop_( loop ),
     runner_( runner ),
     say_( std::move( say ) ),
     begin_( loop.now() ) {
   if ( !std::filesystem::is_other( file ) ) {
      Text::checkReplaceable( file );  // the next record moves it away
   }
   if ( std::filesystem::is_regular_file( file ) ) {
      Text::checkReplaceable( file + ".1" );
      std::filesystem::rename( file, file + ".1" );
   }
   out_.open( file, std::ios::binary | std::ios::trunc );
   if ( !out_ ) {
      throw std::runtime_error( file + ": no record can be written there" );
   }
   write( { { "record", formatVersion }, { "version", CSPF_VERSION } } );
   watched_ = std::make_unique< Redis::LocalState >(
      state, tables,
      Redis::LocalState::Handlers{
         [ this ]( const std::string & key, const std::string & field ) { changed( key, field ); },
         []( const std::string & key, const std::string & type ) {
            const auto * kind = State::anyKind( Redis::pathOf( key ) );
            return std::string( kind && kind->typeName == type ? "" : "unknown" );
         },
         []( const std::string & ) { return nullptr; },
         []( const auto &, auto, const auto & ) {} } );
   begun_ = true;
   for ( const std::string & key : watched_->keys() ) {
      if ( !State::saysNothing( *watched_->entity( key ) ) ) {
         tellWhole( key, Redis::pathOf( key ) );
      }
   }
   toldWith_.clear();
   runner_.taskScheduler()->repeatableIs( true );
   runner_.taskScheduler()->listenerIs( this, { [ this ] { flush(); }, [ this ] { taskRuns(); } } );
}

Recorder::~Recorder() {
   tellRuns();
   Json line = lineNow();
   line[ "end" ] = true;
   write( line );
   runner_.taskScheduler()->listenerIs( this, {} );
   runner_.taskScheduler()->repeatableIs( false );
}

void
Recorder::agentStarts() {
   Json line = lineNow();
   line[ "start" ] = true;
   for ( const char * toggle : { "OspfTopoDbExport" } ) {
      line[ "toggles" ][ toggle ] = Toggle::getToggleState( toggle, "gated.json", true );
   }
   write( line );
}

Recorder::Json
Recorder::lineNow() const {
   return { { "at", after( loop_.now() ) } };
}

/// Since the record began, to the nanosecond, as the clock counts.
Lum::Seconds
Recorder::after( Lum::Seconds time ) const {
   return std::round( ( time - begin_ ) * 1e9 ) / 1e9;
}

/// Rows of one table come and go together.
void
Recorder::subjectIs( const std::string & key ) {
   if ( subject_.key != key ) {
      const std::string path = Redis::pathOf( key );
      subject_ = {
         key, path, inQuotes( path ), State::anyKind( path )->isAgents, isRecorded( path ),
         -1,  {} };
   }
}

/// An entity that comes is written whole, and then tells of its fields one by one.
void
Recorder::changed( const std::string & key, const std::string & field ) {
   if ( !begun_ ) {
      return;
   }
   if ( key == toldKey_ && toldWith_.erase( field ) > 0 ) {
      return;
   }
   toldWith_.clear();
   subjectIs( key );
   // What an earlier agent has left there comes in as all else does.
   const bool isByAgent = runner_.agent() && subject_.isAgents;
   if ( isByAgent && field.empty() ) {
      flush();  // where all of it has gone, that of its fields was told before
      return;
   }
   if ( isByAgent && !subject_.isRecorded ) {
      return;
   }
   tellRuns();
   if ( field.empty() ) {
      tellWhole( key, subject_.path );
   } else {
      tellField( field, isByAgent );
   }
}

void
Recorder::tellWhole( const std::string & key, const std::string & path ) {
   Json line = lineNow();
   line[ "path" ] = path;
   if ( const auto entity = watched_->entity( key ) ) {
      line[ "type" ] = entity->typeName();
      line[ "value" ] = State::toJson( *entity );
      toldKey_ = key;
      State::forEachFieldName( *entity,
                               [ & ]( const std::string & name ) { toldWith_.insert( name ); } );
   }
   write( line );
}

/// Of 100,000 rows at once: the line is put together as text.
void
Recorder::tellField( const std::string & field, bool isPublished ) {
   if ( subject_.at != loop_.now() ) {
      subject_.at = loop_.now();
      subject_.atText = Json( after( subject_.at ) ).dump();
   }
   std::string line = R"({"at":)" + subject_.atText;
   line.append( isPublished ? R"(,"published":)" : R"(,"path":)" ).append( subject_.quotedPath );
   line.append( R"(,"field":)" ).append( inQuotes( field ) );
   std::string text;
   const auto entity = watched_->entity( subject_.key );
   if ( entity && State::appendFieldText( *entity, field, text ) ) {
      line.append( R"(,"value":)" ).append( State::isUtf8( text ) ? text : inQuotes( text ) );
   }
   writeText( line += '}' );
   if ( !isPublished || ( entity && runner_.taskScheduler()->pending() == 0 ) ) {
      flush();
   }
}

void
Recorder::taskRuns() {
   if ( runs_ > 0 && runsAt_ != loop_.now() ) {
      tellRuns();
   }
   ++runs_;
   runsAt_ = loop_.now();
}

void
Recorder::tellRuns() {
   if ( runs_ > 0 ) {
      Json line{ { "at", after( runsAt_ ) }, { "run", runs_ } };
      runs_ = 0;
      write( line );
   }
}

void
Recorder::write( const Json & line ) {
   writeText( line.dump( -1, ' ', false, Json::error_handler_t::replace ) );
   flush();
}

void
Recorder::writeText( std::string_view line ) {
   if ( out_.is_open() ) {
      out_ << line << '\n';
   }
}

void
Recorder::flush() {
   if ( out_.is_open() && !out_.flush() ) {
      out_.close();
      say_( file_ + ": cannot be written any more; the record ends here" );
   }
}

}
