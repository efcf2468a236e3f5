// One client's requests in one VRF and family, turned into rows. Everything that serves a path
// follows its rows, so that this is the only place where a path begins and ends. Of a client path
// the key of its own rows is remembered; its children are found from there. A parent's rows come
// before those of its children, whose constraints take the parent's user of bandwidth, and go
// before them, so that a parent never sees a child missing.
//
// A service may be ended inside of what it does. From then on it touches no row: those of its keys
// may be the next service's.

#include "Cspf/Requests/PathSm.h"

#include "Cspf/Records/Segments.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

namespace {

PathInfoKey
clientPathInfoKey( const Lum::SharedString & clientName, const PathKey & pathKey,
                   ConstraintModifier modifier ) {
   PathInfoKey key;
   key.clientNameIs( clientName );
   key.pathKeyIs( pathKey );
   key.constraintModifierIs( modifier );
   return key;
}

void
checkParent( const PathInfoKey & parentPathInfoKey, const PathConstraint & constraint ) {
   LUM_ASSERT( !parentPathInfoKey.internal() );
   if ( hasExplicitHops( constraint ) ) {
      LUM_ASSERT( parentPathInfoKey.constraintModifier() == noSpf() );
   } else {
      LUM_ASSERT( parentPathInfoKey.constraintModifier() == noChange() );
   }
}

}

bool
LinkedPathInfoKeys::hasChildPathInfoKey( const PathInfoKey & key ) const {
   return std::ranges::any_of( childPathInfoKeyColl(),
                               [ & ]( const auto & child ) { return child.second == key; } );
}

bool
LinkedPathInfoKeys::isSame( const LinkedPathInfoKeys & other ) const {
   return parentPathInfoKey_ == other.parentPathInfoKey_
          && childPathInfoKeyColl() == other.childPathInfoKeyColl();
}

PathSmBase::PathSmBase( Kivnet::AddressFamily af, const L3::VrfName & vrfName,
                        const Lum::String & name,
                        const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
                        const Lum::Ptr< const Config > & cspfConfig,
                        const Lum::Ptr< Status > & cspfStatus,
                        const Lum::Ptr< PathConfigInfoTable > & pathConfigInfoTable,
                        const Lum::Ptr< PathStatusInfoTable > & pathStatusInfoTable,
                        const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler )
   : af_( af ),
     vrfName_( vrfName ),
     name_( name ),
     teStatus_( teStatus ),
     cspfConfig_( cspfConfig ),
     cspfStatus_( cspfStatus ),
     pathConfigInfoTable_( pathConfigInfoTable ),
     pathStatusInfoTable_( pathStatusInfoTable ),
     intake_( *this, taskScheduler, "pathIntakeTask-" + name,
              { [ this ]( const PathKey & pathKey ) { return takeIn( pathKey ); },
                [ this ] { endIntake(); } } ) {}

PathSmBase::Handling::Handling( PathSmBase & owner, const PathKey & pathKey )
   : owner_( owner ),
     outer_( owner.handling_ ),
     pathKey_( pathKey ) {
   for ( Handling * other = outer_; other; other = other->outer_ ) {
      other->isOvertaken_ |= other->pathKey_ == pathKey;
   }
   owner_.handling_ = this;
}

void
PathSmBase::handleInitialized() {
   isTakingIn_ = true;
   pathStatusInfoTable_->intakesIs( pathStatusInfoTable_->intakes() + 1 );
   LUM_WATCH( pathStatusInfoTable_, imports, handleImports );
   handleImports();
}

/// Requests follow the topologies, by which published paths are judged.
void
PathSmBase::handleImports() {
   if ( pathStatusInfoTable_->imports() > 0 ) {
      return;
   }
   unwatch( *pathStatusInfoTable_ );
   LUM_WATCH_KEYS( cspfStatus_, pathStatus, handlePathUsage );
   LUM_WATCH_KEYS( cspfConfig_, pathConfig, handleCspfConfig );
   intake_.start( Lum::keysOf( cspfConfig_->pathConfigColl() ) );
}

/// A request that is gone by now has not been followed; what an earlier run has published for it
/// is stale.
std::size_t
PathSmBase::takeIn( const PathKey & pathKey ) {
   const std::size_t before = pathConfigInfoTable_->pathConfigInfos();
   if ( !cspfConfig_->pathConfigHas( pathKey ) ) {
      deleteStaleEntry( pathKey );
   } else if ( !isFollowed( pathKey ) ) {
      handleCspfConfig( pathKey );
   }
   const std::size_t after = pathConfigInfoTable_->pathConfigInfos();
   return after > before ? after - before : 1;
}

void
PathSmBase::endIntake() {
   if ( auto stale = staleEntries(); !stale.empty() ) {
      intake_.start( std::move( stale ) );
      return;
   }
   initialized_ = true;
   handleTakenIn();
   stopIntake();
}

/// Does nothing where it was over.
void
PathSmBase::stopIntake() {
   intake_.stop();
   if ( isTakingIn_ ) {
      isTakingIn_ = false;
      pathStatusInfoTable_->intakesIs( pathStatusInfoTable_->intakes() - 1 );
   }
}

void
PathSmBase::leave() {
   unwatchAll();
   isLeaving_ = true;
   stopIntake();
   LUM_WATCH_KEYS( cspfConfig_, pathConfig, doCleanupPathInfoKeyEntries );
}

void
PathSmBase::doPrepareToDie() {
   unwatchAll();
   stopIntake();
   std::vector< PathInfoKey > own;
   for ( const auto & [ key, row ] : pathConfigInfoTable_->pathConfigInfoColl() ) {
      if ( key.sharedClientName() == name_ ) {
         own.push_back( key );
      }
   }
   std::ranges::sort( own );
   for ( const PathInfoKey & key : own ) {
      removeRows( key );
   }
}

void
PathSmBase::doCheckPathUsageAndUpdate( const PathKey & pathKey ) {
   if ( !cspfConfig_->pathConfigHas( pathKey ) ) {
      return;
   }
   const PathInfoKey key = externalPathInfoKey( pathKey );
   if ( const auto row = pathConfigInfoTable_->pathConfigInfo( key ) ) {
      TRACE8( "Updating usageChangeCount for " << key.traceString() );
      row->usageChangeCountInc();
   }
}

void
PathSmBase::doCleanupStalePathEntries() {
   auto stale = staleEntries();
   std::ranges::sort( stale );
   for ( const PathKey & pathKey : stale ) {
      deleteStaleEntry( pathKey );
   }
}

/// In no order; one with both kinds of entries may be there twice.
std::vector< PathKey >
PathSmBase::staleEntries() const {
   std::vector< PathKey > stale;
   const auto add = [ & ]( const auto & entries ) {
      for ( const auto & entry : entries ) {
         if ( !cspfConfig_->pathConfigHas( entry.first ) ) {
            stale.push_back( entry.first );
         }
      }
   };
   add( cspfStatus_->pathStatusColl() );
   add( cspfStatus_->pathErrorColl() );
   return stale;
}

void
PathSmBase::deleteStaleEntry( const PathKey & pathKey ) {
   if ( cspfStatus_->pathStatusHas( pathKey ) ) {
      TRACE7_FOR( "void Cspf::PathSmBase::doCleanupStalePathEntries()",
                  "deleting pathStatus for " << pathKey.dst() << ", id " << pathKey.id() );
      cspfStatus_->pathStatusDel( pathKey );
   }
   if ( !isFollowed( pathKey ) ) {
      cspfStatus_->pathErrorDel( pathKey );
   }
}

void
PathSmBase::addOrUpdatePathInfoKey( const PathInfoKey & key,
                                    const Lum::Ptr< const Config > & config ) {
   addRows( key, config );
   if ( const auto row = pathConfigInfoTable_->pathConfigInfo( key ); row && !isRetired() ) {
      row->configChangeCountInc();
   }
}

/// The configuration of one whose rows are being removed is there still.
void
PathSmBase::addRows( const PathInfoKey & key, const Lum::Ptr< const Config > & config ) {
   if ( isRetired() || pathStatusInfoTable_->pathStatusInfoHas( key ) ) {
      return;
   }
   TRACE7_FOR( "void Cspf::PathSmBase::addOrUpdatePathInfoKey(const Cspf::PathInfoKey&)",
               "Adding PathConfigInfo/PathStatusInfo for " << key.traceString() );
   pathConfigInfoTable_->pathConfigInfoIs( key, Lum::make< PathConfigInfo >( key, config ) );
   pathStatusInfoTable_->pathStatusInfoIs( key, Lum::make< PathStatusInfo >( key, cspfStatus_ ) );
}

/// The reason stays for which a request that was made meanwhile was refused.
void
PathSmBase::deletePathInfoKey( const PathInfoKey & key ) {
   if ( isRetired() ) {
      return;
   }
   TRACE7( "Deleting PathConfigInfo/PathStatusInfo and PathStatus for " << key.traceString() );
   deleteRows( key );
   const auto isGone = [ & ] {
      return !key.internal() && !isRetired()
             && !pathConfigInfoTable_->pathConfigInfoHas( externalPathInfoKey( key.pathKey() ) );
   };
   if ( isGone() ) {
      cspfStatus_->pathStatusDel( key.pathKey() );
   }
   if ( isGone() ) {
      cspfStatus_->pathErrorDel( key.pathKey() );
   }
}

void
PathSmBase::deleteRows( const PathInfoKey & key ) {
   if ( !isRetired() ) {
      removeRows( key );
   }
}

/// Whoever hears of it may ask for the path again: then the rows are those of that request.
void
PathSmBase::removeRows( const PathInfoKey & key ) {
   const auto config = pathConfigInfoTable_->pathConfigInfo( key );
   pathStatusInfoTable_->pathStatusInfoDel( key );
   if ( pathConfigInfoTable_->pathConfigInfo( key ) == config ) {
      pathConfigInfoTable_->pathConfigInfoDel( key );
   }
}

void
PathSm::doPrepareToDie() {
   PathSmBase::doPrepareToDie();
   currentExternalPathInfoKeyDelAll();
}

void
PathSm::handleCspfConfig( const PathKey & pathKey ) {
   const Handling handling( *this, pathKey );
   if ( handling.isVoid() ) {
      return;
   }
   if ( !cspfConfig()->pathConfigHas( pathKey ) ) {
      doCleanupPathInfoKeyEntries( pathKey );
      return;
   }
   if ( initialized() && !isFollowed( pathKey ) ) {
      deleteStaleEntry( pathKey );  // of a request that is being withdrawn
   }
   if ( handling.isVoid() ) {
      return;
   }
   const auto wanted = getLinkedPathsFromCspfConfig( pathKey );
   replaceParent( pathKey, wanted->parentPathInfoKey() );
   const auto held = getLinkedPathsFromPathConfigInfo( pathKey );
   if ( !handling.isVoid() && !held->isSame( *wanted ) ) {
      doDeleteUnwanted( *held, *wanted, handling );
   }
   if ( !handling.isVoid() ) {
      addOrUpdatePathInfoKey( wanted->parentPathInfoKey() );
   }
   for ( const auto & [ index, child ] : wanted->childPathInfoKeyColl() ) {
      if ( !handling.isVoid() ) {
         addOrUpdateChildPathInfoKey( wanted->parentPathInfoKey(),
                                      static_cast< std::uint8_t >( index ), child );
      }
   }
   if ( !handling.isVoid() ) {
      doCheckPathUsageAndUpdate( pathKey );
   }
}

/// What is published of a path stays while its key is replaced, also where a request inside of this
/// puts it back.
void
PathSm::replaceParent( const PathKey & pathKey, const PathInfoKey & wanted ) {
   const auto held = getLinkedPathsFromPathConfigInfo( pathKey );
   currentExternalPathInfoKeyIs( pathKey, wanted );
   if ( held->parentPathInfoKey() && held->parentPathInfoKey() != wanted ) {
      addRows( wanted, cspfConfig() );  // takes over what is reserved
      if ( currentExternalPathInfoKey( pathKey ) != held->parentPathInfoKey() ) {
         deleteRows( held->parentPathInfoKey() );
         deleteChildren( *held );
      }
   }
}

void
PathSm::doDeleteUnwanted( const LinkedPathInfoKeys & held, const LinkedPathInfoKeys & wanted,
                          const Handling & handling ) {
   for ( const auto & [ index, child ] : held.childPathInfoKeyColl() ) {
      if ( !handling.isVoid() && wanted.childPathInfoKey( index ) != child ) {
         deleteChildPathInfoKey( held.parentPathInfoKey(), static_cast< std::uint8_t >( index ),
                                 child );
      }
   }
}

PathInfoKey
PathSm::externalPathInfoKey( const PathKey & pathKey ) const {
   const PathInfoKey & current = currentExternalPathInfoKey( pathKey );
   if ( const PathConfig * config = cspfConfig()->pathConfigFind( pathKey ) ) {
      const ConstraintModifier modifier =
         hasExplicitHops( config->constraint() ) ? noSpf() : constraintModifierDefault;
      return current && current.constraintModifier() == modifier
                ? current
                : clientPathInfoKey( name(), pathKey, modifier );
   }
   LUM_ASSERT( !cspfConfig()->pathConfigHas( pathKey ) );
   return current;
}

void
PathSm::doCleanupPathInfoKeyEntries( const PathKey & pathKey ) {
   TRACE7( "Deleting all PathInfoKey Entries for " << pathKey.dst() << ", id " << pathKey.id() );
   doCleanupChildPathInfoKeyEntries( pathKey );
   const PathInfoKey parent = currentExternalPathInfoKey( pathKey );
   currentExternalPathInfoKeyDel( pathKey );
   if ( parent ) {
      deletePathInfoKey( parent );
   }
}

/// The parent hears of none of them any more when the first one goes.
void
PathSm::doCleanupChildPathInfoKeyEntries( const PathKey & pathKey ) {
   const auto held = getLinkedPathsFromPathConfigInfo( pathKey );
   for ( const auto & [ index, child ] : held->childPathInfoKeyColl() ) {
      unlinkPathInfoKeys( held->parentPathInfoKey(), static_cast< std::uint8_t >( index ), child );
   }
   deleteChildren( *held );
}

void
PathSm::deleteChildren( const LinkedPathInfoKeys & held ) {
   for ( const auto & [ index, child ] : held.childPathInfoKeyColl() ) {
      deletePathInfoKey( child );
   }
}

Lum::Ptr< LinkedPathInfoKeys >
PathSm::getLinkedPathsFromCspfConfig( const PathKey & pathKey ) const {
   auto linked = Lum::make< LinkedPathInfoKeys >( externalPathInfoKey( pathKey ) );
   const PathInfoKey & parent = linked->parentPathInfoKey();
   const PathConstraint & constraint = cspfConfig()->pathConfigFind( pathKey )->constraint();
   checkParent( parent, constraint );
   for ( const PathSegment & segment : pathSegments( constraint, pathKey.dst() ) ) {
      if ( !segment.loose ) {
         continue;
      }
      if ( constraint.includeHopAllExplicit() ) {
         TRACE7( "Not creating childPath for explicit path " << parent.traceString() << " at hop "
                                                             << segment.end );
      } else {
         linked->childPathInfoKeyIs( segment.index, childPathInfoKey( parent, segment ) );
      }
   }
   return linked;
}

Lum::Ptr< LinkedPathInfoKeys >
PathSm::getLinkedPathsFromPathConfigInfo( const PathKey & pathKey ) const {
   auto linked = Lum::make< LinkedPathInfoKeys >( currentExternalPathInfoKey( pathKey ) );
   if ( const auto row = pathConfigInfoTable()->pathConfigInfo( linked->parentPathInfoKey() ) ) {
      for ( const auto & [ index, child ] : row->childPathColl() ) {
         linked->childPathInfoKeyIs( index, child );
      }
   }
   return linked;
}

void
PathSm::addOrUpdateChildPathInfoKey( const PathInfoKey & parentPathInfoKey,
                                     std::uint8_t pathSegmentIndex,
                                     const PathInfoKey & childPathInfoKey ) {
   addRows( childPathInfoKey, cspfConfig() );
   linkPathInfoKeys( parentPathInfoKey, pathSegmentIndex, childPathInfoKey );
   addOrUpdatePathInfoKey( childPathInfoKey );
}

void
PathSm::deleteChildPathInfoKey( const PathInfoKey & parentPathInfoKey,
                                std::uint8_t pathSegmentIndex,
                                const PathInfoKey & childPathInfoKey ) {
   unlinkPathInfoKeys( parentPathInfoKey, pathSegmentIndex, childPathInfoKey );
   deletePathInfoKey( childPathInfoKey );
}

void
PathSm::linkPathInfoKeys( const PathInfoKey & parentPathInfoKey, std::uint8_t pathSegmentIndex,
                          const PathInfoKey & childPathInfoKey ) {
   const auto parentPathConfigInfo = pathConfigInfoTable()->pathConfigInfo( parentPathInfoKey );
   LUM_ASSERT( !parentPathConfigInfo->childPathHas( pathSegmentIndex )
               || ( parentPathConfigInfo->childPath( pathSegmentIndex ) == childPathInfoKey ) );
   parentPathConfigInfo->childPathIs( pathSegmentIndex, childPathInfoKey );
   pathConfigInfoTable()->pathConfigInfo( childPathInfoKey )->parentPathIs( parentPathInfoKey );
}

void
PathSm::unlinkPathInfoKeys( const PathInfoKey & parentPathInfoKey, std::uint8_t pathSegmentIndex,
                            const PathInfoKey & childPathInfoKey ) {
   const auto parentPathConfigInfo = pathConfigInfoTable()->pathConfigInfo( parentPathInfoKey );
   LUM_ASSERT( parentPathConfigInfo->childPath( pathSegmentIndex ) == childPathInfoKey );
   parentPathConfigInfo->childPathDel( pathSegmentIndex );
   pathConfigInfoTable()->pathConfigInfo( childPathInfoKey )->parentPathIs( {} );
}

void
PathSmBase::dumpState( Kiv::DumpContext & context, int indent ) const {
   for ( const PathKey & pathKey : Lum::sortedKeys( cspfConfig_->pathConfigColl() ) ) {
      dumpPathConfig( *cspfConfig_->pathConfigFind( pathKey ), context, indent );
      if ( const PathStatus * status = cspfStatus_->pathStatusFind( pathKey ) ) {
         dumpPathStatus( *status, context, indent + 2 );
         const auto row = pathStatusInfoTable_->pathStatusInfo( externalPathInfoKey( pathKey ) );
         context.dumpAge( indent + 2, "Last Updated", row ? row->lastUpdatedAt() : 0 );
      }
   }
   for ( const PathKey & pathKey : Lum::sortedKeys( cspfStatus_->pathStatusColl() ) ) {
      if ( !cspfConfig_->pathConfigHas( pathKey ) ) {
         context.printf( indent,
                         "%*cDest: %s Id: %u is present in PathStatus, but has no PathConfig\n",
                         pathKey.dst().stringValue().c_str(), pathKey.id() );
      }
   }
}

void
PathSmBase::dumpPathConfig( const PathConfig & config, Kiv::DumpContext & context,
                            int indent ) const {
   const PathConstraint & constraint = config.constraint();
   context.printf( indent,
                   "%*cDest: %s Id: %u RefreshReqSeq: %u AutoUpdate: %s, Constraint intf: %s, "
                   "Constraint node: %s nexthopIntf %s, TopoId: %s\n",
                   config.pathKey().dst().stringValue().c_str(), config.pathKey().id(),
                   config.refreshReqSeq(), config.autoUpdate() ? "True" : "False",
                   constraint.excludeIntf().stringValue().c_str(),
                   constraint.excludeNode().nodeId().stringValue().c_str(),
                   constraint.excludeNode().nexthopIntf().stringValue().c_str(),
                   constraint.topoId().stringValue().c_str() );
   context.printf( indent, "%*cBandwidth: %llubwSetupPriority: %u, sharedBwGroupId: %u\n",
                   static_cast< unsigned long long >( constraint.bandwidth() ),
                   constraint.bwSetupPriority(), constraint.sharedBwGroupId() );
   context.printf( indent, "%*cExcludeLinkWithIp #%u\n",
                   static_cast< unsigned >( constraint.excludeLinkWithIps() ) );
   unsigned index = 0;
   for ( const Kivnet::IpGenAddr & address : constraint.excludeLinkWithIpList() ) {
      context.printf( indent + 2, "%*c%u : %s\n", index++, address.stringValue().c_str() );
   }
}

void
PathSmBase::dumpPathStatus( const PathStatus & status, Kiv::DumpContext & context,
                            int indent ) const {
   context.printf( indent, "%*cPathStatus -- RefreshRespSeq: %u ChangeCount:%u RepairPathIdx: %u\n",
                   status.refreshRespSeq(), status.changeCount(), status.repairPathIdx() );
   for ( const Kivnet::IpGenAddr & hop : status.pathList() ) {
      context.printf( indent + 2, "%*c%s\n", hop.stringValue().c_str() );
   }
   if ( const auto * pqInfo = cspfStatus_->pqInfoFind( status.repairPathIdx() ) ) {
      context.printf( indent, "%*cPqInfo idx: %u, nhIp: %s, nhIntf: %s\n", status.repairPathIdx(),
                      pqInfo->nhIp().stringValue().c_str(),
                      pqInfo->nhIntf().stringValue().c_str() );
   }
}

}
