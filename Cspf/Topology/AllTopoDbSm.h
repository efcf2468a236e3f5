#pragma once

#include "Cspf/Topology/TopoDbSm.h"

namespace Cspf {

/// Imports the topologies of one VRF and family.
///
///   watches               handler        makes
///   AllTopoDb.topoDb      handleTopoDb   topoDbSm, one a topology
class AllTopoDbSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, AllTopoDbSm );
   AllTopoDbSm( Lum::Ptr< const AllTopoDb > allTopoDb, Lum::Ptr< AllTopoDbStatus > allTopoDbStatus )
      : allTopoDb_( std::move( allTopoDb ) ),
        allTopoDbStatus_( std::move( allTopoDbStatus ) ) {}
   LUM_CHILDREN( topoDbSm, TopoId, TopoDbSm );

   void handleInitialized() override;
   void doPrepareToDie() override { topoDbSmDelAll(); }
   void handleTopoDb( const TopoId & topoId );
   /// Replays all topologies, then removes published interface addresses that no link has.
   void handleTopoDb();
   void doCleanupStaleIntfIpToRouterIdEntries();

   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   void handleTopoDbChange( const TopoId & topoId ) { handleTopoDb( topoId ); }

   const Lum::Ptr< const AllTopoDb > allTopoDb_;
   const Lum::Ptr< AllTopoDbStatus > allTopoDbStatus_;
};

}
