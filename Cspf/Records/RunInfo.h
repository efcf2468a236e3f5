#pragma once

#include "platform/Lum/Attribute.h"
#include "schema/CspfKeys.h"

namespace Cspf {

class CspfData;

/// What all can read of a run: where it started, and up to when the topology was seen. Every one is
/// a CspfData.
class CspfRunInfo : public Lum::Entity {
   LUM_ENTITY( Cspf, CspfRunInfo );
   LUM_ATTRIBUTE( source, NodeId );
   LUM_ATTRIBUTE( ranAt, double );  ///< seconds; 0: never

 private:
   friend class CspfData;
   CspfRunInfo() = default;
};

}
