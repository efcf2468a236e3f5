// URLs of databases. A password never stands in one, since command lines and environments are read
// by others.

#include "tools/redis/Url.h"

#include "tools/text/Input.h"

#include <charconv>
#include <netdb.h>
#include <stdexcept>
#include <sys/socket.h>

namespace Redis {

namespace {

constexpr std::string_view unixScheme = "unix:", tcpScheme = "redis://", tlsScheme = "rediss:";

[[noreturn]] void
fail( const std::string & text, const std::string & why ) {
   throw std::runtime_error( text + ": " + why );
}

template< class T >
T
numberOf( const Url & url, std::string_view digits, const char * what ) {
   T number{};
   const auto [ end, error ] =
      std::from_chars( digits.data(), digits.data() + digits.size(), number );
   if ( digits.empty() || error != std::errc() || end != digits.data() + digits.size() ) {
      fail( url.text, std::string( "expected the number of a " ) + what + ", found \""
                         + std::string( digits ) + "\"" );
   }
   return number;
}

/// The first address of the host as a numeric text.
std::string
resolved( const Url & url, const std::string & host ) {
   addrinfo hints{};
   hints.ai_socktype = SOCK_STREAM;
   addrinfo * found = nullptr;
   if ( const int error = getaddrinfo( host.c_str(), nullptr, &hints, &found ) ) {
      fail( url.text, gai_strerror( error ) );
   }
   char text[ NI_MAXHOST ] = "";
   getnameinfo( found->ai_addr, found->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST );
   freeaddrinfo( found );
   return text;
}

void
parseTcp( Url & url ) {
   std::string_view rest = std::string_view( url.text ).substr( tcpScheme.size() );
   if ( const auto slash = rest.find( '/' ); slash != rest.npos ) {
      if ( slash + 1 < rest.size() ) {
         url.database = numberOf< std::uint32_t >( url, rest.substr( slash + 1 ), "database" );
      }
      rest = rest.substr( 0, slash );
   }
   if ( const auto at = rest.rfind( '@' ); at != rest.npos ) {
      url.user = rest.substr( 0, at );
      rest = rest.substr( at + 1 );
      if ( url.user.find( ':' ) != url.user.npos ) {
         throw std::runtime_error( "a password stands in a file, never in the URL" );
      }
   }
   const auto bracket = rest.rfind( ']' );
   const auto colon = rest.find( ':', bracket == rest.npos ? 0 : bracket );
   if ( colon != rest.npos ) {
      url.port = numberOf< std::uint16_t >( url, rest.substr( colon + 1 ), "port" );
      rest = rest.substr( 0, colon );
   }
   const bool bracketed = rest.size() > 2 && rest.front() == '[' && rest.back() == ']';
   const std::string host( bracketed ? rest.substr( 1, rest.size() - 2 ) : rest );
   if ( host.empty() ) {
      fail( url.text, "expected redis://HOST:PORT/DATABASE" );
   }
   url.address = resolved( url, host );
}

std::string
firstLine( const std::string & file ) {
   std::string text;
   try {
      text = Text::contentOf( file );
   } catch ( const std::runtime_error & error ) {
      fail( file, error.what() );
   }
   if ( text.empty() || text.front() == '\n' ) {
      fail( file, "no password can be read from it" );
   }
   return text.substr( 0, text.find( '\n' ) );
}

}

Url
parseUrl( const std::string & text, const std::string & passwordFile ) {
   Url url;
   url.text = text;
   if ( text.starts_with( unixScheme ) && text.size() > unixScheme.size() ) {
      url.socketPath = text.substr( unixScheme.size() );
      if ( url.socketPath.size() > 107 ) {
         fail( text, "the path of a socket has at most 107 bytes" );
      }
   } else if ( text.starts_with( tcpScheme ) ) {
      parseTcp( url );
   } else if ( text.starts_with( tlsScheme ) ) {
      fail( text, "connections are not encrypted: use unix:PATH, or redis://HOST:PORT/DATABASE "
                  "through a tunnel" );
   } else {
      fail( text, "expected unix:PATH or redis://HOST:PORT/DATABASE" );
   }
   if ( !passwordFile.empty() ) {
      url.password = firstLine( passwordFile );
   }
   return url;
}

}
