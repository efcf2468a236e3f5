// What the TE configuration means to the agent: the SRLGs of the local interfaces, and the TE
// router id. The agent owns both reactors for its whole life. An interface's status keeps its
// identity while it is configured, so that who watches it hears of single SRLGs.

#include "Cspf/Clients/TeConfigSm.h"

#include "platform/Trace/Trace.h"

namespace TrafficEngineering {

Kivnet::IpAddr
teRouterId( const Config & teConfig, const Routing::General::Config & routingGeneralConfig ) {
   if ( !teConfig.enabled() ) {
      return {};
   }
   return teConfig.routerId() ? teConfig.routerId() : routingGeneralConfig.routerIdV4();
}

void
TeConfigSm::handleInitialized() {
   LUM_WATCH_KEYS( teConfig_, intfSrlg, handleIntfSrlg );
   LUM_WATCH( teConfig_, enabled, handleRouterId );
   LUM_WATCH( teConfig_, routerId, handleRouterId );
   LUM_WATCH( routingGeneralConfig_, routerIdV4, handleRouterId );
   handleRouterId();
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

void
TeConfigSm::handleRouterId() {
   teStatus_->routerIdIs( teRouterId( *teConfig_, *routingGeneralConfig_ ) );
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
   const auto routerId = TrafficEngineering::teRouterId( *teConfig_, *routingGeneralConfig_ );
   TRACE8( "teConfig::enabled " << teConfig_->enabled() << " teConfig::routerId "
                                << teConfig_->routerId() << " routingGeneralConfig::routerIdV4 "
                                << routingGeneralConfig_->routerIdV4() );
   TRACE8( "Updating teRouterIdConfig with routerId " << routerId );
   teRouterIdConfig_->routerIdIs( routerId );
}

}
