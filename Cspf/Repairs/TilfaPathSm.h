#pragma once

#include "Cspf/Repairs/TilfaKeys.h"
#include "Cspf/Requests/PathSm.h"
#include "Cspf/Requests/RepairScope.h"
#include "Cspf/Requests/RunHold.h"

#include <set>

namespace Cspf {

/// Follows the requests of the client "tilfa". Each becomes a key of its own; the internal keys of
/// the trees that its protection needs are shared by all requests that differ in the destination
/// alone. Trees that others replace stay until the new ones have their first result. Repairs that
/// an earlier agent has left, and that no path names, are removed when all requests are taken in.
///
///   watches                            handler             writes
///   (as PathSmBase)
///   RepairScope.changeCount            handleScope         (as handleCspfConfig, by slices)
///   PathStatusInfo.stage2RequestCount  endStaleOf          rows of replaced trees (removes)
///   (of trees that replace others)
class TilfaPathSm : public PathSmBase {
   LUM_ENTITY( Cspf, TilfaPathSm );
   /// `scope` may be null: requests that name no topology are computed over all of them.
   /// `taskScheduler`: as PathSmBase.
   TilfaPathSm( Kivnet::AddressFamily af, const L3::VrfName & vrfName, const Lum::String & name,
                const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
                const Lum::Ptr< const Config > & cspfConfig, const Lum::Ptr< Status > & cspfStatus,
                const Lum::Ptr< PathConfigInfoTable > & pathConfigInfoTable,
                const Lum::Ptr< PathStatusInfoTable > & pathStatusInfoTable,
                const Lum::Ptr< const RepairScope > & scope = nullptr,
                const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler = nullptr );

   void handleInitialized() override;
   void doPrepareToDie() override;
   void handleTakenIn() override;
   void leave() override;
   void handleCspfConfig( const PathKey & pathKey ) override;
   PathInfoKey externalPathInfoKey( const PathKey & pathKey ) const override;
   void doCleanupPathInfoKeyEntries( const PathKey & pathKey ) override;
   bool isFollowed( const PathKey & pathKey ) const override {
      return requests_.contains( pathKey );
   }
   std::vector< PathKey > followedPaths() const override { return Lum::keysOf( requests_ ); }
   void handleScope();

   /// The internal keys of one tree (TilfaTree, by number) of a client path; the default where the
   /// path is not tracked.
   TilfaPathInfoKeyColl tilfaPathInfoKeyColl( const PathKey & pathKey,
                                              TilfaPathInfoKeyIndex tree ) const;

 private:
   /// What one request uses; 0: none.
   struct Request {
      TopoId topoId;  // that it is computed over, where it names none
      std::uint32_t trees = 0, stale = 0;
   };
   struct Trees {
      PathConstraint constraint;
      std::uint32_t users = 0;
   };

   /// Trees that replace others, and the requests that keep theirs until these have a result.
   class Replacing;

   std::size_t moveToScope( const PathKey & pathKey );
   void endMoving();
   void stopMoving();
   TopoId topoIdOf( const PathKey & pathKey, const PathConstraint & constraint,
                    const TopoId & before ) const;
   PathConstraint treesConstraint( const PathConfig & config, const TopoId & topoId ) const;
   std::vector< PathInfoKey > keysOf( std::uint32_t trees ) const;
   std::uint32_t treesIs( const PathConstraint & constraint );
   void treesDel( std::uint32_t & trees );
   void replace( const PathKey & pathKey, std::uint32_t trees );
   bool haveResult( std::uint32_t trees ) const;
   void endStaleOf( std::uint32_t trees );
   void replacingDel( std::uint32_t trees );

   const Lum::Ptr< const RepairScope > scope_;
   const Lum::Ptr< Config > treesConfig_;  // what the trees ask for: { no destination, number }
   Lum::Map< PathKey, Request > requests_;
   std::map< std::uint32_t, Trees > trees_;
   Lum::Map< PathConstraint, std::uint32_t > treesOf_;
   std::map< std::uint32_t, Lum::Ptr< Replacing > > replacing_;
   std::uint32_t lastTrees_ = 0;
   Kiv::Walk< PathKey > scopeWalk_;
   RunHold runHold_{ pathStatusInfoTable() };
   bool movesAgain_ = false;
};

}
