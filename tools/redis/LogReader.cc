// Entries of the log are counted: each says by its id how many changes there have been, and holds
// so many of them. After trimming, or on another database, the server says nothing of what is
// missing; the count does. A turn of several entries was written in one step, so the rest of it is
// always there, or lost to trimming with its beginning.

#include "tools/redis/LogReader.h"

#include "tools/redis/PackedChanges.h"

#include <charconv>

namespace Redis {

namespace {

constexpr const char * entriesAtOnce = "30";

/// "1234-0" -> 1234; 0 for anything else.
std::uint64_t
revisionOf( std::string_view id ) {
   std::uint64_t revision = 0;
   std::from_chars( id.data(), id.data() + id.size(), revision );
   return revision;
}

std::string_view
element( const redisReply & array, std::size_t i ) {
   return textOf( *array.element[ i ] );
}

bool
isArray( const redisReply & reply, std::size_t size ) {
   return reply.type == REDIS_REPLY_ARRAY && reply.elements == size;
}

}

LogReader::LogReader( Lum::ActivityLoop & loop, const Url & url, std::uint64_t revision,
                      std::string own, Handlers handlers )
   : handlers_( std::move( handlers ) ),
     own_( std::move( own ) ),
     connection_( loop, url, handlers_.lost ),
     read_( revision ) {
   connection_.send( { "CLIENT", "ID" }, [ this ]( const redisReply & reply ) {
      client_ = std::to_string( numberOf( reply ) );
   } );
   goOn();
}

void
LogReader::goOn() {
   if ( asked_ || paused_ || !handlers_.keepsUp() ) {
      return;
   }
   asked_ = true;
   connection_.send( { "XREAD", "COUNT", entriesAtOnce, "BLOCK", "0", "STREAMS", "log",
                       std::to_string( read_ ) + "-0" },
                     [ this ]( const redisReply & reply ) { handleReply( reply ); } );
}

void
LogReader::handleReply( const redisReply & reply ) {
   asked_ = false;
   if ( isError( reply ) ) {
      handlers_.lost( std::string( textOf( reply ) ) );
      return;
   }
   const redisReply * entries = nullptr;
   if ( isArray( reply, 1 ) && isArray( *reply.element[ 0 ], 2 ) ) {
      entries = reply.element[ 0 ]->element[ 1 ];
   }
   for ( std::size_t i = 0; entries && i < entries->elements; ++i ) {
      if ( !handleEntry( *entries->element[ i ] ) ) {
         handlers_.gap( "the log has a hole after revision " + std::to_string( read_ ) );
         return;
      }
   }
   goOn();
}

void
LogReader::pause( Connection & writing ) {
   paused_ = true;
   writing.send( { "CLIENT", "UNBLOCK", client_ }, []( const redisReply & ) {} );
}

void
LogReader::resume( std::uint64_t from, std::uint64_t to ) {
   if ( !std::exchange( paused_, false ) ) {
      return;
   }
   if ( read_ == from && from < to ) {
      read_ = to;
      handlers_.turn( { to, own_, {} } );
   }
   goOn();
}

/// False where the entry does not follow the one before. One that was asked for before the reader
/// went on past it is passed over.
bool
LogReader::handleEntry( const redisReply & entry ) {
   if ( !isArray( entry, 2 ) || entry.element[ 1 ]->type != REDIS_REPLY_ARRAY
        || entry.element[ 1 ]->elements % 2 != 0 ) {
      return false;
   }
   const std::uint64_t revision = revisionOf( element( entry, 0 ) );
   if ( revision <= read_ ) {
      return true;
   }
   more_ = false;
   turn_.revision = read_;
   if ( !addFields( *entry.element[ 1 ] ) || turn_.revision != revision ) {
      return false;
   }
   read_ = turn_.revision;
   if ( !more_ ) {
      handlers_.turn( std::exchange( turn_, {} ) );
   }
   return true;
}

/// Adds the entry's changes to the turn, and counts them. False for what are none.
bool
LogReader::addFields( const redisReply & fields ) {
   for ( std::size_t i = 0; i < fields.elements; i += 2 ) {
      const std::string_view name = element( fields, i ), text = element( fields, i + 1 );
      if ( name == "@by" ) {
         turn_.writer = text;
      } else if ( name == "@more" ) {
         more_ = true;
      } else if ( !addChanges( name, text ) ) {
         return false;
      }
   }
   return true;
}

bool
LogReader::addChanges( std::string_view key, std::string_view packed ) {
   if ( turn_.writer == own_ ) {
      return forEachPacked( packed, [ this ]( auto, const auto & ) { ++turn_.revision; } );
   }
   if ( turn_.keys.empty() || turn_.keys.back().key != key ) {
      turn_.keys.push_back( { std::string( key ), {} } );
   } else if ( KeyChanges & last = turn_.keys.back(); endsKey( last ) ) {
      last = { last.key, {}, true };
   }
   return forEachPacked( packed, [ this ]( std::string_view field, const auto & text ) {
      ++turn_.revision;
      auto & fields = turn_.keys.back().fields;
      if ( field == typeField && !text ) {
         fields.clear();  // the key ends, whatever it was
      }
      fields.emplace_back( field, text );
   } );
}

}
