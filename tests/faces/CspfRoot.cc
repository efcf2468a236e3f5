#include "Cspf/CspfRoot.h"

static_assert( ( sizeof( Cspf::CspfRoot ) > 0 && sizeof( Cspf::AllClientInfo ) > 0
                 && sizeof( Cspf::ClientData ) > 0 && sizeof( Cspf::DedupVrfHandle ) > 0
                 && sizeof( Cspf::CspfActiveVrfsDedupTable ) > 0 ) );
