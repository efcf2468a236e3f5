#pragma once

#include "Cspf/Runs/ConstraintInfoSm.h"

namespace Cspf {

/// Runs the trees of one TI-LFA constraint over the LFA view. A tree is run again only when the
/// graph, the node that it starts from, or what the constraint refuses in the graph has changed
/// since: a new destination, or a prefix that moved, costs no run. Nor does a change of the graph
/// that leaves the tree as it is; that counts as a run, and what comes of it is the same tree.
///
/// With CSPF_VERIFY_REPAIR=1 in the environment every tree that is kept is compared with a run.
class TilfaConstraintInfoSm : public ConstraintInfoSmBase {
   LUM_ENTITY( Cspf, TilfaConstraintInfoSm );
   using ConstraintInfoSmBase::ConstraintInfoSmBase;

   /// What the constraint excludes from the view that its tree is run over: for one that starts at
   /// the far end of a link nothing, since there `excludeIntf` and `excludeNode` name the start.
   static InternalPathConstraint viewConstraint( InternalPathConstraint constraint );

   void handleInitialized() override;
   void handlePathUpdate( const PathInfoKey & key ) override;
   void handleThrottleTimeout() override;
   /// Whether the link is there, and leads to the node that the constraint names. REQUIRES: the
   /// constraint starts at the far end of a link; others name nothing that must be there.
   bool checkConstraintInTopoDb() override;
   /// The last run, with its tree.
   const Lum::Ptr< LfaCspfData > & cspfData() const noexcept { return cspfData_; }
   void cspfDataIs( const Lum::Ptr< LfaCspfData > & cspfData ) { cspfData_ = cspfData; }
   /// Hands the tree to those who wait for it; null: there is none.
   void updatePathStatusCache( const Lum::Ptr< CspfData > & cspfData );

 private:
   /// What stands behind the constraint's interface: the router at the far end of a link, the named
   /// neighbour or node on a LAN, else the LAN itself. Links without their two-way check are gone.
   struct FarEnd {
      ConstraintMissing missing = ConstraintMissing::nothing;
      NodeId node = {};
   };
   FarEnd farEnd() const;
   FarEnd farEndOnLan( CspfEdge link ) const;
   bool isNodeOfConstraint( const NodeId & neighbor ) const;
   NodeId source() const;
   /// The constraint as it is translated now. May renumber the graph.
   CspfLinkConstraint numbersFor( const NodeId & source ) const;
   bool cspfDataHolds() const;
   void endWithoutRun();
   bool treeFollows( const Lum::Ptr< LfaCspfData > & last );
   void computeTree( const char * operation );
   void updatePath( const PathInfoKey & key, const Lum::Ptr< CspfData > & cspfData );

   Lum::Ptr< LfaCspfData > cspfData_;
   CspfLinkConstraint numbers_;     // that its tree was run with
   std::uint64_t position_ = 0;     // in the graph's changes, up to which the tree is right
   std::set< PathInfoKey > trees_;  // the internal ones of the constraint's paths
};

}
