#include "Cspf/CspfChildPathStatusCacheSm.h"

static_assert( ( sizeof( Cspf::ChildPathStatusCacheSm ) > 0 && sizeof( Cspf::ChildPathStatusSm ) > 0
                 && sizeof( Cspf::ParentPathHelper ) > 0 ) );
