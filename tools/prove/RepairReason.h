#pragma once

#include "tools/prove/RepairTopology.h"

#include <functional>
#include <string>
#include <vector>

namespace Prove {

/// Why the repair of a request is what it is, by P space (routers that plain routes from the next
/// hop, or the repair node before, reach without meeting what fails) and Q space (routers from
/// which plain routes to the destination do so), RFC 7490.
class RepairReason {
 public:
   using NameOf = std::function< std::string( const Cspf::IgpRouterId & ) >;

   /// The answer is one of the service, has a request, and is published. All outlive it.
   RepairReason( const Snapshot & state, const Service & service, const Answer & answer,
                 NameOf nameOf );

   /// A line each: the cost after the failure, each repair node with what it is there for, and how
   /// many equal ways there are. Where there is no repair, why. Nothing where state alone does not
   /// tell.
   std::vector< std::string > why() const;
   /// Why not another one: by a router, or over a link, named by what `nameOf` says, system id, TE
   /// router id or address of the interface that it arrives at; or, where several are named, by the
   /// next hop and then the repair nodes. Throws std::runtime_error where the name means nothing.
   std::vector< std::string > whyNot( const std::vector< std::string > & names ) const;

 private:
   struct Link {
      std::uint32_t from;
      RepairNetwork::Step step;
   };
   bool isKnown() const { return topology_ && protected_; }
   const RepairWalker & walker() const { return *topology_->walker; }
   std::string name( std::uint32_t router ) const { return nameOf_( topology_->router( router ) ); }
   std::string destination() const;
   std::string linkText( std::uint32_t from, const RepairNetwork::Step & step ) const;
   std::string failureText( std::uint32_t from, const RepairNetwork::Step & step ) const;
   std::string meets( const RepairWalker::Meeting & meeting ) const;
   std::string equalText( std::uint64_t count ) const;
   std::string pText( std::uint32_t from, std::uint32_t to ) const;
   std::string qText( std::uint32_t router ) const;
   std::string absence() const;
   std::string standing( const std::string & what, const RepairWalker::Shortest & by ) const;
   std::string dearer( std::uint32_t cost ) const;
   std::vector< std::string > whyNotRouter( std::uint32_t router ) const;
   std::vector< std::string > whyNotNextHop( std::uint32_t router ) const;
   std::vector< std::string > whyNotNode( std::uint32_t router ) const;
   std::vector< std::string > whyNotLink( const Link & link ) const;
   std::vector< std::string > whyNotList( const std::vector< std::uint32_t > & list ) const;
   std::string faultOfList( const std::vector< std::uint32_t > & list, std::uint32_t & cost ) const;
   const RepairNetwork::Step * firstLink( std::uint32_t router, bool mayFail ) const;
   std::optional< std::uint32_t > routerOf( const std::string & name ) const;
   std::optional< Link > linkOf( const std::string & name ) const;

   const Snapshot & state_;
   const RepairTopologies topologies_;
   const NameOf nameOf_;
   const Answer & answer_;
   const Cspf::PathConstraint asked_;
   RepairTopology * topology_ = nullptr;
   const Step * protected_ = nullptr;
   Failure failure_;
   Originators originators_;
   Repair repair_;  // as published; without first hop where there is none
   RepairWalker::Shortest shortest_;
};

}
