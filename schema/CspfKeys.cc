// Text forms of the shared keys, where these are not the generic one.

#include "schema/CspfKeys.h"

namespace Cspf {

std::string
AllTopoNeighborKey::stringValue() const {
   return "AllTopoNeighborKey=<topoId=" + topoId_.stringValue()
          + ", neighborKey=" + Lum::valueString( neighborKey_ )
          + ", teNeighborOf=" + teNeighborOf_.stringValue()
          + ", teNeighborId=" + teNeighborId_.stringValue() + ">";
}

std::string
BwUsageKey::stringValue() const {
   return "link=" + link_.stringValue() + ";bwUsageId=" + Lum::valueString( bwUsageId_ );
}

}
