// The one place that knows which path reactor serves which kind of computation. The intake of
// clients asks here, so that it depends on the base of path reactors alone.

#include "Cspf/CspfPathSmFactory.h"

#include "Cspf/CspfPathSm.h"
#include "Cspf/CspfTilfaPathSm.h"

namespace Cspf {

Lum::Ptr< PathSmBase >
makePathSm( PathComputationType pathType, Kivnet::AddressFamily af, const L3::VrfName & vrf,
            const Lum::String & client,
            const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
            const Lum::Ptr< const Config > & cspfConfig, const Lum::Ptr< Status > & cspfStatus,
            const Lum::Ptr< AllClientInfo > & allClientInfo ) {
   const auto & pathConfigInfoTable = allClientInfo->pathConfigInfoTable( vrf );
   const auto & pathStatusInfoTable = allClientInfo->pathStatusInfoTable( vrf );
   LUM_ASSERT( pathConfigInfoTable );
   LUM_ASSERT( pathStatusInfoTable );
   if ( pathType == PathComputationType::tilfa ) {
      return new TilfaPathSm( af, vrf, client, teStatus, cspfConfig, cspfStatus,
                              pathConfigInfoTable, pathStatusInfoTable );
   }
   return new PathSm( af, vrf, client, teStatus, cspfConfig, cspfStatus, pathConfigInfoTable,
                      pathStatusInfoTable );
}

}
