// Topology tables of a lab, written entry by entry. Reactors of the table see the same order of
// changes as under an IGP, and see nothing where nothing changed.

#include "tools/lab/LabTable.h"

#include "tools/pace/Job.h"

#include <set>

namespace Lab {

using namespace Routing::Topology;

LabTable
LabTable::of( const TopoDb & table ) {
   LabTable rows;
   const auto copy = []( const auto & from, auto & to ) {
      for ( const auto & [ key, row ] : from ) {
         to[ key ] = row;
      }
   };
   copy( table.routerColl(), rows.router );
   copy( table.neighborColl(), rows.neighbor );
   copy( table.networkColl(), rows.network );
   copy( table.reachabilityColl(), rows.reachability );
   return rows;
}

void
LabTable::linkIs( const Neighbor & link ) {
   router.at( link.key().routerId() ).neighborIs( link.key() );
   neighbor[ link.key() ] = link;
}

namespace {

Lum::Set< NeighborKey >
listedBy( const Router * router ) {
   return router ? router->neighborSet() : Lum::Set< NeighborKey >();
}

/// `present` are the links of the router that are there; those that are not wanted go. It goes on
/// listing `others`, beside what is wanted.
void
writeRouter( TopoDb & table, const LabTable & wanted, const Cspf::IgpRouterId & id,
             const Lum::Set< NeighborKey > & present, const Lum::Set< NeighborKey > & others ) {
   for ( const NeighborKey & key : present ) {
      if ( !wanted.neighbor.contains( key ) ) {
         table.neighborDel( key );
      }
   }
   const auto wantedRouter = wanted.router.find( id );
   if ( wantedRouter == wanted.router.end() ) {
      table.reachabilityDel( id );
      table.routerDel( id );
      return;
   }
   Router router = wantedRouter->second;
   for ( const NeighborKey & key : others ) {
      router.neighborIs( key );
   }
   table.routerIs( id, router );
   for ( const NeighborKey & key : wantedRouter->second.neighborSet() ) {
      if ( const auto link = wanted.neighbor.find( key ); link != wanted.neighbor.end() ) {
         table.neighborIs( key, link->second );
      }
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
      Pace::breathe();
      writeRouter( table, wanted, id, listedBy( table.routerFind( id ) ), {} );
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

void
changeTable( TopoDb & table, const LabTable & before, const LabTable & after ) {
   std::map< Cspf::IgpRouterId, Lum::Set< NeighborKey > > routers;
   for ( const LabTable * part : { &before, &after } ) {
      for ( const auto & [ id, router ] : part->router ) {
         routers.try_emplace( id, router.neighborSet() );
      }
   }
   for ( const auto & [ id, listed ] : routers ) {
      Lum::Set< NeighborKey > others = listedBy( table.routerFind( id ) );
      for ( const NeighborKey & key : listed ) {
         others.erase( key );
      }
      writeRouter( table, after, id, listed, others );
   }
   for ( const auto & [ id, network ] : before.network ) {
      if ( !after.network.contains( id ) ) {
         table.networkDel( id );
      }
   }
   for ( const auto & [ id, network ] : after.network ) {
      table.networkIs( id, network );
   }
}

}
