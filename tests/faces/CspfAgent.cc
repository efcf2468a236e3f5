#include "Cspf/CspfAgent.h"

static_assert( ( sizeof( Cspf::Agent ) > 0 && sizeof( Cspf::CspfCommandCallback ) > 0
                 && sizeof( Cspf::ClientDirSm ) > 0 && sizeof( Cspf::ClientSm ) > 0
                 && sizeof( Cspf::ClientVrfSm ) > 0 && sizeof( Cspf::TeRouterIdUpdateSm ) > 0
                 && sizeof( Cspf::TopoDbExportDirSm ) > 0 && sizeof( Cspf::TopoDbExportSm ) > 0
                 && sizeof( TrafficEngineering::TeConfigSm ) > 0 ) );
