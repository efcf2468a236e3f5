// What the topology store prints of itself in a dump of the agent's state: the records of each
// table as the IGP wrote them, then what was derived of them. Everything is in key order, so that
// two dumps can be compared.

#include "Cspf/Topology/AllTopoDbSm.h"
#include "platform/Kiv/DumpContext.h"

namespace Cspf {

namespace {

template< class Collection >
void
dumpRecords( Kiv::DumpContext & context, int indent, const char * heading,
             const Collection & collection ) {
   context.printf( indent, heading );
   for ( const auto & key : Lum::sortedKeys( collection ) ) {
      context.printf( indent + 2, "%*c%s\n", Lum::valueString( collection.at( key ) ).c_str() );
   }
}

}

void
RouterIdMap::dumpState( Kiv::DumpContext & context, int indent ) const {
   for ( const auto & id : Lum::sortedKeys( teRouterIdColl() ) ) {
      context.printf( indent, "%*c%s: %s\n", id.stringValue().c_str(),
                      teRouterId( id ).stringValue().c_str() );
   }
   context.printf( indent, "%*cDuplicate routers\n" );
   for ( const auto & [ te, duplicates ] : duplicateRoutersColl() ) {
      for ( const auto & [ router, parked ] : duplicates->routerColl() ) {
         context.printf( indent + 2, "%*c%s: %s\n", te.stringValue().c_str(),
                         router.stringValue().c_str() );
      }
   }
}

void
AllTopoDbStatus::dumpState( Kiv::DumpContext & context, int indent ) const {
   context.dumpAge( indent, "Last topology change", topoChangedAt() );
   context.printf( indent, "%*cPer-topology Router ID maps\n" );
   for ( const auto & [ topoId, map ] : routerIdMapColl() ) {
      context.printf( indent + 2, "%*c%s\n", topoId.stringValue().c_str() );
      context.dump( *map, indent + 4 );
   }
}

void
TopoDbSm::dumpState( Kiv::DumpContext & context, int indent ) const {
   dumpRecords( context, indent, "%*c---Routers---\n", topoDb_->routerColl() );
   dumpRecords( context, indent, "%*c---Networks---\n", topoDb_->networkColl() );
   dumpRecords( context, indent, "%*c---Neighbors---\n", topoDb_->neighborColl() );
   dumpRecords( context, indent, "%*c---Reachabilities---\n", topoDb_->reachabilityColl() );
}

void
AllTopoDbSm::dumpState( Kiv::DumpContext & context, int indent ) const {
   for ( const auto & [ topoId, sm ] : topoDbSmColl() ) {
      context.printf( indent, "%*cTopology %s\n", topoId.stringValue().c_str() );
      context.dump( *sm, indent + 2 );
   }
   context.dump( *allTopoDbStatus_, indent + 2 );
}

}
