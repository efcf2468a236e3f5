// The whole agent, driven in this process by a lab's state: what the measurements of the service
// have in common.

#include "bench/BenchAgent.h"

#include "Cspf/Agent/Agent.h"
#include "Cspf/Runs/ConstraintInfoSm.h"
#include "Cspf/Runs/Run.h"
#include "platform/Lum/Assert.h"
#include "platform/Lum/Blocks.h"
#include "schema/Types.h"

#include <cstdio>
#include <deque>
#include <malloc.h>
#include <random>

extern "C" AgentRunner::Agent * agentFactory( const char * name );

namespace {

constexpr const char * tablePath = "routing/isis/topodb/ip/2/default";

Kivnet::IpGenAddr
address( std::uint32_t value ) {
   return Kivnet::IpGenAddr( Kivnet::IpAddr( value ) );
}

Lab::LabLinkAttributes
attributesOf( const GeneratedNetwork::Link & link ) {
   Lab::LabLinkAttributes attributes;
   attributes.metric = link.metric;
   attributes.adminGroup = link.adminGroup;
   for ( const std::uint32_t srlg : link.srlgs ) {
      attributes.srlg.push_back( srlg );
   }
   attributes.bandwidth = 1e10F;
   attributes.unreserved.fill( link.unreserved );
   return attributes;
}

Lab::LabRouter
routerOf( std::uint32_t router ) {
   char id[ 32 ];
   std::snprintf( id, sizeof id, "0000.%04x.%04x", ( router + 1 ) >> 16, ( router + 1 ) & 0xffff );
   Lab::LabRouter record;
   record.id = Cspf::IgpRouterId( Cspf::VertexType::isisRouter, id );
   record.teRouterId = teRouterIdOf( router );
   return record;
}

}

std::size_t
heapInUse() {
   const struct mallinfo2 info = mallinfo2();
   return info.uordblks + info.hblkhd - Lum::freeBlockBytes();
}

std::string
routerName( std::uint32_t router ) {
   char name[ 16 ];
   std::snprintf( name, sizeof name, "r%06u", router );
   return name;
}

Kivnet::IpGenAddr
teRouterIdOf( std::uint32_t router ) {
   return address( 0x01000001 + router );
}

Lab::LabDocument
labOf( const GeneratedNetwork & network ) {
   Lab::LabDocument document;
   document.router = routerName( 0 );
   document.te.routerId = teRouterIdOf( 0 ).v4();
   document.throttle = { 50, 200, 5000 };
   Lab::LabTopology & topology = document.topologies[ "net" ];
   topology.id = Cspf::TopoId::isisL2();
   for ( std::uint32_t router = 0; router < network.routers; ++router ) {
      topology.routers[ routerName( router ) ] = routerOf( router );
   }
   for ( std::uint32_t i = 0; i + 1 < network.links.size(); i += 2 ) {
      const auto & there = network.links[ i ];
      const std::string name = "l" + std::to_string( i / 2 );
      Lab::LabLink & link = topology.links[ name ];
      link.a = {
         routerName( there.from ), Kivnet::IntfId( name + ".a" ), { address( 0x0a000000 + i ) } };
      link.b = {
         routerName( there.to ), Kivnet::IntfId( name + ".b" ), { address( 0x0a000001 + i ) } };
      link.ab.attributes = attributesOf( there );
      link.ba.attributes = attributesOf( network.links[ i + 1 ] );
   }
   return document;
}

Lab::LabDocument
requestsOf( const GeneratedNetwork & network, const std::string & client, std::uint32_t paths,
            const std::function< void( std::uint32_t, Lab::LabConstraint & ) > & constrain ) {
   Lab::LabDocument document = labOf( network );
   document.clients[ client ] = {
      { { Lab::Vrf::defaultVrf(), true } }, { { Lab::Af::ipv4, true } }, false };
   std::mt19937 random( 5 );
   for ( std::uint32_t n = 0; n < paths; ++n ) {
      Lab::LabPath & path = document.paths[ client ][ "p" + std::to_string( n ) ];
      path.dst = Cspf::Destination( teRouterIdOf( 1 + random() % ( network.routers - 1 ) ) );
      path.id = n;
      constrain( n, path.constraint );
   }
   return document;
}

BenchAgent::BenchAgent() : runner_( loop_, state_, tables_, agentFactory, "CspfAgent" ) {
   Schema::registerTypes( types_ );
   setenv( "VELOTRACE_DISABLE", "1", 1 );
   runner_.start();
   settle();
}

BenchAgent::~BenchAgent() {
   runner_.stop();
}

void
BenchAgent::settle() {
   LUM_ASSERT( loop_.settle() );
}

Lum::Ptr< Routing::Topology::TopoDb >
BenchAgent::topology() const {
   return Lum::cast< Routing::Topology::TopoDb >( tables_.table( tablePath ) );
}

Lum::Ptr< const Cspf::Status >
BenchAgent::status( const std::string & client ) const {
   return Lum::cast< const Cspf::Status >(
      tables_.table( "te/cspf/status/vrf/default/ipv4/" + client ) );
}

std::uint64_t
BenchAgent::runs() const {
   const auto table = Lum::cast< const Cspf::ConstraintStatusTable >(
      tables_.table( "te/cspf/constraintStatus/vrf/default/ipv4" ) );
   std::uint64_t count = 0;
   if ( table ) {
      for ( const auto & [ serial, status ] : table->constraintStatusColl() ) {
         count += status->cspfCount();
      }
   }
   return count;
}

Lum::Ptr< Cspf::VrfRoot >
BenchAgent::vrfRoot() const {
   const auto agent = Lum::cast< Cspf::Agent >( runner_.agent() );
   return agent->v4CspfRoot()->vrfRoot( L3::VrfName::defaultVrf() );
}

void
BenchAgent::followingIs( bool following ) const {
   vrfRoot()->runMemory().sharedLabels().enabledIs( following );
}

BenchAgent::FirstFollowing
BenchAgent::followAll() const {
   const auto root = vrfRoot();
   Cspf::SharedLabels shared;
   std::deque< Cspf::KeptAnswers > kept;
   const auto follow = [ & ]( const auto & handle ) {
      const auto & view = root->constraintInfoSm( handle )->view();
      if ( Cspf::KeptAnswers::suits( view->constraint() ) ) {
         kept.emplace_back().follow( *view, view->spfRoot(), shared );
      }
   };
   const auto & all = root->constraintInfoTable()->constraintInfoColl();
   follow( all.begin()->first );  // memory that serves all is not counted
   const std::size_t before = heapInUse();
   const double took = cpuMilliseconds( [ & ]() {
      for ( const auto & [ handle, info ] : all ) {
         follow( handle );
      }
   } );
   return { took, heapInUse() - before };
}

void
BenchAgent::runAll() const {
   const auto root = vrfRoot();
   for ( const auto & [ handle, info ] : root->constraintInfoTable()->constraintInfoColl() ) {
      const auto & view = root->constraintInfoSm( handle )->view();
      const auto data = Lum::make< Cspf::CspfData >();
      data->sourceIs( view->spfRoot() );
      data->useTeMetricIs( true );
      for ( const auto & [ key, uses ] : info->pathColl() ) {
         data->tepIs( key.pathKey().dst().ipAddress() );
      }
      Cspf::CspfRun( root->runMemory(), *data, view );
      root->runMemory().reclaim( *data );
   }
}
