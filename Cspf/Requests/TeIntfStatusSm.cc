// Constraints that avoid the SRLGs of an interface hold these SRLGs. When TE learns others, the
// paths concerned derive their constraint anew. Interfaces are few and change rarely, so that a
// turn's changes walk all paths instead of keeping an index of those that exclude an interface. A
// path that comes while they are gone over reads the SRLGs as they are.

#include "Cspf/Requests/TeIntfStatusSm.h"

#include "platform/Trace/Trace.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Cspf {

namespace {

/// Whether the request excludes one of the interfaces, or the node behind it.
bool
excludes( const PathConfig & config, const std::set< Kivnet::IntfId > & intfs ) {
   const PathConstraint & constraint = config.constraint();
   return intfs.contains( constraint.excludeIntf() )
          || intfs.contains( constraint.excludeNode().nexthopIntf() );
}

std::vector< PathInfoKey >
pathsThatExclude( const PathConfigInfoTable & table, const std::set< Kivnet::IntfId > & intfs ) {
   std::vector< PathInfoKey > paths;
   for ( const auto & [ key, info ] : table.pathConfigInfoColl() ) {
      const auto * config = info->cspfConfig()->pathConfigFind( key.clientPathKey() );
      if ( !config || excludes( *config, intfs ) ) {
         paths.push_back( key );
      }
   }
   return paths;
}

void
incrementDerivedConfigChangeCount( const PathInfoKey & key, const Lum::Ptr< PathConfigInfo > & i ) {
   [[maybe_unused]] const PathKey & pathKey = key.clientPathKey();
   LUM_ASSERT( i->cspfConfig()->pathConfigHas( pathKey ) );
   TRACE7( "Handling update for path : " << key.traceString() );
   i->derivedConfigChangeCountInc();
}

}

void
incrementDerivedConfigChangeCount( const Lum::Ptr< PathConfigInfoTable > & table,
                                   const Kivnet::IntfId & intfId ) {
   auto paths = pathsThatExclude( *table, { intfId } );
   std::ranges::sort( paths );
   for ( const PathInfoKey & key : paths ) {
      if ( const auto info = table->pathConfigInfo( key ) ) {
         incrementDerivedConfigChangeCount( key, info );
      }
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
   owner_.srlgsChanged( intfId_ );
}

void
TeIntfSrlgSm::handleSrlg() {
   TRACE7( "Handling SRLG update for interface:" << intfId_ );
   owner_.srlgsChanged( intfId_ );
}

void
TeIntfSrlgSm::handleDestroy() {
   TRACE7( "Handling TE IntfStatus deletion for interface:" << intfId_ );
   owner_.srlgsChanged( intfId_ );
}

TeIntfStatusSm::TeIntfStatusSm( const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
                                const Lum::Ptr< PathConfigInfoTable > & pathConfigInfoTable,
                                const Lum::Ptr< PathStatusInfoTable > & pathStatusInfoTable,
                                const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler )
   : teStatus_( teStatus ),
     pathConfigInfoTable_( pathConfigInfoTable ),
     runHold_( pathStatusInfoTable ),
     taskScheduler_( taskScheduler ),
     pathsTask_( *this, taskScheduler, "intfSrlgTask", [ this ]() { goOverPaths(); } ),
     paths_( *this, taskScheduler, "intfSrlgToPathsTask",
             { [ this ]( const PathInfoKey & key ) { return tell( key ); },
               [ this ] { endGoingOver(); } } ) {}

void
TeIntfStatusSm::handleInitialized() {
   LUM_FOLLOW_KEYS( teStatus_, intfStatus, handleIntfStatus );
}

void
TeIntfStatusSm::handleIntfStatus( const Lum::String & name ) {
   if ( const auto intfStatus = teStatus_->intfStatus( name ) ) {
      intfSrlgSmIs( name, intfStatus, *this );
   } else {
      intfSrlgSmDel( name );
   }
}

void
TeIntfStatusSm::doPrepareToDie() {
   paths_.stop();
   runHold_.holdsIs( false );
}

void
TeIntfStatusSm::srlgsChanged( const Kivnet::IntfId & intfId ) {
   changed_.insert( intfId );
   if ( !paths_.isUnderWay() ) {
      goOverPathsLater();
   }
}

void
TeIntfStatusSm::goOverPathsLater() {
   if ( !taskScheduler_ ) {
      goOverPaths();
      return;
   }
   runHold_.holdsIs( true );
   pathsTask_.schedule();
}

void
TeIntfStatusSm::goOverPaths() {
   paths_.start( pathsThatExclude( *pathConfigInfoTable_, std::exchange( changed_, {} ) ) );
}

/// A path together with its segments: if it were put together in between, it would take old ones.
std::size_t
TeIntfStatusSm::tell( const PathInfoKey & key ) const {
   const auto info = pathConfigInfoTable_->pathConfigInfo( key );
   if ( !info || info->parentPath() ) {
      return 1;
   }
   const auto children = info->childPathColl();
   incrementDerivedConfigChangeCount( key, info );
   for ( const auto & [ segment, child ] : children ) {
      if ( const auto row = pathConfigInfoTable_->pathConfigInfo( child ) ) {
         incrementDerivedConfigChangeCount( child, row );
      }
   }
   return 1 + children.size();
}

/// Runs that waited go on, also where changes never cease.
void
TeIntfStatusSm::endGoingOver() {
   runHold_.holdsIs( false );
   if ( !isRetired() && !changed_.empty() && !paths_.isUnderWay() ) {
      goOverPathsLater();
   }
}

}
