// Frames on a socket. A handler may destroy the connection at any time, so whoever calls one holds
// `alive_` and looks at it afterwards.

#include "tools/service/Connection.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Service {

Connection::Connection( Lum::ActivityLoop & loop, int socket, Handlers handlers )
   : loop_( loop ),
     socket_( socket ),
     handlers_( std::move( handlers ) ) {
   watchEvents();
}

Connection::~Connection() {
   *alive_ = false;
   loop_.fdDel( socket_ );
   close( socket_ );
}

void
Connection::watchEvents() {
   const std::uint32_t events =
      ( cutOff_ ? 0u : std::uint32_t( EPOLLIN ) ) | ( backlog() ? std::uint32_t( EPOLLOUT ) : 0u );
   loop_.fdIs( socket_, events, [ this ]( std::uint32_t ready ) { handleEvents( ready ); } );
}

void
Connection::handleEvents( std::uint32_t events ) {
   const auto alive = alive_;
   if ( events & EPOLLOUT ) {
      flush();
   }
   if ( *alive && events & EPOLLIN && !cutOff_ ) {
      receive();
   }
   if ( *alive && events & ( EPOLLHUP | EPOLLERR ) ) {
      end();
   }
}

void
Connection::receive() {
   char buffer[ 64 * 1024 ];
   const ssize_t n = read( socket_, buffer, sizeof buffer );
   if ( n < 0 && ( errno == EAGAIN || errno == EINTR ) ) {
      return;
   }
   if ( n <= 0 ) {
      end();
      return;
   }
   received_.append( buffer, static_cast< std::size_t >( n ) );
   takeFrames();
}

void
Connection::takeFrames() {
   const auto alive = alive_;
   std::size_t begin = 0;
   for ( auto end = received_.find( '\n' ); *alive && end != received_.npos;
         end = received_.find( '\n', begin ) ) {
      const std::string frame = received_.substr( begin, end - begin );
      begin = end + 1;
      if ( !std::exchange( skipping_, false ) && !frame.empty() ) {
         handlers_.frame( frame );
         if ( !*alive ) {
            return;
         }
      }
   }
   received_.erase( 0, begin );
   if ( received_.size() > maxFrame ) {
      received_.clear();
      if ( !std::exchange( skipping_, true ) ) {
         handlers_.oversized();
      }
   }
}

void
Connection::send( std::string frame ) {
   if ( cutOff_ ) {
      return;
   }
   if ( backlog() + frame.size() > maxBacklog ) {
      cutOff_ = true;
      frame = farewell_;
   }
   backlog_.append( frame ).push_back( '\n' );
   flush();
}

void
Connection::flush() {
   while ( backlog() ) {
      const ssize_t n = ::send( socket_, backlog_.data() + sent_, backlog(), MSG_NOSIGNAL );
      if ( n < 0 && errno == EINTR ) {
         continue;
      }
      if ( n < 0 ) {
         break;
      }
      sent_ += static_cast< std::size_t >( n );
   }
   if ( !backlog() || sent_ > maxFrame ) {
      backlog_.erase( 0, sent_ );
      sent_ = 0;
   }
   if ( cutOff_ && !backlog() ) {
      // The peer sees the end of the stream; the next event ends this side.
      shutdown( socket_, SHUT_RDWR );
   }
   watchEvents();
}

void
Connection::end() {
   const auto closed = handlers_.closed;
   closed();
}

}
