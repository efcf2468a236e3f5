// Questions about a lab that more than one part of the tool asks.

#include "tools/lab/LabDocument.h"

namespace Lab {

bool
visible( const LabDocument & document, const LabTopology & topology ) {
   if ( topology.exported ) {
      return topology.exportReady && document.toggles.ospfTopoDbExport;
   }
   return topology.id.igpSource() == Cspf::IgpSource::isis;
}

}
