// Labs around a running agent. One writer lives as long as the process, since what a lab wrote
// has to be known when the next one takes its place.

#include "tools/lab/LabLoad.h"

#include "tools/lab/LabPublished.h"
#include "tools/lab/LabState.h"

namespace Lab {

void
loadLab( const LabFile & lab, Corvdb::StateStore & state, Zorch::TableStore & tables ) {
   static LabState writer( state, tables );
   writer.write( lab.document() );
}

void
startLab( const LabFile & lab, Corvdb::StateStore & state, Zorch::TableStore & tables ) {
   loadLab( lab, state, tables );
   leavePublished( lab.document().published, state, tables );
}

}
