#pragma once

#include "platform/Lum/Attribute.h"
#include "schema/CspfKeys.h"

namespace Cspf {

/// One run: where it starts, how it counts, what it looks for, and what it found.
class CspfData : public Lum::Entity {
   LUM_ENTITY( Cspf, CspfData );
   LUM_ATTRIBUTE( source, NodeId );
   LUM_ATTRIBUTE( useTeMetric, bool );
   LUM_ATTRIBUTE( useLinksWithMaxMetric, bool );
   LUM_ATTRIBUTE( buildReverseSpt, bool );
   LUM_ATTRIBUTE( singleHopCountLimit, bool );
};

}
