#include "Cspf/CspfSourceIdSm.h"

static_assert( ( sizeof( Cspf::CspfSourceIdSm ) > 0 && sizeof( Cspf::TeConfigDir ) > 0
                 && sizeof( Cspf::TeVrfConfig ) > 0 && sizeof( Cspf::VrfSourceId ) > 0
                 && sizeof( Cspf::VrfClientSourceId ) > 0 ) );
