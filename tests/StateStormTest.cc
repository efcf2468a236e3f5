// One state, many processes: an agent, an IGP and three clients die at random and come back, while
// the database is killed with and without its data and cut off. In the end everybody has the same,
// it is what the writers wrote, and nobody was told of what had not changed.

#include "schema/CspfClient.h"
#include "schema/Topology.h"
#include "schema/TrafficEngineering.h"
#include "tests/SharedStateFixture.h"
#include "tests/StateBackends.h"
#include "tools/service/StateView.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using Service::Client;
using Service::Json;
using testing::IsEmpty;

namespace {

constexpr const char * topologyPath = "routing/isis/topodb/ip/2/default";
constexpr const char * steadyPath = "te/bwm/client/input/vrf/default/steady";
constexpr const char * busyPath = "te/bwm/client/input/vrf/default/busy";
constexpr Lum::Seconds pace = 0.02;
constexpr const char * clients[] = { "rsvp", "c2", "c3" };
constexpr const char *lastTopology = "last topology", *lastRequests = "last requests";

std::string
configOf( const std::string & client ) {
   return "te/cspf/config/vrf/default/ipv4/" + client;
}

std::string
statusOf( const std::string & client ) {
   return "te/cspf/status/vrf/default/ipv4/" + client;
}

/// The table of a member, made where it is missing.
template< class Table >
Lum::Ptr< Table >
tableOf( Member & member, const std::string & path ) {
   return Lum::cast< Table >( member.tables.alwaysIs( path, Table::lumTypeName ) );
}

/// What one writer's table holds in the end; random content before.
using Write = std::function< void( Member & member, std::mt19937 & random, bool isLast ) >;

/// A client that asks for ever other paths to D, now and then in a new table, and in the end for
/// ten, with `refreshReqSeq` 77.
void
writeRequests( Member & member, const std::string & name, std::mt19937 & random, bool isLast ) {
   const auto client = member.state.entityIs< Cspf::Client >( "te/cspf/client/" + name );
   client->vrfIs( L3::VrfName( "default" ), true );
   client->addressFamilyIs( Kivnet::AddressFamily::ipv4, true );
   if ( !isLast && random() % 10 == 0 ) {
      member.tables.cleanup( configOf( name ) );
   }
   const auto config = tableOf< Cspf::Config >( member, configOf( name ) );
   for ( std::uint32_t id = 1; id <= 20; ++id ) {
      Cspf::PathConfig request;
      request.pathKey_ = { Cspf::Destination( Kivnet::IpGenAddr( Kivnet::IpAddr( 0x0a000003 ) ) ),
                           id };
      request.refreshReqSeq_ = isLast ? 77 : static_cast< std::uint32_t >( random() % 5 );
      if ( isLast ? id <= 10 : random() % 2 == 0 ) {
         config->pathConfigIs( request );
      } else {
         config->pathConfigDel( request.pathKey() );
      }
   }
}

/// An IGP whose metrics are ever others, and in the end those of the topology.
void
writeTopology( Member & member, const Json & topology, std::mt19937 & random, bool isLast ) {
   const auto table = tableOf< Routing::Topology::TopoDb >( member, topologyPath );
   State::merge( *table, topology );
   for ( const auto & key : Lum::sortedKeys( table->neighborColl() ) ) {
      auto link = table->neighbor( key );
      link.metricIs( isLast ? link.metric() : 1 + random() % 50 );
      table->neighborIs( key, link );
   }
}

/// Uses of so many more interfaces.
void
writeUses( Member & member, const char * path, unsigned count ) {
   const auto table = tableOf< TrafficEngineering::BandwidthClientUsage >( member, path );
   for ( const std::size_t end = table->usageColl().size() + count;
         table->usageColl().size() < end; ) {
      const std::string number = std::to_string( table->usageColl().size() );
      table->usageIs( Kivnet::IntfId( "if" + number ), 1 );
   }
}

struct StateStormTest : SharedStateTest {
   void SetUp() override;
   void TearDown() override;

   /// A process that owns the paths and writes there all the time, until the file of that name is
   /// in the directory.
   pid_t startWriter( const std::vector< std::string > & paths, const std::string & last,
                      const Write & write ) const;
   void killOne();
   /// This process's members live for so long.
   void live( Lum::Seconds seconds );
   /// Nobody gets an answer for ten seconds, and this process makes 20,000 changes meanwhile.
   void cutOff();
   /// Everybody writes what is right, and no more: requests once the topology is right, since a
   /// path in use stays where it was while it is valid.
   void finish();
   /// Why not all is as it should be; empty: it is.
   std::string fault();
   std::string faultOfAgent( const Content & content );
   std::string faultOfClient( const std::string & client );
   /// What the agent has at the path; none while it does not answer.
   Json seenByAgent( const std::string & path ) const;
   bool isAgentThere() const { return !seenByAgent( "te/config" ).is_null(); }

   std::mt19937 random{ std::random_device()() };
   Lum::ActivityLoop loop{ Lum::ActivityLoop::Time::real };
   std::unique_ptr< RunnerProcess > agent;
   Json topology;
   std::vector< std::function< pid_t() > > starts;
   std::vector< pid_t > writers;
   std::unique_ptr< Member > keeper;  ///< writes what never changes, and the 20,000
   std::unique_ptr< Member > reader;  ///< sees all of it
   Lum::Ptr< Service::StateWatch > watch;
   std::vector< std::string > told;  ///< of what never changes
};

void
StateStormTest::SetUp() {
   SharedStateTest::SetUp();
   if ( IsSkipped() ) {
      return;
   }
   agent = run();
   loadSquare( *agent );
   topology = seenByAgent( topologyPath );
   topology.at( "neighbor" ).front().at( "metric" ) =
      11;  // tells the IGP's last from the operator's
   starts.push_back( [ this ] {
      return startWriter( { topologyPath }, lastTopology,
                          [ this ]( Member & member, auto & dice, bool isLast ) {
                             writeTopology( member, topology, dice, isLast );
                          } );
   } );
   for ( const std::string name : clients ) {
      starts.push_back( [ this, name ] {
         return startWriter( { configOf( name ), "te/cspf/client/" + name }, lastRequests,
                             [ name ]( Member & member, auto & dice, bool isLast ) {
                                writeRequests( member, name, dice, isLast );
                             } );
      } );
   }
   for ( const auto & start : starts ) {
      writers.push_back( start() );
   }
   keeper = std::make_unique< Member >( loop, &server );
   keeper->replica->leaseIs( { "te/bwm/client/input" }, false, {} );
   writeUses( *keeper, steadyPath, 1000 );
   reader = std::make_unique< Member >( loop, &server );
   Lum::Ptr< TrafficEngineering::BandwidthClientUsage > steady;
   ASSERT_TRUE( comesTrue( [ & ] {
      live( 0.01 );
      steady = Lum::cast< TrafficEngineering::BandwidthClientUsage >(
         reader->tables.table( steadyPath ) );
      return steady && steady->usageColl().size() == 1000;
   } ) );
   watch = Lum::make< Service::StateWatch >(
      steadyPath, steady, [ this ]( const Json & change ) { told.push_back( change.dump() ); } );
}

void
StateStormTest::TearDown() {
   for ( const pid_t writer : writers ) {
      kill( writer, SIGKILL );
      waitpid( writer, nullptr, 0 );
   }
}

pid_t
StateStormTest::startWriter( const std::vector< std::string > & paths, const std::string & last,
                             const Write & write ) const {
   const pid_t child = fork();
   if ( child != 0 ) {
      return child;
   }
   prctl( PR_SET_PDEATHSIG, SIGKILL );
   close_range( STDERR_FILENO + 1, ~0u, 0 );  // a connection ends with the one who made it
   Lum::ActivityLoop ownLoop( Lum::ActivityLoop::Time::real );
   Member member( ownLoop, &server );
   bool granted = false, done = false;
   member.replica->leaseIs( paths, true, { [ & ] { granted = true; } } );
   std::mt19937 dice( static_cast< unsigned >( getpid() ) );
   for ( Lum::Seconds next = 0;; ) {
      ownLoop.runOnce( pace );
      if ( granted && !done && ownLoop.now() >= next ) {
         next = ownLoop.now() + pace;
         done = access( ( directory / last ).c_str(), F_OK ) == 0;
         write( member, dice, done );
      }
   }
}

void
StateStormTest::killOne() {
   const std::size_t victim = random() % ( writers.size() + 1 );
   if ( victim == writers.size() ) {
      agent->end( SIGKILL );
      agent = run();
   } else {
      kill( writers[ victim ], SIGKILL );
      waitpid( writers[ victim ], nullptr, 0 );
      writers[ victim ] = starts[ victim ]();
   }
}

void
StateStormTest::live( Lum::Seconds seconds ) {
   for ( const Lum::Seconds end = loop.now() + seconds; loop.now() < end; ) {
      loop.runOnce( end - loop.now() );
   }
}

void
StateStormTest::cutOff() {
   EXPECT_TRUE( comesTrue( [ this ] {
      live( 0.01 );
      return isAgentThere();
   } ) );
   server.stopAndContinue( true );
   for ( int second = 0; second < 10; ++second ) {
      writeUses( *keeper, busyPath, 2000 );
      EXPECT_TRUE( isAgentThere() );  // it waits for nobody
      live( 1 );
   }
   server.stopAndContinue( false );
}

void
StateStormTest::finish() {
   // What nobody owns is the operator's to write again, once it is sure that the database lost it.
   EXPECT_TRUE( comesTrue( [ this ] {
      live( 0.01 );
      try {
         return Client( agent->socket() ).call( "status", {} )[ "state" ].value( "settled", false );
      } catch ( const std::runtime_error & ) {
         return false;
      }
   } ) );
   loadSquare( *agent );
   std::ofstream( directory / lastTopology ) << "\n";
   EXPECT_TRUE( comesTrue( [ this ] {
      live( 0.01 );
      return seenByAgent( topologyPath ) == topology;
   } ) );
   std::ofstream( directory / lastRequests ) << "\n";
}

Json
StateStormTest::seenByAgent( const std::string & path ) const {
   try {
      return Client( agent->socket() ).call( "get", { { "path", path } } )[ "value" ];
   } catch ( const std::runtime_error & ) {
      return {};
   }
}

std::string
StateStormTest::faultOfClient( const std::string & client ) {
   const auto valueAt = [ this ]( const std::string & path ) {
      const auto table = reader->tables.table( path );
      return table ? State::toJson( *table ) : Json::object();
   };
   if ( const Json requests = valueAt( configOf( client ) ).value( "pathConfig", Json() );
        requests.size() != 10 ) {
      return client + " asks for " + requests.dump();
   }
   const Json answers = valueAt( statusOf( client ) ).value( "pathStatus", Json() );
   std::size_t right = 0;
   for ( const Json & path : answers ) {
      right += path[ "refreshRespSeq" ] == 77 && !path[ "path" ].empty()
               && path[ "path" ].back() == "10.64.0.5";
   }
   return right == 10 && answers.size() == 10
             ? ""
             : client + " was given " + answers.dump() + ", the agent has "
                  + seenByAgent( statusOf( client ) ).dump();
}

std::string
StateStormTest::faultOfAgent( const Content & content ) {
   for ( const auto & [ key, value ] : content ) {
      const Json there = seenByAgent( key.substr( 2 ) );
      if ( there != value ) {
         return key + ": the agent has " + there.dump() + ", the database " + value.dump();
      }
   }
   return {};
}

std::string
StateStormTest::fault() {
   for ( const std::string client : clients ) {
      if ( const std::string why = faultOfClient( client ); !why.empty() ) {
         return why;
      }
   }
   const auto content = reader->content();
   const auto at = content.find( "t:" + std::string( topologyPath ) );
   if ( at == content.end() || at->second != topology ) {
      return "the topology is another one";
   }
   if ( const auto different = differences( keeper->content(), content ); !different.empty() ) {
      return "keeper and reader: " + different.front();
   }
   return faultOfAgent( content );
}

}

TEST_F( StateStormTest, whoeverDiesAllAgreeInTheEndAndThePathsAreRight ) {
   const char * const asked = std::getenv( "CSPF_STORM_DEATHS" );
   const int deaths = asked ? std::atoi( asked ) : 50;
   for ( int death = 1; death <= deaths; ++death ) {
      live( static_cast< double >( random() % 100 ) / 1000 );
      killOne();
      if ( death % 50 == 20 ) {
         server.kill();
         server.start();
      } else if ( death % 50 == 35 ) {
         server.kill();
         server.forget();
         server.start();
      }
   }
   cutOff();
   finish();
   const Lum::Seconds quiet = loop.now();
   std::string why;
   EXPECT_TRUE( comesTrue( [ & ] {
      live( 0.01 );
      why = fault();
      return why.empty();
   } ) )
      << why << "; the agent says " << log();
   RecordProperty( "secondsOfQuiet", std::to_string( loop.now() - quiet ) );
   const Member fresh( loop, &server );
   EXPECT_TRUE( comesTrue( [ & ] {
      live( 0.01 );
      return fresh.replica->isSettled();
   } ) );
   EXPECT_THAT( differences( fresh.content(), reader->content() ), IsEmpty() );
   EXPECT_THAT( told, IsEmpty() );
   EXPECT_GE( reader->replica->status().resyncs, 2u );
}
