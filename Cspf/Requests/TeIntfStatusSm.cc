// Constraints that avoid the SRLGs of an interface hold these SRLGs. When TE learns others, the
// paths concerned derive their constraint anew. Interfaces are few and change rarely, so a change
// walks all paths instead of keeping an index of those that exclude an interface.

#include "Cspf/Requests/TeIntfStatusSm.h"

#include "platform/Trace/Trace.h"

#include <map>

namespace Cspf {

namespace {

/// Whether the path's constraint excludes the interface, or the node behind it.
bool
excludes( const PathInfoKey & key, const PathConfigInfo & info, const Kivnet::IntfId & intfId ) {
   const auto * i = &info;
   const PathKey & pathKey = key.clientPathKey();
   LUM_ASSERT( i->cspfConfig()->pathConfigHas( pathKey ) );
   const PathConstraint & constraint = i->cspfConfig()->pathConfigFind( pathKey )->constraint();
   return constraint.excludeIntf() == intfId || constraint.excludeNode().nexthopIntf() == intfId;
}

}

void
incrementDerivedConfigChangeCount( const Lum::Ptr< PathConfigInfoTable > & table,
                                   const Kivnet::IntfId & intfId ) {
   std::map< PathInfoKey, Lum::Ptr< PathConfigInfo > > concerned;
   for ( const auto & [ key, info ] : table->pathConfigInfoColl() ) {
      if ( excludes( key, *info, intfId ) ) {
         concerned.emplace( key, info );
      }
   }
   for ( const auto & [ key, info ] : concerned ) {
      TRACE7( "Handling update for path : " << key.traceString() );
      info->derivedConfigChangeCountInc();
   }
}

void
TeIntfSrlgSm::handleInitialized() {
   LUM_WATCH_KEYS( intfStatus_, srlg, handleSrlgChange );
   if ( intfStatus_->srlgs() > 0 ) {
      handleSrlg();
   }
}

void
TeIntfSrlgSm::handleSrlg( const TrafficEngineering::SrlgId & srlg ) {
   TRACE7( "Handling update for SRLG ID:" << srlg << " on interface:" << intfId_ );
   incrementDerivedConfigChangeCount( pathConfigInfoTable_, intfId_ );
}

void
TeIntfSrlgSm::handleSrlg() {
   TRACE7( "Handling SRLG update for interface:" << intfId_ );
   incrementDerivedConfigChangeCount( pathConfigInfoTable_, intfId_ );
}

void
TeIntfSrlgSm::handleDestroy() {
   TRACE7( "Handling TE IntfStatus deletion for interface:" << intfId_ );
   incrementDerivedConfigChangeCount( pathConfigInfoTable_, intfId_ );
}

void
TeIntfStatusSm::handleInitialized() {
   LUM_FOLLOW_KEYS( teStatus_, intfStatus, handleIntfStatus );
}

void
TeIntfStatusSm::handleIntfStatus( const Lum::String & name ) {
   if ( const auto intfStatus = teStatus_->intfStatus( name ) ) {
      intfSrlgSmIs( name, intfStatus, pathConfigInfoTable_ );
   } else {
      intfSrlgSmDel( name );
   }
}

}
