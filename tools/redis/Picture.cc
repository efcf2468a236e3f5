// The whole database as it is. Names first, since a scan may give one twice; then the contents,
// with some requests on the way at any time, so that neither side waits for the other and no answer
// piles up. Keys that are not hashes, or have other names, are not state.

#include "tools/redis/Picture.h"

#include <charconv>

namespace Redis {

namespace {

constexpr std::size_t onTheWay = 64;

Picture::Key
keyOf( const std::string & name, const redisReply & reply ) {
   Picture::Key key{ { name, {} }, 0 };
   key.content.fields.reserve( reply.elements / 2 );
   for ( std::size_t i = 0; i + 1 < reply.elements; i += 2 ) {
      Pace::breathe();
      const std::string_view field = textOf( *reply.element[ i ] );
      const std::string_view text = textOf( *reply.element[ i + 1 ] );
      if ( field == revisionField ) {
         std::from_chars( text.data(), text.data() + text.size(), key.revision );
      } else {
         key.content.fields.emplace_back( field, std::string( text ) );
      }
   }
   return key;
}

}

Picture::Picture( Connection & connection, Pace::Queue & work, Handlers handlers )
   : connection_( connection ),
     work_( work ),
     handlers_( std::move( handlers ) ) {
   scan( "0" );
}

void
Picture::scan( const std::string & cursor ) {
   connection_.send( { "SCAN", cursor, "MATCH", "[et]:*", "COUNT", "1000", "TYPE", "hash" },
                     [ this, alive = alive_ ]( const redisReply & reply ) {
                        if ( *alive ) {
                           handleKeys( reply );
                        }
                     } );
}

void
Picture::handleKeys( const redisReply & reply ) {
   if ( reply.type != REDIS_REPLY_ARRAY || reply.elements != 2 ) {
      handlers_.failed( std::string( textOf( reply ) ) );
      return;
   }
   const redisReply & names = *reply.element[ 1 ];
   for ( std::size_t i = 0; i < names.elements; ++i ) {
      if ( std::string name( textOf( *names.element[ i ] ) ); handlers_.concerns( name ) ) {
         found_.insert( std::move( name ) );
      }
   }
   const std::string cursor( textOf( *reply.element[ 0 ] ) );
   if ( cursor != "0" ) {
      scan( cursor );
      return;
   }
   next_ = found_.begin();
   work_.add(
      [ this, alive = alive_ ] {
         if ( *alive ) {
            readMore();
         }
      },
      Pace::Queue::Length::unknown );
}

void
Picture::readMore() {
   while ( next_ != found_.end() && asked_ - told_ < onTheWay ) {
      ++asked_;
      readKey(
         connection_, work_, *next_++,
         [ this, alive = alive_ ]( const Key & key ) {
            if ( *alive ) {
               handleKey( key );
            }
         },
         [ this, alive = alive_ ]( const std::string & why ) {
            if ( *alive ) {
               handlers_.failed( why );
            }
         } );
   }
   if ( told_ == found_.size() ) {
      handlers_.complete();
   }
}

/// A key that has gone meanwhile has no fields, and is not told.
void
Picture::handleKey( const Key & key ) {
   if ( !key.content.fields.empty() ) {
      handlers_.key( key );
   }
   ++told_;
   readMore();
}

void
Picture::readKey( Connection & connection, Pace::Queue & work, const std::string & key,
                  std::function< void( const Key & key ) > read,
                  std::function< void( const std::string & why ) > failed ) {
   connection.send(
      { "HGETALL", key }, [ &connection, &work, key, read = std::move( read ),
                            failed = std::move( failed ) ]( const redisReply & reply ) {
         if ( isError( reply ) && !textOf( reply ).starts_with( "WRONGTYPE" ) ) {
            failed( std::string( textOf( reply ) ) );
            return;
         }
         work.add( [ key, read, kept = connection.keptReply() ] { read( keyOf( key, *kept ) ); },
                   Pace::Queue::Length::unknown );
      } );
}

}
