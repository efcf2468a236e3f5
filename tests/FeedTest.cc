// What feeds write into state: a topology table by differences, and the interfaces of the kernel.

#include "schema/Types.h"
#include "tools/igpfeed/FeedState.h"
#include "tools/igpfeed/Interfaces.h"
#include "tools/service/StateView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using namespace IgpFeed;
using Cspf::IgpRouterId;
using testing::ElementsAre;
using testing::Pair;

namespace {

/// The state of this process, and how much was written to it.
class LocalAccess : public StateAccess {
 public:
   LocalAccess() {
      Schema::registerTypes( types_ );
      for ( const char * directory : { "routing/topoDbExport", "segmentrouting/isis" } ) {
         state_.entityIs< Lum::Dir >( directory );
      }
   }

   bool isOpen() const override { return true; }
   Json entity( const std::string & path ) override {
      struct Text : State::TextSink {
         void text( std::string_view piece ) override { all += piece; }
         std::string all;
      } text;
      view_.get( path, text );
      return Json::parse( text.all ).at( "value" );
   }
   Json table( const std::string & path ) override {
      view_.patch( path, Json::object() );
      return entity( path );
   }
   void patch( const std::string & path, const Json & patch ) override {
      view_.patch( path, patch );
      ++patches;
   }

   std::size_t patches = 0;

 private:
   Corvdb::TypeRegistry types_;
   Corvdb::StateStore state_{ types_ };
   Zorch::TableStore tables_{ types_ };
   Service::StateView view_{ state_, tables_ };
};

IgpRouterId
routerId( unsigned n ) {
   Routing::Isis::SystemId id;
   id.bytes = {
      0, 0, 0, 0, static_cast< std::uint8_t >( n >> 8 ), static_cast< std::uint8_t >( n ) };
   return IgpRouterId( id );
}

/// A table of random routers, links, LANs and prefixes.
Lab::LabTable
randomTable( std::mt19937 & random, unsigned routers ) {
   using namespace Routing::Topology;
   Lab::LabTable table;
   for ( unsigned n = 1; n <= routers; ++n ) {
      if ( random() % 5 > 0 ) {
         table.router[ routerId( n ) ] = {
            routerId( n ), Kivnet::IpAddr( n ), random() % 3 == 0, {} };
      }
   }
   for ( const auto & [ id, router ] : std::map( table.router ) ) {
      Neighbor link;
      link.keyIs( { id, p2p(), routerId( 1 + static_cast< unsigned >( random() % routers ) ),
                    static_cast< std::uint32_t >( random() % 2 ) } );
      link.metricIs( static_cast< std::uint32_t >( random() % 3 ) );
      table.linkIs( link );
      if ( random() % 3 == 0 ) {
         const NetworkId lan{ IgpRouterId( id.pseudonode( 1 ) ) };
         table.network[ lan ].networkIdIs( lan );
         table.network[ lan ].routerIs( id );
      }
      auto & reachability = table.reachability[ id ];
      reachability.routerIdIs( id );
      reachability.prefixIs( { Kivnet::IpGenPrefix::host( Kivnet::IpAddr( 7 ) ),
                               static_cast< std::uint32_t >( random() % 3 ) } );
   }
   return table;
}

TEST( Feed, writesWhatDiffersAndTakesOverWhatStands ) {
   LocalAccess access;
   std::mt19937 random( 3 );
   const TableId id{ { Cspf::IgpSource::isis, 2, 1 }, Kivnet::AddressFamily::ipv4, Vrf( "red" ) };
   auto feed = std::make_unique< FeedState >( access, Cspf::IgpSource::isis );
   for ( int round = 0; round < 60; ++round ) {
      FeedContent wanted;
      if ( round % 9 != 8 ) {
         wanted.tables[ id ] = randomTable( random, round == 20 ? 2000 : 12 );
         wanted.adjacencies[ Vrf( "red" ) ][ { Kivnet::IntfId( "e" + std::to_string( round % 3 ) ),
                                               routerId( 1 ).isisSystemId() } ] = {};
         wanted.systemIds[ Vrf( "red" ) ] = routerId( 1 + round % 2 ).isisSystemId();
      }
      feed->write( wanted );
      const std::size_t before = access.patches;
      feed->write( wanted );
      EXPECT_EQ( access.patches, before );
      // A feed that starts anew finds all of it.
      feed = std::make_unique< FeedState >( access, Cspf::IgpSource::isis );
      ASSERT_EQ( feed->standing(), wanted ) << round;
   }
   // What another IGP announces is not touched.
   FeedState( access, Cspf::IgpSource::ospf ).write( {} );
   EXPECT_TRUE( access.entity( "routing/topoDbExport" )[ "entity" ].contains( id.name() ) );
}

TEST( Feed, believesADaemonThatKnowsAgainWhatItKnew ) {
   const TableId id{ Cspf::TopoId::isisL2(), Kivnet::AddressFamily::ipv4, Vrf::defaultVrf() };
   FeedContent before;
   for ( const unsigned n : { 1, 2, 3 } ) {
      before.tables[ id ].router[ routerId( n ) ].idIs( routerId( n ) );
      for ( const unsigned to : { 1, 2, 3 } ) {
         Routing::Topology::Neighbor link;
         link.keyIs( { routerId( n ), Routing::Topology::p2p(), routerId( to ), 1 } );
         if ( n != to ) {
            before.tables[ id ].linkIs( link );
         }
      }
   }
   const Selves selves = { { id, routerId( 1 ) } };
   const auto without = [ & ]( unsigned from, unsigned to ) {
      FeedContent after = before;
      std::erase_if( after.tables[ id ].neighbor, [ & ]( const auto & entry ) {
         return entry.first.routerId() == routerId( from )
                && entry.first.neighborId() == routerId( to );
      } );
      return after;
   };
   EXPECT_TRUE( comesUpTo( before, before, selves ) );
   EXPECT_TRUE( comesUpTo( without( 2, 3 ), before, selves ) );  // somebody else's link
   for ( const FeedContent & after : { without( 1, 2 ), without( 2, 1 ) } ) {
      EXPECT_FALSE( comesUpTo( after, before, selves ) );
      EXPECT_TRUE( isConnected( after, before, selves ) );
   }
   FeedContent alone = without( 1, 2 );
   std::erase_if( alone.tables[ id ].neighbor,
                  []( const auto & entry ) { return entry.first.routerId() != routerId( 1 ); } );
   EXPECT_FALSE( isConnected( alone, before, selves ) );
   EXPECT_FALSE( comesUpTo( {}, before, selves ) || isConnected( {}, before, selves ) );
}

TEST( Feed, countsAnAggregateForItsMembers ) {
   std::map< int, KernelLink > links;
   const auto add = [ & ]( const char * name, bool up, const char * kind, const char * master ) {
      links[ static_cast< int >( links.size() ) ] = { name, true, up, kind, master };
   };
   add( "eth0", true, "", "" );
   add( "eth1", true, "", "bond" );
   add( "eth2", true, "", "bond" );
   add( "eth3", false, "", "" );
   add( "eth4", true, "", "bridge" );
   add( "po1", true, "bond", "" );
   add( "br0", true, "bridge", "" );
   add( "eth0.7", true, "vlan", "" );
   add( "slow", true, "", "" );
   links[ -1 ] = { "lo", false, true, "", "" };
   const auto all = bandwidthsOf( links, []( const std::string & name ) -> std::uint64_t {
      return name == "slow" ? 0 : name == "po1" ? 2500 : 1250;
   } );
   EXPECT_THAT( all.physical, ElementsAre( Pair( "eth0", 1250 ), Pair( "eth4", 1250 ) ) );
   EXPECT_THAT( all.aggregates, ElementsAre( Pair( "po1", 2500 ) ) );
}

}
