// Frames on a socket. A handler may destroy the connection at any time, so whoever calls one holds
// `alive_` and looks at it afterwards.

#include "tools/service/Connection.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Service {

namespace {

/// Seconds of the frames of one connection before others have their turn.
constexpr Lum::Seconds slice = 0.01;
/// Bytes that are sent at once, however fast the peer reads.
constexpr std::size_t maxFlush = 4u << 20;

}

Connection::Connection( Lum::ActivityLoop & loop, int socket, Handlers handlers )
   : loop_( loop ),
     socket_( socket ),
     handlers_( std::move( handlers ) ) {
   watchEvents();
}

Connection::~Connection() {
   *alive_ = false;
   loop_.timerDel( rest_ );
   loop_.fdDel( socket_ );
   close( socket_ );
}

void
Connection::watchEvents() {
   const std::uint32_t events = ( takesFrames() && !rest_.second ? std::uint32_t( EPOLLIN ) : 0u )
                                | ( backlog() ? std::uint32_t( EPOLLOUT ) : 0u );
   loop_.fdIs( socket_, events, [ this ]( std::uint32_t ready ) { handleEvents( ready ); } );
}

void
Connection::handleEvents( std::uint32_t events ) {
   const auto alive = alive_;
   if ( events & EPOLLOUT ) {
      flush();
      if ( !isFull() ) {
         handlers_.drained();
      }
   }
   if ( *alive && events & EPOLLIN && takesFrames() ) {
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
   const Lum::Seconds sliceEnd = loop_.deadlineAfter( slice );
   std::size_t begin = 0;
   for ( std::size_t end; takesFrames() && !yields( sliceEnd )
                          && ( end = received_.find( '\n', searched_ ) ) != received_.npos; ) {
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
   searched_ = takesFrames() && !rest_.second ? received_.size() : 0;
   if ( searched_ > maxFrame ) {
      received_.clear();
      searched_ = 0;
      if ( !std::exchange( skipping_, true ) ) {
         handlers_.oversized();
      }
   }
}

bool
Connection::yields( Lum::Seconds end ) {
   if ( !rest_.second && loop_.deadlineAfter( 0 ) > end ) {
      rest_ = loop_.timerIs( loop_.deadlineAfter( 0 ), [ this ] {
         rest_ = { 0, 0 };
         pausedIs( paused_ );
      } );
      watchEvents();
   }
   return rest_.second != 0;
}

void
Connection::pausedIs( bool paused ) {
   paused_ = paused;
   const auto alive = alive_;
   if ( takesFrames() && !rest_.second ) {
      takeFrames();  // those that were received already
   }
   if ( *alive ) {
      flush();
   }
}

void
Connection::send( const std::string & frame ) {
   if ( backlog() + held_.size() + frame.size() > maxBacklog ) {
      cutOff();
   } else if ( amidFrame_ ) {
      held_.append( frame ).push_back( '\n' );
   } else {
      answer( frame );
   }
}

void
Connection::part( std::string_view text ) {
   if ( !isCutOff_ ) {
      amidFrame_ = true;
      backlog_ += text;
      flush();
   }
}

void
Connection::endFrame() {
   if ( !isCutOff_ ) {
      amidFrame_ = false;
      backlog_.append( "\n" ).append( std::exchange( held_, {} ) );
      flush();
   }
}

void
Connection::cutOff() {
   if ( !amidFrame_ ) {
      answer( farewell_ );
   }
   breakOff();
}

void
Connection::breakOff() {
   deaf_ = isCutOff_ = true;
   paused_ = false;
   flush();
}

void
Connection::flush() {
   const std::size_t enough = sent_ + maxFlush;
   while ( backlog() && sent_ < enough ) {
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
   if ( deaf_ && !backlog() && ( !paused_ || isCutOff_ ) ) {
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
