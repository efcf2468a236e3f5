#include "Cspf/CspfConstraintInfoSm.h"

static_assert( ( sizeof( Cspf::ConstraintInfoSm ) > 0 && sizeof( Cspf::ConstraintInfoSmBase ) > 0
                 && sizeof( Cspf::ConstraintStatusSm ) > 0 ) );
