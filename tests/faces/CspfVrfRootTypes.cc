#include "Cspf/CspfVrfRootTypes.h"

#include "Cspf/CspfImpl.h"

#include <gtest/gtest.h>

using namespace Cspf;

TEST( Faces, CspfVrfRootTypes ) {
   const PathInfoKey key;
   PathConfigInfoTable configs;
   configs.pathConfigInfoIs( key )->configChangeCountInc();
   configs.pathConfigInfoIs( key )->derivedConfigChangeCountInc();
   EXPECT_EQ( configs.pathConfigInfo( key )->configChangeCount(), 1u );
   configs.pathConfigInfo( key )->childPathIs( 0, key );
   PathStatusInfoTable statuses;
   statuses.pathStatusInfoIs( key )->refreshReasonIs( refreshReasonExplicit );
   PathStatusCacheTable caches;
   const auto cache = caches.pathStatusCacheIs( key );
   const Lum::Ptr< CspfData > run = Lum::make< CspfData >();
   cache->cspfDataIs( run );
   EXPECT_EQ( cache->cspfData(), run );
   EXPECT_EQ( caches.pathStatusCacheIs( key ), cache );
   caches.pathStatusCacheDel( key );
   EXPECT_FALSE( caches.pathStatusCacheHas( key ) );

   const Kivnet::IpGenAddr address( *Kivnet::IpAddr::parse( "10.0.0.1" ) );
   PathArray path;
   path.pathIs( 0, address );
   EXPECT_EQ( path.path( 0 ), address );
   EXPECT_EQ( path.hopCount(), 1u );
   PathTeRouterId routers;
   routers.pathTeRouterIdIs( 0, address );
   EXPECT_EQ( routers.pathTeRouterId( 0 ), address );
   PathSrlg srlgs;
   srlgs.pathSrlgIs( 0, {} );
   IncludeIps includeIps;
   includeIps.includeIpIs( 0, { address, address } );
   EXPECT_EQ( includeIps.includeIp( 0 ).teRouterId(), address );
   PathAsTopoDbLinks links;
   links.pathIs( 0, {} );
   links.routerInNetworkForHopIs( 0, address );
   links.pathDelAll();
   links.routerInNetworkForHopDelAll();
   PathBwUsage().bwUsageDelAll();
   EXPECT_EQ( PathStatus{ key.pathKey() }.paths(), 0u );
   EXPECT_EQ( TeRouterIdConfig().routerId(), TeRouterIdConfig::routerIdDefault );
   EXPECT_FALSE( ClientData().isisAdjacencyInfo() || TilfaPathInfoKeyColl().pathInfoKey() );
}
