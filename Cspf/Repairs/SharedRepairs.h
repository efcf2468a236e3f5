#pragma once

#include "Cspf/Detours/RepairTable.h"
#include "Cspf/Runs/RunData.h"

#include <memory>

namespace Cspf {
class TopoGraph;
}

namespace Cspf::Lfa {

/// The runs that one repair is worked out of.
struct RepairRuns {
   Lum::Ptr< const LfaCspfData > constrained;  ///< without the protected resource
   Lum::Ptr< const LfaCspfData > forward;      ///< plain, from this router
   Lum::Ptr< const LfaCspfData > neighbor;     ///< plain, from the protected node
   Lum::Ptr< const LfaCspfData > reverse;      ///< plain, to this router or to the protected node
   bool isLinkProtection = true;

   /// All there, and all of the topology as it is now.
   bool complete() const;
   /// What they protect. REQUIRES: they are complete.
   CspfProtectedResource resource() const;
   bool operator==( const RepairRuns & ) const = default;
};

/// The repairs of one protected link or node towards all destinations. What requests behind it have
/// in common is worked out once, when the first of them asks.
class SharedRepairs {
 public:
   SharedRepairs() = default;
   /// REQUIRES: the runs are complete, or there are none.
   explicit SharedRepairs( RepairRuns runs );

   const RepairRuns & runs() const noexcept { return runs_; }
   /// Whether all that was worked out of the runs would come out of these as well: of the same
   /// trees, and of a graph in which nothing else has changed that repairs read. REQUIRES: those
   /// are complete. O(changes * links of their ends).
   bool holdFor( const RepairRuns & now ) const;
   /// Goes on with runs that it holds for. What is asked next is worked out of these.
   void runsAre( RepairRuns now );
   /// REQUIRES: the runs are complete.
   const TopoGraph & topology() const;
   CspfRepairTable & table();

 private:
   bool readsForwarding() const {
      return readForwarding_ || ( table_ && table_->readsForwarding() );
   }
   bool haveSameTrees( const RepairRuns & now ) const;

   RepairRuns runs_;
   CspfProtectedResource resource_;
   std::uint64_t position_ = 0;   // in the graph's changes, when the runs were those that there are
   bool readForwarding_ = false;  // by answers of earlier runs that hold
   std::unique_ptr< CspfRepairTable > table_;
};

}
