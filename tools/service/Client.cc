// The near end of the control socket.

#include "tools/service/Client.h"

#include "tools/service/UnixSocket.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace Service {

namespace {

constexpr const char * noAgent = "what answers at the socket is no agent";

}

Client::Client( const std::string & socketPath, double patience )
   : fd_( connectTo( socketPath, patience ) ) {}

Client::~Client() {
   close( fd_ );
}

void
Client::send( std::string_view text ) {
   while ( !text.empty() ) {
      const ssize_t n = ::send( fd_, text.data(), text.size(), MSG_NOSIGNAL );
      if ( n < 0 && errno != EINTR ) {
         throw std::runtime_error( "the connection to the agent ended" );
      }
      text.remove_prefix( n > 0 ? static_cast< std::size_t >( n ) : 0 );
   }
}

Json
Client::callText( const std::string & method, const std::string & params,
                  const Notified & notified ) {
   const std::uint64_t id = ++lastId_;
   send( R"({"jsonrpc":"2.0","id":)" + std::to_string( id ) + R"(,"method":")" + method
         + R"(","params":)" + params + "}\n" );
   for ( ;; ) {
      Json frame = receiveMessage();
      if ( frame.contains( "method" ) ) {
         if ( notified ) {
            notified( frame[ "method" ], frame.value( "params", Json() ) );
         }
      } else if ( frame.contains( "error" ) ) {
         throw std::runtime_error( frame[ "error" ].value( "message", "an error without a text" ) );
      } else if ( frame.value( "id", Json() ) == id ) {
         return std::move( frame[ "result" ] );
      }
   }
}

void
Client::listen( const Notified & notified ) {
   for ( ;; ) {
      const Json frame = receiveMessage();
      if ( frame.contains( "method" ) ) {
         notified( frame[ "method" ], frame.value( "params", Json() ) );
      }
   }
}

bool
Client::isOpen() const {
   char byte;
   const ssize_t n = recv( fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT );
   return n > 0 || ( n < 0 && ( errno == EAGAIN || errno == EINTR ) );
}

void
Client::timeoutIs( double seconds ) {
   using namespace std::chrono;
   end_ = steady_clock::now()
          + duration_cast< steady_clock::duration >( duration< double >( seconds ) );
}

void
Client::waitForText() const {
   using namespace std::chrono;
   while ( end_ ) {
      const auto rest = ceil< milliseconds >( *end_ - steady_clock::now() ).count();
      pollfd one{ fd_, POLLIN, 0 };
      const int ready =
         poll( &one, 1, static_cast< int >( std::clamp< long >( rest, 0, 3'600'000 ) ) );
      if ( ready > 0 ) {
         return;
      }
      if ( rest <= 0 ) {
         throw TimedOut();
      }
   }
}

Json
Client::receive() {
   std::size_t end;
   while ( ( end = received_.find( '\n', searched_ ) ) == received_.npos ) {
      searched_ = received_.size();
      char buffer[ 64 * 1024 ];
      waitForText();
      const ssize_t n = read( fd_, buffer, sizeof buffer );
      if ( n == 0 || ( n < 0 && errno != EINTR ) ) {
         throw std::runtime_error( "the connection to the agent ended" );
      }
      received_.append( buffer, n > 0 ? static_cast< std::size_t >( n ) : 0 );
   }
   Json frame =
      Json::parse( received_.begin(), received_.begin() + std::ptrdiff_t( end ), nullptr, false );
   received_.erase( 0, end + 1 );
   searched_ = 0;
   return frame.is_discarded() ? throw std::runtime_error( noAgent ) : frame;
}

Json
Client::receiveMessage() {
   Json frame = receive();
   const auto hasText = []( const Json & object, const char * name ) {
      return object.is_object() && object.value( name, Json( "" ) ).is_string();
   };
   if ( !hasText( frame, "method" )
        || ( frame.contains( "error" ) && !hasText( frame[ "error" ], "message" ) ) ) {
      throw std::runtime_error( noAgent );
   }
   return frame;
}

}
