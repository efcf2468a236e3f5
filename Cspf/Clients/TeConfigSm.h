#pragma once

#include "Cspf/Clients/ClientInfo.h"
#include "schema/Topology.h"
#include "schema/TrafficEngineering.h"

namespace TrafficEngineering {

/// The router's TE identity: the router id configured for TE, else the router's general one;
/// 0.0.0.0 while TE is off, which is how the rest of the agent learns of that.
Kivnet::IpAddr teRouterId( const Config & teConfig,
                           const Routing::General::Config & routingGeneralConfig );

/// Brings the TE configuration of this router into the TE status that the computations read.
///
///   watches                              handler          writes
///   Config.intfSrlg                      handleIntfSrlg   Status.intfStatus, IntfStatus.srlg
///   Config.enabled, .routerId            handleRouterId   Status.routerId
///   Routing::General::Config.routerIdV4  handleRouterId
class TeConfigSm : public Lum::Reactor {
   LUM_ENTITY( TrafficEngineering, TeConfigSm );
   TeConfigSm( const Lum::Ptr< const Config > & teConfig, const Lum::Ptr< Status > & teStatus,
               const Lum::Ptr< const Routing::General::Config > & routingGeneralConfig )
      : teConfig_( teConfig ),
        teStatus_( teStatus ),
        routingGeneralConfig_( routingGeneralConfig ) {}

   void handleInitialized() override;
   void handleIntfSrlg( const Lum::String & intf );
   void handleRouterId();

 private:
   const Lum::Ptr< const Config > teConfig_;
   const Lum::Ptr< Status > teStatus_;
   const Lum::Ptr< const Routing::General::Config > routingGeneralConfig_;
};

}

namespace Cspf {

/// Keeps the TE router id that clients and sources of computations depend on.
///
///   watches                              handler                writes
///   TE Config.enabled, .routerId         handleTeConfigChange   TeRouterIdConfig.routerId
///   Routing::General::Config.routerIdV4  handleTeConfigChange
class TeRouterIdUpdateSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, TeRouterIdUpdateSm );
   TeRouterIdUpdateSm( const Lum::Ptr< const TrafficEngineering::Config > & teConfig,
                       const Lum::Ptr< const Routing::General::Config > & routingGeneralConfig,
                       const Lum::Ptr< TeRouterIdConfig > & teRouterIdConfig )
      : teConfig_( teConfig ),
        routingGeneralConfig_( routingGeneralConfig ),
        teRouterIdConfig_( teRouterIdConfig ) {}

   void handleInitialized() override;
   void handleTeConfigChange();

 private:
   const Lum::Ptr< const TrafficEngineering::Config > teConfig_;
   const Lum::Ptr< const Routing::General::Config > routingGeneralConfig_;
   const Lum::Ptr< TeRouterIdConfig > teRouterIdConfig_;
};

}
