#pragma once

#include "Cspf/Repairs/TilfaKeys.h"
#include "Cspf/Requests/PathSm.h"

#include <set>

namespace Cspf {

/// Follows the requests of the client "tilfa". Each becomes a key of its own and the internal keys
/// of the plain trees that its protection needs. A tree that another protection replaces stays
/// until the new one has its first result.
///
///   watches                            handler             writes
///   (as PathSmBase)
///   PathStatusInfo.stage2RequestCount  handleFirstResult   rows of replaced trees (removes)
class TilfaPathSm : public PathSmBase {
   LUM_ENTITY( Cspf, TilfaPathSm );
   using PathSmBase::PathSmBase;

   void handleCspfConfig( const PathKey & pathKey ) override;
   PathInfoKey externalPathInfoKey( const PathKey & pathKey ) const override;
   void doCleanupPathInfoKeyEntries( const PathKey & pathKey ) override;
   void handleFirstResult();

   /// The internal keys of a client path; without keys where it is not tracked.
   const TilfaPathInfoKeyColl & tilfaPathInfoKeyColl( const PathKey & pathKey ) const;

 private:
   TilfaPathInfoKeyColl wantedKeys( const PathKey & pathKey,
                                    const PathConstraint & constraint ) const;
   void addTree( const PathInfoKey & key );
   bool hasResult( const PathInfoKey & key ) const;
   void deleteStaleKeys( TilfaPathInfoKeyColl & keys );

   Lum::Map< PathKey, TilfaPathInfoKeyColl > keys_;
   std::set< PathKey > replacing_;  // paths with stale keys
};

}
