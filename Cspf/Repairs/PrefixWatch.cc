// One pair of eyes on the tables of prefixes. A table comes empty, and goes empty.

#include "Cspf/Repairs/PrefixWatch.h"

namespace Cspf::Lfa {

void
PrefixWatch::handleInitialized() {
   LUM_WATCH_KEYS( allTopoDbStatus_, pfxOriginatorInfoTable, handlePfxOriginatorInfoTable );
   for ( const auto & [ topoId, table ] : allTopoDbStatus_->pfxOriginatorInfoTableColl() ) {
      LUM_WATCH_KEYS( table, pfxOriginatorInfo, handlePfxOriginatorInfo );
   }
}

void
PrefixWatch::listenerDel( const Kivnet::IpGenPrefix & prefix, PrefixListener & listener ) {
   const auto at = listeners_.find( prefix );
   if ( at != listeners_.end() ) {
      at->second.erase( &listener );
      if ( at->second.empty() ) {
         listeners_.erase( at );
      }
   }
}

void
PrefixWatch::handlePfxOriginatorInfoTable( const TopoId & topoId ) {
   if ( const auto & table = allTopoDbStatus_->pfxOriginatorInfoTable( topoId ) ) {
      unwatch( *table );
      LUM_WATCH_KEYS( table, pfxOriginatorInfo, handlePfxOriginatorInfo );
   }
}

void
PrefixWatch::handlePfxOriginatorInfo( const Kivnet::IpGenPrefix & prefix ) {
   const auto at = listeners_.find( prefix );
   if ( at == listeners_.end() ) {
      return;
   }
   const auto listeners = at->second;  // they only schedule, and none ends another
   for ( PrefixListener * listener : listeners ) {
      listener->handlePfxOriginatorInfo( prefix );
   }
}

}
