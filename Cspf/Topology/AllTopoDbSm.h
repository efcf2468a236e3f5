#pragma once

#include "Cspf/Topology/TopoDbSm.h"

namespace Cspf {

/// Imports the topologies of one VRF and family.
///
///   watches                  handler         makes or writes
///   AllTopoDb.topoDb         handleTopoDb    topoDbSm, one a topology
///   AllTopoDbStatus.imports  handleImports   published addresses
class AllTopoDbSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, AllTopoDbSm );
   /// Where `taskScheduler` is null, tables are taken in at once.
   AllTopoDbSm( Lum::Ptr< const AllTopoDb > allTopoDb, Lum::Ptr< AllTopoDbStatus > allTopoDbStatus,
                const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler = nullptr )
      : allTopoDb_( std::move( allTopoDb ) ),
        allTopoDbStatus_( std::move( allTopoDbStatus ) ),
        taskScheduler_( taskScheduler ) {}
   LUM_CHILDREN( topoDbSm, TopoId, TopoDbSm );

   void handleInitialized() override;
   /// The store ends, too, and with it all that it has of the topologies.
   void doPrepareToDie() override { topoDbSmDelAll(); }
   /// A table that stands for another is taken in when that one is out.
   void handleTopoDb( const TopoId & topoId );
   /// Replays all topologies; when they are in, published interface addresses that no link has are
   /// removed.
   void handleTopoDb();
   void handleImports();
   void doCleanupStaleIntfIpToRouterIdEntries();

   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   void handleTopoDbChange( const TopoId & topoId ) { handleTopoDb( topoId ); }
   void doAddTopoDbSm( const TopoId & topoId );

   const Lum::Ptr< const AllTopoDb > allTopoDb_;
   const Lum::Ptr< AllTopoDbStatus > allTopoDbStatus_;
   const Lum::Ptr< Kiv::TaskScheduler > taskScheduler_;
   bool rowsAreOlder_ = false;
};

}
