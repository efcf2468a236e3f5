// A program with an event loop of its own and the agent inside. It plays the IGP and a client: it
// writes a triangle of routers, asks for a path, prints what is published, cuts a link, and ends
// when the path has found its way round.

#include "platform/AgentRunner/InstalledLibrary.h"
#include "platform/AgentRunner/Runner.h"
#include "schema/CspfClient.h"
#include "schema/CspfStatus.h"
#include "schema/Topology.h"
#include "schema/Types.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

namespace Igp = Routing::Topology;

Kivnet::IpGenAddr
address( const std::string & text ) {
   return *Kivnet::IpGenAddr::parse( text );
}

Cspf::IgpRouterId
router( int number ) {
   return Cspf::IgpRouterId( Cspf::VertexType::isisRouter,
                             "0000.0000.000" + std::to_string( number ) );
}

/// The direction of a link that `from` announces. A link is used when both ends announce it.
Igp::NeighborKey
direction( int from, int to ) {
   Igp::NeighborKey key;
   key.routerIdIs( router( from ) );
   key.neighborTypeIs( Igp::p2p() );
   key.neighborIdIs( router( to ) );
   return key;
}

void
routerIs( Igp::TopoDb & table, int number ) {
   Igp::Router entry;
   entry.idIs( router( number ) );
   entry.teRouterIdIs( address( "10.0.0." + std::to_string( number ) ) );
   for ( int other = 1; other <= 3; ++other ) {
      if ( other != number ) {
         entry.neighborIs( direction( number, other ) );
      }
   }
   table.routerIs( entry.id(), entry );
}

void
directionIs( Igp::TopoDb & table, int from, int to, std::uint32_t metric ) {
   const auto of = [ & ]( int a, int b ) {
      return address( "10.1." + std::to_string( a + b ) + "." + std::to_string( a ) );
   };
   Igp::Neighbor entry;
   entry.keyIs( direction( from, to ) );
   entry.intfIdIs( Kivnet::IntfId( "to-" + std::to_string( to ) ) );
   entry.metricIs( metric );
   entry.interfaceAddrIs( 0, of( from, to ) );
   entry.neighborAddrIs( 0, of( to, from ) );
   table.neighborIs( entry.key(), entry );
}

/// Hears of what the agent publishes for one client.
class Listener : public Lum::Reactor {
 public:
   Listener( Lum::Ptr< Cspf::Status > status, std::function< void( std::size_t hops ) > heard )
      : status_( std::move( status ) ),
        heard_( std::move( heard ) ) {}
   const char * typeName() const override { return "Listener"; }
   void handleInitialized() override { LUM_WATCH_KEYS( status_, pathStatus, handlePathStatus ); }

 private:
   void handlePathStatus( const Cspf::PathKey & key ) {
      const Cspf::PathStatus & path = status_->pathStatus( key );
      std::cout << "path to " << key.dst().stringValue() << ":";
      for ( std::size_t i = 0; i < path.paths(); ++i ) {
         std::cout << " " << path.path( static_cast< std::uint8_t >( i ) ).stringValue();
      }
      std::cout << std::endl;
      heard_( path.paths() );
   }

   const Lum::Ptr< Cspf::Status > status_;
   const std::function< void( std::size_t ) > heard_;
};

/// Configuration, topology, request and client, in the order in which a router's processes would
/// write them. Gives the topology's table.
Lum::Ptr< Igp::TopoDb >
writeState( Corvdb::StateStore & state, Zorch::TableStore & tables ) {
   const auto te = state.entityIs< TrafficEngineering::Config >( "te/config" );
   te->routerIdIs( *Kivnet::IpAddr::parse( "10.0.0.1" ) );
   te->enabledIs( true );

   const auto topology =
      tables.mount< Igp::TopoDb >( "routing/isis/topodb/ip/2/default", Zorch::MountMode::writer );
   for ( int from = 1; from <= 3; ++from ) {
      routerIs( *topology, from );
      for ( int to = 1; to <= 3; ++to ) {
         if ( from != to ) {
            directionIs( *topology, from, to, from + to == 4 ? 15 : 10 );  // 1 to 3 is the dear one
         }
      }
   }

   Cspf::PathConfig request;
   Cspf::PathKey key;
   key.dstIs( Cspf::Destination( address( "10.0.0.3" ) ) );
   key.idIs( 1 );
   request.pathKeyIs( key );
   tables
      .mount< Cspf::Config >( "te/cspf/config/vrf/default/ipv4/example", Zorch::MountMode::writer )
      ->pathConfigIs( request );

   const auto client = Lum::make< Cspf::Client >();
   client->vrfIs( "default", true );
   client->addressFamilyIs( Kivnet::AddressFamily::ipv4, true );
   state.entityIs< Lum::Dir >( "te/cspf/client" )->entityIs( "example", client );
   return topology;
}

int
signals() {
   sigset_t set;
   sigemptyset( &set );
   sigaddset( &set, SIGINT );
   sigaddset( &set, SIGTERM );
   sigprocmask( SIG_BLOCK, &set, nullptr );
   return signalfd( -1, &set, SFD_CLOEXEC );
}

/// Milliseconds until the agent has something to do by itself; -1: nothing is due.
int
untilDeadline( const Lum::ActivityLoop & loop ) {
   const Lum::Seconds rest = loop.nextDeadline() - loop.now();
   return std::isinf( rest )
             ? -1
             : static_cast< int >( std::ceil( std::clamp( rest, 0.0, 3600.0 ) * 1000 ) );
}

int
run() {
   Corvdb::TypeRegistry types;
   Schema::registerTypes( types );
   Lum::ActivityLoop loop( Lum::ActivityLoop::Time::real );
   Corvdb::StateStore state( types );
   Zorch::TableStore tables( types );
   const AgentRunner::Library library( AgentRunner::installedLibrary( "libCspfAgent.so" ) );
   AgentRunner::Runner runner( loop, state, tables, library.factory(), "example" );

   const auto topology = writeState( state, tables );
   bool wanted = true;
   const auto listener = Lum::make< Listener >(
      tables.mount< Cspf::Status >( "te/cspf/status/vrf/default/ipv4/example",
                                    Zorch::MountMode::reader ),
      [ & ]( std::size_t hops ) {
         if ( hops == 1 ) {
            topology->neighborDel( direction( 1, 3 ) );  // one end is enough
         }
         wanted = hops != 2;
      } );
   runner.start();

   // The program's own loop: it waits for what is its own and for the agent together.
   pollfd ready[] = { { signals(), POLLIN, 0 }, { loop.epollFd(), POLLIN, 0 } };
   while ( wanted && !( ready[ 0 ].revents & POLLIN ) ) {
      if ( poll( ready, 2, untilDeadline( loop ) ) < 0 && errno != EINTR ) {
         return 1;
      }
      loop.runOnce( 0 );
   }
   close( ready[ 0 ].fd );
   runner.stop();
   return wanted ? 1 : 0;
}

}

int
main() {
   setenv( "VELOTRACE_DISABLE", "1", 0 );  // no trace ring in the working directory
   try {
      return run();
   } catch ( const AgentRunner::LibraryError & error ) {
      std::cerr << "embedding: " << error.what() << std::endl;
      return 1;
   }
}
