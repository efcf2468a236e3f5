// What a replica reads and writes: the whole database, then its log, turn by turn; and what has
// changed here.

#include "tools/redis/Replica.h"

#include "tools/state/JsonPlace.h"
#include "tools/state/StateFields.h"

#include <algorithm>
#include <iterator>

namespace Redis {

namespace {

/// Fields of a batch that is worth not to be read again.
constexpr std::size_t much = 1000;

}

// ---- The whole database ----

void
Replica::readAll() {
   phase_ = Phase::reading;
   resyncs_ += complete_ ? 1 : 0;
   revision_ = openedAt_;
   outbox_.restore();
   outbox_.reached( revision_, false );
   unreadable_.clear();
   seen_.clear();
   readAt_.clear();
   lastRead_ = 0;
   picture_ = std::make_unique< Picture >(
      *commands_, work_,
      Picture::Handlers{ settings_.concerns,
                         [ this ]( const Picture::Key & key ) { handlePictureKey( key ); },
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
      outbox_.ended( name );
      return;
   }
   std::unordered_map< std::string_view, std::string_view > theirs;
   for ( const auto & [ field, text ] : key.content.fields ) {
      theirs[ field ] = *text;
      Pace::breathe();
   }
   std::string text;
   for ( const std::string & field : State::fieldNames( *entity ) ) {
      text.clear();
      State::appendFieldText( *entity, field, text );
      const auto at = theirs.find( field );
      if ( at == theirs.end() || at->second != text ) {
         outbox_.changed( name, field );
      }
      theirs.erase( field );
      Pace::breathe();
   }
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
      Pace::breathe();
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
   if ( entity && !spares_ ) {
      std::ranges::move( local_.endedBeside( key.content ),
                         std::back_inserter( differing.fields ) );
   }
   if ( !differing.fields.empty() ) {
      local_.apply( differing );
   }
}

void
Replica::handlePictureComplete() {
   if ( phase_ != Phase::reading ) {
      return;
   }
   sweepKeys();
   if ( phase_ != Phase::reading ) {
      return;  // the connection ended meanwhile
   }
   rereads_ = false;
   follow();
}

/// Ends what the database does not have, and writes what it should have.
void
Replica::sweepKeys() {
   for ( const std::string & key : local_.keys() ) {
      if ( seen_.contains( key ) || !local_.entity( key ) ) {  // it may end with another one
         continue;
      }
      if ( owns( key ) ) {
         writeWhole( key );
      } else if ( !spares_ && !outbox_.holdsAny( key ) ) {
         local_.keyDel( key );
      }
      Pace::breathe();
   }
   seen_.clear();
}

/// As if all of it had come just now. A table is not worth a word before it has a row.
void
Replica::writeWhole( const std::string & key ) {
   if ( !isTable( key ) ) {
      handleChanged( key, "" );
   }
   for ( const std::string & field : State::fieldNames( *local_.entity( key ) ) ) {
      handleChanged( key, field );
      Pace::breathe();
   }
}

// ---- The log ----

void
Replica::follow() {
   phase_ = Phase::following;
   log_ = std::make_unique< LogReader >(
      loop_, settings_.url, revision_, session_,
      LogReader::Handlers{ [ this ]( Turn turn ) { handleTurn( std::move( turn ) ); },
                           [ this ] { return work_.isEmpty(); },
                           [ this ]( const std::string & why ) { failed( why, true ); },
                           [ this ]( const std::string & why ) { failed( why ); } } );
   if ( spares_ && grace_.second == 0 ) {
      graceIs();
   }
   handleProgress();
}

void
Replica::handleTurn( Turn && turn ) {
   if ( phase_ != Phase::following ) {
      return;
   }
   std::size_t size = 0;
   bool isLong = false;
   for ( const KeyChanges & changes : turn.keys ) {
      size += changes.fields.size();
      isLong = isLong || size > maxInOneGo || changes.isAnew || endsKey( changes );
   }
   work_.add(
      [ this, turn = std::move( turn ), isLong ] {
         if ( phase_ == Phase::following ) {
            takeTurn( turn, isLong );
         }
      },
      isLong ? Pace::Queue::Length::unknown : Pace::Queue::Length::brief );
}

void
Replica::takeTurn( const Turn & turn, bool isLong ) {
   const bool own = turn.writer.starts_with( writer_ );
   const bool isLate = own && turn.writer != session_ && turn.revision > openedAt_;
   for ( const KeyChanges & changes : turn.keys ) {
      const auto read = readAt_.find( changes.key );
      if ( !settings_.concerns( changes.key ) ) {
         continue;
      }
      if ( isLate ) {
         writeAgain( changes );
      } else if ( !own && ( read == readAt_.end() || read->second < turn.revision ) ) {
         owns( changes.key ) ? writeAgain( changes ) : local_.apply( changes );
      }
      if ( isLong ) {
         Pace::breathe();
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
   if ( !local_.entity( changes.key ) ) {
      outbox_.ended( changes.key );
      flushSoon();
      return;
   }
   for ( const auto & [ field, text ] : changes.fields ) {
      if ( field != typeField ) {
         outbox_.changed( changes.key, field );
      } else if ( !isTable( changes.key ) ) {  // a table is not worth a word before it has a row
         outbox_.changed( changes.key, "" );
      }
   }
   if ( changes.isAnew || endsKey( changes ) ) {
      writeWhole( changes.key );
   }
   flushSoon();
}

/// The log has been followed a bit further, or for the first time. While work goes on this waits
/// for its end: whoever hears of progress hears it from the loop.
void
Replica::handleProgress() {
   if ( phase_ != Phase::following || !work_.isEmpty()
        || ( catchesUp_ && revision_ < openedAt_ ) ) {
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
      for ( const auto & [ key, field ] : std::exchange( unreadable_, {} ) ) {
         handleChanged( key, field );
      }
      leaseHandlers_.granted();
   }
   flushSoon();
}

// ---- Writing ----

void
Replica::handleChanged( const std::string & key, const std::string & field ) {
   if ( muted_ ) {
      return;
   }
   if ( field.empty() && !local_.entity( key ) ) {
      outbox_.ended( key );
   } else {
      outbox_.changed( key, field );
   }
   if ( foreign_.erase( key ) > 0 && local_.entity( key ) ) {
      local_.tellAll( key );  // it may be possible now, and the database has nothing of it
   }
   flushSoon();
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

/// While one batch is on its way the next one gathers. It is, until it has its answer: the log may
/// show it before, and the answer must not be taken for one to the next. What others wrote is taken
/// over first: the log keeps only so much, and would lose to this writing what is not read yet.
void
Replica::flush() {
   if ( phase_ != Phase::following || catchesUp_ || awaitsAnswer_ || outbox_.isInFlight()
        || !outbox_.hasPending() || muted_ || !work_.isEmpty() ) {
      return;
   }
   Command command{ "FCALL", "state_write", "0", epoch_, session_ };
   command.add( lease_ ? lease_->fence() : "0" );
   awaitsAnswer_ = true;
   if ( outbox_.take( local_, command ) > much ) {
      log_->pause( *commands_ );
   }
   commands_->send( std::move( command ),
                    [ this ]( const redisReply & reply ) { handleWritten( reply ); } );
}

void
Replica::handleWritten( const redisReply & reply ) {
   awaitsAnswer_ = false;
   if ( reply.type == REDIS_REPLY_ARRAY && reply.elements == 2 ) {
      const std::uint64_t from = numberOf( *reply.element[ 0 ] );
      const std::uint64_t to = numberOf( *reply.element[ 1 ] );
      outbox_.acknowledged( to );
      outbox_.reached( revision_, false );
      log_->resume( from, to );
      flushSoon();
      return;
   }
   log_->resume( 0, 0 );
   const std::string_view text = textOf( reply );
   if ( text.starts_with( "OWNED " ) || text.starts_with( "FENCED " )
        || text.starts_with( "FOREIGN " ) ) {
      handleRefusedKey( text );
   } else {
      failed( std::string( text ), text.starts_with( "EPOCH " ) );
   }
}

/// Another process owns the key, which is as that one has it, or something stands there that is no
/// state. But what was sent before the answer that granted this process its own lease bore no
/// fence, and is sent again; should the lease be another one's by now, the claim before it tells
/// so.
void
Replica::handleRefusedKey( std::string_view why ) {
   const std::string_view rest = why.substr( why.find( ' ' ) + 1 );
   const auto end = std::min( rest.find( ' ' ), rest.size() );
   const std::string key( rest.substr( 0, end ) ),
      what( rest.substr( std::min( end + 1, rest.size() ) ) );
   if ( why.starts_with( "FOREIGN " ) ) {
      refused( key, "", key + ": not written: a " + what + " stands there" );
      foreign_.insert( key );
   } else if ( lease_ && lease_->isHeld() && lease_->covers( pathOf( key ) ) ) {
      lease_->tick( *commands_, client_, run_ );
      outbox_.restore();
      flushSoon();
      return;
   } else {
      refused( key, "", key + ": not written: it belongs to " + what );
   }
   outbox_.refused( key );
   readKeyAgain( key );
   flushSoon();
}

void
Replica::readKeyAgain( const std::string & key ) {
   Picture::readKey(
      *commands_, work_, key,
      [ this, followed = revision_ ]( const Picture::Key & read ) {
         handleKeyAgain( read, followed );
      },
      [ this ]( const std::string & error ) { failed( error, true ); } );
}

/// `followed`: up to where the log had been followed when the key was asked for. What came through
/// the log since may be newer than the answer.
void
Replica::handleKeyAgain( const Picture::Key & read, std::uint64_t followed ) {
   const std::string & key = read.content.key;
   if ( phase_ != Phase::following || owns( key ) ) {
      return;
   }
   if ( revision_ != followed && read.revision < revision_ ) {
      readKeyAgain( key );
      return;
   }
   if ( read.content.fields.empty() ) {
      local_.keyDel( key );
   } else {
      take( read );
   }
   flushSoon();
}

}
