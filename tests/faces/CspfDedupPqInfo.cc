#include "Cspf/CspfDedupPqInfo.h"

static_assert( ( sizeof( Cspf::Lfa::PqPath ) > 0 && sizeof( Cspf::Lfa::DedupPqInfo ) > 0
                 && sizeof( Cspf::Lfa::DedupPqInfoTable ) > 0
                 && sizeof( Cspf::Lfa::DedupPqInfoLTNotifiee ) > 0 ) );
