#include "tests/StateBackends.h"

#include "schema/EntityTypes.h"
#include "schema/Types.h"

#include <algorithm>
#include <stdexcept>

namespace {

Corvdb::TypeRegistry
allTypes() {
   Corvdb::TypeRegistry types;
   Schema::registerTypes( types );
   return types;
}

void
addEntities( const std::string & path, const Lum::Dir & dir, Content & content ) {
   for ( const auto & [ name, entity ] : dir.entityColl() ) {
      if ( const auto below = Lum::cast< Lum::Dir >( entity ) ) {
         addEntities( path + name + "/", *below, content );
      } else {
         content[ path + name ] = State::toJson( *entity );
      }
   }
}

}

Member::Member( Lum::ActivityLoop & loop, const RedisServer * server )
   : types( allTypes() ),
     state( types ),
     tables( types ) {
   if ( server ) {
      replica = std::make_unique< Redis::Replica >(
         loop, state, tables,
         Redis::Replica::Settings{ Redis::parseUrl( server->url() ), "test",
                                   []( const auto &, const auto & ) { return std::string(); },
                                   []( const auto & ) { return nullptr; } },
         Redis::Replica::Handlers{
            [ this ] { complete = true; }, []( const std::string &, bool ) {},
            [ this ]( const std::string & line ) { log.push_back( line ); } } );
   }
}

Content
Member::content() const {
   Content content;
   addEntities( "e:", *state.root(), content );
   for ( const std::string & path : tables.list( "" ) ) {
      if ( State::Json table = State::toJson( *tables.table( path ) );
           table != State::toJson( *types.make( tables.table( path )->typeName() ) ) ) {
         content[ "t:" + path ] = std::move( table );
      }
   }
   return content;
}

std::vector< std::string >
differences( const Content & a, const Content & b ) {
   const auto text = []( const auto & content, const std::string & key ) {
      const auto at = content.find( key );
      return at == content.end() ? "nothing" : at->second.dump();
   };
   std::vector< std::string > found;
   for ( const auto * content : { &a, &b } ) {
      for ( const auto & [ key, value ] : *content ) {
         if ( text( a, key ) != text( b, key ) ) {
            found.push_back( key + ": " + text( a, key ) + " and " + text( b, key ) );
         }
      }
   }
   return found;
}

StateBackend::StateBackend( bool embedded, std::size_t members )
   : server_( embedded ? nullptr : std::make_unique< RedisServer >() ) {
   while ( isThere() && members_.size() < members ) {
      add();
   }
   settle();
}

Member &
StateBackend::add() {
   members_.push_back( server_ || members_.empty()
                          ? std::make_shared< Member >( loop_, server_.get() )
                          : members_.front() );
   return *members_.back();
}

void
StateBackend::restart( std::size_t i ) {
   members_[ i ] = nullptr;
   members_[ i ] = std::make_shared< Member >( loop_, server_.get() );
}

void
StateBackend::turns( int count ) {
   while ( count-- > 0 ) {
      loop_.runOnce( 0.001 );
   }
}

void
StateBackend::settle() {
   const auto atRest = [ & ] {
      const auto there = members_.front()->replica->status().revision;
      return std::ranges::all_of( members_, [ & ]( const auto & member ) {
         return member->replica->isSettled() && member->complete
                && member->replica->status().revision == there;
      } );
   };
   const Lum::Seconds patience = loop_.now() + 60;
   for ( int quiet = 0; server_ && isThere() && quiet < 20; ) {
      loop_.runOnce( 0.01 );
      quiet = atRest() ? quiet + 1 : 0;
      if ( loop_.now() > patience ) {
         throw std::runtime_error( "the members do not come to rest" );
      }
   }
}
