// The end of a service. Of one with many paths, what the client reads is gone before the first row;
// rows, with their machines and reservations, follow path by path.

#include "Cspf/Clients/LeavingPaths.h"

#include "Cspf/Clients/ClientInfo.h"

#include <algorithm>

namespace Cspf {

LeavingPaths::LeavingPaths( AllClientInfo & owner, ClientOfVrf client,
                            const Lum::Ptr< PathSmBase > & pathSm,
                            const Lum::Ptr< DedupVrfHandle > & vrfDedupHandle )
   : owner_( owner ),
     client_( std::move( client ) ),
     pathSm_( pathSm ),
     vrfDedupHandle_( vrfDedupHandle ),
     walk_( *this, owner.taskScheduler(), "leavingPathsTask-" + client_.second,
            { [ this ]( const PathKey & pathKey ) { return remove( pathKey ); },
              [ this ] { handleGone(); } } ) {}

bool
LeavingPaths::leaveAtOnce() {
   const auto & scheduler = owner_.taskScheduler();
   if ( scheduler && !scheduler->grantAll( pathSm_->followedPaths().size() ) ) {
      pathSm_->leave();
      return false;
   }
   Lum::retire( pathSm_ );
   return true;
}

std::size_t
LeavingPaths::remove( const PathKey & pathKey ) const {
   const std::size_t before = pathSm_->pathConfigInfoTable()->pathConfigInfos();
   pathSm_->doCleanupPathInfoKeyEntries( pathKey );
   const std::size_t after = pathSm_->pathConfigInfoTable()->pathConfigInfos();
   return std::max( before, after + 1 ) - after;
}

/// Who hears that this has left may serve the client again.
void
LeavingPaths::handleGone() {
   const auto alive = keptAlive();
   doPrepareToDie();
   owner_.leavingPathsDel( client_ );
   isGoneIs( true );
}

void
LeavingPaths::doPrepareToDie() {
   walk_.stop();
   Lum::retire( pathSm_ );
   vrfDedupHandle_ = nullptr;
}

}
