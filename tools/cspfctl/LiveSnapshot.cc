// A watch begins with all of its paths as of one moment, which a series of reads would not.

#include "tools/cspfctl/LiveSnapshot.h"

Prove::Snapshot
liveSnapshot( Caller & caller ) {
   Caller::Json paths = Caller::Json::array();
   for ( std::string path : Prove::Snapshot::paths() ) {
      path.resize( path.size() - path.ends_with( '/' ) );
      paths.push_back( path );
   }
   const auto unheard = []( const std::string &, const Caller::Json & ) {};
   return Prove::Snapshot::of( caller.call( "watch", { { "paths", paths } }, unheard ) );
}

Prove::Snapshot
liveSnapshot( const std::string & socket ) {
   return liveSnapshot( *agentCaller( socket ) );
}
