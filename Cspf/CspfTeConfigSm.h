#pragma once

#include "Cspf/CspfClientInfo.h"
#include "schema/Topology.h"
#include "schema/TrafficEngineering.h"

namespace TrafficEngineering {

/// Brings what is configured for the local interfaces into the TE status that the computations
/// read.
///
///   watches            handler          writes
///   Config.intfSrlg    handleIntfSrlg   Status.intfStatus, IntfStatus.srlg
class TeConfigSm : public Lum::Reactor {
   LUM_ENTITY( TrafficEngineering, TeConfigSm );
   TeConfigSm( const Lum::Ptr< const Config > & teConfig, const Lum::Ptr< Status > & teStatus )
      : teConfig_( teConfig ),
        teStatus_( teStatus ) {}

   void handleInitialized() override;
   void handleIntfSrlg( const Lum::String & intf );

 private:
   const Lum::Ptr< const Config > teConfig_;
   const Lum::Ptr< Status > teStatus_;
};

}

namespace Cspf {

/// Chooses the TE router id: the one configured for TE, else the router's general one. While TE is
/// off it is 0.0.0.0, which is how the rest of the agent learns of that.
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
