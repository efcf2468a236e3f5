// A lease is claimed for all of its paths in one step. Whether its holder still lives is asked of
// the server, which sees a connection end at once when a process dies; the lease's own time is for
// machines and networks that vanish without a word.

#include "tools/redis/Lease.h"

#include <algorithm>

namespace Redis {

namespace {

constexpr const char * milliseconds = "10000";

/// Takes the first word off the text.
std::string
takeWord( std::string_view & text ) {
   const auto space = std::min( text.find( ' ' ), text.size() );
   std::string word( text.substr( 0, space ) );
   text.remove_prefix( std::min( space + 1, text.size() ) );
   return word;
}

}

bool
isCovered( const std::vector< std::string > & prefixes, const std::string & path ) {
   return std::ranges::any_of( prefixes, [ & ]( std::string_view prefix ) {
      const bool anyName = prefix.ends_with( '*' );
      prefix.remove_suffix( anyName ? 1 : 0 );
      return path.starts_with( prefix )
             && ( anyName || path.size() == prefix.size() || path[ prefix.size() ] == '/' );
   } );
}

Lease::Lease( std::vector< std::string > prefixes, std::string name, bool waits, Handlers handlers )
   : prefixes_( std::move( prefixes ) ),
     name_( std::move( name ) ),
     waits_( waits ),
     handlers_( std::move( handlers ) ) {}

std::string
Lease::holderOf( std::string_view lease ) {
   for ( int i = 0; i < 3; ++i ) {
      takeWord( lease );
   }
   return std::string( lease );
}

void
Lease::tick( Connection & connection, const std::string & client, const std::string & run ) {
   if ( isOver_ ) {
      return;
   }
   Command command{ "FCALL", "state_claim", "0", fence_, milliseconds, dead_ };
   command.add( client + " " + run + " " + name_ );
   for ( const std::string & prefix : prefixes_ ) {
      command.add( prefix );
   }
   connection.send( std::move( command ), [ this, &connection, run ]( const redisReply & reply ) {
      handleClaim( reply, connection, run );
   } );
}

void
Lease::release( Connection & connection ) {
   Command command{ "FCALL", "state_release", "0", fence_ };
   for ( const std::string & prefix : prefixes_ ) {
      command.add( prefix );
   }
   isHeld_ = false;
   isOver_ = true;
   connection.send( std::move( command ), []( const redisReply & ) {} );
}

void
Lease::handleClaim( const redisReply & reply, Connection & connection, const std::string & run ) {
   std::string_view text = textOf( reply );
   if ( isOver_ ) {
      return;
   }
   if ( isError( reply ) ) {
      const std::string what = takeWord( text );
      const std::string prefix = takeWord( text );
      if ( what == "HELD" ) {
         handleHeld( text, connection, run );
      } else if ( what == "FENCED" ) {
         end( handlers_.lost, "another process has written " + prefix + " since" );
      }
   } else if ( reply.type == REDIS_REPLY_ARRAY && reply.elements == 2 ) {
      fence_ = textOf( *reply.element[ 0 ] );
      holder_.clear();
      if ( !std::exchange( isHeld_, true ) ) {
         handlers_.granted( static_cast< std::uint64_t >( reply.element[ 1 ]->integer ) );
      }
   }
}

void
Lease::handleHeld( std::string_view lease, Connection & connection, const std::string & run ) {
   const std::string fence = takeWord( lease ), client = takeWord( lease ),
                     theirRun = takeWord( lease );
   if ( fence == fence_ ) {
      return;  // granted to this process between two claims that were on their way together
   }
   holder_ = lease;
   if ( isHeld_ ) {
      end( handlers_.lost, holder_ + " writes in its place" );
   } else if ( theirRun == run ) {
      connection.send( { "CLIENT", "LIST", "ID", client },
                       [ this, fence ]( const redisReply & reply ) {
                          handleLook( isError( reply ) || !textOf( reply ).empty(), fence );
                       } );
   }
   // Else the server was restarted: the holder comes back, or its lease ends by itself.
}

void
Lease::handleLook( bool isAlive, const std::string & fence ) {
   if ( isHeld_ || isOver_ ) {
      return;
   }
   if ( isAlive && !waits_ ) {
      end( handlers_.refused, holder_ + " holds it" );
   } else if ( !isAlive && seenDead_ == fence ) {
      dead_ = fence;
   }
   seenDead_ = isAlive ? std::string() : fence;
}

void
Lease::end( const std::function< void( const std::string & ) > & tell, const std::string & why ) {
   isHeld_ = false;
   isOver_ = true;
   tell( why );
}

}
