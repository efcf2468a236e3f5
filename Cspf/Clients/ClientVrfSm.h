#pragma once

#include "Cspf/Bandwidth/BwmRoot.h"
#include "Cspf/Clients/ClientInfo.h"
#include "Cspf/Requests/PathSm.h"
#include "platform/LumZorch/TableMount.h"
#include "schema/CspfClient.h"
#include "schema/CspfStatus.h"

namespace Cspf {

/// What all reactors of the intake work with.
struct ClientIntake {
   Lum::Ptr< Corvdb::EntityManager > entityManager;
   Lum::Ptr< const TrafficEngineering::Status > teStatus;
   Lum::Ptr< AllClientInfo > v4AllClientInfo;
   Lum::Ptr< AllClientInfo > v6AllClientInfo;
   Lum::Ptr< TrafficEngineering::BwmAllClientInfo > bwmAllClientInfo;
   Lum::Ptr< TeConfigDir > teConfigDir;

   const Lum::Ptr< AllClientInfo > & allClientInfo( Kivnet::AddressFamily af ) const {
      return af == Kivnet::AddressFamily::ipv4 ? v4AllClientInfo : v6AllClientInfo;
   }
};

class ClientVrfSm;

/// One family of a `ClientVrfSm`: the client's tables there, the watch on the VRF's sources, and on
/// what has to be over before the service can begin.
///
///   watches                        handler            does
///   AllClientInfo.vrfSourceId      handleVrfSourceId  createOrDeletePathSm of the owner
///   VrfSourceId.vrfClientSourceId  handleSourceId     likewise
///   LeavingPaths.isGone            handleEarlierEnd   likewise
///   VrfChange.isOver               handleEarlierEnd   likewise
class ClientVrfFamily : public Lum::Reactor {
   LUM_ENTITY( Cspf, ClientVrfFamily );
   /// The owner outlives this object, and has the family's `AllClientInfo`.
   ClientVrfFamily( ClientVrfSm & owner, Kivnet::AddressFamily af ) : owner_( owner ), af_( af ) {}
   void handleInitialized() override;
   void handleVrfSourceId( const L3::VrfName & vrf );
   /// Whether something of an earlier service is left, or the VRF comes or goes; if so, the owner
   /// is told when that is over.
   bool waitsForEarlier();

   /// The client's tables while it has a path reactor.
   std::unique_ptr< LumZorch::TableMount< Config > > configMount;
   std::unique_ptr< LumZorch::TableMount< Status > > statusMount;

 private:
   void handleSourceId( const PathComputationType & );
   void handleEarlierEnd();

   ClientVrfSm & owner_;
   const Kivnet::AddressFamily af_;
};

/// Serves one client in one VRF: a path reactor for each family that the client wants and that has
/// a source to compute from, and the set-up with the bandwidth manager where it is required.
///
///   watches                  handler               does
///   Client.addressFamily     handleAddressFamily   family's VRF handle, tables and pathSm
///   Client.bwmRequired       handleBwmRequired     bwmClientSetupSm
class ClientVrfSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, ClientVrfSm );
   /// `isisAdjacencyInfo`: for the client "tilfa", else null.
   ClientVrfSm( const L3::VrfName & vrf, const Lum::String & clientName,
                const Lum::Ptr< const Client > & client, const ClientIntake & intake,
                const Lum::Ptr< const IsisExportImpl::IsisAdjacencyInfo > & isisAdjacencyInfo )
      : vrf_( vrf ),
        clientName_( clientName ),
        client_( client ),
        intake_( intake ),
        isisAdjacencyInfo_( isisAdjacencyInfo ) {}
   LUM_ATTRIBUTE( pathType, PathComputationType );
   LUM_ATTRIBUTE( initialized, bool );
   // By family:
   LUM_COLLECTION_ORDERED( allClientInfo, Kivnet::AddressFamily, Lum::Ptr< AllClientInfo > );
   LUM_COLLECTION_ORDERED( vrfDedupTable, Kivnet::AddressFamily,
                           Lum::Ptr< CspfActiveVrfsDedupTable > );
   LUM_COLLECTION_ORDERED( vrfDedupHandle, Kivnet::AddressFamily, Lum::Ptr< DedupVrfHandle > );
   LUM_COLLECTION_ORDERED( vrfSourceId, Kivnet::AddressFamily, Lum::Ptr< const VrfSourceId > );
   LUM_CHILDREN( family, Kivnet::AddressFamily, ClientVrfFamily );
   LUM_COLLECTION_ORDERED( pathSm, Kivnet::AddressFamily, Lum::Ptr< PathSmBase > );
   LUM_CHILD( bwmClientSetupSm, TrafficEngineering::BwmClientSetupSm );

   const L3::VrfName & vrf() const noexcept { return vrf_; }
   ClientOfVrf clientOfVrf() const { return { vrf_, clientName_ }; }

   void handleInitialized() override;
   void doPrepareToDie() override;
   void handleAddressFamily( const Kivnet::AddressFamily & af ) { createOrDeletePathSm( af ); }
   void handleBwmRequired();
   /// The VRF's sources in the family came or went.
   void handleVrfSourceId( const L3::VrfName & vrf, Kivnet::AddressFamily af );
   /// Brings the family's service in line with what the client wants and what can be had.
   void createOrDeletePathSm( Kivnet::AddressFamily af );
   /// The node that the client's computations start from; empty where there is none.
   NodeId getVrfClientSourceId( Kivnet::AddressFamily af ) const;
   /// The client's tables and its path reactor. REQUIRES: the VRF is active; there are none yet.
   void doInitPathSm( Kivnet::AddressFamily af );
   /// What is published goes at once, with what the client brought along; rows of many paths go by
   /// slices (LeavingPaths). The client may be served again when this returns.
   void doCleanupPathSm( Kivnet::AddressFamily af );
   /// What the client brought along for computations, into the VRF's record of it, and out.
   void updateClientData( Kivnet::AddressFamily af );
   void cleanupClientData( Kivnet::AddressFamily af );
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   void doInitFamily( Kivnet::AddressFamily af, const Lum::Ptr< AllClientInfo > & info );
   Lum::Ptr< PathSmBase > newPathSm( Kivnet::AddressFamily af ) const;
   bool isWanted( Kivnet::AddressFamily af ) const {
      return !isRetired() && client_->addressFamily( af ) && getVrfClientSourceId( af );
   }
   bool mayBegin( Kivnet::AddressFamily af ) const {
      return isWanted( af ) && !pathSmHas( af ) && !family( af )->waitsForEarlier();
   }

   const L3::VrfName vrf_;
   const Lum::String clientName_;
   const Lum::Ptr< const Client > client_;
   const ClientIntake intake_;
   const Lum::Ptr< const IsisExportImpl::IsisAdjacencyInfo > isisAdjacencyInfo_;
};

/// Takes one client into one VRF: the client counts as enabled there from its beginning to the end
/// of its end.
class ClientVrfConfMounter : public Lum::Reactor {
   LUM_ENTITY( Cspf, ClientVrfConfMounter );
   ClientVrfConfMounter( const L3::VrfName & vrf, const Lum::String & clientName,
                         const Lum::Ptr< const Client > & client, const ClientIntake & intake )
      : vrf_( vrf ),
        clientName_( clientName ),
        client_( client ),
        intake_( intake ) {}
   LUM_CHILD( clientVrfSm, ClientVrfSm );

   void handleInitialized() override;
   void doPrepareToDie() override;
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 private:
   const L3::VrfName vrf_;
   const Lum::String clientName_;
   const Lum::Ptr< const Client > client_;
   const ClientIntake intake_;
   std::optional< LumZorch::TableMount< IsisExportImpl::IsisAdjacencyInfo > > adjacencyMount_;
};

}
