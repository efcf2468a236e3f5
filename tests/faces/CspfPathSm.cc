#include "Cspf/CspfPathSm.h"

#include <gtest/gtest.h>

using namespace Cspf;

TEST( Faces, CspfPathSm ) {
   const auto config = Lum::make< Config >();
   const auto status = Lum::make< Status >();
   const auto configs = Lum::make< PathConfigInfoTable >();
   const auto statuses = Lum::make< PathStatusInfoTable >();
   const auto machine = Lum::make< PathSm >( Kivnet::AddressFamily::ipv4, L3::VrfName( "default" ),
                                             "rsvp", nullptr, config, status, configs, statuses );
   PathConfig path;
   path.constraint_.includeHopIs(
      0, { Kivnet::IpGenAddr( *Kivnet::IpAddr::parse( "1.1.1.1" ) ), true } );
   config->pathConfigIs( path );
   const auto wanted = machine->getLinkedPathsFromCspfConfig( {} );
   const auto held = machine->getLinkedPathsFromPathConfigInfo( {} );
   EXPECT_TRUE( held->isSame( *wanted ) );
   EXPECT_TRUE( held->hasChildPathInfoKey( held->childPathInfoKey( 0 ) ) );
   EXPECT_FALSE( held->hasChildPathInfoKey( held->parentPathInfoKey() ) );
   EXPECT_EQ( machine->currentExternalPathInfoKey( {} ), held->parentPathInfoKey() );
   EXPECT_EQ( configs->pathConfigInfo( machine->externalPathInfoKey( {} ) )->childPaths(), 2u );
   config->pathConfigDel( {} );
   EXPECT_EQ( configs->pathConfigInfos() + machine->currentExternalPathInfoKeys(), 0u );
   EXPECT_GT( sizeof( PathConfigInfoSm ) + sizeof( PathStatusInfoSm ), 0u );
}
