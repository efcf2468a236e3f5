#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/lab/LabCost.h"
#include "tools/lab/LabOutcome.h"
#include "tools/lab/LabRecords.h"

namespace Lab {

/// What a lab calls the paths that are asked for; pointers into its document.
struct LabPathName {
   const std::string * name = nullptr;
   const LabPath * path = nullptr;
};
using LabPathsByKey = std::map< ClientTable, std::map< Cspf::PathKey, LabPathName > >;

/// Reads what the agent has published back from the stores. The lab gives names and metrics.
class LabObserver {
 public:
   /// All outlive it.
   LabObserver( const LabDocument & document, Corvdb::StateStore & state,
                Zorch::TableStore & tables );

   /// Takes what a patch has done to the document.
   void follow( const LabChange & change );
   /// `time` is in seconds from the start of the lab. O(what is published).
   Outcome observe( double time ) const;

 private:
   void setNames();

   const LabDocument & document_;
   Corvdb::StateStore & state_;
   Zorch::TableStore & tables_;
   LabCosts costs_;
   LabPathsByKey names_;
};

/// The same, once.
Outcome observe( const LabDocument & document, Corvdb::StateStore & state,
                 Zorch::TableStore & tables, double time );

}
