// What the TE configuration means to the agent: the SRLGs of the local interfaces, and the TE
// router id. The agent owns both reactors for its whole life. An interface's status keeps its
// identity while it is configured, so that who watches it hears of single SRLGs.

#include "Cspf/CspfTeConfigSm.h"

#include "platform/Trace/Trace.h"

namespace TrafficEngineering {

void
TeConfigSm::handleInitialized() {
   LUM_WATCH_KEYS( teConfig_, intfSrlg, handleIntfSrlg );
   for ( const auto & intf : Lum::sortedKeys( teConfig_->intfSrlgColl() ) ) {
      handleIntfSrlg( intf );
   }
}

void
TeConfigSm::handleIntfSrlg( const Lum::String & intf ) {
   const auto * srlgs = teConfig_->intfSrlgFind( intf );
   if ( !srlgs ) {
      teStatus_->intfStatusDel( intf );
      return;
   }
   if ( !teStatus_->intfStatusHas( intf ) ) {
      teStatus_->intfStatusIs( intf, Lum::make< IntfStatus >() );
   }
   const auto wanted = *srlgs;
   const auto intfStatus = teStatus_->intfStatus( intf );
   for ( const auto srlg : Lum::sortedKeys( intfStatus->srlgColl() ) ) {
      if ( !wanted.has( srlg ) ) {
         intfStatus->srlgDel( srlg );
      }
   }
   for ( const auto srlg : wanted ) {
      intfStatus->srlgIs( srlg, true );
   }
}

}

namespace Cspf {

void
TeRouterIdUpdateSm::handleInitialized() {
   LUM_WATCH( teConfig_, enabled, handleTeConfigChange );
   LUM_WATCH( teConfig_, routerId, handleTeConfigChange );
   LUM_WATCH( routingGeneralConfig_, routerIdV4, handleTeConfigChange );
   handleTeConfigChange();
}

void
TeRouterIdUpdateSm::handleTeConfigChange() {
   Kivnet::IpAddr routerId;
   if ( teConfig_->enabled() ) {
      routerId =
         teConfig_->routerId() ? teConfig_->routerId() : routingGeneralConfig_->routerIdV4();
   }
   TRACE8( "teConfig::enabled " << teConfig_->enabled() << " teConfig::routerId "
                                << teConfig_->routerId() << " routingGeneralConfig::routerIdV4 "
                                << routingGeneralConfig_->routerIdV4() );
   TRACE8( "Updating teRouterIdConfig with routerId " << routerId );
   teRouterIdConfig_->routerIdIs( routerId );
}

}
