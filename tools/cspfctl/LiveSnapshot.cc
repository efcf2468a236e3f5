// A watch begins with all of its paths as of one moment, which a series of reads would not.

#include "tools/cspfctl/LiveSnapshot.h"

#include "tools/service/Client.h"

Prove::Snapshot
liveSnapshot( const std::string & socket ) {
   Service::Json paths = Service::Json::array();
   for ( std::string path : Prove::Snapshot::paths() ) {
      path.resize( path.size() - path.ends_with( '/' ) );
      paths.push_back( path );
   }
   return Prove::Snapshot::of( Service::Client( socket ).call( "watch", { { "paths", paths } } ) );
}
