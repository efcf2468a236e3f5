// The end of a service of many paths. What the client reads is gone before it begins; rows, with
// their machines and reservations, follow path by path.

#include "Cspf/Clients/LeavingPaths.h"

#include <algorithm>

#include "Cspf/Clients/ClientInfo.h"

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
}

void
LeavingPaths::doPrepareToDie() {
   walk_.stop();
   Lum::retire( pathSm_ );
   vrfDedupHandle_ = nullptr;
}

}
