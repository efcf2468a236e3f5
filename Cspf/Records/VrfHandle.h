#pragma once

#include "platform/Kiv/DedupTable.h"
#include "platform/Kivnet/VrfName.h"

namespace Cspf {

/// Says that somebody needs a VRF.
class DedupVrfHandle : public Kiv::DedupHandle {
   LUM_ENTITY( Cspf, DedupVrfHandle );
   explicit DedupVrfHandle( const L3::VrfName & vrfName ) : vrfName_( vrfName ) {}
   const L3::VrfName & vrfName() const noexcept { return vrfName_; }
   std::size_t hash() const override { return vrfName_.hash(); }
   std::strong_ordering compare( const Kiv::DedupHandle & other ) const override {
      return vrfName_ <=> static_cast< const DedupVrfHandle & >( other ).vrfName_;
   }

 private:
   const L3::VrfName vrfName_;
};

/// REQUIRES: the handle is that of a VRF.
inline const L3::VrfName &
vrfOf( const Lum::Ptr< Kiv::DedupHandle > & handle ) {
   const auto castHandle = Lum::cast< const DedupVrfHandle >( handle );
   LUM_ASSERT( castHandle );
   return castHandle->vrfName();
}

inline Lum::Ptr< DedupVrfHandle >
dedupVrfHandleFactory( const L3::VrfName & vrf ) {
   return Lum::make< DedupVrfHandle >( vrf );
}

}
