// Topology tables of a lab, written entry by entry. Reactors of the table see the same order of
// changes as under an IGP, and see nothing where nothing changed.

#include "tools/lab/LabTable.h"

#include <set>

namespace Lab {

using namespace Routing::Topology;

void
LabTable::linkIs( const Neighbor & link ) {
   router.at( link.key().routerId() ).neighborIs( link.key() );
   neighbor[ link.key() ] = link;
}

namespace {

void
writeRouter( TopoDb & table, const LabTable & wanted, const Cspf::IgpRouterId & id ) {
   const auto wantedRouter = wanted.router.find( id );
   if ( const Router * present = table.routerFind( id ) ) {
      const Lum::Set< NeighborKey > listed = present->neighborSet();
      for ( const NeighborKey & key : listed ) {
         if ( !wanted.neighbor.contains( key ) ) {
            table.neighborDel( key );
         }
      }
   }
   if ( wantedRouter == wanted.router.end() ) {
      table.reachabilityDel( id );
      table.routerDel( id );
      return;
   }
   table.routerIs( id, wantedRouter->second );
   for ( const NeighborKey & key : wantedRouter->second.neighborSet() ) {
      table.neighborIs( key, wanted.neighbor.at( key ) );
   }
   if ( const auto at = wanted.reachability.find( id ); at != wanted.reachability.end() ) {
      table.reachabilityIs( id, at->second );
   } else {
      table.reachabilityDel( id );
   }
}

}

void
writeTable( TopoDb & table, const LabTable & wanted ) {
   std::set< Cspf::IgpRouterId > routers;
   for ( const auto & [ id, router ] : table.routerColl() ) {
      routers.insert( id );
   }
   for ( const auto & [ id, router ] : wanted.router ) {
      routers.insert( id );
   }
   for ( const auto & id : routers ) {
      writeRouter( table, wanted, id );
   }
   for ( const auto & id : Lum::sortedKeys( table.networkColl() ) ) {
      if ( !wanted.network.contains( id ) ) {
         table.networkDel( id );
      }
   }
   for ( const auto & [ id, network ] : wanted.network ) {
      table.networkIs( id, network );
   }
}

}
