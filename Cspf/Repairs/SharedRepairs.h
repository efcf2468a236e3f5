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
   bool operator==( const RepairRuns & ) const = default;
};

/// The repairs of one protected link or node towards all destinations. Worked out once, when the
/// first of the requests behind it asks.
class SharedRepairs {
 public:
   SharedRepairs() = default;
   explicit SharedRepairs( RepairRuns runs ) : runs_( std::move( runs ) ) {}

   const RepairRuns & runs() const noexcept { return runs_; }
   /// REQUIRES: the runs are complete.
   const TopoGraph & topology() const;
   const CspfRepairTable & table();

 private:
   RepairRuns runs_;
   std::unique_ptr< CspfRepairTable > table_;
};

}
