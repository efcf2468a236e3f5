#pragma once

#include "Cspf/Graph/TreeRepair.h"
#include "Cspf/Graph/TreeRun.h"
#include "Cspf/Records/PathRecords.h"
#include "Cspf/Runs/RunData.h"
#include "Cspf/Runs/SharedLabels.h"
#include "Cspf/Views/View.h"

namespace Cspf {

/// What runs work in. They follow each other on one loop, so one memory serves all constraints of
/// a VRF, and a run allocates nothing once the topology has its size.
class CspfRunMemory {
 public:
   /// Takes the tree of a run back when its results were handed out.
   void reclaim( CspfData & cspfData );
   /// Hands the tree of an earlier run on to the next, in line with the topology as it is, or
   /// reclaims it, and gives false. The rest as CspfTreeRepair::follow.
   bool followTree( CspfData & earlier, CspfData & next, const CspfLinkFilter & filter,
                    std::span< const CspfEdgeChange > changes, bool reshaped );
   /// What constraints keep between runs, and share.
   SharedLabels & sharedLabels() noexcept { return sharedLabels_; }

 private:
   friend class CspfRun;
   CspfLinkFilter filter_;
   CspfTreeRun treeRun_;
   CspfTreeRepair treeRepair_;
   CspfTree spareTree_;
   SharedLabels sharedLabels_;
};

/// One constrained shortest-path run. Creating it runs it to completion; what it found stands in
/// the data.
class CspfRun {
 public:
   /// REQUIRES: the data is fresh and its source is a node of the view. O(edges + vertices), and a
   /// few look-ups for each destination.
   CspfRun( CspfRunMemory & memory, CspfData & cspfData,
            const Lum::Ptr< const AllTopoDbView > & view );
   /// Takes what a run would find from a tree that is there; it outlives the handing out of
   /// answers. O(destinations).
   CspfRun( CspfData & cspfData, const Lum::Ptr< const AllTopoDbView > & view,
            const CspfLabelTree & tree );

 private:
   const CspfData * cspfData() const noexcept { return &cspfData_; }
   void doRunCspf( CspfRunMemory & memory );
   void doSearchAndUpdateForTeps();
   void searchForTep( CspfData::Tep & tep, const char * operation );
   void tellTep( const CspfData::Tep & tep, const std::vector< CspfVertex > & routers,
                 const char * operation ) const;

   CspfData & cspfData_;
   const AllTopoDbView & view_;
};

/// The same run in a memory of its own. Its results stand as long as the data does.
void CspfRunIs( const Lum::Ptr< CspfData > & cspfData,
                const Lum::Ptr< const AllTopoDbView > & view );

}
