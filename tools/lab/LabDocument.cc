// Questions about a lab that more than one part of the tool asks.

#include "tools/lab/LabDocument.h"

namespace Lab {

bool
visible( const LabDocument & document, const LabTopology & topology ) {
   if ( topology.exported ) {
      return topology.exportReady && document.toggles.ospfTopoDbExport;
   }
   return topology.id.igpSource() == Cspf::IgpSource::isis;
}

std::optional< LabAdjacency >
adjacency( const LabDocument & document, const Vrf & vrf, Af af, const Kivnet::IntfId & intf ) {
   for ( const auto & [ topologyName, topology ] : document.topologies ) {
      if ( topology.vrf != vrf || topology.af != af ) {
         continue;
      }
      for ( const auto & [ linkName, link ] : topology.links ) {
         for ( const auto & [ near, far ] :
               { std::pair( &link.a, &link.b ), { &link.b, &link.a } } ) {
            if ( near->router == document.router && near->intf == intf ) {
               return LabAdjacency{ &topologyName, &linkName, near, far,
                                    &topology.routers.at( far->router ) };
            }
         }
      }
   }
   return std::nullopt;
}

}
