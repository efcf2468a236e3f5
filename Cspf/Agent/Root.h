#pragma once

#include "Cspf/Agent/VrfRootSm.h"
#include "Cspf/Clients/ClientInfo.h"
#include "Cspf/Topology/Store.h"
#include "platform/Corvdb/EntityManager.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/Lum/Dir.h"

namespace Cspf {

class CspfRoot;

/// Hears which VRFs of one family somebody needs.
class CspfActiveVrfsNotifiee : public Kiv::DedupLifeTimeNotifiee {
   LUM_ENTITY( Cspf, CspfActiveVrfsNotifiee );
   /// The root outlives this object.
   explicit CspfActiveVrfsNotifiee( CspfRoot * cspfRoot ) : cspfRoot_( *cspfRoot ) {}

   void handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;
   void handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;

 private:
   CspfRoot & cspfRoot_;
};

/// The services of one address family: a root and its reactor for each VRF that is active, that
/// is, whose handle somebody holds.
class CspfRoot : public Lum::Entity {
   LUM_ENTITY( Cspf, CspfRoot );
   /// Takes the family's directory of topology consumers, which is written.
   CspfRoot( Kivnet::AddressFamily af, const Lum::Ptr< Corvdb::EntityManager > & entityManager,
             const Lum::Ptr< Lum::Dir > & topoDbClientDir,
             const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler,
             const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
             const Lum::Ptr< AllTopoDbDir > & allTopoDbDir )
      : af_( af ),
        entityManager_( entityManager ),
        topoDbClientDir_( topoDbClientDir ),
        taskScheduler_( taskScheduler ),
        teStatus_( teStatus ),
        allTopoDbDir_( allTopoDbDir ) {}
   LUM_CHILD( lifeTimeNotifiee, CspfActiveVrfsNotifiee );
   LUM_CHILD( allClientInfo, AllClientInfo );
   LUM_CHILDREN( vrfRoot, L3::VrfName, VrfRoot );
   LUM_CHILDREN( vrfRootSm, L3::VrfName, VrfRootSm );
   LUM_ATTRIBUTE( initialized, bool );

   Kivnet::AddressFamily af() const noexcept { return af_; }

   void handleInitialized();
   /// REQUIRES: nobody holds a VRF any more.
   void doPrepareToDie();
   /// The clients that were there at the start are served: what an earlier run asked from the IGPs
   /// for other VRFs is withdrawn. Until then it stands, so that a VRF that goes on being served
   /// is needed all the time.
   void initialClientsDone();
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   friend class CspfActiveVrfsNotifiee;

   void vrfActiveIs( const L3::VrfName & vrf );
   void vrfActiveDel( const L3::VrfName & vrf );

   const Kivnet::AddressFamily af_;
   const Lum::Ptr< Corvdb::EntityManager > entityManager_;
   const Lum::Ptr< Lum::Dir > topoDbClientDir_;
   const Lum::Ptr< Kiv::TaskScheduler > taskScheduler_;
   const Lum::Ptr< const TrafficEngineering::Status > teStatus_;
   const Lum::Ptr< AllTopoDbDir > allTopoDbDir_;
   std::vector< Lum::Ptr< VrfRoot > > endedVrfRoots_;  // of this turn
   Kiv::Task endedVrfRootsTask_{ taskScheduler_, std::string( "endedVrfRootsTask-" ) + text( af_ ),
                                 [ this ]() { endedVrfRoots_.clear(); } };
};

}
