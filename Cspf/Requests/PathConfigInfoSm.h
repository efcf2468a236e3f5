#pragma once

#include "Cspf/Records/PathRows.h"
#include "platform/Kiv/NumAllocator.h"
#include "schema/TrafficEngineering.h"

namespace Cspf {

/// The constraint that a client asked for, as the modifier changes it. Without the parts that the
/// agent derives (SRLGs of what is excluded, the user of bandwidth, a segment's source).
///
///   noChange              as asked
///   noSpf                 as asked, and nothing is computed: the path is stitched or given
///   spfForPathSegment     without the include hops; computed from the segment's source
///   spfWithoutProtectedLink  without the excluded node, which is behind the excluded interface
///   unconstrained...      what names the topology, and nothing else that was asked:
///     SpfAtPlr              the tree from this router
///     ReverseSpfAtPlr       the tree to this router
///     ...AtProtectedNode    the tree from or to the node behind `excludeIntf`, which stays, like
///                           `excludeNode`, `neighborLink` and `neighbor`, to name that node: a
///                           constraint with source type `neighborOnLink` excludes nothing
///
/// REQUIRES: for `spfForPathSegment` there are include hops, for a protected node an `excludeIntf`.
InternalPathConstraint modifiedConstraint( const PathConstraint & constraint,
                                           ConstraintModifier modifier );

/// The constraint with `excludeSrlgDerived` set to the SRLGs of the interfaces that it excludes
/// (of an excluded node: the interface before it), when it asks for their avoidance.
/// `teStatus` may be null: no interface has SRLGs.
InternalPathConstraint withDerivedSrlgs( InternalPathConstraint constraint,
                                         const TrafficEngineering::Status * teStatus );

/// What the requests of one VRF and family are turned into constraints with.
struct RequestContext {
   Lum::Ptr< DedupConstraintTable > dedupConstraintTable;
   Lum::Ptr< const PathStatusInfoTable > pathStatusInfoTable;
   Lum::Ptr< const PathStatusCacheTable > pathStatusCacheTable;
   Lum::Ptr< const TrafficEngineering::Status > teStatus;  ///< may be null
   Lum::Ptr< Kiv::NumAllocator > localIds;  ///< of bandwidth users without a shared group
};

/// Turns the request for a path into its constraint, and asks for a refresh. A request for
/// bandwidth at a priority that does not exist, or from a source that is not served, is answered
/// with an empty path and the reason.
///
///   watches                                   handler             writes
///   PathConfigInfo.configChangeCount          handleChangeCount   PathStatusInfo.constraint,
///   PathConfigInfo.derivedConfigChangeCount   handleChangeCount     lastRefreshReqSeq,
///                                                                   refreshReason, refreshNeeded
class PathConfigInfoSm : public Lum::Reactor {
   LUM_ENTITY( Cspf, PathConfigInfoSm );
   /// The context outlives this object.
   PathConfigInfoSm( const RequestContext & context,
                     const Lum::Ptr< PathConfigInfo > & pathConfigInfo,
                     const Lum::Ptr< PathStatusInfo > & pathStatusInfo )
      : context_( context ),
        pathConfigInfo_( pathConfigInfo ),
        pathStatusInfo_( pathStatusInfo ) {}

   void handleInitialized() override;
   /// Gives the path's local bandwidth id back.
   void doPrepareToDie() override;
   void handleChangeCount();

   InternalPathConstraint getUpdatedConstraint( const PathConstraint & constraint,
                                                ConstraintModifier modifier ) const;
   InternalPathConstraint getDerivedConstraint( const InternalPathConstraint & constraint ) const;
   /// The new constraint with its user of bandwidth: the shared group that it names, else the old
   /// constraint's local id or a fresh one; none when it asks for no bandwidth.
   InternalPathConstraint doUpdateBwUsageId( const InternalPathConstraint & oldConstraint,
                                             const InternalPathConstraint & newConstraint );

 private:
   std::uint32_t changeCount() const {
      return pathConfigInfo_->configChangeCount() + pathConfigInfo_->derivedConfigChangeCount();
   }
   InternalPathConstraint withBwUsageId( const InternalPathConstraint & derived );
   InternalPathConstraint withUserOf( const PathInfoKey & parent,
                                      InternalPathConstraint constraint ) const;
   const Lum::Ptr< Kiv::NumAllocator > & bwUsageLocalIdAllocator() const {
      return context_.localIds;
   }
   std::uint32_t newLocalId();
   void releaseLocalId( const InternalPathConstraint & constraint );
   /// ... of the path's constraint; null: it had none.
   void releaseOwnId( const Lum::Ptr< DedupConstraint > & constraint );
   void refuse( const std::string & error, std::uint32_t refreshReqSeq );
   void requestRefresh( std::uint32_t refreshReqSeq, bool constraintReplaced );

   const RequestContext & context_;
   const Lum::Ptr< PathConfigInfo > pathConfigInfo_;
   const Lum::Ptr< PathStatusInfo > pathStatusInfo_;
   std::uint32_t configChangesSeen_ = 0;
};

}
