#include "tools/igp/TopologyTable.h"

namespace Igp {

namespace {

namespace Rows = Routing::Topology;

/// A record has room for so many; the first ones stand for the link.
template< class List >
void
pushAll( List & list, const Addresses & addresses ) {
   for ( std::size_t i = 0; i < addresses.size() && i <= Rows::AddrIndex::max; ++i ) {
      list.push( addresses[ i ] );
   }
}

Rows::Neighbor
recordOf( const Cspf::IgpRouterId & owner, const LinkEnd & link ) {
   Rows::Neighbor record;
   record.keyIs( { owner, link.lan ? Rows::lan() : Rows::p2p(), link.to, link.linkId } );
   record.intfIdIs( Kivnet::IntfId( link.intf ) );
   pushAll( record.interfaceAddr_, link.local );
   if ( !link.lan ) {
      pushAll( record.neighborAddr_, link.remote );
   }
   record.metricIs( link.metric );
   record.teMetricIs( link.te.teMetric );
   record.adminGroupIs( link.te.adminGroup );
   record.maxLinkBandwidthIs( link.te.bandwidth );
   record.unreservedBandwidthIs( link.te.unreserved );
   return record;
}

}

Lab::LabTable
tableOf( const Topology & topology ) {
   Lab::LabTable table;
   for ( const auto & [ id, router ] : topology.routers ) {
      table.router[ id ] = { id, router.teRouterId, router.overload, {} };
      for ( const LinkEnd & link : router.links ) {
         table.linkIs( recordOf( id, link ) );
      }
      if ( !router.prefixes.empty() ) {
         auto & reachability = table.reachability[ id ];
         reachability.routerIdIs( id );
         for ( const auto & [ prefix, metric ] : router.prefixes ) {
            reachability.prefixIs( { prefix, metric } );
         }
      }
   }
   for ( const auto & [ id, attached ] : topology.lans ) {
      Rows::Network & network = table.network[ { id } ];
      network.networkIdIs( { id } );
      for ( const auto & router : attached ) {
         network.routerIs( router );
      }
   }
   return table;
}

}
