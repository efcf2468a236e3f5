#pragma once

#include "platform/Kiv/DedupTable.h"
#include "schema/BwUsage.h"

namespace Cspf {

/// One reservation: a user's bandwidth on a link at a priority. Paths that reserve the same share
/// one, and it is released when the last of them lets it go.
class BwUsageDeduped : public Kiv::DedupHandle {
   LUM_ENTITY( Cspf, BwUsageDeduped );
   BwUsageDeduped( BwUsageKey key, BwPriority priority, std::uint64_t bandwidth )
      : key_( std::move( key ) ),
        priority_( priority ),
        bandwidth_( bandwidth ) {}

   const BwUsageKey & bwUsageKey() const noexcept { return key_; }
   BwPriority priority() const noexcept { return priority_; }
   std::uint64_t bandwidth() const noexcept { return bandwidth_; }
   /// "link=..;bwUsageId=..|3|1000"
   std::string stringValue() const;
   std::size_t hash() const override;
   std::strong_ordering compare( const Kiv::DedupHandle & other ) const override;

 private:
   BwUsageKey key_;
   BwPriority priority_;
   std::uint64_t bandwidth_;
};

}
