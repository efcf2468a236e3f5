#pragma once

#include "Cspf/Graph/TreeRepair.h"
#include "Cspf/Views/VrfTopology.h"
#include "schema/CspfClient.h"

#include <map>
#include <memory>

namespace Cspf {

/// The client's constraint on a repair with what it leaves unsaid: a node to avoid without an
/// interface stands behind the interface that it names.
PathConstraint repairConstraint( PathConstraint constraint );

/// Which topology a repair belongs to whose request names none: that of the protected interface's
/// neighbour entry. Where the interface is in IS-IS levels 1 and 2, routers prefer level 1, and
/// level 2 serves only what level 1 does not reach.
class RepairScope : public Lum::Entity {
   LUM_ENTITY( Cspf, RepairScope );
   explicit RepairScope( const VrfTopology & topology ) : topology_( topology ) {}
   /// What was answered may be different now.
   LUM_COUNTER( changeCount );

   /// Default where this router has no such interface. O(1), or what the graph has changed where
   /// the interface is in several topologies.
   TopoId topoId( const Kivnet::IntfId & intfId, const Destination & destination ) const;
   /// The topology, or this router's place in it, is another one.
   void handleTopoChanged();

 private:
   using Interfaces = std::map< Kivnet::IntfId, std::vector< TopoId > >;  // topologies in order
   /// What this router reaches in one topology.
   struct Reach {
      CspfTree tree;               // without vertices where the router is not in the topology
      CspfLinkConstraint numbers;  // that it was run with
      std::uint64_t position = 0;  // in the graph's changes, up to which it is right
      std::uint64_t version = 0;   // of the graph; 0: never followed
   };

   const Interfaces & interfaces() const;
   Interfaces interfacesOf( const AllTopoDbStatus & status ) const;
   void addInterfaces( const TopoId & topoId, const Routing::Topology::TopoDb & table,
                       Interfaces & interfaces ) const;
   void forgetReach() const;
   bool reaches( const TopoId & topoId, const Destination & destination ) const;
   void follow( const TopoId & topoId, Reach & reach ) const;

   const VrfTopology topology_;
   mutable Interfaces interfaces_;
   mutable Lum::Seconds interfacesAt_ = -1;    // stamp of the topology that they are of,
   mutable NodeId self_;                       //   and of which router
   mutable std::weak_ptr< TopoGraph > graph_;  // that was walked
   mutable std::map< TopoId, Reach > reach_;   // where that was asked for
   mutable std::uint32_t originatorChanges_ = 0;
   mutable CspfTreeRepair treeRepair_;
   mutable bool isChanged_ = false;  // something that answers rest on, since that was last told
};

}
