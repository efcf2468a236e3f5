// The dump command. It runs on the agent's loop between notifications, so the tree that it walks is
// consistent; the entry for debuggers gives up that order, and therefore writes at once. The
// command dumps an object wherever it stands, not only where it is met first.

#include "Cspf/Agent/CommandCallback.h"

#include "Cspf/Agent/Agent.h"

namespace Cspf {

void
CspfCommandCallback::handleCommand( int fd, const std::string & command ) {
   Kiv::DumpContext context( fd );
   if ( command == "DUMP_CSPF_STATE" ) {
      context.printf( 0, "\n-----------Cspf Internal State Dump-------------\n" );
      context.dumpDuplicatesIs( true );
      agent_->dumpState( context, 0 );
      context.printf( 0, "\n" );
   } else {
      context.printf( 0, "Unknown command %s", command.c_str() );
   }
}

void
dumpStateTo( int fd ) {
   Kiv::DumpContext context( fd );
   if ( !Agent::instance() ) {
      context.printf( 0, "Cspf Agent addr not set\n" );
      return;
   }
   context.printf( 0, "Cspf Internal State\n" );
   context.reviveRunningIs( true );
   Agent::instance()->dumpState( context, 0 );
}

void
dumpStateCallback() {
   dumpStateTo( STDERR_FILENO );
}

}
