#pragma once

#include "Cspf/Records/PathRows.h"

namespace Cspf {

/// The tables of one VRF and family in which a parent path and its children stand.
struct ChildPathTables {
   Lum::Ptr< const PathConfigInfoTable > pathConfigInfoTable;
   Lum::Ptr< PathStatusCacheTable > pathStatusCacheTable;
   Lum::Ptr< const PathStatusInfoTable > pathStatusInfoTable;
   Lum::Ptr< const ConstraintStatsTable > constraintStatsTable;

   /// True when each child of the parent has a result, and none of them has yet to follow its
   /// request or the change that the parent's refresh is for. Results may be of different moments
   /// since then. True for a parent without children. O(children).
   bool cspfDataConsistent( const PathInfoKey & parent ) const;

 protected:
   template< class Test >
   bool allChildren( const PathInfoKey & parent, Test && test ) const;

 private:
   bool childAnswers( const PathInfoKey & child, double since ) const;
};

/// ... and in which it stands what has changed since.
struct StitchTables : ChildPathTables {
   Lum::Ptr< const ConstraintInfoTable > constraintInfoTable;

   /// True when no child's constraint saw the topology change after the run that gave the child's
   /// result. O(children).
   bool cspfDataFresh( const PathInfoKey & parent ) const;
   /// ... of one child.
   bool childFresh( const PathInfoKey & child ) const;
};

/// Answers for one parent path whether its segments are still being computed.
class ParentPathHelper : public Lum::Entity {
   LUM_ENTITY( Cspf, ParentPathHelper );
   ParentPathHelper( const Lum::Ptr< const PathConfigInfoTable > & pathConfigInfoTable,
                     const Lum::Ptr< const PathStatusInfoTable > & pathStatusInfoTable,
                     const Lum::Ptr< const PathStatusCacheTable > & pathStatusCacheTable )
      : pathConfigInfoTable_( pathConfigInfoTable ),
        pathStatusInfoTable_( pathStatusInfoTable ),
        pathStatusCacheTable_( pathStatusCacheTable ) {}

   /// True while any child of the parent has its refresh flag set. False for a path without
   /// children. O(children).
   bool anyChildPathRefreshNeeded( const PathInfoKey & parent ) const;

 private:
   const Lum::Ptr< const PathConfigInfoTable > pathConfigInfoTable_;
   const Lum::Ptr< const PathStatusInfoTable > pathStatusInfoTable_;
   const Lum::Ptr< const PathStatusCacheTable > pathStatusCacheTable_;
};

class ChildPathStatusCacheSm;

/// Watches one child path's result.
///
///   watches                          handler
///   PathStatusCache.cspfData         handleCspfData
///   PathStatusInfo.refreshNeeded     handleCspfData
class ChildPathStatusSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, ChildPathStatusSm );
   /// The owner outlives this object.
   ChildPathStatusSm( ChildPathStatusCacheSm & owner,
                      const Lum::Ptr< const PathStatusCache > & cache,
                      const Lum::Ptr< const PathStatusInfo > & pathStatusInfo )
      : owner_( owner ),
        cache_( cache ),
        pathStatusInfo_( pathStatusInfo ) {}

   void handleInitialized() override;
   void handleCspfData();

 private:
   ChildPathStatusCacheSm & owner_;
   const Lum::Ptr< const PathStatusCache > cache_;
   const Lum::Ptr< const PathStatusInfo > pathStatusInfo_;
};

/// Tells a parent path when its segments have been computed: one in a VRF root.
///
///   watches                                 handler                 makes or writes
///   PathStatusCacheTable.pathStatusCache    handlePathStatusCache   childPathStatus, one a child
///   (each child's result)                   handleCspfData          its parent's
///                                                                    refreshedStage1Count
class ChildPathStatusCacheSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, ChildPathStatusCacheSm );
   ChildPathStatusCacheSm( const Lum::Ptr< const PathConfigInfoTable > & pathConfigInfoTable,
                           const Lum::Ptr< PathStatusCacheTable > & pathStatusCacheTable,
                           const Lum::Ptr< const PathStatusInfoTable > & pathStatusInfoTable,
                           const Lum::Ptr< const ConstraintStatsTable > & constraintStatsTable )
      : tables_{ pathConfigInfoTable, pathStatusCacheTable, pathStatusInfoTable,
                 constraintStatsTable } {}
   LUM_CHILDREN( childPathStatus, PathInfoKey, ChildPathStatusSm );

   void handleInitialized() override;
   void doPrepareToDie() override { childPathStatusDelAll(); }
   void handlePathStatusCache( const PathInfoKey & key );
   /// A child's result changed, or the child no longer waits for one.
   void handleCspfData( const PathInfoKey & child );
   /// Counts a completed first stage on a parent that waits. REQUIRES: there is the parent.
   void updateParentPathInfo( const PathInfoKey & parent );
   bool cspfDataConsistent( const PathInfoKey & parent ) const {
      return tables_.cspfDataConsistent( parent );
   }

 private:
   const ChildPathTables tables_;
};

}
