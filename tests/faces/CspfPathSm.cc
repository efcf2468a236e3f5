#include "Cspf/CspfPathSm.h"

static_assert( ( sizeof( Cspf::PathSm ) > 0 && sizeof( Cspf::PathConfigInfoSm ) > 0
                 && sizeof( Cspf::PathStatusInfoSm ) > 0 && sizeof( Cspf::PathSegment ) > 0 ) );
