// Which topologies are imported.
//
// A VRF has the tables that are mounted for it. Each is imported by a machine of its own, which
// comes with the table, and goes when all of the table is out of the store. Published rows may be
// those of an agent that ended before this one started; once the tables that are there were read,
// rows that no link backs are removed.

#include "Cspf/Topology/AllTopoDbSm.h"

#include "platform/Trace/Trace.h"

#include <algorithm>
#include <utility>

namespace Cspf {

void
AllTopoDbSm::handleInitialized() {
   LUM_WATCH_KEYS( allTopoDb_, topoDb, handleTopoDbChange );
   LUM_WATCH( allTopoDbStatus_, imports, handleImports );
   handleTopoDb();
}

void
AllTopoDbSm::handleTopoDb( const TopoId & topoId ) {
   const auto & table = allTopoDb_->topoDb( topoId );
   if ( table ) {
      TRACE7( "TopoDb: " << topoId << ") is set" );
   } else {
      TRACE7( " TopoDb: " << topoId << " is deleted" );
   }
   const auto present = topoDbSm( topoId );
   if ( !present ) {
      doAddTopoDbSm( topoId );
   } else if ( present->topoDb() != table && !present->isLeaving() ) {
      present->handleDestruction( [ this, topoId ] {
         topoDbSmDel( topoId );
         doAddTopoDbSm( topoId );
      } );
   }
}

void
AllTopoDbSm::doAddTopoDbSm( const TopoId & topoId ) {
   if ( const auto & table = allTopoDb_->topoDb( topoId ) ) {
      topoDbSmIs( topoId, new TopoDbSm( topoId, table, allTopoDbStatus_, taskScheduler_ ) );
   }
}

void
AllTopoDbSm::handleTopoDb() {
   const auto & published = allTopoDbStatus_->intfIpToRouterIdTable();
   const bool rowsAreOlder = published && published->intfIpToRouterIds() > 0;
   for ( const auto & topoId : Lum::sortedKeys( allTopoDb_->topoDbColl() ) ) {
      handleTopoDb( topoId );
   }
   rowsAreOlder_ = rowsAreOlder;
   handleImports();
}

void
AllTopoDbSm::handleImports() {
   if ( allTopoDbStatus_->imports() == 0 && std::exchange( rowsAreOlder_, false ) ) {
      doCleanupStaleIntfIpToRouterIdEntries();
   }
}

void
AllTopoDbSm::doCleanupStaleIntfIpToRouterIdEntries() {
   const auto & published = allTopoDbStatus_->intfIpToRouterIdTable();
   if ( !published ) {
      return;
   }
   TRACE7( "Deleting stale intfIpToRouterId entries" );
   const auto owned = []( const AllTopoNeighborKey & link ) { return !!link.teNeighborOf(); };
   std::vector< Kivnet::IpGenAddr > stale;
   for ( const auto & [ intfIp, teRouterId ] : published->intfIpToRouterIdColl() ) {
      const auto * entry =
         allTopoDbStatus_->intfIpToNeighborTable()->intfIpToNeighborFind( intfIp );
      if ( !entry || std::ranges::none_of( entry->neighborSet(), owned ) ) {
         stale.push_back( intfIp );
      }
   }
   std::ranges::sort( stale );
   published->holdReaders();  // they may make one stand for a link
   for ( const Kivnet::IpGenAddr & intfIp : stale ) {
      deleteIntfIpToRouterId( published, intfIp );
   }
   published->tellReaders();
}

}
