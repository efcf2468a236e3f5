// The whole chain on real routers: routing daemons, the feed, the agent. What the agent publishes
// must be what the routers themselves forward by, at rest and after each thing that happens to a
// network. A test waits for that with a patience that only a broken program outlasts.

#include "tests/RedisServer.h"
#include "tests/RouterNetwork.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <unistd.h>

using Service::Client;
using Service::Json;

namespace {

constexpr const char * planner = "planner";
const std::string configs = "te/cspf/config/vrf/default/ipv4/";
const std::string statuses = "te/cspf/status/vrf/default/ipv4/";

bool
comesTrue( const std::function< bool() > & holds ) {
   for ( int i = 0; i < 1200; ++i ) {
      if ( holds() ) {
         return true;
      }
      usleep( 100'000 );
   }
   return false;
}

/// The metrics of the hops as the topology table has them, from r1 on; -1 where a hop is none.
long
costOf( const Json & table, const Json & hops, std::string at ) {
   long cost = 0;
   for ( const std::string hop : hops ) {
      long step = -1;
      std::string next, lan;
      for ( const Json & link : table[ "neighbor" ] ) {
         if ( link[ "interfaceAddr" ].dump().find( "\"" + hop + "\"" ) != std::string::npos ) {
            const std::string key = link[ "key" ];
            next = key.substr( 0, key.find( ' ' ) );
            lan = key.find( " lan " ) == key.npos ? "" : key.substr( key.find( " lan " ) );
         }
      }
      for ( const Json & link : table[ "neighbor" ] ) {
         const std::string key = link[ "key" ];
         const bool leads = lan.empty() ? link[ "neighborAddr" ].dump().find( "\"" + hop + "\"" )
                                             != std::string::npos
                                        : key.ends_with( lan );
         if ( key.starts_with( at + " " ) && leads ) {
            step = link[ "metric" ];
         }
      }
      if ( step < 0 ) {
         return -1;
      }
      cost += step;
      at = next;
   }
   return cost;
}

/// An agent for r1 that feeds keep current: over its socket, or where one is given over a database.
class Chain {
 public:
   Chain( const RouterNetwork & network, const std::string & igp,
          const RedisServer * database = nullptr );

   /// What stands there; nothing where nothing does.
   Json at( const std::string & path ) {
      try {
         return state_.call( "get", { { "path", path } } )[ "value" ];
      } catch ( const std::runtime_error & ) {
         return Json::object();
      }
   }
   Json published( const std::string & name = planner ) { return at( statuses + name ); }
   Json table() { return table( igp_ == "isis" ? "2/0" : "0/0", "default" ); }
   /// `numbers`: level and area, or process and area.
   Json table( const std::string & numbers, const std::string & vrf ) {
      return at( "routing/" + igp_ + "/topodb/ip/" + numbers + "/" + vrf );
   }
   void patch( const std::string & path, const Json & patch ) {
      state_.call( "patch", { { "path", path }, { "patch", patch } } );
   }
   /// Why the paths are not what the router's own routes are; empty where they are.
   std::string differenceTo( const std::map< std::string, RouterRoute > & routes, unsigned last );

 private:
   const std::string igp_, self_;
   TemporaryDirectory directory_;
   RunnerProcess runner_;
   const std::vector< std::string > where_;
   Background feed_, interfaces_;
   Client state_;
};

Chain::Chain( const RouterNetwork & network, const std::string & igp, const RedisServer * database )
   : igp_( igp ),
     self_( igp == "isis" ? "0000.0000.0001" : "10.0.0.1" ),
     runner_( directory_, database ? std::vector< std::string >{ "--state", database->url() }
                                   : std::vector< std::string >() ),
     where_( database ? std::vector< std::string >{ "--state", database->url() }
                      : std::vector< std::string >{ "--socket", runner_.socket() } ),
     feed_( "igpfeed", { igp, "--vty-dir", network.vtyDirectory( "r1" ), where_[ 0 ], where_[ 1 ] },
            directory_ / "feed" ),
     interfaces_( "/usr/sbin/ip",
                  { "netns", "exec", network.namespaceOf( "r1" ), CSPF_BINARY_DIR "/bin/igpfeed",
                    "interfaces", where_[ 0 ], where_[ 1 ] },
                  directory_ / "interfaces" ),
     state_( runner_.socket() ) {
   // An agent on a database is there when the database has let it in.
   EXPECT_TRUE( comesTrue( [ & ] { return at( "te/config" ).contains( "enabled" ); } ) );
   patch( "te/config", { { "enabled", true }, { "routerId", "10.0.0.1" } } );
   const Json served = { { "vrf", { { "default", true } } },
                         { "addressFamily", { { "ipv4", true } } } };
   for ( const char * name : { planner, "tilfa" } ) {
      patch( "te/cspf/client",
             { { "entity", { { name, { { "type", "Cspf::Client" }, { "value", served } } } } } } );
   }
   Json paths = Json::object();
   for ( int n = 2; n <= 6; ++n ) {
      paths[ "10.0.0." + std::to_string( n ) + "#1" ] = Json::object();
   }
   patch( configs + planner, { { "pathConfig", paths } } );
}

/// `last`: what the routers add for the loopback itself.
std::string
Chain::differenceTo( const std::map< std::string, RouterRoute > & routes, unsigned last ) {
   const Json rows = table();
   std::string differences;
   for ( const auto & [ key, path ] : published()[ "pathStatus" ].items() ) {
      const std::string to = key.substr( 0, key.find( '#' ) );
      const Json & hops = path[ "path" ];
      const auto route = routes.find( to );
      const bool overloaded = std::ranges::any_of( rows[ "router" ], [ & ]( const Json & router ) {
         return router[ "teRouterId" ] == to && router[ "overload" ] == true;
      } );
      if ( route == routes.end() || overloaded ) {  // a path does not end at an overloaded router
         differences += hops.empty() ? "" : to + " should have no path; ";
      } else if ( hops.empty() || !route->second.nextHops.contains( hops[ 0 ] )
                  || costOf( rows, hops, self_ ) + last != route->second.cost ) {
         differences += to + ": " + hops.dump() + " at "
                        + std::to_string( costOf( rows, hops, self_ ) ) + ", route at "
                        + std::to_string( route->second.cost ) + "; ";
      }
   }
   return differences;
}

class RealRouters : public testing::Test {
 protected:
   void SetUp() override {
      if ( const std::string missing = RouterNetwork::missing(); !missing.empty() ) {
         GTEST_SKIP() << "no network of real routers here: it needs " << missing;
      }
   }

   /// Waits until the routers say `holds` of their routes, and the paths are the same.
   void
   follows( const std::string & what,
            const std::function< bool( const std::map< std::string, RouterRoute > & ) > & holds ) {
      SCOPED_TRACE( what );
      std::string difference = "the routers do not come to it";
      EXPECT_TRUE( comesTrue( [ & ] {
         const auto routes = this->routes();
         difference = holds( routes ) ? chain->differenceTo( routes, lastMetric ) : difference;
         return difference.empty();
      } ) )
         << difference;
      std::cout << "followed: " << what << std::endl;
   }

   /// No path is lost while r1's daemon is killed, started again, and finds its network.
   void survivesRestart(
      const std::string & daemon,
      const std::function< bool( const std::map< std::string, RouterRoute > & ) > & holds ) {
      network->kill( "r1", daemon );
      EXPECT_TRUE( comesTrue( [ & ] { return routes().empty(); } ) );
      network->start( "r1", daemon );
      std::string lost;
      EXPECT_TRUE( comesTrue( [ & ] {
         for ( const auto & [ key, path ] : chain->published()[ "pathStatus" ].items() ) {
            lost += path[ "path" ].empty() ? key + " " : "";
         }
         return holds( routes() );
      } ) );
      follows( daemon + " killed and started again", holds );
      EXPECT_EQ( lost, "" );
   }

   /// Waits until a VRF of r1, which is a router of its own, has a table of so many routers: the
   /// one that r1 itself has, where `isShared`.
   void followsVrf( const std::string & numbers, std::size_t routers, bool isShared ) {
      Json rows;
      EXPECT_TRUE( comesTrue( [ & ] {
         rows = chain->table( numbers, "red" ).value( "router", Json() );
         return rows.size() == routers
                && ( !isShared || rows == chain->table( numbers, "default" )[ "router" ] );
      } ) )
         << rows;
      EXPECT_THAT( chain->at( "routing/topoDbExport" ).dump(), testing::HasSubstr( "-ipv4-red" ) );
      std::cout << "followed: VRF red, " << numbers << std::endl;
   }

   std::unique_ptr< RouterNetwork > network;
   std::unique_ptr< Chain > chain;
   std::function< std::map< std::string, RouterRoute >() > routes;
   unsigned lastMetric = 0;
};

auto
all( std::size_t count, unsigned costOfR4, unsigned costOfR3 ) {
   return [ = ]( const std::map< std::string, RouterRoute > & routes ) {
      const auto cost = [ & ]( const char * to ) {
         const auto at = routes.find( to );
         return at == routes.end() ? 0 : at->second.cost;
      };
      return routes.size() == count && cost( "10.0.0.4" ) == costOfR4
             && cost( "10.0.0.3" ) == costOfR3;
   };
}

/// The repair nodes of the routers' own repairs, as r1's tilfa client should get them.
std::string
repairDifference( RouterNetwork & network, Chain & chain,
                  const std::vector< int > & destinations ) {
   std::string differences;
   const auto labels = network.repairLabels();
   const Json published = chain.published( "tilfa" );
   for ( const int n : destinations ) {
      const std::string id = "0000.0000.000" + std::to_string( n );
      const auto own = labels.find( "10.0.0." + std::to_string( n ) );
      Json expected = Json::array();
      for ( const unsigned label : own == labels.end() ? std::vector< unsigned >() : own->second ) {
         if ( label != 16000U + static_cast< unsigned >( n ) ) {
            expected.push_back( "0000.0000.000" + std::to_string( label - 16000 ) );
         }
      }
      const Json status = published[ "pathStatus" ].value( id + "#1", Json::object() );
      const Json repair =
         published[ "pqInfo" ].value( status.value( "repairPathIdx", Json( 0 ) ).dump(), Json() );
      if ( own == labels.end() || repair.is_null() || repair[ "path" ] != expected ) {
         differences += id + ": " + repair.dump() + ", routers have " + expected.dump() + "; ";
      }
   }
   return differences;
}

/// r1's repairs are those of its own daemon where both protect against the same.
void
expectRepairs( RouterNetwork & network, Chain & chain ) {
   Json repairs = Json::object();
   const auto repair = [ & ]( int to, const char * intf, const char * near, const char * far ) {
      repairs[ "0000.0000.000" + std::to_string( to ) + "#1" ] = {
         { "constraint",
           { { "excludeIntf", intf },
             { "neighborLink", near },
             { "neighbor", far },
             { "pathComputationType", "tilfa" },
             { "sourceType", "plr" } } } };
   };
   repair( 4, "l14", "10.1.4.1", "10.0.0.4" );
   for ( const int to : { 2, 3, 6 } ) {
      repair( to, "l12a", "10.1.1.1", "10.0.0.2" );
   }
   chain.patch( configs + "tilfa", { { "pathConfig", repairs } } );
   network.interfaceIs( "r1", "l12b", false );  // else the parallel link protects, in our words
   std::string difference;
   EXPECT_TRUE( comesTrue( [ & ] {
      difference = chain.table()[ "neighbor" ].dump().find( "10.1.2.1" ) != std::string::npos
                      ? "l12b is still there"
                      : repairDifference( network, chain, { 2, 3, 4, 6 } );
      return difference.empty();
   } ) )
      << difference;
   network.interfaceIs( "r1", "l12b", true );
}

TEST_F( RealRouters, AreFollowedThroughIsis ) {
   network = std::make_unique< RouterNetwork >();
   chain = std::make_unique< Chain >( *network, "isis" );
   routes = [ this ] { return network->isisRoutes(); };
   lastMetric = 10;
   follows( "all routers", all( 5, 20, 30 ) );

   expectRepairs( *network, *chain );

   network->interfaceIs( "r2", "l23", false );
   follows( "a link cut", all( 5, 20, 40 ) );
   network->interfaceIs( "r2", "l23", true );
   follows( "the link back", all( 5, 20, 30 ) );
   network->configure( "r1", "isisd", { "interface l14", "isis metric 50" } );
   follows( "a metric", all( 5, 40, 30 ) );
   network->configure( "r1", "isisd", { "interface l14", "isis metric 10" } );
   network->configure( "r2", "isisd", { "router isis core", "set-overload-bit" } );
   follows( "an overload bit", []( const auto & routes ) {
      return routes.contains( "10.0.0.3" )
             && routes.at( "10.0.0.3" ).nextHops.contains( "10.1.4.4" );
   } );
   network->configure( "r2", "isisd", { "router isis core", "no set-overload-bit" } );
   follows( "the overload over", all( 5, 20, 30 ) );
   network->kill( "r4", "isisd" );
   follows( "a router gone", []( const auto & routes ) { return routes.size() == 4; } );
   network->start( "r4", "isisd" );
   follows( "the router back", all( 5, 20, 30 ) );
   network->kill( "r6", "isisd" );
   follows( "the designated router of the LAN gone",
            []( const auto & routes ) { return routes.size() == 4; } );
   network->start( "r6", "isisd" );
   follows( "and back", all( 5, 20, 30 ) );

   survivesRestart( "isisd", all( 5, 20, 30 ) );
   chain.reset();
   EXPECT_EQ( network->down(), "" );
}

TEST_F( RealRouters, AreFollowedThroughOspf ) {
   const RedisServer server;
   network = std::make_unique< RouterNetwork >( true );
   chain =
      std::make_unique< Chain >( *network, "ospf", RedisServer::isInstalled() ? &server : nullptr );
   routes = [ this ] { return network->ospfRoutes(); };
   follows( "all routers", all( 5, 10, 20 ) );
   for ( const unsigned bandwidth : { 1'250'000'000, 0 } ) {  // as the kernel gives it
      EXPECT_TRUE( comesTrue( [ & ] {
         const Json status = chain->at( "interface/status/eth/phy/all" );
         return status.value( "bandwidth", Json::object() ).value( "l12b", 0U ) == bandwidth;
      } ) );
      network->interfaceIs( "r1", "l12b", bandwidth == 0 );
   }
   network->interfaceIs( "r2", "l23", false );
   follows( "a link cut", all( 5, 10, 30 ) );
   network->interfaceIs( "r2", "l23", true );
   follows( "the link back", all( 5, 10, 20 ) );
   network->configure( "r1", "ospfd", { "interface l14", "ip ospf cost 50" } );
   follows( "a metric", all( 5, 30, 20 ) );
   network->configure( "r1", "ospfd", { "interface l14", "ip ospf cost 10" } );
   network->kill( "r6", "ospfd" );
   follows( "the designated router of the LAN gone",
            []( const auto & routes ) { return routes.size() == 4; } );
   network->start( "r6", "ospfd" );
   follows( "and back", all( 5, 10, 20 ) );
   network->configure( "r2", "ospfd", { "router ospf", "max-metric router-lsa administrative" } );
   follows( "the largest metrics, for overload", []( const auto & routes ) {
      return routes.contains( "10.0.0.3" )
             && routes.at( "10.0.0.3" ).nextHops.contains( "10.1.4.4" );
   } );
   network->configure( "r2", "ospfd",
                       { "router ospf", "no max-metric router-lsa administrative" } );
   follows( "the overload over", all( 5, 10, 20 ) );
   survivesRestart( "ospfd", all( 5, 10, 20 ) );

   for ( const char * router : { "r1", "r4" } ) {
      network->configure( router, "ospfd",
                          { "interface l14", "no ip ospf area 0.0.0.0", "ip ospf area 0.0.0.1" } );
   }
   follows( "a link in another area", all( 5, 30, 20 ) );
   network->configure( "r1", "ospfd",
                       { "router ospf vrf red", "ospf router-id 10.0.0.9", "capability opaque",
                         "exit", "interface lred vrf red", "ip ospf area 0.0.0.1",
                         "ip ospf hello-interval 1", "ip ospf dead-interval 4",
                         "ip ospf network point-to-point" } );
   followsVrf( "0/1", 3, true );
   follows( "all as before", all( 5, 30, 20 ) );
   // Through IS-IS, of which the VRF and r4 are in both levels.
   chain.reset();
   chain = std::make_unique< Chain >( *network, "isis" );
   network->configure( "r1", "isisd",
                       { "router isis red vrf red", "net 49.0001.0000.0000.0009.00",
                         "metric-style wide", "exit", "interface lred vrf red",
                         "ip router isis red", "isis network point-to-point",
                         "isis hello-interval 1" } );
   followsVrf( "1/0", 2, false );
   followsVrf( "2/0", 7, true );
   chain.reset();
   EXPECT_EQ( network->down(), "" );
}

}
