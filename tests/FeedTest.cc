// What feeds write into state, on their own and on a database that many share: a topology table by
// differences, and the interfaces of the kernel.

#include "tools/igpfeed/Feed.h"
#include "schema/Types.h"
#include "tests/RunnerProcess.h"
#include "tests/StateBackends.h"
#include "tools/igpfeed/FeedDatabase.h"
#include "tools/igpfeed/FeedState.h"
#include "tools/igpfeed/Interfaces.h"
#include "tools/service/UnixSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <random>
#include <thread>
#include <unistd.h>

using namespace IgpFeed;
using Cspf::IgpRouterId;
using testing::ElementsAre;
using testing::Pair;

namespace {

/// The state of this process, and how much was written to it.
class LocalAccess : public ViewState {
 public:
   LocalAccess() : ViewState( view_ ) {
      Schema::registerTypes( types_ );
      for ( const char * directory : { "routing/topoDbExport", "segmentrouting/isis" } ) {
         state_.entityIs< Lum::Dir >( directory );
      }
   }
   void patch( const std::string & path, const Json & patch ) override {
      ViewState::patch( path, patch );
      ++patches;
   }

   Service::StateView & view() { return view_; }

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
         if ( round % 4 > 0 ) {
            wanted.hostnames[ Vrf( "red" ) ] = {
               { routerId( 1 ).isisSystemId(), "ams" },
               { routerId( 2 + round % 3 ).isisSystemId(), "r" + std::to_string( round % 5 ) } };
         }
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

/// One feed on a database, as `igpfeed isis --state` is.
struct SharedFeed {
   SharedFeed( Lum::ActivityLoop & loop, const RedisServer & server )
      : database( loop, Redis::parseUrl( server.url() ), "isis",
                  { [ this ]( Service::StateView & state ) {
                      access.emplace( state );
                      feed.emplace( *access, Cspf::IgpSource::isis );
                   },
                    []( const std::string & why ) { ADD_FAILURE() << why; } } ) {}
   std::optional< ViewState > access;
   std::optional< FeedState > feed;
   FeedDatabase database;
};

TEST( Feed, isTheTruthInADatabaseThatLosesWhatItWrote ) {
   if ( !RedisServer::isInstalled() ) {
      GTEST_SKIP() << "no redis-server here";
   }
   RedisServer server;
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   const auto comesTrue = [ & ]( auto holds ) {
      for ( const Lum::Seconds end = loop.now() + 60; !holds() && loop.now() < end; ) {
         loop.runOnce( 0.01 );
      }
      return holds();
   };
   const Vrf red( "red" );
   const TableId id{ { Cspf::IgpSource::isis, 2, 1 }, Kivnet::AddressFamily::ipv4, red };
   std::mt19937 random( 4 );
   FeedContent wanted;
   wanted.tables[ id ] = randomTable( random, 300 );
   wanted.adjacencies[ red ][ { Kivnet::IntfId( "e" ), routerId( 1 ).isisSystemId() } ] = {};
   wanted.systemIds[ red ] = routerId( 1 ).isisSystemId();
   auto first = std::make_unique< SharedFeed >( loop, server );
   ASSERT_TRUE( comesTrue( [ & ] { return first->feed.has_value(); } ) );
   first->feed->write( wanted );
   const Member reader( loop, &server );
   const std::string announcement = "e:routing/topoDbExport/" + id.name();
   const auto isThere = [ & ] {
      const Content content = reader.content();
      return content.size() == 4 && content.contains( announcement );
   };
   ASSERT_TRUE( comesTrue( isThere ) );
   const Content right = reader.content();
   // Who writes there by hand is refused, or overruled.
   EXPECT_THAT( server.cli( { "FCALL", "state_del", "1", "t:" + id.path() } ),
                testing::HasSubstr( "OWNED" ) );
   server.cli( { "FCALL", "state_del", "1", announcement } );
   EXPECT_TRUE( comesTrue( [ & ] {
      return server.cli( { "EXISTS", announcement } ) == "1\n"
             && server.cli( { "GET", "rev" } )
                   == std::to_string( reader.replica->status().revision ) + "\n";
   } ) );
   // A reader never misses what the feed writes again; the second reading spares nothing any more.
   server.kill();
   server.forget();
   server.start();
   bool missed = false;
   EXPECT_TRUE( comesTrue( [ & ] {
      missed = missed || !isThere();
      return reader.replica->status().resyncs >= 2;
   } ) );
   EXPECT_FALSE( missed );
   EXPECT_THAT( differences( reader.content(), right ), testing::IsEmpty() );
   // Another feed waits for the end of the first, and finds all that it wrote.
   SharedFeed second( loop, server );
   EXPECT_TRUE( comesTrue( [ & ] { return !second.database.replica().status().holder.empty(); } ) );
   EXPECT_FALSE( second.feed );
   first.reset();
   ASSERT_TRUE( comesTrue( [ & ] { return second.feed.has_value(); } ) );
   EXPECT_EQ( second.feed->standing(), wanted );
   EXPECT_THAT( differences( reader.content(), right ), testing::IsEmpty() );
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

/// Where a daemon listens; it answers with nothing.
class VtySocket {
 public:
   explicit VtySocket( const std::string & path ) : listener_( { path, "" } ) {
      listener_.open();
      server_ = std::jthread( [ this ]( const std::stop_token & stop ) {
         while ( !stop.stop_requested() ) {
            answerOne();
         }
      } );
   }

 private:
   static bool isReadable( int fd ) {
      pollfd ready{ fd, POLLIN, 0 };
      return poll( &ready, 1, 10 ) > 0;
   }
   void answerOne() const {
      const int caller = isReadable( listener_.fd() ) ? listener_.accept().socket : -1;
      if ( caller >= 0 ) {
         while ( !isReadable( caller ) ) {
         }
         EXPECT_EQ( write( caller, "\0\0\0\0", 4 ), 4 );
         close( caller );
      }
   }

   Service::Listener listener_;
   std::jthread server_;
};

/// What a daemon knows, where there is one.
struct Known {
   std::optional< VtySocket > daemon;
   std::string version = "0";
   Reading reading;

   /// A full mesh.
   void routersAre( unsigned count ) {
      Igp::Topology topology;
      topology.id = Cspf::TopoId::isisL2();
      topology.self = routerId( 1 );
      for ( unsigned from = 1; from <= count; ++from ) {
         Igp::Router & router = topology.routers[ routerId( from ) ];
         for ( unsigned to = 1; to <= count; ++to ) {
            if ( to != from ) {
               router.links.emplace_back().to = routerId( to );
            }
         }
      }
      Igp::Findings findings;
      Igp::pairLinks( topology, findings );
      reading.topologies = { topology };
      version += "+";
   }
};

class KnownDaemon : public Daemon {
 public:
   explicit KnownDaemon( const Known & known ) : known_( known ) {}
   std::string version( Vty & ) const override {
      return known_.daemon ? known_.version : throw VtyError( "gone" );
   }
   Reading read( Vty & ) const override { return known_.reading; }

 private:
   const Known & known_;
};

TEST( Feed, keepsForTheTimeOfGraceWhatADaemonSaidThatIsGone ) {
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::virtualTime );
   const TemporaryDirectory directory;
   LocalAccess access;
   Known known;
   const auto isThere = [ & ]( bool there ) {
      known.daemon.reset();
      if ( there ) {
         known.daemon.emplace( directory / "vty" );
      }
   };
   const TableId id{ Cspf::TopoId::isisL2(), Kivnet::AddressFamily::ipv4, Vrf::defaultVrf() };
   /// The routers of the table after that time; none where it is not announced.
   const auto routersAfter = [ & ]( Lum::Seconds seconds ) {
      loop.advance( seconds );
      return access.entity( "routing/topoDbExport" )[ "entity" ].contains( id.name() )
                ? access.entity( id.path() )[ "router" ].size()
                : 0;
   };
   known.routersAre( 3 );
   isThere( true );
   const Feed feed( loop, std::make_unique< KnownDaemon >( known ), Cspf::IgpSource::isis,
                    { "isis", directory / "vty", 0.1, 30 },
                    [ & ] { return std::make_unique< ViewState >( access.view() ); } );
   EXPECT_EQ( routersAfter( 1 ), 3U );
   known.routersAre( 4 );
   EXPECT_EQ( routersAfter( 1 ), 4U );
   isThere( false );
   EXPECT_EQ( routersAfter( 29 ), 4U );
   EXPECT_EQ( routersAfter( 2 ), 0U );
   EXPECT_TRUE( access.entity( id.path() )[ "router" ].empty() );
   isThere( true );
   EXPECT_EQ( routersAfter( 1 ), 4U );
   // One that was started again knows itself first, and is believed when it knows as much as
   // before; or after a time in which it had to find its neighbours.
   for ( const bool recovers : { true, false } ) {
      isThere( false );
      EXPECT_EQ( routersAfter( 20 ), 4U );
      known.routersAre( 1 );
      isThere( true );
      EXPECT_EQ( routersAfter( 80 ), 4U );
      known.routersAre( recovers ? 5 : 1 );
      EXPECT_EQ( routersAfter( 15 ), recovers ? 5U : 1U );
      known.routersAre( 4 );
      EXPECT_EQ( routersAfter( 1 ), 4U );
   }
}

/// A message of rtnetlink(7) about an interface.
class LinkMessage {
 public:
   LinkMessage( int index, const std::string & name, const std::string & linkInfo,
                unsigned char family = AF_UNSPEC ) {
      const ifinfomsg info{ .ifi_family = family,
                            .__ifi_pad = 0,
                            .ifi_type = ARPHRD_ETHER,
                            .ifi_index = index,
                            .ifi_flags = IFF_UP | IFF_RUNNING,
                            .ifi_change = 0 };
      bytes_.assign( reinterpret_cast< const char * >( &info ), sizeof info );
      bytes_ += attribute( IFLA_IFNAME, name + '\0' ) + attribute( IFLA_LINKINFO, linkInfo );
      const nlmsghdr header{ static_cast< std::uint32_t >( sizeof header + bytes_.size() ),
                             RTM_NEWLINK, 0, 0, 0 };
      bytes_.insert( 0, reinterpret_cast< const char * >( &header ), sizeof header );
   }
   static std::string attribute( unsigned short type, const std::string & value ) {
      const rtattr head{ static_cast< unsigned short >( sizeof head + value.size() ), type };
      std::string bytes( reinterpret_cast< const char * >( &head ), sizeof head );
      bytes += value;
      bytes.resize( RTA_ALIGN( bytes.size() ) );
      return bytes;
   }
   const nlmsghdr & message() const {
      return *reinterpret_cast< const nlmsghdr * >( bytes_.data() );
   }

 private:
   std::string bytes_;
};

TEST( Feed, countsAnAggregateForItsMembers ) {
   std::map< int, KernelLink > links;
   const auto heard = [ & ]( int index, const char * name, unsigned short which ) {
      links.insert( *readLink(
         LinkMessage( index, name, LinkMessage::attribute( which, std::string( "bond\0", 5 ) ) )
            .message() ) );
   };
   heard( 100, "po2", IFLA_INFO_KIND );
   heard( 101, "eth8", IFLA_INFO_SLAVE_KIND );
   // What a bridge says of its port is not what the port is.
   EXPECT_FALSE( readLink( LinkMessage( 102, "tap0", "", AF_BRIDGE ).message() ) );
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
      return name == "slow" ? 0 : name.starts_with( "po" ) ? 2500 : 1250;
   } );
   EXPECT_THAT( all.physical, ElementsAre( Pair( "eth0", 1250 ), Pair( "eth4", 1250 ) ) );
   EXPECT_THAT( all.aggregates, ElementsAre( Pair( "po1", 2500 ), Pair( "po2", 2500 ) ) );
}

}
