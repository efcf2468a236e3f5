#pragma once

#include "platform/Lum/Attribute.h"
#include "schema/CspfKeys.h"

namespace Cspf {

/// What rows say of the run that gave a result: where it started, and up to when the topology was
/// seen. The run itself knows more (CspfData).
class CspfRunInfo : public Lum::Entity {
   LUM_ENTITY( Cspf, CspfRunInfo );
   LUM_ATTRIBUTE( source, NodeId );
   LUM_ATTRIBUTE( ranAt, double );  ///< seconds; 0: never
};

}
