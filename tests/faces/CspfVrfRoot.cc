#include "Cspf/CspfVrfRoot.h"

static_assert( ( sizeof( Cspf::VrfRoot ) > 0 && sizeof( Cspf::VrfRootSm ) > 0
                 && sizeof( Cspf::PathRefreshSm ) > 0 && sizeof( Cspf::RsvpPathRefreshSm ) > 0
                 && sizeof( Cspf::RsvpPathStitchSm ) > 0 && sizeof( Cspf::PathStatusUpdateSm ) > 0
                 && sizeof( Cspf::PathStatusUpdator ) > 0 && sizeof( Cspf::RsvpPathValidator ) > 0
                 && sizeof( Cspf::HopToTopoDbLinkMapper ) > 0 ) );
