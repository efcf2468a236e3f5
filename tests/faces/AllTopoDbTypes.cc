#include "Cspf/AllTopoDbTypes.h"

static_assert( ( sizeof( Cspf::AllTopoDb ) > 0 && sizeof( Cspf::AllTopoDbDir ) > 0
                 && sizeof( Cspf::AllTopoDbSm ) > 0 && sizeof( Cspf::AllTopoDbStatus ) > 0
                 && sizeof( Cspf::AllTopoDbView ) > 0 && sizeof( Cspf::AllTopoLfaDbView ) > 0
                 && sizeof( Cspf::AllTopoTeDbView ) > 0 && sizeof( Cspf::RouterIdMap ) > 0
                 && sizeof( Cspf::TopoDbSm ) > 0 && sizeof( Cspf::NeighborAndTepStatus ) > 0 ) );
