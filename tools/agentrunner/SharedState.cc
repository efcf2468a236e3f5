// An agent on shared state, from the first connection to the last change.

#include "tools/agentrunner/SharedState.h"

#include "tools/state/StatePaths.h"
#include "tools/text/Plain.h"

#include <iostream>
#include <unistd.h>

namespace {

constexpr Lum::Seconds lastWords = 2;  // for changes that are not written yet

std::string
nameForPeople( const std::string & agentName ) {
   char host[ 256 ] = "";
   gethostname( host, sizeof host - 1 );
   return agentName + " (process " + std::to_string( getpid() ) + " on " + host + ")";
}

}

SharedState::SharedState( Lum::ActivityLoop & loop, Corvdb::StateStore & state,
                          Zorch::TableStore & tables, AgentRunner::Runner & runner,
                          const Settings & settings, std::function< void() > ready,
                          std::function< void() > started )
   : loop_( loop ),
     runner_( runner ),
     url_( settings.url.text ),
     started_( std::move( started ) ),
     replica_( loop, state, tables, { settings.url, nameForPeople( settings.agentName ) },
               { [] {},
                 [ this ]( const std::string & why, bool isHopeless ) {
                    if ( isHopeless && !runner_.agent() ) {
                       fail( why );
                    }
                 },
                 []( const std::string & line ) {
                    std::cerr << "agentrunner: " << Text::plain( line ) << std::endl;
                 } } ) {
   const auto paths = State::agentsPaths();
   replica_.leaseIs( { paths.begin(), paths.end() }, settings.standby,
                     { [ this, ready = std::move( ready ) ] { start( ready ); },
                       [ this ]( const std::string & why ) { fail( why ); },
                       [ this ]( const std::string & why ) { fail( why ); } } );
}

void
SharedState::start( const std::function< void() > & ready ) {
   if ( isOver_ ) {
      return;
   }
   gettingReady_.emplace( loop_, ready, [ this ]( const std::exception_ptr & failure ) {
      if ( failure ) {
         std::rethrow_exception( failure );
      }
      runner_.start();
      started_();
   } );
}

void
SharedState::fail( const std::string & why ) {
   failure_ = url_ + ": " + why;
   loop_.stop();
}

void
SharedState::finish() {
   isOver_ = true;
   gettingReady_.reset();
   if ( failure_.empty() ) {
      replica_.settle( lastWords );
      replica_.leaseDel();
      return;
   }
   throw std::runtime_error( failure_ );
}

nlohmann::json
SharedState::status() const {
   const Redis::Replica::Status now = replica_.status();
   return { { "url", url_ },
            { "connected", now.connected },
            { "settled", replica_.isSettled() },
            { "revision", now.revision },
            { "pending", now.pending },
            { "resyncs", now.resyncs },
            { "refused", now.refused },
            { "writes", now.holdsLease },
            { "writer", now.holder } };
}
