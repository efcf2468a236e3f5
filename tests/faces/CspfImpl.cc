#include "Cspf/CspfImpl.h"

static_assert( ( sizeof( Cspf::CspfRun ) > 0 && sizeof( Cspf::CspfData ) > 0
                 && sizeof( Cspf::LfaCspfData ) > 0 && sizeof( Cspf::CspfPath ) > 0
                 && sizeof( Cspf::CspfPathCost ) > 0 && sizeof( Cspf::CspfLinkInfo ) > 0
                 && sizeof( Cspf::CspfLinkInfoKey ) > 0 ) );
