// A record played again. The agent's pieces of work are its tasks, which are all that this loop
// does; in which order they are due follows from the times of the turns. What it publishes is
// watched as the recorder watched it, and held against the record's own lines one by one.

#include "tools/record/Replay.h"

#include "platform/Toggle/Toggle.h"
#include "schema/Types.h"
#include "tools/lab/AgentListening.h"
#include "tools/lab/LabJson.h"
#include "tools/record/Recorder.h"
#include "tools/state/StateFields.h"
#include "tools/state/StateWalk.h"

#include <cmath>
#include <cstdlib>
#include <deque>
#include <istream>
#include <ostream>

namespace Record {

namespace {

using Json = nlohmann::ordered_json;

/// Where the process ended without a word, what its agent was about to do may be why: its work goes
/// on for so many pieces and seconds.
constexpr std::size_t mostPieces = 1'000'000;
constexpr Lum::Seconds afterwards = 60;

constexpr const char * noRecord = "expected a record's first line, {\"record\": 1, ...}";

class Player {
 public:
   Player( AgentRunner::AgentFactory factory, const ReplayOptions & options, std::ostream & out,
           std::ostream & err )
      : options_( options ),
        out_( out ),
        listening_( out, err, loop_, options.verbose ),
        runner_( loop_, state_, tables_, factory, "CspfAgent" ) {
      Schema::registerTypes( types_ );
      runner_.taskScheduler()->repeatableIs( true );
   }

   Replayed play( std::istream & record );

 private:
   [[noreturn]] void fail( const std::string & text ) const {
      throw Error( "line " + std::to_string( line_ ) + ": " + text );
   }
   void header( const Json & line ) const;
   void step( const Json & line );
   void change( const std::string & path, const Json & line );
   void fieldIs( const std::string & path, const State::PathKind & kind, const Json & line );
   void start( const Json & line );
   void run( const Json & line );
   void watch();
   void told( const std::string & key, const std::string & field );
   void expect( const Json & line );
   void differs( const std::string & text );

   const ReplayOptions & options_;
   std::ostream & out_;
   Corvdb::TypeRegistry types_;
   Lum::ActivityLoop loop_{ Lum::ActivityLoop::Time::virtualTime };
   const Lum::Seconds start_ = loop_.now();
   const Lab::AgentListening listening_;
   Corvdb::StateStore state_{ types_ };
   Zorch::TableStore tables_{ types_ };
   AgentRunner::Runner runner_;
   std::unique_ptr< Redis::LocalState > watched_;
   std::deque< std::string > published_;  ///< and not yet held against the record
   std::size_t line_ = 0;
   Replayed result_;
};

void
Player::header( const Json & line ) const {
   if ( !line.contains( "record" ) ) {
      fail( noRecord );
   }
   if ( line[ "record" ] != formatVersion ) {
      fail( "expected a record of version " + std::to_string( formatVersion ) + ", found "
            + line[ "record" ].dump() );
   }
}

Replayed
Player::play( std::istream & record ) {
   std::string text;
   while ( std::getline( record, text ) ) {
      ++line_;
      const bool whole = !record.eof();
      try {
         Lab::LabJson::parse( text );  // which says in words where it is none
         const Json line = Json::parse( text );
         if ( !line.is_object() ) {
            fail( "expected an object" );
         }
         result_.cutOff = true;  // until the end is there
         line_ == 1 ? header( line ) : step( line );
      } catch ( const Lab::LabError & error ) {
         if ( whole || line_ == 1 ) {
            fail( line_ == 1 ? noRecord : error.what() );
         }
         result_.cutOff = true;
      } catch ( const State::Error & error ) {
         fail( error.what() );
      } catch ( const Json::exception & ) {
         fail( "a part is missing, or of another type" );
      }
   }
   if ( line_ == 0 ) {
      fail( "expected a record, found nothing" );
   }
   if ( !published_.empty() && !result_.cutOff ) {
      differs( "nothing more was published then; now " + published_.front() );
   }
   watched_.reset();  // what an agent withdraws when it ends is no part of the record
   if ( result_.cutOff ) {
      loop_.settle( mostPieces, loop_.now() + afterwards );
   }
   runner_.stop();
   return result_;
}

void
Player::step( const Json & line ) {
   const double at = line.at( "at" ).get< double >();
   if ( !( at >= 0 && at < 1e12 ) ) {
      fail( "expected as \"at\" seconds from the start" );
   }
   result_.seconds = std::max( result_.seconds, at );
   if ( start_ + at > loop_.now() ) {
      loop_.nowIs( start_ + at );
   }
   if ( line.contains( "path" ) ) {
      change( line[ "path" ].get< std::string >(), line );
   } else if ( line.contains( "start" ) ) {
      start( line );
   } else if ( line.contains( "run" ) ) {
      run( line );
   } else if ( line.contains( "published" ) ) {
      expect( line );
   } else if ( line.contains( "end" ) ) {
      result_.cutOff = false;
   } else {
      fail( "expected \"path\", \"start\", \"run\" or \"published\"" );
   }
}

void
Player::change( const std::string & path, const Json & line ) {
   const auto * kind = State::anyKind( path );
   if ( !kind ) {
      fail( "expected the path of state, found \"" + path + "\"" );
   }
   ++result_.changes;
   if ( line.contains( "field" ) ) {
      fieldIs( path, *kind, line );
   } else if ( line.contains( "value" ) ) {
      State::stateIs( state_, tables_, path, *kind, line[ "value" ] );
   } else {
      State::stateDel( state_, tables_, path, *kind );
   }
}

void
Player::fieldIs( const std::string & path, const State::PathKind & kind, const Json & line ) {
   auto entity = tables_.table( path );
   entity = entity ? entity : state_.entity( path );
   if ( !entity ) {
      State::stateIs( state_, tables_, path, kind, Json::object() );
      entity = tables_.table( path ) ? tables_.table( path ) : state_.entity( path );
   }
   const std::string text = line.contains( "value" ) ? line[ "value" ].dump() : "";
   State::fieldIs( *entity, line[ "field" ].get< std::string >(),
                   text.empty() ? std::nullopt : std::optional< std::string_view >( text ) );
}

void
Player::start( const Json & line ) {
   if ( runner_.agent() ) {
      fail( "the agent runs already" );
   }
   const Json toggles = line.value( "toggles", Json::object() );
   for ( const auto & [ name, on ] : toggles.items() ) {
      Toggle::toggleOverrideIs( name, on.get< bool >() );
   }
   watch();
   runner_.start();
}

void
Player::run( const Json & line ) {
   const auto pieces = line[ "run" ].get< std::size_t >();
   for ( std::size_t i = 0; i < pieces; ++i ) {
      if ( runner_.taskScheduler()->pending() == 0 ) {
         differs( "the agent had work to do then, and has none now" );
         return;
      }
      loop_.settle( 1 );
      ++result_.runs;
   }
}

void
Player::watch() {
   watched_ = std::make_unique< Redis::LocalState >(
      state_, tables_,
      Redis::LocalState::Handlers{
         [ this ]( const std::string & key, const std::string & field ) { told( key, field ); },
         []( const std::string & key, const std::string & ) {
            return std::string( isRecorded( Redis::pathOf( key ) ) ? "" : "not recorded" );
         },
         []( const std::string & ) { return nullptr; },
         []( const auto &, auto, const auto & ) {} } );
   published_.clear();
}

void
Player::told( const std::string & key, const std::string & field ) {
   if ( !watched_ || field.empty() ) {
      return;
   }
   Json line{ { "published", Redis::pathOf( key ) }, { "field", field } };
   std::string text;
   const auto entity = watched_->entity( key );
   if ( entity && State::appendFieldText( *entity, field, text ) ) {
      line[ "value" ] = Json::parse( text );
   }
   published_.push_back( line.dump() );
   ++result_.published;
   if ( options_.print ) {
      Json whole{ { "at", std::round( ( loop_.now() - start_ ) * 1e9 ) / 1e9 } };
      whole.update( line );
      out_ << whole.dump() << "\n";
   }
}

void
Player::expect( const Json & line ) {
   Json wanted = line;
   wanted.erase( "at" );
   if ( published_.empty() ) {
      differs( "published then " + wanted.dump() + ", now nothing" );
      return;
   }
   const std::string now = std::move( published_.front() );
   published_.pop_front();
   if ( now != wanted.dump() ) {
      differs( "published then " + wanted.dump() + ", now " + now );
   }
}

void
Player::differs( const std::string & text ) {
   if ( result_.difference.empty() ) {
      result_.difference = "line " + std::to_string( line_ ) + ": " + text;
   }
}

}

Replayed
replay( std::istream & record, AgentRunner::AgentFactory factory, const ReplayOptions & options,
        std::ostream & out, std::ostream & err ) {
   Lab::withoutTraceRing();
   std::srand( 1 );  // as in a process that has just begun
   Player player( factory, options, out, err );
   Replayed result;
   Lab::untilBroken( [ & ] { result = player.play( record ); } );
   return result;
}

}
