// Bytes on the control socket, from several callers, interleaved: the first byte of each piece says
// who sends it and how long it is. Whatever they send, one who asks for the status gets it.

#include "fuzz/FuzzAgent.h"
#include "tools/service/ControlServer.h"

#include <array>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// The far end of a session.
class Caller {
 public:
   explicit Caller( Service::Shared & shared ) {
      int ends[ 2 ];
      if ( socketpair( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends ) != 0 ) {
         std::abort();
      }
      socket_ = ends[ 0 ];
      session_.emplace( shared, ends[ 1 ], Service::Session::Access::full,
                        [ this ] { session_.reset(); } );
   }
   ~Caller() { close( socket_ ); }
   Caller( const Caller & ) = delete;
   Caller & operator=( const Caller & ) = delete;

   void send( std::string_view text ) {
      [[maybe_unused]] const ssize_t n = ::send( socket_, text.data(), text.size(), MSG_NOSIGNAL );
   }
   std::string received() {
      std::string all( 1 << 20, ' ' );
      const ssize_t n = recv( socket_, all.data(), all.size(), 0 );
      all.resize( n > 0 ? static_cast< std::size_t >( n ) : 0 );
      return all;
   }

 private:
   int socket_ = -1;
   std::optional< Service::Session > session_;
};

}

extern "C" int
LLVMFuzzerTestOneInput( const unsigned char * data, std::size_t size ) {
   FuzzAgent agent( Lum::ActivityLoop::Time::real );
   Service::StateView view( agent.state, agent.tables );
   Service::Shared shared{
      agent.loop,
      agent.runner,
      view,
      [ & ]( const Lab::LabJson & lab ) {
         Lab::LabState( agent.state, agent.tables ).write( Lab::LabFile::of( lab ).document() );
      },
      [] { return std::string(); },
      Service::Json() };
   std::array< std::optional< Caller >, 3 > callers;
   for ( auto & caller : callers ) {
      caller.emplace( shared );
   }
   while ( size > 0 ) {
      const std::size_t length = std::min< std::size_t >( size - 1, data[ 0 ] / 4 );
      callers[ data[ 0 ] % 3 ]->send( { reinterpret_cast< const char * >( data + 1 ), length } );
      agent.loop.runOnce( 0 );
      data += length + 1;
      size -= length + 1;
   }
   Caller last( shared );
   last.send( "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"status\"}\n" );
   std::string answer;
   for ( int turn = 0; turn < 1000 && answer.find( '\n' ) == answer.npos; ++turn ) {
      agent.loop.runOnce( 0.001 );
      answer += last.received();
   }
   if ( answer.find( "\"result\":{" ) == answer.npos ) {
      std::abort();
   }
   return 0;
}
