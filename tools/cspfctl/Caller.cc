// The two ways to live state. Who calls the database has a replica of it for the time of the
// command, and answers from that as an agent's control socket would.

#include "tools/cspfctl/Caller.h"

#include "tools/service/Client.h"
#include "tools/service/DatabaseState.h"
#include "tools/state/StatePaths.h"
#include "tools/text/Plain.h"

#include <algorithm>
#include <array>
#include <exception>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <unistd.h>
#include <utility>

namespace {

using Service::Json;

class AgentCaller : public Caller {
 public:
   AgentCaller( const std::string & socket, double patience ) : client_( socket, patience ) {}
   Json call( const std::string & method, const Json & params,
              const Notified & notified ) override {
      return client_.call( method, params, notified );
   }
   void listen( const Notified & notified ) override { client_.listen( notified ); }
   void timeoutIs( double seconds ) override { client_.timeoutIs( seconds ); }

 private:
   Service::Client client_;
};

struct WholeText : State::TextSink {
   void text( std::string_view piece ) override { whole += piece; }
   std::string whole;
};

class DatabaseCaller : public Caller {
 public:
   DatabaseCaller( const std::string & url, const std::string & passwordFile,
                   std::optional< double > patience );
   ~DatabaseCaller() override { view().tableListenerIs( {} ); }
   DatabaseCaller( const DatabaseCaller & ) = delete;
   DatabaseCaller & operator=( const DatabaseCaller & ) = delete;

   Json call( const std::string & method, const Json & params, const Notified & notified ) override;
   void listen( const Notified & ) override;
   void timeoutIs( double seconds ) override;

 private:
   Service::StateView & view() { return database_->view(); }
   void handleUnusable( const std::string & why, bool isHopeless );
   void handleLine( const std::string & line );
   void patch( const std::string & path, const Json & patch );
   Json watch( const Json & paths );
   void handleTable( const std::string & path );
   void tell( const Json & change );
   void endBy( std::exception_ptr why );
   Json status() const;

   const std::string url_;
   Lum::ActivityLoop loop_{ Lum::ActivityLoop::Time::real };
   std::unique_ptr< Service::DatabaseState > database_;
   bool complete_ = false, listens_ = false;
   std::string away_;  ///< why the database cannot be used
   std::uint64_t refused_ = 0;
   std::string trouble_;  ///< the last refusal while nobody listened
   Notified notified_;
   std::exception_ptr end_;  ///< by which listening ends
   std::vector< std::string > watchedTops_;
   std::map< std::string, Lum::Ptr< Service::StateWatch > > watches_;
};

DatabaseCaller::DatabaseCaller( const std::string & url, const std::string & passwordFile,
                                std::optional< double > patience )
   : url_( url ) {
   Redis::Replica::Settings settings{ Redis::parseUrl( url, passwordFile ),
                                      "cspfctl (process " + std::to_string( getpid() ) + ")" };
   settings.observed = State::agentsPaths().front();
   database_ = std::make_unique< Service::DatabaseState >(
      loop_, settings,
      Redis::Replica::Handlers{ [ this ] { complete_ = true; },
                                [ this ]( const std::string & why, bool isHopeless ) {
                                   handleUnusable( why, isHopeless );
                                },
                                [ this ]( const std::string & line ) { handleLine( line ); } } );
   constexpr Lum::Seconds firstLook = 1;  // for a database that is there, whatever the patience
   const Lum::Seconds end = loop_.deadlineAfter( patience.value_or( 0 ) );
   const Lum::Seconds lookEnd = patience ? std::max( end, loop_.deadlineAfter( firstLook ) )
                                         : std::numeric_limits< Lum::Seconds >::infinity();
   while ( !complete_ && !end_ ) {
      const Lum::Seconds left = ( away_.empty() ? lookEnd : end ) - loop_.now();
      if ( left <= 0 ) {
         break;
      }
      loop_.runOnce( std::min( 0.1, left ) );
   }
   if ( complete_ ) {
      return;
   }
   if ( patience && !end_ ) {
      throw Service::TimedOut( away_.empty() ? url_ + ": not read in time" : away_ );
   }
   throw std::runtime_error( away_ );
}

/// The replica tries again by itself, and catches up; only what no patience helps against ends it.
void
DatabaseCaller::handleUnusable( const std::string & why, bool isHopeless ) {
   away_ = url_ + ": " + why;
   if ( isHopeless ) {
      endBy( std::make_exception_ptr( std::runtime_error( away_ ) ) );
   }
}

void
DatabaseCaller::handleLine( const std::string & line ) {
   if ( listens_ ) {
      std::cerr << "cspfctl: " << Text::plain( line ) << std::endl;
   } else if ( complete_ ) {
      const std::uint64_t refused = database_->replica().status().refused;
      if ( refused > std::exchange( refused_, refused ) ) {
         trouble_ = line;
      }
   }
}

Json
DatabaseCaller::call( const std::string & method, const Json & params, const Notified & notified ) {
   if ( method == "get" ) {
      WholeText text;
      view().get( params.at( "path" ).get< std::string >(), text );
      return Json::parse( text.whole );
   }
   if ( method == "patch" ) {
      patch( params.at( "path" ).get< std::string >(), params.at( "patch" ) );
      return true;
   }
   if ( method == "watch" ) {
      notified_ = notified;
      return watch( params.at( "paths" ) );
   }
   if ( method == "status" ) {
      return status();
   }
   throw std::runtime_error( "this needs an agent: call it over its socket" );
}

void
DatabaseCaller::listen( const Notified & ) {
   listens_ = true;
   if ( !end_ ) {
      loop_.run();
   }
   if ( end_ ) {
      std::rethrow_exception( end_ );
   }
}

void
DatabaseCaller::timeoutIs( double seconds ) {
   loop_.timerIs( loop_.deadlineAfter( seconds ),
                  [ this ] { endBy( std::make_exception_ptr( Service::TimedOut() ) ); } );
}

/// The loop's turn is over first: it is not to be broken off.
void
DatabaseCaller::endBy( std::exception_ptr why ) {
   end_ = end_ ? end_ : std::move( why );
   loop_.stop();
}

void
DatabaseCaller::tell( const Json & change ) {
   try {
      notified_( "change", change );
   } catch ( ... ) {
      endBy( std::current_exception() );
   }
}

void
DatabaseCaller::patch( const std::string & path, const Json & patch ) {
   constexpr Lum::Seconds patience = 10;
   Redis::Replica & replica = database_->replica();
   refused_ = replica.status().refused;
   trouble_.clear();
   view().patch( path, patch );
   const bool isSettled = replica.settle( patience );
   if ( !trouble_.empty() ) {
      throw std::runtime_error( trouble_ );
   }
   if ( !isSettled ) {
      throw std::runtime_error( replica.status().connected || away_.empty()
                                   ? url_ + ": the database does not answer"
                                   : away_ );
   }
}

Json
DatabaseCaller::watch( const Json & paths ) {
   Json states = Json::object();
   for ( const Json & asked : paths ) {
      const auto watched = view().watched( asked.get< std::string >() );
      if ( watched.tables ) {
         watchedTops_.push_back( watched.path );
      }
      for ( const std::string & part : watched.present ) {
         states[ part ] = view().typed( part );
         watches_[ part ] = Lum::make< Service::StateWatch >(
            part, view().find( part ), [ this ]( const Json & change ) { tell( change ); } );
      }
   }
   view().tableListenerIs( [ this ]( const std::string & path ) { handleTable( path ); } );
   return states;
}

void
DatabaseCaller::handleTable( const std::string & path ) {
   if ( std::ranges::none_of( watchedTops_, [ & ]( const std::string & top ) {
           return Service::isAtOrBelow( path, top );
        } ) ) {
      return;
   }
   const auto table = view().find( path );
   Json change = table ? view().typed( path ) : Json::object();
   change[ "path" ] = path;
   tell( change );
   watches_.erase( path );
   if ( table ) {
      watches_[ path ] = Lum::make< Service::StateWatch >(
         path, table, [ this ]( const Json & told ) { tell( told ); } );
   }
}

Json
DatabaseCaller::status() const {
   const Redis::Replica::Status now = database_->replica().status();
   return { { "agent", now.holder.empty() ? Json() : Json( now.holder ) },
            { "pendingTasks", Json::array() },
            { "state",
              { { "url", url_ },
                { "connected", now.connected },
                { "revision", now.revision },
                { "refused", now.refused } } } };
}

}

std::unique_ptr< Caller >
agentCaller( const std::string & socket, double patience ) {
   return std::make_unique< AgentCaller >( socket, patience );
}

std::unique_ptr< Caller >
databaseCaller( const std::string & url, const std::string & passwordFile,
                std::optional< double > patience ) {
   return std::make_unique< DatabaseCaller >( url, passwordFile, patience );
}

bool
settles( Caller & agent, double seconds ) {
   agent.timeoutIs( seconds + 1 );
   return agent.call( "wait", { { "timeout", seconds } } ).get< bool >();
}

namespace {

constexpr std::array knowState{ "get",  "patch", "watch",  "paths", "status",
                                "save", "draw",  "whatif", "wait" };

std::string
optionText( const CLI::App & app, const char * name ) {
   const CLI::Option * option = app.get_option( name );
   return option->count() > 0 ? option->as< std::string >() : "";
}

}

void
addStateOptions( CLI::App & app ) {
   CLI::Option * state =
      app.add_option( "--state",
                      "for get, patch, watch, paths, status, save, draw, whatif and wait: the "
                      "database that holds the state, unix:PATH or redis://HOST:PORT/DATABASE, "
                      "instead of an agent" )
         ->type_name( "URL" );
   app.add_option( "--state-password", "file with the database's password" )
      ->type_name( "FILE" )
      ->needs( state );
   app.parse_complete_callback( [ &app ] {
      const auto commands = app.get_subcommands();
      if ( commands.empty() || !namesDatabase( app ) ) {
         return;
      }
      if ( std::ranges::find( knowState, commands.front()->get_name() ) == knowState.end() ) {
         throw CLI::ValidationError( "it asks no database: --state is not for it" );
      }
      if ( commands.front()->get_option( "--socket" )->count() > 0 ) {
         throw CLI::ValidationError( "--state does not go with --socket" );
      }
   } );
}

bool
namesDatabase( const CLI::App & app ) {
   return !optionText( app, "--state" ).empty();
}

std::unique_ptr< Caller >
liveCaller( const CLI::App & app, const std::string & socket, std::optional< double > patience ) {
   return namesDatabase( app ) ? databaseCaller( optionText( app, "--state" ),
                                                 optionText( app, "--state-password" ), patience )
                               : agentCaller( socket, patience.value_or( 0 ) );
}
