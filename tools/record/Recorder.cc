// A record is what watchers of all state hear, written down as they hear it, and the agent's own
// pieces of work between. The watchers are there before the agent's.

#include "tools/record/Recorder.h"

#include "platform/Toggle/Toggle.h"
#include "tools/state/StateFields.h"
#include "tools/state/StateWalk.h"

#include <cmath>
#include <filesystem>

namespace Record {

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
   if ( std::filesystem::is_regular_file( file ) ) {
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
   runner_.taskScheduler()->listenerIs( this, { {}, [ this ] { taskRuns(); } } );
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

/// To the nanosecond, as the clock counts.
Recorder::Json
Recorder::lineNow() const {
   return { { "at", std::round( ( loop_.now() - begin_ ) * 1e9 ) / 1e9 } };
}

/// What an earlier agent has left there comes in as all else does.
bool
Recorder::isByAgent( const std::string & path ) const {
   return runner_.agent() && State::anyKind( path )->isAgents;
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
   const std::string path = Redis::pathOf( key );
   if ( isByAgent( path ) && ( field.empty() || !isRecorded( path ) ) ) {
      return;
   }
   tellRuns();
   if ( field.empty() ) {
      tellWhole( key, path );
   } else {
      tellField( key, path, field );
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

void
Recorder::tellField( const std::string & key, const std::string & path,
                     const std::string & field ) {
   Json line = lineNow();
   line[ isByAgent( path ) ? "published" : "path" ] = path;
   line[ "field" ] = field;
   std::string text;
   const auto entity = watched_->entity( key );
   if ( entity && State::appendFieldText( *entity, field, text ) ) {
      line[ "value" ] = Json::parse( text );
   }
   write( line );
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
      Json line{ { "at", std::round( ( runsAt_ - begin_ ) * 1e9 ) / 1e9 }, { "run", runs_ } };
      runs_ = 0;
      write( line );
   }
}

void
Recorder::write( const Json & line ) {
   if ( !out_.is_open() ) {
      return;
   }
   out_ << line.dump( -1, ' ', false, Json::error_handler_t::replace ) << std::endl;
   if ( !out_ ) {
      out_.close();
      say_( file_ + ": cannot be written any more; the record ends here" );
   }
}

}
