#pragma once

#include "Cspf/Records/VrfHandle.h"
#include "Cspf/Requests/PathSm.h"

#include <utility>

namespace Cspf {

class AllClientInfo;

/// A client in a VRF.
using ClientOfVrf = std::pair< L3::VrfName, Lum::String >;

/// The end of a service in one VRF and family: its paths, whose rows go at once or by slices, and
/// the VRF, which is held until they are gone. It stands in its owner from before the first one
/// goes until the last one has, so that whoever asks for the client meanwhile waits (`isGone`).
class LeavingPaths : public Lum::Reactor {
   LUM_ENTITY( Cspf, LeavingPaths );
   /// The owner outlives this object.
   LeavingPaths( AllClientInfo & owner, ClientOfVrf client, const Lum::Ptr< PathSmBase > & pathSm,
                 const Lum::Ptr< DedupVrfHandle > & vrfDedupHandle );

   /// It has left, and is out of its owner.
   LUM_ATTRIBUTE( isGone, bool );

   /// Removes all rows if these are few enough for this turn of the loop, else none: from then on
   /// no request is followed.
   bool leaveAtOnce();
   /// ... and they go, by slices, until they are gone.
   void leaveBySlices() { walk_.start( pathSm_->followedPaths() ); }
   void handleGone();
   /// Lets everything go that is left.
   void doPrepareToDie() override;

 private:
   std::size_t remove( const PathKey & pathKey ) const;

   AllClientInfo & owner_;
   const ClientOfVrf client_;
   Lum::Ptr< PathSmBase > pathSm_;
   Lum::Ptr< DedupVrfHandle > vrfDedupHandle_;
   Kiv::Walk< PathKey > walk_;
};

}
