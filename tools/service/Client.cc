// The near end of the control socket.

#include "tools/service/Client.h"

#include "tools/service/UnixSocket.h"

#include <cerrno>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace Service {

Client::Client( const std::string & socketPath ) : fd_( connectTo( socketPath ) ) {}

Client::~Client() {
   close( fd_ );
}

Json
Client::call( const std::string & method, Json params, const Notified & notified ) {
   const std::uint64_t id = ++lastId_;
   const std::string text = Json{ { "jsonrpc", "2.0" },
                                  { "id", id },
                                  { "method", method },
                                  { "params", std::move( params ) } }
                               .dump()
                            + "\n";
   for ( std::size_t sent = 0; sent < text.size(); ) {
      const ssize_t n = send( fd_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL );
      if ( n < 0 && errno != EINTR ) {
         throw std::runtime_error( "the connection to the agent ended" );
      }
      sent += n > 0 ? static_cast< std::size_t >( n ) : 0;
   }
   for ( ;; ) {
      Json frame = readFrame();
      if ( frame.contains( "method" ) ) {
         if ( notified ) {
            notified( frame[ "method" ], frame[ "params" ] );
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
      const Json frame = readFrame();
      if ( frame.contains( "method" ) ) {
         notified( frame[ "method" ], frame[ "params" ] );
      }
   }
}

Json
Client::readFrame() {
   std::size_t end;
   while ( ( end = received_.find( '\n' ) ) == received_.npos ) {
      char buffer[ 64 * 1024 ];
      const ssize_t n = read( fd_, buffer, sizeof buffer );
      if ( n == 0 || ( n < 0 && errno != EINTR ) ) {
         throw std::runtime_error( "the connection to the agent ended" );
      }
      received_.append( buffer, n > 0 ? static_cast< std::size_t >( n ) : 0 );
   }
   Json frame = Json::parse( received_.begin(), received_.begin() + std::ptrdiff_t( end ) );
   received_.erase( 0, end + 1 );
   return frame;
}

}
