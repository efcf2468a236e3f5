#pragma once

#include "tools/prove/Answers.h"
#include "tools/prove/RepairWalker.h"
#include "tools/prove/Snapshot.h"
#include "tools/prove/Steps.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace Prove {

/// One topology in numbers, and what they mean.
class RepairTopology {
 public:
   explicit RepairTopology( const Topology & topology );

   const Cspf::TopoId & id() const { return topology_.id; }
   const Routing::Topology::TopoDb & table() const { return *topology_.table; }
   const std::vector< Step > & steps() const { return steps_; }
   /// The steps that leave that router.
   std::span< const Step > stepsFrom( const Cspf::IgpRouterId & id ) const;
   /// The one that the walker means.
   const Step * step( std::uint32_t from, const RepairNetwork::Step & step ) const;

   std::optional< std::uint32_t > router( const Cspf::IgpRouterId & id ) const;
   const Cspf::IgpRouterId & router( std::uint32_t number ) const { return ids_[ number ]; }
   /// Of the way by which the link leaves its router; the next one is that by which a LAN is left
   /// to the link's own router.
   std::uint32_t number( const Routing::Topology::Neighbor * link ) const {
      return links_.at( link );
   }
   Originators originators( const Cspf::Destination & destination ) const;

   std::unique_ptr< RepairWalker > walker;

 private:
   std::uint32_t numberIs( const Routing::Topology::Neighbor * link ) {
      return links_.try_emplace( link, 2 * static_cast< std::uint32_t >( links_.size() ) )
         .first->second;
   }

   const Topology topology_;
   const std::vector< Step > steps_;
   std::map< Cspf::IgpRouterId, std::uint32_t > numbers_;
   std::vector< Cspf::IgpRouterId > ids_;
   std::map< const Routing::Topology::Neighbor *, std::uint32_t > links_;
};

/// The topologies of a service, and what its requests for repairs and the repairs mean there.
class RepairTopologies {
 public:
   /// The snapshot and the service outlive it.
   RepairTopologies( const Snapshot & state, const Service & service );

   /// The agent's own router; unset while IS-IS has none.
   const Cspf::IgpRouterId & self() const { return self_; }
   /// Null where the table has none of that number.
   const Cspf::PqInfo * published( std::uint32_t idx ) const;
   /// The topology in which a request is computed, and the protected link there; null where the
   /// link is gone.
   RepairTopology * topologyOf( const Answer & answer, const Step *& link ) const;
   /// A LAN's loss and a bandwidth are not judged.
   static bool isJudged( const Cspf::PathConstraint & asked, const Step & link );
   /// Whether paths of least risk are asked for: whether packets arrive at a destination of one
   /// router is judged, but not which repair is best, nor whether there is one.
   bool prefersRisks( const Cspf::PathConstraint & asked ) const;
   /// What is asked for, or what is protected instead.
   static Cspf::PathConstraint protectionOf( const Answer & answer );
   Failure failureOf( const RepairTopology & topology, const Step & link,
                      const Cspf::PathConstraint & asked ) const;
   /// Why the constraint refuses the link; "" where it does not.
   std::string refusal( const Cspf::PathConstraint & asked,
                        const std::set< TrafficEngineering::SrlgId > & risks,
                        const Step & step ) const;
   /// What the published repair means in the topology; the text says what means nothing.
   std::string repairOf( const RepairTopology & topology, const Cspf::PqInfo & info,
                         Repair & repair ) const;

 private:
   bool isNextHop( const Step & step, const Cspf::PqInfo & info ) const;

   const Snapshot & state_;
   const Service & service_;
   std::vector< std::unique_ptr< RepairTopology > > topologies_;
   Cspf::IgpRouterId self_;
};

/// How many repair nodes a request allows.
std::uint32_t repairNodesAllowed( const Cspf::PathConstraint & asked );

}
