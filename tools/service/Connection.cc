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
      ( deaf_ ? 0u : std::uint32_t( EPOLLIN ) ) | ( backlog() ? std::uint32_t( EPOLLOUT ) : 0u );
   loop_.fdIs( socket_, events, [ this ]( std::uint32_t ready ) { handleEvents( ready ); } );
}

void
Connection::handleEvents( std::uint32_t events ) {
   const auto alive = alive_;
   if ( events & EPOLLOUT ) {
      flush();
   }
   if ( *alive && events & EPOLLIN && !deaf_ ) {
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
   if ( n == 0 && backlog() ) {
      deaf_ = true;  // what was asked for until here is still answered
      watchEvents();
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
   for ( std::size_t end;
         !deaf_ && ( end = received_.find( '\n', searched_ ) ) != received_.npos; ) {
      const std::string frame = received_.substr( begin, end - begin );
      begin = searched_ = end + 1;
      if ( std::exchange( skipping_, false ) || frame.empty() ) {
         continue;
      }
      if ( backlog() > maxBacklog ) {
         cutOff();
         return;
      }
      handlers_.frame( frame );
      if ( !*alive ) {
         return;
      }
   }
   received_.erase( 0, begin );
   searched_ = received_.size();
   if ( received_.size() > maxFrame ) {
      received_.clear();
      searched_ = 0;
      if ( !std::exchange( skipping_, true ) ) {
         handlers_.oversized();
      }
   }
}

void
Connection::send( const std::string & frame ) {
   if ( backlog() + frame.size() > maxBacklog ) {
      cutOff();
   } else {
      answer( frame );
   }
}

void
Connection::answer( const std::string & frame ) {
   if ( !isCutOff_ ) {
      backlog_.append( frame ).push_back( '\n' );
      flush();
   }
}

void
Connection::cutOff() {
   answer( farewell_ );
   deaf_ = isCutOff_ = true;
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
   if ( deaf_ && !backlog() ) {
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
