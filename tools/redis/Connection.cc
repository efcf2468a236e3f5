// The near end of a database connection. Output waits in pieces, so that a large command is neither
// copied nor moved while the socket takes it bit by bit; input is taken a bounded piece a turn. All
// failures are told in a later turn than the call that met them.

#include "tools/redis/Connection.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <iterator>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Redis {

namespace {

constexpr std::size_t perTurn = 1u << 20;  // bytes read before others have their turn
constexpr std::size_t perPiece = 1u << 15;

union AnyAddress {
   sockaddr any;
   sockaddr_un local;
   sockaddr_in v4;
   sockaddr_in6 v6;
};

socklen_t
addressOf( const Url & url, AnyAddress & address ) {
   address = {};
   if ( !url.socketPath.empty() ) {
      address.local.sun_family = AF_UNIX;
      std::strncpy( address.local.sun_path, url.socketPath.c_str(),
                    sizeof address.local.sun_path - 1 );
      return sizeof address.local;
   }
   if ( inet_pton( AF_INET, url.address.c_str(), &address.v4.sin_addr ) == 1 ) {
      address.v4.sin_family = AF_INET;
      address.v4.sin_port = htons( url.port );
      return sizeof address.v4;
   }
   address.v6 = {};
   inet_pton( AF_INET6, url.address.c_str(), &address.v6.sin6_addr );
   address.v6.sin6_family = AF_INET6;
   address.v6.sin6_port = htons( url.port );
   return sizeof address.v6;
}

}

Command &
Command::add( std::string_view argument ) {
   ++count_;
   if ( body_.empty() || body_.back().size() > perPiece ) {
      body_.emplace_back();
   }
   std::string & piece = body_.back();
   piece.append( "$" ).append( std::to_string( argument.size() ) ).append( "\r\n" );
   piece.append( argument ).append( "\r\n" );
   return *this;
}

std::string_view
textOf( const redisReply & reply ) {
   const bool text = reply.type == REDIS_REPLY_STRING || reply.type == REDIS_REPLY_STATUS
                     || reply.type == REDIS_REPLY_ERROR;
   return text ? std::string_view( reply.str, static_cast< std::size_t >( reply.len ) )
               : std::string_view();
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

bool
isError( const redisReply & reply ) {
   return reply.type == REDIS_REPLY_ERROR;
}

Connection::Connection( Lum::ActivityLoop & loop, const Url & url, Lost lost )
   : loop_( loop ),
     lost_( std::move( lost ) ),
     reader_( redisReaderCreate(), redisReaderFree ) {
   reader_->maxbuf = perTurn;  // kept for the next long answer
   greet( url );
   open( url );
}

Connection::~Connection() {
   loop_.timerDel( failure_ );
   if ( fd_ >= 0 ) {
      loop_.fdDel( fd_ );
      close( fd_ );
   }
}

void
Connection::open( const Url & url ) {
   AnyAddress address;
   const socklen_t size = addressOf( url, address );
   fd_ = socket( address.any.sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 );
   if ( fd_ >= 0 && url.socketPath.empty() ) {
      const int on = 1;
      setsockopt( fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on );
   }
   if ( fd_ < 0 || ( connect( fd_, &address.any, size ) != 0 && errno != EINPROGRESS ) ) {
      end( std::strerror( errno ) );
      return;
   }
   watchEvents();
}

void
Connection::greet( const Url & url ) {
   const auto checked = [ this ]( const redisReply & reply ) {
      if ( isError( reply ) ) {
         end( std::string( textOf( reply ) ) );
      }
   };
   if ( !url.password.empty() && url.user.empty() ) {
      send( { "AUTH", url.password }, checked );
   } else if ( !url.password.empty() ) {
      send( { "AUTH", url.user, url.password }, checked );
   }
   if ( url.database != 0 ) {
      send( { "SELECT", std::to_string( url.database ) }, checked );
   }
}

void
Connection::send( Command command, Answer answer ) {
   outgoing_.push_back( command.head() );
   std::ranges::move( command.takeBody(), std::back_inserter( outgoing_ ) );
   answers_.push_back( std::move( answer ) );
   if ( connected_ ) {
      flush();
   }
}

void
Connection::handleEvents( std::uint32_t events ) {
   if ( !connected_ ) {
      int error = 0;
      socklen_t size = sizeof error;
      getsockopt( fd_, SOL_SOCKET, SO_ERROR, &error, &size );
      if ( error != 0 ) {
         end( std::strerror( error ) );
         return;
      }
      connected_ = ( events & EPOLLOUT ) != 0;
   }
   if ( events & EPOLLOUT ) {
      flush();
   }
   if ( events & ( EPOLLIN | EPOLLHUP | EPOLLERR ) ) {
      receive();
   }
}

void
Connection::receive() {
   char buffer[ 64 * 1024 ];
   for ( std::size_t taken = 0; taken < perTurn && fd_ >= 0; ) {
      const ssize_t n = read( fd_, buffer, sizeof buffer );
      if ( n < 0 && ( errno == EAGAIN || errno == EINTR ) ) {
         return;
      }
      if ( n <= 0 ) {
         end( n == 0 ? "the server closed the connection" : std::strerror( errno ) );
         return;
      }
      taken += static_cast< std::size_t >( n );
      progress_ += static_cast< std::uint64_t >( n );
      redisReaderFeed( reader_.get(), buffer, static_cast< std::size_t >( n ) );
      if ( !takeAnswers() ) {
         return;
      }
   }
}

/// False once the connection is gone.
bool
Connection::takeAnswers() {
   while ( fd_ >= 0 ) {
      void * found = nullptr;
      const int result = redisReaderGetReply( reader_.get(), &found );
      reply_.reset( static_cast< redisReply * >( found ), freeReplyObject );
      if ( result != REDIS_OK || ( found && answers_.empty() ) ) {
         end( "the server's answer cannot be understood" );
         return false;
      }
      if ( !found ) {
         return true;
      }
      const Answer answer = std::move( answers_.front() );
      answers_.pop_front();
      answer( *reply_ );
      reply_.reset();
   }
   return false;
}

void
Connection::flush() {
   while ( !outgoing_.empty() && fd_ >= 0 ) {
      const std::string & piece = outgoing_.front();
      const ssize_t n =
         ::send( fd_, piece.data() + written_, piece.size() - written_, MSG_NOSIGNAL );
      if ( n < 0 && errno != EAGAIN && errno != EINTR ) {
         end( std::strerror( errno ) );
         return;
      }
      if ( n < 0 ) {
         break;
      }
      written_ += static_cast< std::size_t >( n );
      progress_ += static_cast< std::uint64_t >( n );
      if ( written_ == piece.size() ) {
         outgoing_.pop_front();
         written_ = 0;
      }
   }
   watchEvents();
}

void
Connection::watchEvents() {
   const std::uint32_t wanted = connected_ && outgoing_.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT;
   if ( fd_ >= 0 && wanted != watched_ ) {
      watched_ = wanted;
      loop_.fdIs( fd_, wanted, [ this ]( std::uint32_t events ) { handleEvents( events ); } );
   }
}

void
Connection::end( const std::string & why ) {
   if ( fd_ >= 0 ) {
      loop_.fdDel( fd_ );
      close( fd_ );
      fd_ = -1;
   }
   if ( failure_.second == 0 ) {
      failure_ = loop_.timerIs( loop_.now(), [ this, why ] {
         const Lost lost = lost_;
         lost( why );
      } );
   }
}

}
