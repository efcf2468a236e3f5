// The fixture of end-to-end tests. It reaches the agent through its factory and through state, as
// the runner and the clients do.

#include "tests/Lab.h"

#include "schema/Types.h"
#include "tests/LabText.h"
#include "tools/lab/LabFile.h"
#include "tools/lab/LabObserve.h"
#include "tools/lab/LabPublished.h"
#include "tools/lab/LabRecords.h"
#include "tools/service/CommandStream.h"
#include "tools/service/StateView.h"

#include <gtest/gtest.h>

#include <cstdlib>

extern "C" AgentRunner::Agent * agentFactory( const char * name );

namespace {

using Json = TestLab::Json;

Json
textDocument( std::string_view topology, const Json & more ) {
   const Json client{ { "vrf", { { "default", true } } },
                      { "addressFamily", { { "ipv4", true } } } };
   Json document{ { "router", "A" },
                  { "topologies", { { "core", labTopology( topology ) } } },
                  { "clients", { { "cli", client }, { "rsvp", client } } } };
   document.merge_patch( more );
   return document;
}

}

TestLab::TestLab( std::string_view topology, const Json & more )
   : TestLab( Whole(), textDocument( topology, more ) ) {}

TestLab::TestLab( Whole, Json document ) {
   setenv( "VELOTRACE_DISABLE", "1", 1 );
   std::srand( 1 );
   Schema::registerTypes( types_ );
   documentIs( std::move( document ) );
   Lab::leavePublished( document_.published, state_, tables_ );
   runner_ = std::make_unique< AgentRunner::Runner >( loop_, state_, tables_, ::agentFactory,
                                                      "CspfAgent" );
   start();
}

TestLab::~TestLab() = default;

// ---- Events ----

void
TestLab::documentIs( Json document ) {
   document_ = Lab::LabFile::parse( document.dump() ).document();
   json_ = std::move( document );
   writer_.write( document_ );
}

void
TestLab::patch( const Json & patch ) {
   Json document = json_;
   document.merge_patch( patch );
   documentIs( std::move( document ) );
}

void
TestLab::request( const std::string & client, const std::string & name, const std::string & dst,
                  const Json & constraint, const Json & more ) {
   Json path{ { "dst", dst }, { "constraint", constraint } };
   for ( const Json & topology : json_[ "topologies" ] ) {
      if ( const auto router = topology[ "routers" ].find( dst );
           router != topology[ "routers" ].end() ) {
         path[ "dst" ] = router->at( client == Lab::tilfaClient ? "id" : "teRouterId" );
         break;
      }
   }
   path.update( more );
   Json document = json_;
   document[ "paths" ][ client ][ name ] = std::move( path );
   documentIs( std::move( document ) );
}

void
TestLab::withdraw( const std::string & client, const std::string & name ) {
   patch( { { "paths", { { client, { { name, nullptr } } } } } } );
}

void
TestLab::link( const std::string & name, const Json & change ) {
   patch( { { "topologies", { { "core", { { "links", { { name, change } } } } } } } } );
}

void
TestLab::restart() {
   Lab::killAndStart( *runner_, state_, tables_ );
}

void
TestLab::settle() {
   if ( !loop_.settle( 100'000 ) ) {
      Json busy = runner_->taskScheduler()->pendingNames();
      ADD_FAILURE() << "the agent does not rest: " << busy;
   }
}

// ---- What can be seen ----

const Lab::LabPath &
TestLab::pathOf( const std::string & client, const std::string & name ) const {
   return document_.paths.at( client ).at( name );
}

Lum::Ptr< Cspf::Status >
TestLab::statusTable( const std::string & client, const std::string & vrf,
                      Kivnet::AddressFamily af ) const {
   const Lab::ClientTable table{ client, L3::VrfName( vrf ), af };
   return Lum::cast< Cspf::Status >( tables_.table( table.statusPath() ) );
}

const Cspf::PathStatus *
TestLab::status( const std::string & client, const std::string & name ) const {
   const Lab::LabPath & path = pathOf( client, name );
   const auto table = statusTable( client, path.vrf.stringValue(), path.af );
   return table ? table->pathStatusFind( { path.dst, path.id } ) : nullptr;
}

std::string
TestLab::error( const std::string & client, const std::string & name ) const {
   const Lab::LabPath & path = pathOf( client, name );
   const auto table = statusTable( client, path.vrf.stringValue(), path.af );
   return table ? std::string( table->pathError( { path.dst, path.id } ) ) : std::string();
}

std::string
TestLab::path( const std::string & client, const std::string & name ) const {
   const Cspf::PathStatus * published = status( client, name );
   if ( !published || published->pathTeRouterIdList().empty() ) {
      return {};
   }
   std::map< Kivnet::IpGenAddr, std::string > names;
   for ( const auto & [ topologyName, topology ] : document_.topologies ) {
      for ( const auto & [ routerName, router ] : topology.routers ) {
         names[ router.teRouterId ] = routerName;
      }
   }
   std::string routers = document_.router;
   for ( const auto & teRouterId : published->pathTeRouterIdList() ) {
      routers += " " + names[ teRouterId ];
   }
   return routers;
}

std::optional< std::uint64_t >
TestLab::cost( const std::string & client, const std::string & name ) const {
   const auto outcome = this->outcome();
   const Lab::LabPath & path = pathOf( client, name );
   for ( const auto & published :
         outcome.clients.at( client ).at( { path.vrf, path.af } ).pathStatus ) {
      if ( published.name == name ) {
         return published.cost;
      }
   }
   return std::nullopt;
}

std::uint32_t
TestLab::runs( const std::string & client, const std::string & name ) const {
   std::uint32_t count = 0;
   const Lab::LabPath & path = pathOf( client, name );
   const Cspf::PathKey key{ path.dst, path.id };
   const auto table = Lum::cast< Cspf::ConstraintStatusTable >( tables_.table(
      "te/cspf/constraintStatus/vrf/" + path.vrf.stringValue() + "/" + Kivnet::text( path.af ) ) );
   for ( const auto & [ number, constraint ] : table->constraintStatusColl() ) {
      for ( const auto & [ user, users ] : constraint->pathColl() ) {
         if ( user.clientName() == client && user.pathKey() == key ) {
            count += constraint->cspfCount();
            break;
         }
      }
   }
   return count;
}

std::uint32_t
TestLab::runs() const {
   std::uint64_t count = 0;
   for ( const auto & constraint : outcome().constraints ) {
      count += constraint.cspfCount;
   }
   return static_cast< std::uint32_t >( count );
}

Lab::Outcome
TestLab::outcome() const {
   return Lab::observe( document_, state_, tables_, loop_.now() - Lum::VirtualClock::start );
}

Json
TestLab::snapshot() const {
   struct Text : State::TextSink {
      void text( std::string_view piece ) override { all += piece; }
      std::string all;
   } text;
   Service::StateView( state_, tables_ ).get( "", text );
   return State::Json::parse( text.all );
}

std::string
TestLab::dump() {
   const Service::CommandStream stream;
   runner_->command( "CspfDump", stream.fd(), "DUMP_CSPF_STATE" );
   std::string text;
   stream.forEachPiece( [ & ]( std::string_view piece ) { text += piece; } );
   return text;
}
