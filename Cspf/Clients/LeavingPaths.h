#pragma once

#include "Cspf/Records/VrfHandle.h"
#include "Cspf/Requests/PathSm.h"

#include <utility>

namespace Cspf {

class AllClientInfo;

/// A client in a VRF.
using ClientOfVrf = std::pair< L3::VrfName, Lum::String >;

/// What is left of a service that has ended in one VRF and family: paths whose rows go by slices,
/// and the VRF, which is held until they are gone. It takes itself out of its owner then; only
/// behind that may the client be served again.
class LeavingPaths : public Lum::Reactor {
   LUM_ENTITY( Cspf, LeavingPaths );
   /// The owner outlives this object. `pathSm` follows no request any more.
   LeavingPaths( AllClientInfo & owner, ClientOfVrf client, const Lum::Ptr< PathSmBase > & pathSm,
                 const Lum::Ptr< DedupVrfHandle > & vrfDedupHandle );

   void handleInitialized() override { walk_.start( pathSm_->followedPaths() ); }
   /// Lets everything go that is left.
   void doPrepareToDie() override;

 private:
   std::size_t remove( const PathKey & pathKey ) const;
   void handleGone();

   AllClientInfo & owner_;
   const ClientOfVrf client_;
   Lum::Ptr< PathSmBase > pathSm_;
   Lum::Ptr< DedupVrfHandle > vrfDedupHandle_;
   Kiv::Walk< PathKey > walk_;
};

}
