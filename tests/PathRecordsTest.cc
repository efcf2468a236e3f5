// Keys, constraints and publications of single paths, below what a client can tell apart.

#include "Cspf/Paths/StatusUpdate.h"
#include "Cspf/Records/Segments.h"
#include "Cspf/Requests/PathConfigInfoSm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>
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

/// Few routers, so that paths go there and back, and come again to where they are.
TEST( PathSegments, AreFoundInThePublishedPathAndKeepTheirKeysWhereAHopComesBetween ) {
   std::mt19937 random( 1 );
   const auto router = []( std::size_t n ) { return Kivnet::IpGenAddr( Kivnet::IpAddr( n ) ); };
   for ( int round = 0; round < 3000; ++round ) {
      const PathInfoKey parent = pathInfoKey( "0.0.0.1", 1 );
      const Destination & destination = parent.pathKey().dst();
      std::vector< IncludeHop > hops( 1 + random() % 5 );
      for ( IncludeHop & hop : hops ) {
         hop = { router( 1 + random() % 3 ), true };
      }
      const auto asked = [ & ] {
         PathConstraint constraint;
         for ( const IncludeHop & hop : hops ) {
            constraint.includeHopIs( constraint.includeHops(), hop );
         }
         return pathSegments( constraint, destination );
      };
      const Kivnet::IpGenAddr source = router( 1 + random() % 4 );
      Kivnet::IpGenAddr at = source;
      PathStatus published;
      std::set< PathInfoKey > keys, later;
      std::vector< HopRange > ranges;
      for ( const PathSegment & segment : asked() ) {
         const std::size_t first = published.pathTeRouterIds();
         if ( at != segment.end ) {
            for ( std::size_t between = random() % 3; between > 0; --between ) {
               published.pathTeRouterId_.push( router( 10 + random() % 9 ) );
            }
            published.pathTeRouterId_.push( segment.end );
         }
         if ( segment.isIncludeHop ) {
            published.includeIp_.push( { segment.end, segment.end } );
         }
         at = segment.end;
         ranges.push_back( { first, published.pathTeRouterIds() - first } );
      }
      for ( const PathSegment & segment : asked() ) {
         const PathInfoKey key = childPathInfoKey( parent, segment );
         EXPECT_TRUE( keys.insert( key ).second );
         const auto range = publishedSegment( published, source, key );
         ASSERT_TRUE( range );
         EXPECT_EQ( range->first, ranges[ segment.index ].first );
         EXPECT_EQ( range->count, ranges[ segment.index ].count );
      }
      hops.insert( hops.begin() + random() % ( hops.size() + 1 ), { router( 9 ), true } );
      for ( const PathSegment & segment : asked() ) {
         later.insert( childPathInfoKey( parent, segment ) );
      }
      std::vector< PathInfoKey > gone;
      std::ranges::set_difference( keys, later, std::back_inserter( gone ) );
      EXPECT_LE( gone.size(), 1u );
      EXPECT_LE( later.size(), keys.size() + 2 );
   }
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
