// Entries of the log are counted: each says by its id how many changes there have been, and holds
// so many of them. After trimming, or on another database, the server says nothing of what is
// missing; the count does. A turn of several entries was written in one step, so the rest of it is
// always there, or lost to trimming with its beginning.

#include "tools/redis/LogReader.h"

#include <charconv>

namespace Redis {

namespace {

constexpr const char * entriesAtOnce = "100";

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
   ask();
}

void
LogReader::ask() {
   connection_.send( { "XREAD", "COUNT", entriesAtOnce, "BLOCK", "0", "STREAMS", "log",
                       std::to_string( read_ ) + "-0" },
                     [ this ]( const redisReply & reply ) { handleReply( reply ); } );
}

void
LogReader::handleReply( const redisReply & reply ) {
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
   ask();
}

/// False where the entry does not follow the one before.
bool
LogReader::handleEntry( const redisReply & entry ) {
   if ( !isArray( entry, 2 ) || entry.element[ 1 ]->type != REDIS_REPLY_ARRAY
        || entry.element[ 1 ]->elements % 2 != 0 ) {
      return false;
   }
   more_ = false;
   turn_.revision = read_;
   if ( !addFields( *entry.element[ 1 ] ) || turn_.revision != revisionOf( element( entry, 0 ) ) ) {
      return false;
   }
   read_ = turn_.revision;
   if ( !more_ ) {
      handlers_.turn( std::exchange( turn_, {} ) );
   }
   return true;
}

/// Adds the entry's changes to the turn, and counts them. False for a change without a key.
bool
LogReader::addFields( const redisReply & fields ) {
   bool keyed = false;
   for ( std::size_t i = 0; i < fields.elements; i += 2 ) {
      const std::string_view name = element( fields, i ), text = element( fields, i + 1 );
      if ( name == "@by" ) {
         turn_.writer = text;
      } else if ( name == "@more" ) {
         more_ = true;
      } else if ( name == "@" ) {
         keyed = true;
         if ( turn_.keys.empty() || turn_.keys.back().key != text ) {
            turn_.keys.push_back( { std::string( text ), {} } );
         }
      } else if ( keyed ) {
         ++turn_.revision;
         if ( turn_.writer != own_ ) {
            turn_.keys.back().fields.emplace_back(
               name, text.empty() ? std::nullopt : std::optional( std::string( text ) ) );
         }
      } else {
         return false;
      }
   }
   return true;
}

}
