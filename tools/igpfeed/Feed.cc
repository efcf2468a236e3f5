// One timer drives everything: look at the version, read where it moved, write what differs. A
// large database is read at most a fifth of the time, so that neither the daemon nor the feed is
// kept busy by a network that never rests.

#include "tools/igpfeed/Feed.h"
#include "tools/text/Plain.h"

#include <iostream>

namespace IgpFeed {

namespace {

constexpr double quiet = 5;           // seconds without news, after which a daemon has settled
constexpr double settlePerGrace = 3;  // times as long a daemon may take to settle
constexpr double restPerRead = 4;     // times as long as the read took
constexpr double retryInterval = 1;   // seconds between attempts to reach the state

}

Feed::Feed( Lum::ActivityLoop & loop, std::unique_ptr< Daemon > daemon, Cspf::IgpSource igp,
            FeedOptions options, OpenState openState )
   : loop_( loop ),
     daemon_( std::move( daemon ) ),
     igp_( igp ),
     options_( std::move( options ) ),
     openState_( std::move( openState ) ),
     holdUntil_( loop.now() + options_.grace ) {
   timer_ = loop_.timerIs( loop_.now(), [ this ] { tick(); } );
}

void
Feed::tell( const std::string & text ) const {
   std::cerr << "igpfeed: " << options_.name << ": " << Text::plain( text ) << std::endl;
}

/// `last`: what was told of the same matter before.
void
Feed::tellOnce( std::string & last, const std::string & text ) const {
   if ( last != text ) {
      last = text;
      tell( text );
   }
}

void
Feed::tick() {
   timer_ = loop_.timerIs( loop_.now() + options_.interval, [ this ] { tick(); } );
   lookAtDaemon();
   writeState();
}

void
Feed::lookAtDaemon() {
   try {
      if ( !vty_ ) {
         vty_ = std::make_unique< Vty >( options_.vtySocket );
         version_.clear();
         holding_ = true;
         holdUntil_ = loop_.now() + settlePerGrace * options_.grace;
         tellOnce( daemonTrouble_, "reading " + options_.vtySocket );
      }
      if ( loop_.now() < nextRead_ ) {
         return;
      }
      if ( const std::string version = daemon_->version( *vty_ ); version != version_ ) {
         readDaemon( version );
      }
   } catch ( const VtyError & error ) {
      handleLoss( error.what() );
   } catch ( const Igp::CaptureError & error ) {
      nextRead_ = loop_.now() + retryInterval;
      tellOnce( daemonTrouble_, error.what() );
   }
}

void
Feed::readDaemon( const std::string & version ) {
   const Lum::RealClock clock;
   const double begin = clock.now();
   const Reading reading = daemon_->read( *vty_ );
   tellFindings( reading.findings );
   if ( FeedContent content = FeedContent::of( reading ); wanted_ != content ) {
      wanted_ = std::move( content );
      changedAt_ = loop_.now();
      written_ = false;
   }
   selves_.clear();
   for ( const Igp::Topology & topology : reading.topologies ) {
      selves_[ { topology.id, topology.af, topology.vrf } ] = topology.self;
   }
   version_ = version;
   nextRead_ = loop_.now() + restPerRead * ( clock.now() - begin );
}

void
Feed::handleLoss( const std::string & why ) {
   if ( vty_ ) {
      vty_.reset();
      holdUntil_ = loop_.now() + options_.grace;
      holding_ = true;
   }
   wanted_.reset();
   tellOnce( daemonTrouble_, why );
   if ( loop_.now() >= holdUntil_ ) {
      wanted_.emplace();  // nothing
      written_ = state_ && state_->standing().tables.empty();
      if ( !written_ && state_ ) {
         tell( "withdrawing its tables" );
      }
   }
}

void
Feed::tellFindings( const Igp::Findings & findings ) {
   std::set< std::string > now( findings.begin(), findings.end() );
   for ( const std::string & finding : now ) {
      if ( !told_.contains( finding ) ) {
         tell( finding );
      }
   }
   told_ = std::move( now );
}

bool
Feed::isBelieved() const {
   const FeedContent & standing = state_->standing();
   return !holding_ || loop_.now() >= holdUntil_ || comesUpTo( *wanted_, standing, selves_ )
          || ( loop_.now() - changedAt_ >= quiet && isConnected( *wanted_, standing, selves_ ) );
}

void
Feed::writeState() {
   if ( access_ && !access_->isOpen() ) {
      state_.reset();
      access_.reset();
      tell( "the agent is gone" );
   }
   if ( !wanted_ || loop_.now() < nextOpen_ || ( written_ && state_ ) ) {
      return;
   }
   try {
      if ( !state_ ) {
         access_ = openState_();
         state_ = std::make_unique< FeedState >( *access_, igp_ );
         stateTrouble_.clear();
      }
      if ( !isBelieved() ) {
         return;
      }
      holding_ = false;
      state_->write( *wanted_ );
      written_ = true;
   } catch ( const std::runtime_error & error ) {
      state_.reset();
      access_.reset();
      nextOpen_ = loop_.now() + retryInterval;
      tellOnce( stateTrouble_, error.what() );
   }
}

}
