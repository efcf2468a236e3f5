// The life of a replica: connecting, reading everything, following the log, and again. All
// connections end together, in a turn of their own, so that no answer arrives at something that is
// gone. Two connections: one waits at the log, one does all else.

#include "tools/redis/Replica.h"

#include "tools/redis/Functions.h"
#include "tools/state/JsonPlace.h"
#include "tools/state/StateFields.h"

#include <algorithm>
#include <charconv>
#include <random>
#include <unordered_set>

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
   constexpr std::string_view words[] = {
      "NOAUTH",       "WRONGPASS",           "NOPERM", "ERR AUTH", "ERR invalid password",
      "ERR DB index", "ERR Client sent AUTH" };
   return std::ranges::any_of( words, [ & ]( auto word ) { return error.starts_with( word ); } );
}

std::uint64_t
numberOf( const redisReply & reply ) {
   if ( reply.type == REDIS_REPLY_INTEGER ) {
      return static_cast< std::uint64_t >( reply.integer );
   }
   std::uint64_t number = 0;
   const std::string_view text = textOf( reply );
   std::from_chars( text.data(), text.data() + text.size(), number );
   return number;
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
               settings_.refusal, settings_.fault,
               [ this ]( const auto & line ) { refused( line ); } } ) {
   connect();
   beat();
}

Replica::~Replica() {
   for ( const auto & timer : { flush_, beat_, connect_, grace_ } ) {
      loop_.timerDel( timer );
   }
}

// ---- Connecting ----

void
Replica::connect() {
   connect_ = {};
   phase_ = Phase::opening;
   session_ = writer_ + std::to_string( ++sessions_ );
   log_.reset();
   picture_.reset();
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
      failed( "the server is Redis " + version + "; 7.0 or later is needed", false, true );
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
   commands_->send(
      { "FUNCTION", "LOAD", "REPLACE", functionLibrary }, [ this ]( const redisReply & reply ) {
         if ( isError( reply ) ) {
            failed( "the server takes no functions: " + std::string( textOf( reply ) ), false,
                    !textOf( reply ).starts_with( "LOADING" ) );
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
   if ( !std::exchange( wasToldAway_, true ) ) {
      handlers_.log( settings_.url.text + ": " + why
                     + ( again ? "; reading all again" : "; going on with what is known" ) );
   }
   connect_ = loop_.timerIs( loop_.now() + ( again ? 0 : delay_ ), [ this ] { connect(); } );
   delay_ = std::clamp( 2 * delay_, firstDelay, maxDelay );
   handlers_.unusable( why, isHopeless );
}

// ---- The whole database ----

void
Replica::readAll() {
   phase_ = Phase::reading;
   resyncs_ += complete_ ? 1 : 0;
   revision_ = openedAt_;
   outbox_.restore();
   outbox_.reached( revision_, false );
   seen_.clear();
   readAt_.clear();
   lastRead_ = 0;
   picture_ = std::make_unique< Picture >(
      *commands_,
      Picture::Handlers{ [ this ]( const Picture::Key & key ) { handlePictureKey( key ); },
                         [ this ] { handlePictureComplete(); },
                         [ this ]( const std::string & why ) { failed( why, true ); } } );
}

void
Replica::handlePictureKey( const Picture::Key & key ) {
   if ( phase_ != Phase::reading ) {
      return;
   }
   seen_.insert( key.content.key );
   readAt_[ key.content.key ] = key.revision;
   lastRead_ = std::max( lastRead_, key.revision );
   if ( owns( key.content.key ) ) {
      compareOwn( key );
   } else {
      take( key );
   }
}

/// What is this process's own stands in the database as it is here.
void
Replica::compareOwn( const Picture::Key & key ) {
   const std::string & name = key.content.key;
   const auto entity = local_.entity( name );
   if ( !entity ) {
      outbox_.changed( name, "" );
      return;
   }
   std::unordered_map< std::string_view, std::string_view > theirs;
   for ( const auto & [ field, text ] : key.content.fields ) {
      theirs[ field ] = *text;
   }
   std::string text;
   State::forEachFieldName( *entity, [ & ]( const std::string & field ) {
      text.clear();
      State::appendFieldText( *entity, field, text );
      const auto at = theirs.find( field );
      if ( at == theirs.end() || at->second != text ) {
         outbox_.changed( name, field );
      }
      theirs.erase( field );
   } );
   for ( const auto & [ field, unknown ] : theirs ) {
      if ( !field.starts_with( '@' ) ) {
         outbox_.changed( name, std::string( field ) );
      }
   }
}

/// What others write stands here as it is in the database, but for what has changed here since.
void
Replica::take( const Picture::Key & key ) {
   const std::string & name = key.content.key;
   const auto entity = local_.entity( name );
   KeyChanges differing{ name, {} };
   std::string mine;
   for ( const auto & [ field, text ] : key.content.fields ) {
      if ( outbox_.holds( name, field ) ) {
         continue;
      }
      bool equal = false;
      mine.clear();
      if ( entity && !field.starts_with( '@' ) ) {
         try {
            equal = State::appendFieldText( *entity, field, mine ) && mine == *text;
         } catch ( const State::Error & ) {
            // Refused below, in words.
         }
      } else if ( entity && field == typeField ) {
         equal = *text == entity->typeName();
      }
      if ( !equal ) {
         differing.fields.emplace_back( field, text );
      }
   }
   if ( !differing.fields.empty() && !outbox_.holds( name, "" ) ) {
      local_.apply( differing );
   }
   sweepFields( key );
}

void
Replica::sweepFields( const Picture::Key & key ) {
   const auto entity = local_.entity( key.content.key );
   if ( !entity || spares_ || outbox_.holds( key.content.key, "" ) ) {
      return;
   }
   std::unordered_set< std::string_view > theirs;
   for ( const auto & [ field, text ] : key.content.fields ) {
      theirs.insert( field );
   }
   std::vector< std::string > gone;
   State::forEachFieldName( *entity, [ & ]( const std::string & field ) {
      if ( !theirs.contains( field ) && !outbox_.holds( key.content.key, field ) ) {
         gone.push_back( field );
      }
   } );
   for ( const std::string & field : gone ) {
      local_.fieldIs( key.content.key, field, std::nullopt );
   }
}

void
Replica::handlePictureComplete() {
   if ( phase_ != Phase::reading ) {
      return;
   }
   sweepKeys();
   rereads_ = false;
   follow();
}

/// Ends what the database does not have, and writes what it should have.
void
Replica::sweepKeys() {
   for ( const std::string & key : local_.keys() ) {
      if ( seen_.contains( key ) ) {
         continue;
      }
      if ( owns( key ) ) {
         local_.tellAll( key );
      } else if ( !spares_ && !outbox_.holdsAny( key ) ) {
         local_.keyDel( key );
      }
   }
   seen_.clear();
}

// ---- The log ----

void
Replica::follow() {
   phase_ = Phase::following;
   log_ = std::make_unique< LogReader >(
      loop_, settings_.url, revision_,
      LogReader::Handlers{ [ this ]( const Turn & turn ) { handleTurn( turn ); },
                           [ this ]( const std::string & why ) { failed( why, true ); },
                           [ this ]( const std::string & why ) { failed( why ); } } );
   if ( spares_ && grace_.second == 0 ) {
      graceIs();
   }
   handleProgress();
}

void
Replica::handleTurn( const Turn & turn ) {
   if ( phase_ != Phase::following ) {
      return;
   }
   const bool own = turn.writer.starts_with( writer_ );
   const bool isLate = own && turn.writer != session_ && turn.revision > openedAt_;
   for ( const KeyChanges & changes : turn.keys ) {
      const auto read = readAt_.find( changes.key );
      if ( isLate ) {
         writeAgain( changes );
      } else if ( !own && ( read == readAt_.end() || read->second < turn.revision ) ) {
         takeOver( changes );
      }
   }
   revision_ = turn.revision;
   outbox_.reached( revision_, own && !isLate );
   if ( revision_ >= lastRead_ ) {
      readAt_.clear();
   }
   handleProgress();
}

/// What stands here is newer than these: another's writing on what is this process's own, or its
/// own on an earlier connection, which the server found after it had heard of this one.
void
Replica::writeAgain( const KeyChanges & changes ) {
   for ( const auto & [ field, text ] : changes.fields ) {
      outbox_.changed( changes.key, field == typeField ? "" : field );
   }
   flushSoon();
}

void
Replica::takeOver( const KeyChanges & changes ) {
   if ( owns( changes.key ) ) {
      writeAgain( changes );
      return;
   }
   if ( !outbox_.holdsAny( changes.key ) ) {
      local_.apply( changes );
      return;
   }
   KeyChanges others{ changes.key, {} };
   for ( const auto & one : changes.fields ) {
      if ( !outbox_.holds( changes.key, one.first ) ) {
         others.fields.push_back( one );
      }
   }
   if ( !others.fields.empty() ) {
      local_.apply( others );
   }
}

/// The log has been followed a bit further, or for the first time.
void
Replica::handleProgress() {
   if ( catchesUp_ && revision_ < openedAt_ ) {
      return;
   }
   if ( std::exchange( catchesUp_, false ) ) {
      outbox_.restore();
   }
   if ( !std::exchange( complete_, true ) ) {
      handlers_.complete();
   }
   if ( lease_ && lease_->isHeld() && !isAuthority_ && revision_ >= grantedAt_ ) {
      isAuthority_ = true;
      leaseHandlers_.granted();
   }
   flushSoon();
}

// ---- Writing ----

void
Replica::handleChanged( const std::string & key, const std::string & field ) {
   if ( !muted_ ) {
      outbox_.changed( key, field );
      flushSoon();
   }
}

void
Replica::flushSoon() {
   if ( outbox_.hasPending() && flush_.second == 0 ) {
      flush_ = loop_.timerIs( loop_.now(), [ this ] {
         flush_ = {};
         flush();
      } );
   }
}

/// While one batch is on its way the next one gathers.
void
Replica::flush() {
   if ( phase_ != Phase::following || catchesUp_ || outbox_.isInFlight() || !outbox_.hasPending()
        || muted_ ) {
      return;
   }
   Command command{ "FCALL", "state_write", "0", epoch_, session_ };
   command.add( lease_ ? lease_->fence() : "0" );
   outbox_.take( local_, command );
   commands_->send( std::move( command ),
                    [ this ]( const redisReply & reply ) { handleWritten( reply ); } );
}

void
Replica::handleWritten( const redisReply & reply ) {
   const std::string_view text = textOf( reply );
   if ( !isError( reply ) ) {
      outbox_.acknowledged( numberOf( reply ) );
      outbox_.reached( revision_, false );
      flushSoon();
   } else if ( text.starts_with( "OWNED " ) || text.starts_with( "FENCED " ) ) {
      handleRefusedKey( text );
   } else {
      failed( std::string( text ), text.starts_with( "EPOCH " ) );
   }
}

/// Another process owns the key: it is as that one has it. But what was sent before the answer that
/// granted this process its own lease bore no fence, and is sent again; should the lease be another
/// one's by now, the claim before it tells so.
void
Replica::handleRefusedKey( std::string_view why ) {
   const std::string_view rest = why.substr( why.find( ' ' ) + 1 );
   const auto end = std::min( rest.find( ' ' ), rest.size() );
   const std::string key( rest.substr( 0, end ) );
   if ( lease_ && lease_->isHeld() && lease_->covers( pathOf( key ) ) ) {
      lease_->tick( *commands_, client_, run_ );
      outbox_.restore();
      flushSoon();
      return;
   }
   refused( key + ": not written: it belongs to "
            + std::string( rest.substr( std::min( end + 1, rest.size() ) ) ) );
   outbox_.refused( key );
   Picture::readKey(
      *commands_, key,
      [ this, key ]( const Picture::Key & read ) {
         if ( phase_ != Phase::following || owns( key ) ) {
            return;
         }
         if ( read.content.fields.empty() ) {
            local_.keyDel( key );
         } else {
            take( read );
         }
         flushSoon();
      },
      [ this ]( const std::string & error ) { failed( error, true ); } );
}

bool
Replica::settle( Lum::Seconds most ) {
   const Lum::Seconds end = loop_.now() + most;
   while ( !isSettled() && loop_.now() < end ) {
      loop_.runOnce( 0.05 );
   }
   return isSettled();
}

// ---- The lease, and signs of life ----

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
   if ( phase_ == Phase::following ) {
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
   if ( phase_ != Phase::following || reply.type != REDIS_REPLY_ARRAY || reply.elements != 2 ) {
      return;
   }
   const std::uint64_t there = numberOf( *reply.element[ 1 ] );
   if ( textOf( *reply.element[ 0 ] ) != epoch_ ) {
      failed( "the database is another one than before", true );
   } else if ( there < followed ) {
      failed( "the database has gone back", true );
   } else if ( there <= revision_ || stuckAt_ != revision_ ) {
      stuckBeats_ = 0;
   } else if ( ++stuckBeats_ >= maxStuckBeats ) {
      stuckBeats_ = 0;
      failed( "the log holds less than was written", true );
   }
   stuckAt_ = revision_;
}

bool
Replica::owns( const std::string & key ) const {
   return isAuthority_ && lease_->covers( pathOf( key ) );
}

void
Replica::refused( const std::string & line ) {
   ++refused_;
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
