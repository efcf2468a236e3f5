#pragma once

#include "platform/Kiv/DedupTable.h"
#include "schema/CspfStatus.h"

namespace Cspf::Lfa {

/// One repair: the next hop, then the repair nodes in order.
struct PqPath {
   LUM_VALUE( Cspf::Lfa, PqPath );
   LUM_FIELD( nhIp, Kivnet::IpGenAddr );
   LUM_FIELD( nhIntf, Kivnet::IntfId );
   LUM_LIST( path, RepairNodeIdx, Routing::Isis::SystemId );
   LUM_LIST( segment, RepairNodeIdx, RepairSegment );
};

/// A repair that is shared by all requests that need the same one, with the identifier under
/// which it is published.
class DedupPqInfo : public Kiv::DedupHandle {
   LUM_ENTITY( Cspf::Lfa, DedupPqInfo );
   explicit DedupPqInfo( PqPath path ) : pqPath_( std::move( path ) ) {}

   const PqPath & pqPath() const noexcept { return pqPath_; }
   /// 0 until the table has taken it in.
   std::uint32_t pqIdx() const noexcept { return pqIdx_; }
   void pqIdxIs( std::uint32_t idx ) noexcept { pqIdx_ = idx; }
   std::size_t hash() const override { return Lum::hashOf( pqPath_ ); }
   std::strong_ordering compare( const Kiv::DedupHandle & other ) const override {
      return pqPath_ <=> static_cast< const DedupPqInfo & >( other ).pqPath_;
   }

 private:
   PqPath pqPath_;
   std::uint32_t pqIdx_ = 0;
};

}
