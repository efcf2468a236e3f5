// The life of a replica: connecting, reading everything, following the log, and again. All
// connections end together, in a turn of their own, so that no answer arrives at something that is
// gone. Two connections: one waits at the log, one does all else.

#include "tools/redis/Replica.h"

#include "tools/redis/Functions.h"

#include <algorithm>
#include <charconv>
#include <random>

namespace Redis {

namespace {

constexpr Lum::Seconds beatPeriod = 0.25, waitingPeriod = 0.1, firstDelay = 0.1, maxDelay = 1,
                       graceOfWriters = 3;
/// In beats, since a loop that was busy has not listened.
constexpr std::uint64_t beatsPerRenewal = 4, maxStuckBeats = 8, maxSilentBeats = 20;

std::string
randomName() {
   std::random_device random;
   std::string name;
   for ( int i = 0; i < 4; ++i ) {
      name += std::to_string( random() );
   }
   return name;
}

/// The value of "name:value\r\n" in the answer to INFO.
std::string
infoOf( std::string_view info, std::string_view name ) {
   const auto at = info.find( "\n" + std::string( name ) + ":" );
   if ( at == info.npos ) {
      return {};
   }
   const auto begin = at + name.size() + 2;
   return std::string( info.substr( begin, info.find( '\r', begin ) - begin ) );
}

/// No patience helps against these.
bool
isHopeless( std::string_view error ) {
   constexpr std::string_view words[] = { "NOAUTH",
                                          "WRONGPASS",
                                          "NOPERM",
                                          "ERR AUTH",
                                          "ERR invalid password",
                                          "ERR DB index",
                                          "ERR Client sent AUTH",
                                          "ERR unknown command" };
   return std::ranges::any_of( words, [ & ]( auto word ) { return error.starts_with( word ); } );
}

}

Replica::Replica( Lum::ActivityLoop & loop, Corvdb::StateStore & state, Zorch::TableStore & tables,
                  Settings settings, Handlers handlers )
   : loop_( loop ),
     settings_( std::move( settings ) ),
     handlers_( std::move( handlers ) ),
     writer_( randomName() + "." ),
     local_( state, tables,
             { [ this ]( const auto & key, const auto & field ) { handleChanged( key, field ); },
               settings_.refusal, settings_.judge,
               [ this ]( const auto & key, auto field, const auto & line ) {
                  refused( key, field, line );
               },
               [ this ]( const auto & key, const auto & field ) {
                  return outbox_.holds( key, field );
               } } ),
     work_( loop, [ this ] {
        if ( phase_ == Phase::following ) {
           log_->goOn();
           handleProgress();
        }
     } ) {
   connect();
   beat();
}

Replica::~Replica() {
   work_.clear();
   for ( const auto & timer : { flush_, beat_, connect_, grace_ } ) {
      loop_.timerDel( timer );
   }
}

// ---- Connecting ----

void
Replica::connect() {
   connect_ = {};
   work_.clear();  // what is not done is told again
   phase_ = Phase::opening;
   awaitsBeat_ = false;
   session_ = writer_ + std::to_string( ++sessions_ );
   log_.reset();
   picture_.reset();
   awaitsAnswer_ = false;
   commands_ =
      std::make_unique< Connection >( loop_, settings_.url, [ this ]( const std::string & why ) {
         failed( why, false, isHopeless( why ) );
      } );
   commands_->send( { "INFO", "server" },
                    [ this ]( const redisReply & reply ) { handleServer( reply ); } );
   commands_->send( { "CLIENT", "ID" }, [ this ]( const redisReply & reply ) {
      client_ = std::to_string( numberOf( reply ) );
   } );
}

void
Replica::handleServer( const redisReply & reply ) {
   const std::string_view info = textOf( reply );
   if ( isError( reply ) ) {
      failed( std::string( info ), false, isHopeless( info ) );
      return;
   }
   const std::string version = infoOf( info, "redis_version" ), run = infoOf( info, "run_id" );
   int major = 0;
   std::from_chars( version.data(), version.data() + version.size(), major );
   if ( major < 7 ) {
      failed( ( version.empty() ? "the server does not say which version of Redis it is"
                                : "the server is Redis " + version )
                 + "; 7.0 or later is needed",
              false, true );
      return;
   }
   if ( run != run_ ) {
      anotherDatabase();
   }
   run_ = run;
   open();
}

/// Nothing ends before the writers of what is missing had time to write it again.
void
Replica::anotherDatabase() {
   rereads_ = true;
   spares_ = complete_;
   loop_.timerDel( std::exchange( grace_, {} ) );
   outbox_.restoreAll();
}

void
Replica::graceIs() {
   grace_ = loop_.timerIs( loop_.now() + graceOfWriters, [ this ] {
      grace_ = {};
      if ( phase_ == Phase::following ) {
         spares_ = false;
         rereads_ = true;
         connect();
      }
   } );
}

void
Replica::open() {
   commands_->send( { "FUNCTION", "LOAD", "REPLACE", functionLibrary },
                    [ this ]( const redisReply & reply ) {
                       if ( isError( reply ) ) {
                          const bool hopeless = isHopeless( textOf( reply ) );
                          failed( ( hopeless ? "the server takes no functions: " : "" )
                                     + std::string( textOf( reply ) ),
                                  false, hopeless );
                       }
                    } );
   if ( !settings_.observed.empty() ) {
      commands_->send( { "GET", "lease:" + settings_.observed }, [ this ]( const auto & reply ) {
         observedHolder_ = Lease::holderOf( textOf( reply ) );
      } );
   }
   // Each opening with a name of its own: a database that was emptied gets another one than before,
   // whoever comes first.
   commands_->send( { "FCALL", "state_open", "0", randomName() },
                    [ this ]( const redisReply & reply ) { handleOpen( reply ); } );
}

void
Replica::handleOpen( const redisReply & reply ) {
   if ( phase_ != Phase::opening ) {
      return;
   }
   if ( reply.type != REDIS_REPLY_ARRAY || reply.elements != 2 ) {
      failed( std::string( textOf( reply ) ) );
      return;
   }
   const std::string epoch( textOf( *reply.element[ 0 ] ) );
   openedAt_ = numberOf( *reply.element[ 1 ] );
   catchesUp_ = true;
   if ( epoch != epoch_ || openedAt_ < revision_ ) {
      anotherDatabase();
   }
   epoch_ = epoch;
   delay_ = 0;
   if ( std::exchange( wasToldAway_, false ) ) {
      handlers_.log( settings_.url.text + ": back" );
   }
   if ( lease_ ) {
      lease_->tick( *commands_, client_, run_ );
   }
   if ( rereads_ ) {
      readAll();
   } else {
      follow();
   }
}

/// Ends the connections, in a turn of their own, and tries again later.
void
Replica::failed( const std::string & why, bool rereads, bool isHopeless ) {
   rereads_ = rereads_ || rereads;
   if ( phase_ == Phase::away ) {
      return;
   }
   phase_ = Phase::away;
   const bool again = rereads && delay_ == 0;
   // Whoever has nothing to go on with hears of a hopeless case by the handler alone.
   if ( ( complete_ || !isHopeless ) && !std::exchange( wasToldAway_, true ) ) {
      handlers_.log( settings_.url.text + ": " + why
                     + ( again ? "; reading all again" : "; going on with what is known" ) );
   }
   connect_ = loop_.timerIs( loop_.now() + ( again ? 0 : delay_ ), [ this ] { connect(); } );
   delay_ = std::clamp( 2 * delay_, firstDelay, maxDelay );
   handlers_.unusable( why, isHopeless );
}

// ---- The lease, and signs of life ----

bool
Replica::settle( Lum::Seconds most ) {
   const Lum::Seconds end = loop_.now() + most;
   while ( !isSettled() && loop_.now() < end ) {
      loop_.runOnce( 0.05 );
   }
   return isSettled();
}

void
Replica::leaseIs( std::vector< std::string > prefixes, bool waits, LeaseHandlers handlers ) {
   LUM_ASSERT( !lease_ );
   leaseHandlers_ = std::move( handlers );
   lease_ = std::make_unique< Lease >( std::move( prefixes ), settings_.name, waits,
                                       Lease::Handlers{ [ this ]( std::uint64_t revision ) {
                                                          grantedAt_ = revision;
                                                          if ( phase_ == Phase::following ) {
                                                             handleProgress();
                                                          }
                                                       },
                                                        leaseHandlers_.refused,
                                                        [ this ]( const std::string & why ) {
                                                           isAuthority_ = false;
                                                           mute();
                                                           leaseHandlers_.lost( why );
                                                        } } );
   if ( phase_ == Phase::reading || phase_ == Phase::following ) {
      lease_->tick( *commands_, client_, run_ );
   }
}

void
Replica::leaseDel() {
   if ( lease_ && lease_->isHeld() && phase_ == Phase::following ) {
      lease_->release( *commands_ );
   }
   isAuthority_ = false;
}

void
Replica::beat() {
   const bool waits = lease_ && !lease_->isHeld() && !lease_->isOver();
   beat_ =
      loop_.timerIs( loop_.now() + ( waits ? waitingPeriod : beatPeriod ), [ this ] { beat(); } );
   if ( phase_ == Phase::away ) {
      return;
   }
   const bool silent = commands_->isWaiting() && commands_->progress() == progress_;
   progress_ = commands_->progress();
   silentBeats_ = silent ? silentBeats_ + 1 : 0;
   if ( silentBeats_ >= maxSilentBeats ) {
      silentBeats_ = 0;
      failed( "no answer" );
      return;
   }
   if ( phase_ == Phase::opening ) {
      return;
   }
   ++beats_;
   if ( lease_ && ( waits || beats_ % beatsPerRenewal == 0 ) ) {
      lease_->tick( *commands_, client_, run_ );
   }
   // One at a time: what a busy server answers at once is one sign, not many.
   if ( phase_ == Phase::following && !std::exchange( awaitsBeat_, true ) ) {
      commands_->send( { "MGET", "epoch", "rev" },
                       [ this, followed = revision_ ]( const redisReply & reply ) {
                          handleBeat( reply, followed );
                       } );
   }
}

/// Notes what no message tells: that the database has been emptied, put back, or that its log has.
/// `followed`: up to where this process had read when it asked.
void
Replica::handleBeat( const redisReply & reply, std::uint64_t followed ) {
   awaitsBeat_ = false;
   if ( phase_ != Phase::following || reply.type != REDIS_REPLY_ARRAY || reply.elements != 2 ) {
      return;
   }
   const std::uint64_t there = numberOf( *reply.element[ 1 ] );
   if ( textOf( *reply.element[ 0 ] ) != epoch_ ) {
      failed( "the database is another one than before", true );
   } else if ( there < followed ) {
      failed( "the database has gone back", true );
   } else if ( there <= revision_ || stuckAt_ != log_->progress() || !work_.isEmpty() ) {
      stuckBeats_ = 0;
   } else if ( ++stuckBeats_ >= maxStuckBeats ) {
      stuckBeats_ = 0;
      failed( "the log holds less than was written", true );
   }
   stuckAt_ = log_->progress();
}

bool
Replica::owns( const std::string & key ) const {
   return isAuthority_ && lease_->covers( pathOf( key ) );
}

void
Replica::refused( const std::string & key, std::string_view field, const std::string & line ) {
   ++refused_;
   if ( phase_ == Phase::reading && lease_ && lease_->covers( pathOf( key ) ) ) {
      unreadable_.emplace_back( key, field );
   }
   handlers_.log( settings_.url.text + ": " + line );
}

Replica::Status
Replica::status() const {
   return { phase_ == Phase::following,
            revision_,
            outbox_.size(),
            resyncs_,
            refused_,
            lease_ && lease_->isHeld(),
            lease_ ? lease_->holder() : observedHolder_ };
}

}
