#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Zorch/TableStore.h"
#include "tools/lab/LabChange.h"
#include "tools/lab/LabRecords.h"

#include <memory>
#include <set>

namespace Lab {

class LabPatchedState;

/// Stands for everything around the agent: writes a lab's document into state as the IGPs, the
/// configuration and the clients do.
class LabState {
 public:
   /// The stores outlive it.
   LabState( Corvdb::StateStore & state, Zorch::TableStore & tables );
   ~LabState();
   LabState( const LabState & ) = delete;
   LabState & operator=( const LabState & ) = delete;

   /// Brings state from the document written last (at first: from nothing) to this one, an entity
   /// or an entry of a table at a time. What is the same is not touched.
   void write( const LabDocument & document );
   /// The same after that change, of the document written last, has led to this one; tables of
   /// topologies are written where the change names them, at the cost of what it names, unless the
   /// document patches state.
   void write( const LabDocument & document, const LabChange & change );
   /// As the first one, without what the document patches of state.
   void writeWords( const LabDocument & document );

 private:
   std::set< std::string > pathsWritten() const;
   void writeSettings( const LabDocument & document );
   void writeDemands( const LabDocument & document );
   void writeConfiguration( const LabDocument & document );
   void writeInterfaces( const LabDocument & document );
   void writeSegmentRouting( const LabDocument & document );
   void writeTopologies( const LabDocument & document );
   void topologyIs( const std::string & name, const LabTopology & topology, bool isNew );
   void topologyDel( const std::string & name, const LabTopology & topology );
   void writeAdjacencies( const LabDocument & document );
   void writeHostnames( const LabDocument & document );
   void writePaths( const LabDocument & document );
   void writeClients( const LabDocument & document );
   void cleanupClients( const LabDocument & document );
   void cleanupPaths( const LabDocument & document );

   Corvdb::StateStore & state_;
   Zorch::TableStore & tables_;
   LabDocument written_;  ///< what there may be to take away
   LabLinkIds linkIds_;
   std::map< ClientTable, Lum::Ptr< Cspf::Config > > configs_;
   std::unique_ptr< LabPatchedState > patched_;  ///< from the first document on that patches state
};

}
