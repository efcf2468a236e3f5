#include "Cspf/CspfDedupConstraint.h"

static_assert( ( sizeof( Cspf::InternalPathConstraint ) > 0 && sizeof( Cspf::DedupConstraint ) > 0
                 && sizeof( Cspf::DedupConstraintContent ) > 0
                 && sizeof( Cspf::DedupConstraintTable ) > 0
                 && sizeof( Cspf::DedupConstraintTableNotifiee ) > 0 ) );
