// Published paths of a running agent, in the words in which a lab's are told.

#include "tools/cspfctl/LivePaths.h"

#include "schema/Isis.h"
#include "tools/lab/LabRows.h"
#include "tools/prove/Answers.h"
#include "tools/prove/TeNetwork.h"
#include "tools/text/Table.h"

#include <algorithm>

namespace {

using Kivnet::IpGenAddr;
using Routing::Topology::TopoDb;

void
addNames( const TopoDb & table, const Routing::Isis::Hostnames & hostnames,
          Lab::RouterNames & names ) {
   const auto nameOf = [ & ]( const Cspf::IgpRouterId & id ) {
      return hostnames.hostname( id.isisSystemId() );
   };
   for ( const auto & [ id, router ] : table.routerColl() ) {
      if ( const std::string name = nameOf( id ); !name.empty() ) {
         names.nameIs( id.isisSystemId(), name );
         if ( router.teRouterId() ) {
            names.nameIs( router.teRouterId(), name );
         }
      }
   }
   for ( const auto & [ key, link ] : table.neighborColl() ) {
      for ( const auto & address : link.interfaceAddrList() ) {
         if ( const std::string name = nameOf( key.routerId() ); !name.empty() ) {
            names.nameIs( address, name );
         }
      }
   }
}

/// What a service's published hops cost in the network as it is.
class LiveCosts {
 public:
   LiveCosts( const Prove::Snapshot & state, const Prove::Service & service )
      : network_( state, service.vrf, service.af ),
        source_( Prove::teRouterIdOf( state ) ) {}

   /// Nothing where there is no path, or a hop has gone.
   std::optional< std::uint64_t > cost( const Prove::Answer & answer ) const {
      const auto & hops = answer.status->pathList();
      const auto & ids = answer.status->pathTeRouterIdList();
      const auto constraint = answer.config ? answer.config->constraint() : Cspf::PathConstraint();
      const bool fromNeighbor = constraint.sourceType() == Cspf::CspfSourceType::neighborOnLink;
      auto at = network_.node( fromNeighbor ? constraint.neighbor() : source_ );
      if ( hops.empty() ) {
         const auto & owners = network_.owners( answer.key.dst().ipAddress() );
         return at && owners.contains( *at ) ? std::optional< std::uint64_t >( 0 ) : std::nullopt;
      }
      std::uint64_t sum = 0;
      for ( std::size_t i = 0; i < std::min( hops.size(), ids.size() ); ++i ) {
         const auto ways =
            at ? network_.hop( *at, ids[ i ], hops[ i ] ) : std::vector< const Prove::Way * >();
         if ( ways.empty() ) {
            return std::nullopt;
         }
         sum += metric( ways, constraint.reversePath() );
         at = ways.front()->to;
      }
      return sum;
   }

 private:
   /// The least of those of one hop.
   static std::uint64_t metric( const std::vector< const Prove::Way * > & ways, bool backwards ) {
      std::uint64_t least = UINT64_MAX;
      for ( const Prove::Way * way : ways ) {
         const auto & link = backwards ? *way->back : *way->link;
         least = std::min< std::uint64_t >( least, link.teMetric().value_or( link.metric() ) );
      }
      return least;
   }

   const Prove::TeNetwork network_;
   const IpGenAddr source_;
};

void
addRows( const Prove::Snapshot & state, const Prove::Service & service, Text::Table & table ) {
   const Lab::VrfAf where{ service.vrf, service.af };
   const Lab::RouterNames names = liveNames( state, where );
   const LiveCosts costs( state, service );
   std::map< std::string, Lab::ClientOutcome > clients;
   for ( const Prove::Answer & answer : service.answers ) {
      const auto [ client, isNew ] = clients.try_emplace( answer.client );
      const auto status =
         state.get< Cspf::Status >( "te/cspf/status/vrf/" + where.text() + "/" + answer.client );
      if ( isNew && status ) {
         client->second.pqInfo = { status->pqInfoColl().begin(), status->pqInfoColl().end() };
      }
      Lab::Row row;
      row.destination = names.withText( answer.key.dst() );
      row.route = answer.error.empty() ? "no answer" : "no answer: " + answer.error;
      if ( answer.status ) {
         Lab::PathOutcome path;
         path.status = *answer.status;
         path.error = answer.error;
         if ( answer.client != Prove::tilfaClient ) {
            path.cost = costs.cost( answer );
         }
         row = Lab::rowOf( names, answer.client, path, client->second );
      }
      table.row( { where.vrf.stringValue(), Kivnet::text( where.af ), answer.client,
                   row.destination, std::to_string( answer.key.id() ), row.metric, row.route } );
   }
}

}

Lab::RouterNames
liveNames( const Prove::Snapshot & state, const Lab::VrfAf & where ) {
   Lab::RouterNames names;
   const auto hostnames =
      state.get< Routing::Isis::Hostnames >( "routing/isis/hostname/" + where.vrf.stringValue() );
   for ( const Prove::Topology & topology : Prove::topologiesOf( state, where.vrf, where.af ) ) {
      if ( hostnames && topology.id.igpSource() == Cspf::IgpSource::isis ) {
         addNames( *topology.table, *hostnames, names );
      }
   }
   return names;
}

void
printPaths( const Prove::Snapshot & state, std::ostream & out, unsigned width ) {
   Text::Table table(
      { "VRF", "FAMILY", "CLIENT", "DESTINATION", "ID", "METRIC", "HOPS OR PROTECTION" } );
   for ( const Prove::Service & service : Prove::servicesOf( state ) ) {
      addRows( state, service, table );
   }
   table.print( out, width );
}
