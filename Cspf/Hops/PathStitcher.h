#pragma once

#include "Cspf/Hops/PathValidator.h"
#include "Cspf/Records/Segments.h"
#include "schema/CspfStatus.h"

#include <optional>
#include <string>

namespace Cspf {

/// Puts one path together, hop by hop and segment by segment, from its source to its end.
/// Operations that extend the path give the reason why they could not, "" when they did; after a
/// failure the path is not to be used.
class PathStitcher {
 public:
   /// `published`: what the client uses at present; its hops are preferred where there is a choice.
   /// All outlive this object. REQUIRES: the source of computations is known.
   PathStitcher( const AllTopoDbView & view, PathValidationMemory & memory,
                 const PathInfoKey & pathInfoKey, const PathStatus & published );

   /// Whether the destination and all include hops stand on the source itself: a path without hops.
   bool checkAndUpdatePathForSelfPath( const Destination & destination,
                                       const PathConstraint & constraint );
   /// Takes the include hops as the whole path, if it holds.
   std::string checkAndUpdateAllExplicitPath( const PathConstraint & constraint );
   /// Extends the path to the segment's end by a single link.
   std::string doUpdatePathForStrictHop( const PathSegment & segment );
   /// Extends the path by the path that a run found for the segment.
   std::string doUpdatePathForLooseHop( const PathSegment & segment,
                                        const PathStatusCache & child );

   /// The next hop of the best single link between two routers, which are named by their TE router
   /// ids: the link with the address `strictHop` at its far end, where that means one; of the
   /// others those that the constraint allows, then the one that the published path used, then by
   /// cost, then by link. Unset where there is no link.
   Kivnet::IpGenAddr findBestNexthopForStrictHop( const Kivnet::IpGenAddr & source,
                                                  const Kivnet::IpGenAddr & destination,
                                                  const Kivnet::IpGenAddr & strictHop ) const;
   /// The next hop by which the published path went from where this path is to the router with that
   /// address; unset where it did not. Of several times, the one at the same hop, else the first.
   Kivnet::IpGenAddr findOldNexthopForStrictHop( const Kivnet::IpGenAddr & strictHop ) const;

   /// TE router id of the router that the path has come to.
   const Kivnet::IpGenAddr & end() const noexcept { return end_; }
   /// Whether the path holds in the topology as it is. Its segments may have been computed before.
   bool isValid() const;
   /// The records of the path; none for a path of more hops than they can hold.
   std::optional< CspfPathResult > result() const;

 private:
   /// One of the links between two routers.
   struct StrictHop {
      CspfPathHop hop;
      Kivnet::IpGenAddr nexthop;
      CspfCost cost;
      CspfRefusal refusal;  ///< why the constraint does not allow it
   };
   struct Hop {
      Kivnet::IpGenAddr nexthop;
      Kivnet::IpGenAddr teRouterId;
      SrlgOfHop srlgs;
      AllTopoNeighborKey link;  ///< of a path that reserves bandwidth
   };

   /// The link of the next hop of findBestNexthopForStrictHop.
   std::optional< StrictHop > bestStrictHop( const Kivnet::IpGenAddr & source,
                                             const Kivnet::IpGenAddr & destination,
                                             const Kivnet::IpGenAddr & strictHop ) const;
   std::vector< StrictHop > singleHops( const CspfLinkFilter & filter, CspfVertex from,
                                        CspfVertex to ) const;
   StrictHop strictHop( const CspfLinkFilter & filter, const CspfPathHop & hop ) const;
   bool arrivesAt( const CspfPathHop & hop, const Kivnet::IpGenAddr & address ) const;
   bool meansLink( CspfVertex from, CspfVertex to, const Kivnet::IpGenAddr & address ) const;
   void addHop( const CspfPathHop & hop, const Kivnet::IpGenAddr & nexthop );
   void addIncludeIp( const PathSegment & segment );
   Lum::Ptr< const PathAsTopoDbLinks > links() const;

   const AllTopoDbView & view_;
   PathValidationMemory & memory_;
   const PathInfoKey & pathInfoKey_;
   const PathStatus & published_;
   Kivnet::IpGenAddr end_;
   std::vector< Hop > hops_;
   std::vector< IncludeIp > includeIps_;
   bool isPathFromSourceToSource_ = false;
};

}
