// Lines of a path, a blank and a merge patch, against a running agent: each is made or refused with
// one line, and the agent stands and comes to rest.

#include "fuzz/FuzzAgent.h"
#include "tools/service/StateView.h"

#include <string>
#include <string_view>

extern "C" int
LLVMFuzzerTestOneInput( const unsigned char * data, std::size_t size ) {
   FuzzAgent agent( Lum::ActivityLoop::Time::virtualTime );
   Service::StateView view( agent.state, agent.tables );
   agent.settle();
   std::string_view rest( reinterpret_cast< const char * >( data ), size );
   while ( !rest.empty() ) {
      const std::string_view line = rest.substr( 0, rest.find( '\n' ) );
      rest.remove_prefix( std::min( rest.size(), line.size() + 1 ) );
      const auto blank = line.find( ' ' );
      try {
         const std::string patch( blank == line.npos ? "" : line.substr( blank ) );
         Lab::LabJson::parse( patch );
         view.patch( std::string( line.substr( 0, blank ) ), State::Json::parse( patch ) );
      } catch ( const std::runtime_error & ) {
         // Its text may hold what the patch did; whoever prints it makes it plain.
      }
      if ( rest.size() % 2 ) {  // changes in one turn, and in several
         agent.settle();
      }
   }
   agent.settle();
   return 0;
}
