// State by path, and what of it the agent sees.

#include "tools/prove/Snapshot.h"

#include "platform/Lum/Dir.h"
#include "platform/Toggle/Toggle.h"

namespace Prove {

using Cspf::TopoId;

Snapshot
Snapshot::of( const Corvdb::StateStore & state, const Zorch::TableStore & tables ) {
   Snapshot snapshot;
   for ( const char * path : { "te/config", "routing/general/config/global", "te/cspf/client",
                               "routing/topoDbExport", "segmentrouting/isis" } ) {
      snapshot.entities_[ path ] = state.entity( path );
   }
   for ( const std::string & path : tables.list( "" ) ) {
      snapshot.entities_[ path ] = tables.table( path );
   }
   return snapshot;
}

namespace {

std::string
tablePath( const TopoId & id, const Vrf & vrf, Af af, bool announced ) {
   return "routing/" + Lum::enumName( id.igpSource() ) + "/topodb/"
          + ( af == Af::ipv6 ? "ip6/" : "ip/" ) + std::to_string( id.number1() ) + "/"
          + ( announced ? std::to_string( id.number2() ) + "/" : "" ) + vrf.stringValue();
}

}

std::vector< Topology >
topologiesOf( const Snapshot & state, const Vrf & vrf, Af af ) {
   std::map< TopoId, Lum::Ptr< Routing::Topology::TopoDb > > found;
   const auto add = [ & ]( const TopoId & id, bool announced ) {
      if ( const auto table =
              state.get< Routing::Topology::TopoDb >( tablePath( id, vrf, af, announced ) ) ) {
         found.emplace( id, table );
      }
   };
   const auto announcements = state.get< Lum::Dir >( "routing/topoDbExport" );
   if ( announcements && Toggle::getToggleState( "OspfTopoDbExport", "gated.json", true ) ) {
      for ( const auto & [ name, entity ] : announcements->entityColl() ) {
         const auto one = Lum::cast< Routing::Topology::ExportPath >( entity );
         if ( one && one->initialized() && one->vrfName() == vrf && one->af() == af ) {
            add( { one->igpSource(), one->number1(), one->number2() }, true );
         }
      }
   }
   add( TopoId::isisL1(), false );
   add( TopoId::isisL2(), false );
   std::vector< Topology > topologies;
   topologies.reserve( found.size() );
   for ( const auto & [ id, table ] : found ) {
      topologies.push_back( { id, table } );
   }
   return topologies;
}

Kivnet::IpGenAddr
teRouterIdOf( const Snapshot & state ) {
   const auto te = state.get< TrafficEngineering::Config >( "te/config" );
   const auto general = state.get< Routing::General::Config >( "routing/general/config/global" );
   if ( !te || !te->enabled() ) {
      return {};
   }
   const Kivnet::IpAddr id = te->routerId() || !general ? te->routerId() : general->routerIdV4();
   return id ? Kivnet::IpGenAddr( id ) : Kivnet::IpGenAddr();
}

}
