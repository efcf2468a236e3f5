#include "Cspf/CspfVrfRootTypes.h"

static_assert( ( sizeof( Cspf::PathInfoKey ) > 0 && sizeof( Cspf::PathConfigInfo ) > 0
                 && sizeof( Cspf::PathStatusInfo ) > 0 && sizeof( Cspf::PathStatusCache ) > 0
                 && sizeof( Cspf::PathArray ) > 0 && sizeof( Cspf::PathSrlg ) > 0
                 && sizeof( Cspf::PathTeRouterId ) > 0 && sizeof( Cspf::IncludeIps ) > 0
                 && sizeof( Cspf::ConstraintInfo ) > 0 && sizeof( Cspf::ConstraintStats ) > 0
                 && sizeof( Cspf::PathAsTopoDbLinks ) > 0 && sizeof( Cspf::PathBwUsage ) > 0
                 && sizeof( Cspf::PathConfigInfoTable ) > 0
                 && sizeof( Cspf::PathStatusInfoTable ) > 0
                 && sizeof( Cspf::PathStatusCacheTable ) > 0
                 && sizeof( Cspf::ConstraintInfoTable ) > 0
                 && sizeof( Cspf::ConstraintStatsTable ) > 0 ) );
