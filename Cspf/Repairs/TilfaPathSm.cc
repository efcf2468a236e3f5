// From a TI-LFA request to the rows of its computations. The rows of the trees come before the
// request's own, since whoever serves that one looks for them. Which keys a request has follows
// from its constraint alone: a change of link into node protection replaces the reverse tree by
// one that leads to the node.
//
// A request without a protected interface has neither neighbour nor repair; it keeps its own key,
// under which the client reads why.

#include "Cspf/Repairs/TilfaPathSm.h"

#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

namespace {

bool
hasKey( const auto & keys, const PathInfoKey & key ) {
   return std::ranges::find( keys, key ) != keys.end();
}

ConstraintModifier
modifierOf( TilfaTree tree, bool isLinkProtection ) {
   switch ( tree ) {
   case TilfaTree::forward: return unconstrainedSpfAtPlr();
   case TilfaTree::neighbor: return unconstrainedSpfAtProtectedNode();
   case TilfaTree::reverse: break;
   }
   return isLinkProtection ? unconstrainedReverseSpfAtPlr()
                           : unconstrainedReverseSpfAtProtectedNode();
}

}

PathInfoKey
tilfaTreeKey( const PathInfoKey & external, TilfaTree tree, bool isLinkProtection ) {
   PathInfoKey key = external;
   key.internalIs( true );
   key.constraintModifierIs( modifierOf( tree, isLinkProtection ) );
   key.parentPathKeyIs( external.pathKey() );
   return key;
}

PathInfoKey
TilfaPathSm::externalPathInfoKey( const PathKey & pathKey ) const {
   PathInfoKey key;
   key.clientNameIs( name() );
   key.pathKeyIs( pathKey );
   return key;
}

const TilfaPathInfoKeyColl &
TilfaPathSm::tilfaPathInfoKeyColl( const PathKey & pathKey ) const {
   static const TilfaPathInfoKeyColl none;
   const auto keys = keys_.find( pathKey );
   return keys == keys_.end() ? none : keys->second;
}

TilfaPathInfoKeyColl
TilfaPathSm::wantedKeys( const PathKey & pathKey, const PathConstraint & constraint ) const {
   TilfaPathInfoKeyColl keys;
   keys.isLinkProtectionIs( isLinkProtection( constraint ) );
   keys.pathKeyIs( pathKey );
   keys.clientNameIs( name() );
   if ( constraint.excludeIntf() ) {
      const PathInfoKey external = externalPathInfoKey( pathKey );
      for ( const TilfaTree tree : tilfaTrees ) {
         keys.pathInfoKey_.push( tilfaTreeKey( external, tree, keys.isLinkProtection() ) );
      }
   }
   return keys;
}

void
TilfaPathSm::handleCspfConfig( const PathKey & pathKey ) {
   TRACE7( pathKey.dst() << ", id " << pathKey.id() << ", vrf " << vrfName() << ", af "
                         << text( af() ) );
   LUM_ASSERT( pathConfigInfoTable() );
   const PathConfig * config = cspfConfig()->pathConfigFind( pathKey );
   if ( !config ) {
      doCleanupPathInfoKeyEntries( pathKey );
      return;
   }
   TilfaPathInfoKeyColl wanted = wantedKeys( pathKey, config->constraint() );
   const TilfaPathInfoKeyColl held = tilfaPathInfoKeyColl( pathKey );
   for ( const auto & keys : { held.pathInfoKey_, held.stalePathInfoKey_ } ) {
      for ( const PathInfoKey & key : keys ) {
         if ( !hasKey( wanted.pathInfoKey_, key ) ) {
            wanted.stalePathInfoKey_.push( key );
         }
      }
   }
   keys_[ pathKey ] = wanted;
   if ( wanted.stalePathInfoKeys() > 0 ) {
      replacing_.insert( pathKey );
   }
   for ( const PathInfoKey & key : wanted.pathInfoKey_ ) {
      addTree( key );
   }
   addOrUpdatePathInfoKey( externalPathInfoKey( pathKey ) );
   handleFirstResult();
}

void
TilfaPathSm::addTree( const PathInfoKey & key ) {
   const bool isNew = !pathConfigInfoTable()->pathConfigInfoHas( key );
   addOrUpdatePathInfoKey( key );
   if ( isNew ) {
      LUM_WATCH( pathStatusInfoTable()->pathStatusInfo( key ), stage2RequestCount,
                 handleFirstResult );
   }
}

bool
TilfaPathSm::hasResult( const PathInfoKey & key ) const {
   const auto & row = pathStatusInfoTable()->pathStatusInfo( key );
   return row && row->stage2RequestCount() > 0;
}

void
TilfaPathSm::handleFirstResult() {
   const std::set< PathKey > replacing = replacing_;
   for ( const PathKey & pathKey : replacing ) {
      TilfaPathInfoKeyColl & keys = keys_[ pathKey ];
      if ( std::ranges::all_of( keys.pathInfoKeyList(),
                                [ & ]( const auto & key ) { return hasResult( key ); } ) ) {
         replacing_.erase( pathKey );
         deleteStaleKeys( keys );
      }
   }
}

void
TilfaPathSm::deleteStaleKeys( TilfaPathInfoKeyColl & keys ) {
   const auto stale = std::exchange( keys.stalePathInfoKey_, {} );
   for ( const PathInfoKey & key : stale ) {
      deletePathInfoKey( key );
   }
}

/// What is published of the path goes first: it names a repair, which goes with the rows.
void
TilfaPathSm::doCleanupPathInfoKeyEntries( const PathKey & pathKey ) {
   TRACE7( "Deleting all PathInfoKey Entries for " << pathKey.dst() << ", id " << pathKey.id() );
   TilfaPathInfoKeyColl keys = tilfaPathInfoKeyColl( pathKey );
   keys_.erase( pathKey );
   replacing_.erase( pathKey );
   cspfStatus()->pathStatusDel( pathKey );
   deletePathInfoKey( externalPathInfoKey( pathKey ) );
   deleteStaleKeys( keys );
   for ( const PathInfoKey & key : keys.pathInfoKeyList() ) {
      deletePathInfoKey( key );
   }
}

}
