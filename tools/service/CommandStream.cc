// Output of a command. A pipe would make the agent wait for a slow reader, or lose what does not
// fit; a file in memory does neither.

#include "tools/service/CommandStream.h"

#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace Service {

CommandStream::CommandStream() : fd_( memfd_create( "commandOutput", MFD_CLOEXEC ) ) {
   if ( fd_ < 0 ) {
      throw std::runtime_error( "no memory for the command's output" );
   }
}

CommandStream::~CommandStream() {
   close( fd_ );
}

void
CommandStream::forEachPiece( const std::function< void( std::string_view ) > & visit ) const {
   std::vector< char > piece( 262'144 );
   off_t at = 0;
   for ( ssize_t n; ( n = pread( fd_, piece.data(), piece.size(), at ) ) > 0; at += n ) {
      const std::string_view text( piece.data(), static_cast< std::size_t >( n ) );
      const auto end = text.rfind( '\n' );
      n = end == text.npos ? n : static_cast< ssize_t >( end + 1 );
      visit( text.substr( 0, static_cast< std::size_t >( n ) ) );
   }
}

}
