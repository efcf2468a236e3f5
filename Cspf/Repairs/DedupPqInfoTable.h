#pragma once

#include "Cspf/Records/PqInfo.h"
#include "platform/Kiv/NumAllocator.h"
#include "schema/CspfStatus.h"

#include <map>

namespace Cspf::Lfa {

class DedupPqInfoTable;

/// Publishes a repair under an identifier of its own when its first user comes, and withdraws it
/// after the last one has let it go.
class DedupPqInfoLTNotifiee : public Kiv::DedupLifeTimeNotifiee {
   LUM_ENTITY( Cspf::Lfa, DedupPqInfoLTNotifiee );
   /// The table outlives this object.
   explicit DedupPqInfoLTNotifiee( DedupPqInfoTable & table ) : table_( table ) {}

   void handleInsert( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;
   void handleRemove( const Lum::Ptr< Kiv::DedupHandle > & handle ) override;

 private:
   DedupPqInfoTable & table_;
};

/// The repairs of one VRF and family, each distinct one once, as the client reads them in
/// `Status::pqInfo`. An entry stays published while somebody uses it, and beyond that while a
/// published path names it: a path never names an entry that is not there. That holds across a
/// restart of the agent; an entry that is needed again keeps its identifier.
///
///   watches             handler            writes
///   Status.pathStatus   handlePathStatus   Status.pqInfo (removes)
class DedupPqInfoTable : public Lum::Reactor {
   LUM_ENTITY( Cspf::Lfa, DedupPqInfoTable );
   static constexpr std::uint64_t firstIdx = 1, lastIdx = 1'000'000;

   explicit DedupPqInfoTable( const Lum::Ptr< Status > & status,
                              const Kiv::Range & identifiers = { firstIdx, lastIdx } );

   void handleInitialized() override;
   void handlePathStatus( const PathKey & pathKey );

   /// The shared entry of the repair. Its identifier is 0, and it is not published, when all
   /// identifiers are in use.
   Lum::Ptr< DedupPqInfo > dedup( const PqPath & path );

   /// Where the repairs are published.
   const Lum::Ptr< Status > & status() const noexcept { return status_; }
   const Lum::Ptr< Kiv::DedupTable< DedupPqInfo > > & dedupTable() const { return dedupTable_; }
   const Lum::Ptr< Kiv::NumAllocator > & idAllocator() const { return idAllocator_; }
   /// The identifiers that there are.
   const Kiv::Range & idConfig() const { return idConfig_; }
   const Lum::Ptr< Kiv::NumAllocatorStatus > & idStatus() const { return idStatus_; }

 private:
   friend class DedupPqInfoLTNotifiee;
   struct Use {
      std::uint32_t paths = 0;  // published ones that name the entry
      bool held = false;        // by a handle
   };

   void takeOverPublished();
   void publish( DedupPqInfo & pqInfo );
   void release( const DedupPqInfo & pqInfo );
   void withdrawIfUnused( std::uint32_t idx );

   const Lum::Ptr< Status > status_;
   const Kiv::Range idConfig_;
   const Lum::Ptr< Kiv::NumAllocatorStatus > idStatus_;
   const Lum::Ptr< Kiv::NumAllocator > idAllocator_;
   const Lum::Ptr< Kiv::DedupTable< DedupPqInfo > > dedupTable_;
   std::map< std::uint32_t, Use > uses_;       // of what is published, by identifier
   Lum::Map< PathKey, std::uint32_t > named_;  // by published path
   Lum::Map< PqPath, std::uint32_t > unheld_;  // published, named by a path, and nothing more
};

}
