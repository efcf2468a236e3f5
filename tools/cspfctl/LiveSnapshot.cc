// What stands nowhere yet, as before an agent has run, is missing in the snapshot as well.

#include "tools/cspfctl/LiveSnapshot.h"

#include "tools/cspfctl/LiveLab.h"

Prove::Snapshot
liveSnapshot( Caller & caller ) {
   const LiveState live( caller );
   return Prove::Snapshot::of( live.state(), live.tables() );
}

Prove::Snapshot
liveSnapshot( const std::string & socket ) {
   return liveSnapshot( *agentCaller( socket ) );
}
