// Keys, constraints and publications of single paths, below what a client can tell apart.

#include "Cspf/Paths/StatusUpdate.h"
#include "Cspf/Requests/PathConfigInfoSm.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace Cspf {
namespace {

Kivnet::IpGenAddr
address( const char * text ) {
   return Kivnet::IpGenAddr( *Kivnet::IpAddr::parse( text ) );
}

PathInfoKey
pathInfoKey( const char * dst, std::uint32_t id ) {
   PathInfoKey key;
   key.clientNameIs( "rsvp" );
   key.pathKeyIs( { Destination( address( dst ) ), id } );
   return key;
}

TEST( PathInfoKey, IsWrittenInTracesWithAllItsFields ) {
   PathInfoKey key = pathInfoKey( "10.0.0.4", 7 );
   EXPECT_EQ( key.traceString().stringValue(),
              "PathInfoKey=<client=rsvp, pathKey=<10.0.0.4, id=7>, internal=0, "
              "constraintModifier=noChange, parentPathKey=<dst=, id=0>, "
              "pathSegmentSourceNodeAddr=>" );
   key.internalIs( true );
   key.constraintModifierIs( spfForPathSegment() );
   key.parentPathKeyIs( { Destination( address( "10.0.0.9" ) ), 1 } );
   key.pathSegmentSourceNodeAddrIs( address( "10.0.0.3" ) );
   EXPECT_EQ( key.traceString().stringValue(),
              "PathInfoKey=<client=rsvp, pathKey=<10.0.0.4, id=7>, internal=1, "
              "constraintModifier=spfForPathSegment, parentPathKey=<dst=10.0.0.9, id=1>, "
              "pathSegmentSourceNodeAddr=10.0.0.3>" );
   EXPECT_TRUE( key );
   EXPECT_FALSE( PathInfoKey() );
}

TEST( Constraint, SegmentsKeepWhatWasAskedButTheHops ) {
   PathConstraint asked;
   asked.excludeNodeIs( { NodeId( address( "10.0.0.7" ) ), Kivnet::IntfId( "et2" ) } );
   asked.bandwidthIs( 100 );
   asked.includeHopIs( 0, { address( "10.0.0.5" ), true } );
   InternalPathConstraint whole = modifiedConstraint( asked, noChange() );
   EXPECT_EQ( whole.includeHops(), 1u );
   whole.includeHopDelAll();
   EXPECT_EQ( modifiedConstraint( asked, spfForPathSegment() ), whole );
}

/// One path with a result of two hops.
class PublishTest : public testing::Test {
 protected:
   PublishTest() {
      info->lastRefreshReqSeqIs( 3 );
      cache->pathIs( Lum::make< const PathArray >( hops( { "1.0.0.2", "1.0.1.3" } ) ) );
      cache->pathTeRouterIdIs(
         Lum::make< const PathTeRouterId >( hops( { "10.0.0.2", "10.0.0.3" } ) ) );
      cache->pathSrlgIs( Lum::make< const PathSrlg >( srlgs( { 1, 2 } ) ) );
      updator.publishPath( cache );
   }

   static PathArray::Hops hops( std::initializer_list< const char * > addresses ) {
      PathArray::Hops list;
      for ( const char * hop : addresses ) {
         list.push( address( hop ) );
      }
      return list;
   }
   static PathSrlg::Hops srlgs( std::initializer_list< TrafficEngineering::SrlgId > ids ) {
      PathSrlg::Hops list;
      for ( const auto id : ids ) {
         SrlgOfHop hop;
         hop.srlgIs( 0, id );
         list.push( hop );
      }
      return list;
   }
   const PathStatus & published() const { return status->pathStatus( key.pathKey() ); }

   const PathInfoKey key = pathInfoKey( "10.0.0.3", 1 );
   const Lum::Ptr< Status > status = Lum::make< Status >();
   const Lum::Ptr< PathStatusInfo > info = Lum::make< PathStatusInfo >( key, status );
   const Lum::Ptr< PathStatusCache > cache = Lum::make< PathStatusCache >( key );
   PathStatusUpdator updator{ info, status };
};

TEST_F( PublishTest, WritesOnceForEachDifference ) {
   EXPECT_EQ( published().pathList(), cache->path()->path() );
   EXPECT_EQ( published().refreshRespSeq(), 3u );
   EXPECT_EQ( published().changeCount(), 1u );
   const std::vector< std::function< void() > > changes{
      [ & ] {
         cache->pathIs( Lum::make< const PathArray >( hops( { "1.0.0.2", "1.0.7.3" } ) ) );
      },
      [ & ] {
         cache->pathTeRouterIdIs(
            Lum::make< const PathTeRouterId >( hops( { "10.0.0.9", "10.0.0.3" } ) ) );
      },
      [ & ] {
         cache->pathSrlgIs( Lum::make< const PathSrlg >( srlgs( { 1, 5 } ) ) );
      },
      [ & ] {
         IncludeIps::List ips;
         ips.push( { address( "1.0.0.2" ), address( "10.0.0.9" ) } );
         cache->includeIpsIs( Lum::make< const IncludeIps >( ips ) );
      },
      [ & ] { info->lastRefreshReqSeqIs( 4 ); },
   };
   std::uint32_t writes = 1;
   for ( const auto & change : changes ) {
      change();
      for ( int again = 0; again < 2; ++again ) {
         updator.publishPath( cache );
         EXPECT_EQ( published().changeCount(), writes + 1 );
      }
      ++writes;
   }
}

TEST_F( PublishTest, RecordsThatDoNotFitTogetherStopTheAgent ) {
   const auto tooShort = Lum::make< PathTeRouterId >( hops( { "10.0.0.2" } ) );
   EXPECT_DEATH( updator.publishPathMetadata( tooShort, nullptr ),
                 "pathStatus.paths\\(\\) == pathTeRouterId->hopCount\\(\\)" );
   EXPECT_DEATH( updator.publishPathMetadata( nullptr, nullptr ),
                 "pathTeRouterId \\|\\| includeIps" );
   cache->pathTeRouterIdIs( nullptr );
   info->lastRefreshReqSeqIs( 9 );
   EXPECT_DEATH( updator.publishPath( cache ),
                 "pathStatus.paths\\(\\) == pathTeRouterId->hopCount\\(\\)" );
   info->refreshNeededIs( true );
   EXPECT_DEATH( updator.publishPath( cache ), "!pathStatusInfo\\(\\)->refreshNeeded\\(\\)" );
}

}
}
