// Whether a program and the agent that it loads share one platform: its census, its clock, its
// types and the identity of attributes. The first argument is the agent's library.

#include "Cspf/CspfAgent.h"
#include "platform/AgentRunner/InstalledLibrary.h"
#include "platform/AgentRunner/Runner.h"
#include "schema/CspfClient.h"
#include "schema/CspfStatus.h"
#include "schema/Types.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <iostream>
#include <string>

namespace {

int failures = 0;

void
expect( bool holds, const char * what ) {
   failures += holds ? 0 : 1;
   std::cout << ( holds ? "ok      " : "FAILED  " ) << what << std::endl;
}

/// Whether the process's definition of the symbol is the one in that file, or at that place.
bool
isIn( const std::string & file, const char * symbol ) {
   Dl_info info{};
   void * const address = dlsym( RTLD_DEFAULT, symbol );
   return address && dladdr( address, &info )
          && std::string( info.dli_fname ).find( file ) != std::string::npos;
}

bool
isAt( const void * address, const char * symbol ) {
   return dlsym( RTLD_DEFAULT, symbol ) == address;
}

class EnabledWatch : public Lum::Reactor {
 public:
   explicit EnabledWatch( Lum::Ptr< Cspf::AgentStatus > status ) : status_( std::move( status ) ) {}
   const char * typeName() const override { return "EnabledWatch"; }
   void handleInitialized() override { LUM_WATCH( status_, agentEnabled, handleEnabled ); }
   int heard = 0;

 private:
   void handleEnabled() { ++heard; }

   const Lum::Ptr< Cspf::AgentStatus > status_;
};

}

int
main( int, char ** arguments ) {
   setenv( "VELOTRACE_DISABLE", "1", 0 );
   Corvdb::TypeRegistry types;
   Schema::registerTypes( types );
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::virtualTime );
   Corvdb::StateStore state( types );
   Zorch::TableStore tables( types );
   const AgentRunner::Library library( arguments[ 1 ] );
   expect( std::filesystem::equivalent( AgentRunner::installedLibrary( "libCspfAgent.so" ),
                                        arguments[ 1 ] ),
           "the agent's library is found where it is installed" );
   for ( const char * symbol :
         { "_ZN3Lum6censusB5cxx11Ev", "_ZN3Lum3nowEv", "_ZN9Velotrace5closeEv",
           "_ZN6Schema13registerTypesERN6Corvdb12TypeRegistryE" } ) {
      expect( isIn( "libcspf-platform.so.1", symbol ), symbol );
   }
   expect( isIn( "libCspfAgent.so", "agentFactory" ), "agentFactory" );
   expect( isAt( &Cspf::AgentStatus::agentEnabledAttribute,
                 "_ZN4Cspf11AgentStatus21agentEnabledAttributeE" ),
           "what the program instantiates is the process's" );

   state.entityIs< Lum::Dir >( "te/cspf/client" )->entityIs( "c", Lum::make< Cspf::Client >() );
   const auto watch =
      Lum::make< EnabledWatch >( state.entityIs< Cspf::AgentStatus >( "te/cspf/agentStatus" ) );
   {
      AgentRunner::Runner runner( loop, state, tables, library.factory(), "one" );
      runner.start();
      loop.settle( 1000, loop.now() + 60 );
      expect( Lum::census()[ "Cspf::Agent" ] == 1, "the program counts the agent's objects" );
      expect( watch->heard > 0, "the program hears what the agent writes" );
      expect( loop.settle( 1000, loop.now() + 60 ),
              "the agent's tasks follow the program's clock" );
      runner.stop();
   }
   expect( Lum::census()[ "Cspf::Agent" ] == 0, "the agent is gone when it is stopped" );
   return failures == 0 ? 0 : 1;
}
