#include "Cspf/CspfPqComputeSm.h"

static_assert( ( sizeof( Cspf::Lfa::PqComputeSm ) > 0 && sizeof( Cspf::Lfa::PqComputePfxSm ) > 0
                 && sizeof( Cspf::TilfaConstraintInfoSm ) > 0 && sizeof( Cspf::TilfaPathSm ) > 0
                 && sizeof( Cspf::TilfaPathInfoKeyColl ) > 0 ) );
