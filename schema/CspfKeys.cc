// Text forms of the shared keys, where these are not the generic one.

#include "schema/CspfKeys.h"

namespace Cspf {

std::string
AllTopoNeighborKey::stringValue() const {
   return "AllTopoNeighborKey=<topoId=" + topoId_.stringValue() + ", neighborKey="
          + Lum::valueString( neighborKey_ ) + ", teNeighborOf=" + teNeighborOf_.stringValue()
          + ", teNeighborId=" + teNeighborId_.stringValue() + ">";
}

NodeId
AllTopoNeighborKey::neighborOf() const {
   return teNeighborOf_ ? NodeId( teNeighborOf_ ) : NodeId( neighborKey_.routerId() );
}

NodeId
AllTopoNeighborKey::neighborId() const {
   return isLan()         ? NodeId()
          : teNeighborId_ ? NodeId( teNeighborId_ )
                          : NodeId( neighborKey_.neighborId() );
}

AllTopoNetworkId
AllTopoNeighborKey::allTopoNetworkId() const {
   return isLan() ? AllTopoNetworkId{ topoId_, { neighborKey_.neighborId() } } : AllTopoNetworkId();
}

std::string
BwUsageKey::stringValue() const {
   return "link=" + link_.stringValue() + ";bwUsageId=" + Lum::valueString( bwUsageId_ );
}

}
