#include "Cspf/BwmRoot.h"

static_assert( ( sizeof( TrafficEngineering::BwmRoot ) > 0
                 && sizeof( TrafficEngineering::BwmVrfRoot ) > 0
                 && sizeof( TrafficEngineering::BwmAllClientInfo ) > 0 ) );
