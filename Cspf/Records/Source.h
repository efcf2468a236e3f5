#pragma once

#include "platform/Kivnet/VrfName.h"
#include "platform/Lum/Attribute.h"
#include "platform/Lum/Clock.h"
#include "schema/CspfKeys.h"

namespace Cspf {

/// Where one kind of computation starts.
struct VrfClientSourceId {
   LUM_VALUE( Cspf, VrfClientSourceId );
   LUM_FIELD( pathComputationType, PathComputationType );
   LUM_FIELD( sourceId, NodeId );
   LUM_FIELD( changedAt, Lum::Seconds );  ///< when it was set
};

/// The sources of one VRF and family. It lives while there is one.
class VrfSourceId : public Lum::Entity {
   LUM_ENTITY( Cspf, VrfSourceId );
   explicit VrfSourceId( const L3::VrfName & vrfName ) : vrfName_( vrfName ) {}
   const L3::VrfName & vrfName() const noexcept { return vrfName_; }
   LUM_COLLECTION_ORDERED( vrfClientSourceId, PathComputationType, VrfClientSourceId );

 private:
   const L3::VrfName vrfName_;
};

}
