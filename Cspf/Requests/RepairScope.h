#pragma once

#include "Cspf/Graph/Tree.h"
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

   /// Default where this router has no such interface. O(1), or a run after a change of the graph
   /// where the interface is in several topologies.
   TopoId topoId( const Kivnet::IntfId & intfId, const Destination & destination ) const;
   /// The topology, or this router's place in it, is another one.
   void handleTopoChanged();

 private:
   using Interfaces = std::map< Kivnet::IntfId, std::vector< TopoId > >;  // topologies in order

   const Interfaces & interfaces() const;
   void addInterfaces( const TopoId & topoId, const Routing::Topology::TopoDb & table ) const;
   bool reaches( const TopoId & topoId, const Destination & destination ) const;
   const CspfTree & tree( const TopoId & topoId, const TopoGraph & graph ) const;

   const VrfTopology topology_;
   Interfaces told_;  // at the last change
   mutable Interfaces interfaces_;
   mutable Lum::Seconds interfacesAt_ = -1;        // stamp of the topology that they are of,
   mutable NodeId self_;                           //   and of which router
   mutable std::weak_ptr< TopoGraph > graph_;      // that was walked
   mutable std::map< TopoId, CspfTree > reached_;  // from this router, where that was asked for
};

}
