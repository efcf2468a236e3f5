#pragma once

#include "Cspf/Clients/LeavingPaths.h"
#include "Cspf/Records/PathRows.h"
#include "Cspf/Records/Source.h"
#include "Cspf/Records/VrfHandle.h"
#include "Cspf/Requests/RepairScope.h"
#include "platform/Kivnet/IpAddr.h"
#include "schema/Isis.h"

/// What the intake of clients shares with the services of one address family: which clients and
/// VRFs are there, and the nodes that their computations start from.
namespace Cspf {

/// The TE router id of this router; 0.0.0.0 while TE is off.
class TeRouterIdConfig : public Lum::Entity {
   LUM_ENTITY( Cspf, TeRouterIdConfig );
   static constexpr Kivnet::IpAddr routerIdDefault{};
   LUM_ATTRIBUTE( routerId, Kivnet::IpAddr );
};

/// The clients that TE serves in one VRF. It lives while there is one.
class TeVrfConfig : public Lum::Entity {
   LUM_ENTITY( Cspf, TeVrfConfig );
   explicit TeVrfConfig( const L3::VrfName & vrfName ) : vrfName_( vrfName ) {}
   const L3::VrfName & vrfName() const noexcept { return vrfName_; }
   LUM_COLLECTION_ORDERED( clientsEnabled, Lum::String, bool );
   void clientsEnabledIs( const Lum::String & client ) { clientsEnabledIs( client, true ); }

 private:
   const L3::VrfName vrfName_;
};

class TeConfigDir : public Lum::Entity {
   LUM_ENTITY( Cspf, TeConfigDir );
   LUM_CHILDREN( teVrfConfig, L3::VrfName, TeVrfConfig );
   LUM_ROWS_BY_KEY( teVrfConfig, L3::VrfName, TeVrfConfig );
};

Lum::Ptr< TeConfigDir > teConfigDirFactory();

/// What the clients of one VRF and family brought along for the computations.
class ClientData : public Lum::Entity {
   LUM_ENTITY( Cspf, ClientData );
   /// The IS-IS adjacencies of this router, given by the client "tilfa"; null without it.
   LUM_ATTRIBUTE( isisAdjacencyInfo, Lum::Ptr< const IsisExportImpl::IsisAdjacencyInfo > );

   void dumpState( Kiv::DumpContext & context, int indent ) const;
};

/// A VRF that becomes active or inactive at this moment: whoever needs it waits until that is over.
class VrfChange : public Lum::Entity {
   LUM_ENTITY( Cspf, VrfChange );
   LUM_ATTRIBUTE( isOver, bool );
};

/// The VRFs that are needed: the first handle of a VRF makes it active, the last release inactive.
class CspfActiveVrfsDedupTable : public Kiv::DedupTable< DedupVrfHandle > {
   LUM_ENTITY( Cspf, CspfActiveVrfsDedupTable );
   void handleInitialized() { DedupHashTableUnorderedSetIs( true ); }
   /// The VRF's handle; letting it go is the release. The VRF is active when this returns.
   Lum::Ptr< DedupVrfHandle > dedupFromVrfName( const L3::VrfName & vrf );
};

/// All clients of one address family, by VRF. The path tables belong to the VRF's root and stand
/// here while the VRF is active.
class AllClientInfo : public Lum::Entity {
   LUM_ENTITY( Cspf, AllClientInfo );
   LUM_COLLECTION_ORDERED( clientData, L3::VrfName, Lum::Ptr< ClientData > );
   LUM_COLLECTION_ORDERED( pathConfigInfoTable, L3::VrfName, Lum::Ptr< PathConfigInfoTable > );
   LUM_COLLECTION_ORDERED( pathStatusInfoTable, L3::VrfName, Lum::Ptr< PathStatusInfoTable > );
   LUM_COLLECTION_ORDERED( repairScope, L3::VrfName, Lum::Ptr< RepairScope > );
   LUM_COLLECTION_ORDERED( vrfSourceId, L3::VrfName, Lum::Ptr< VrfSourceId > );
   LUM_ROWS_BY_KEY( vrfSourceId, L3::VrfName, VrfSourceId );
   LUM_CHILD( activeVrfsDedupTable, CspfActiveVrfsDedupTable );
   LUM_COLLECTION_ORDERED( vrfChange, L3::VrfName, Lum::Ptr< VrfChange > );
   /// Of services that have ended: what has not gone yet.
   LUM_CHILDREN( leavingPaths, ClientOfVrf, LeavingPaths );
   /// For work that is done by slices; null: it is done at once.
   LUM_ATTRIBUTE( taskScheduler, Lum::Ptr< Kiv::TaskScheduler > );
   LUM_ATTRIBUTE( initialized, bool );

   void handleInitialized();
   /// Takes the VRF's sources out where there are none, unless the VRF is active, or becomes so:
   /// its root watches for some.
   void vrfSourceIdDelIfUnused( const L3::VrfName & vrf );
   void vrfChangeBegins( const L3::VrfName & vrf ) { vrfChangeIs( vrf, Lum::make< VrfChange >() ); }
   void vrfChangeEnds( const L3::VrfName & vrf );
   void dumpState( Kiv::DumpContext & context, int indent ) const;
};

}
