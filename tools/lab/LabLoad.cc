// Labs around a running agent. One writer lives as long as the process, since what a lab wrote
// has to be known when the next one takes its place.

#include "tools/lab/LabLoad.h"

#include "tools/lab/LabFile.h"
#include "tools/lab/LabState.h"

namespace Lab {

namespace {

void
load( const LabFile & file, Corvdb::StateStore & state, Zorch::TableStore & tables ) {
   static LabState writer( state, tables );
   writer.write( file.document() );
}

}

void
loadLab( const nlohmann::json & lab, Corvdb::StateStore & state, Zorch::TableStore & tables ) {
   load( LabFile::parse( lab.dump() ), state, tables );
}

void
loadLabFile( const std::string & fileName, Corvdb::StateStore & state,
             Zorch::TableStore & tables ) {
   load( LabFile::load( fileName ), state, tables );
}

}
