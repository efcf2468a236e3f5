// What an event changes, read and written in parts: it comes to what the whole comes to.

#include "tests/Lab.h"
#include "tests/RandomLab.h"
#include "tests/StateBackends.h"
#include "tools/lab/LabCost.h"
#include "tools/lab/LabReader.h"
#include "tools/lab/LabState.h"

#include <gtest/gtest.h>

namespace {

using Json = nlohmann::json;
using Lab::LabJson;

/// The reading after the patch, or the error that it leaves.
struct Next {
   template< class Read >
   explicit Next( Read read ) {
      try {
         reading = read();
      } catch ( const Lab::LabError & wrong ) {
         error = wrong.what();
      }
   }

   Lab::LabReading reading;
   std::string error;
};

/// What one hop over each link and each LAN costs.
std::vector< std::optional< std::uint64_t > >
costsOfAll( const Lab::LabCosts & costs, const Lab::LabDocument & document ) {
   std::vector< std::optional< std::uint64_t > > all;
   const auto ask = [ & ]( const Lab::LabTopology & topology, const std::string & from,
                           const std::string & to, const Lab::Addresses & addresses ) {
      for ( const auto & address : addresses ) {
         Cspf::PathStatus status;
         status.path_.push( address );
         status.pathTeRouterId_.push( topology.routers.at( to ).teRouterId );
         Lab::LabPath path;
         path.vrf = topology.vrf;
         path.af = topology.af;
         all.push_back( costs.cost( path, topology.routers.at( from ).teRouterId, status ) );
         path.dst = Cspf::Destination( address );
         all.push_back( costs.cost( path, {}, {} ) );
      }
   };
   for ( const auto & [ name, topology ] : document.topologies ) {
      for ( const auto & [ linkName, link ] : topology.links ) {
         ask( topology, link.a.router, link.b.router, link.b.addrs );
      }
      for ( const auto & [ lanName, lan ] : topology.lans ) {
         for ( const auto & [ router, member ] : lan.members ) {
            ask( topology, lan.dr, router, member.addrs );
         }
      }
   }
   return all;
}

/// Links exchange addresses, a router goes with its links, all of a part comes anew, a name moves.
Json
wideEvent( RandomLab & random, const Json & lab ) {
   Json change;
   const Json & core = lab[ "topologies" ][ "core" ];
   if ( !core.contains( "links" ) || core[ "links" ].size() < 2 ) {
      return { { "throttle", { { "holdInt", 100 } } } };
   }
   auto & links = change[ "topologies" ][ "core" ][ "links" ];
   const auto first = std::next( core[ "links" ].begin(), random.below( core[ "links" ].size() ) );
   const auto second = core[ "links" ].begin();
   const std::string router = "R" + std::to_string( 1 + random.below( 3 ) );
   switch ( random.below( 6 ) ) {
   case 0:
      links[ first.key() ][ "aAddr" ] = second->value( "aAddr", Json() );
      links[ second.key() ][ "aAddr" ] = first->value( "aAddr", Json() );
      break;
   case 1:
      for ( const auto & [ name, link ] : core[ "links" ].items() ) {
         if ( link[ "a" ] == router || link[ "b" ] == router ) {
            links[ name ] = nullptr;
         }
      }
      change[ "topologies" ][ "core" ][ "routers" ][ router ] = nullptr;
      break;
   case 2: links[ first.key() ][ "a" ] = router; break;
   case 3: links[ first.key() ][ "aIntf" ] = "other"; break;
   case 4:
      change[ "topologies" ][ "core" ][ "routers" ][ router ][ "id" ] = "0000.0000.9999";
      break;
   default: change[ "router" ] = router;
   }
   return change;
}

/// One OSPF topology that is not exported stands where state has no name for it.
TEST( LabChange, patchesStateBesideATopologyThatIsNotExported ) {
   auto lab = TestLab::of(
      { { "router", "A" },
        { "topologies", { { "area", { { "igp", "ospf" }, { "export", false } } } } } } );
   const char * const path = "te/bwm/client/input/vrf/default/rsvp";
   lab.patch(
      { { "state", { { path, { { "type", "TrafficEngineering::BandwidthClientUsage" } } } } } } );
   EXPECT_TRUE( lab.tables().table( path ) );
}

struct LabChangeTest : testing::TestWithParam< unsigned > {};

TEST_P( LabChangeTest, comesToWhatTheWholeComesTo ) {
   RandomLab random( GetParam(), RandomLab::Kind( GetParam() % 3 ) );
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::virtualTime );
   Member parts( loop, nullptr ), whole( loop, nullptr );
   Lab::LabState partWriter( parts.state, parts.tables ), wholeWriter( whole.state, whole.tables );
   Json lab = random.document();
   Lab::LabReading reading( LabJson::parse( lab.dump() ) );
   Lab::LabCosts costs( reading.document() );
   partWriter.write( reading.document() );
   wholeWriter.write( reading.document() );
   int inParts = 0;
   for ( int step = 0; step < 60; ++step ) {
      Json event = random.oneIn( 4 ) ? wideEvent( random, lab ) : random.event( lab );
      if ( random.oneIn( 3 ) ) {
         event.merge_patch( random.event( lab ) );
      }
      const LabJson patch = LabJson::parse( event.dump() );
      LabJson root = reading.root();
      root.merge( patch );
      const Next expected( [ & ] { return Lab::LabReading( root ); } );
      const Next found( [ & ] {
         Lab::LabReading next = reading;
         next.apply( patch );
         return next;
      } );
      ASSERT_EQ( found.error, expected.error ) << event;
      ASSERT_EQ( found.reading.document(), expected.reading.document() ) << event;
      if ( !found.error.empty() ) {
         continue;
      }
      lab = Json::parse( root.text() );
      const Lab::LabChange change = reading.apply( patch );
      inParts += !change.everything;
      partWriter.write( reading.document(), change );
      wholeWriter.write( reading.document() );
      ASSERT_TRUE( differences( parts.content(), whole.content() ).empty() ) << event;
      costs.follow( change );
      ASSERT_EQ( costsOfAll( costs, reading.document() ),
                 costsOfAll( Lab::LabCosts( reading.document() ), reading.document() ) )
         << event;
   }
   EXPECT_GT( inParts, 10 );
}

INSTANTIATE_TEST_SUITE_P( Seeds, LabChangeTest, testing::Range( 1u, 13u ) );

}
