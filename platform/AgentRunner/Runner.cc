// The life of an agent in a process: loaded, created, started, stopped, started again. A call-back
// may hold the agent that registered it, so the runner takes the call-backs away before it lets go.

#include "platform/AgentRunner/Runner.h"

#include <dlfcn.h>

namespace AgentRunner {

bool
CommandRequestReactor::command( const std::string & name, int fd, const std::string & text ) const {
   const auto at = callbacks_.find( name );
   if ( at == callbacks_.end() ) {
      return false;
   }
   const auto callback = at->second;
   callback->handleCommand( fd, text );
   return true;
}

Library::Library( const std::string & path ) {
   void * const library = dlopen( path.c_str(), RTLD_NOW | RTLD_GLOBAL );
   if ( !library ) {
      throw LibraryError( dlerror() );
   }
   factory_ = reinterpret_cast< AgentFactory >( dlsym( library, "agentFactory" ) );
   if ( !factory_ ) {
      throw LibraryError( path + " is no agent library: it has no agentFactory" );
   }
}

Runner::Runner( Lum::ActivityLoop & loop, Corvdb::StateStore & state, Zorch::TableStore & tables,
                AgentFactory factory, std::string agentName )
   : state_( state ),
     tables_( tables ),
     factory_( factory ),
     agentName_( std::move( agentName ) ),
     scheduler_( Lum::make< Kiv::TaskScheduler >( loop ) ) {}

void
Runner::start() {
   LUM_ASSERT( !agent_ );
   agent_ = factory_( agentName_.c_str() );
   LUM_ASSERT( agent_ );
   agent_->platformIs( { Lum::make< Corvdb::EntityManager >( state_, tables_, scheduler_ ),
                         scheduler_, Lum::make< ActivityManagerConfig >(),
                         Lum::make< CommandRequestReactor >() } );
   agent_->doInit();
}

void
Runner::stop() {
   if ( agent_ ) {
      agent_->commandRequestReactor()->agentCommandCallbackDelAll();
      Lum::retire( agent_ );
   }
}

bool
Runner::command( const std::string & name, int fd, const std::string & text ) {
   return agent_ && agent_->commandRequestReactor()->command( name, fd, text );
}

}
