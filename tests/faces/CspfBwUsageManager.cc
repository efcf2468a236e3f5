#include "Cspf/CspfBwUsageManager.h"

static_assert( ( sizeof( Cspf::BwUsageManager ) > 0 && sizeof( Cspf::BwUsageDeduped ) > 0
                 && sizeof( Cspf::BwUsageDedupTable ) > 0 && sizeof( Cspf::PathUsageSm ) > 0 ) );
