#pragma once

#include "Cspf/Graph/Tree.h"
#include "Cspf/Records/PathRecords.h"
#include "Cspf/Records/PathRows.h"
#include "Cspf/Views/View.h"

#include <memory>
#include <span>
#include <vector>

namespace Cspf {

/// One hop of a path in numbers of a graph.
struct CspfPathHop {
   CspfEdge link = noEdge;        ///< by which the previous router is left; noEdge: not known
   CspfEdge membership = noEdge;  ///< across a LAN: the step from the LAN to the router reached
   Kivnet::IpGenAddr teRouterId;  ///< of the router reached

   bool known() const { return link != noEdge; }
   /// The router reached. REQUIRES: the hop is known.
   CspfVertex end( const CspfGraph & graph ) const {
      return graph.to( membership == noEdge ? link : membership );
   }
};

/// Where hop addresses lead, remembered from path to path: the paths of one router share most of
/// their hops. What it remembers of an address is void when other links carry it, or when a router
/// that owns such a link changes.
///
///   watches                                   handler
///   IntfIpToNeighborTable.intfIpToNeighbor    handleIntfIp
///   VrfSourceId.vrfClientSourceId             handleSourceId
class HopAddressMemory : public Lum::Reactor {
   LUM_ENTITY( Cspf, HopAddressMemory );
   /// A link that carries the address.
   struct Carrier {
      CspfVertex router = noVertex;  ///< its owner; noVertex where that takes no part
      std::uint16_t topology = 0;
      bool lan = false;
      CspfEdge link = noEdge;     ///< itself, whatever of the way back; noEdge: not in the graph
      CspfEdge arrival = noEdge;  ///< the link, or the step from the LAN, that leads to the owner
      Kivnet::IpGenAddr teRouterId;  ///< of the owner
   };

   explicit HopAddressMemory( const Lum::Ptr< const AllTopoDbStatus > & allTopoDbStatus )
      : allTopoDbStatus_( allTopoDbStatus ) {}

   void handleInitialized() override;
   void handleIntfIp( const Kivnet::IpGenAddr & address ) {
      entries_.erase( address );
      ++changes_;
   }
   void handleSourceId( const PathComputationType & ) { ++sourceChanges_; }
   /// Changes of the addresses of any link so far, and of where computations start.
   std::uint64_t changes() const noexcept { return changes_; }
   std::uint64_t sourceChanges() const noexcept { return sourceChanges_; }
   /// All carriers of the address, in that topology where one is given, in key order; valid until
   /// the next call. O(1) when it is known.
   std::span< const Carrier > carriers( const Kivnet::IpGenAddr & address,
                                        const TopoId & topoId = {} );
   /// The first one of another router than the first is of: then the address names no hop. Null
   /// where all are links of one router.
   static const Carrier * another( std::span< const Carrier > carriers );
   /// The link as one that carries an address.
   Carrier carrier( const AllTopoNeighborKey & key ) const;

 private:
   struct Entry {
      std::uint64_t change = 0;  // the graph's last when they were looked up
      std::vector< Carrier > carriers;
   };

   bool holds( const Entry & entry ) const;
   std::span< const Carrier > allCarriers( const Kivnet::IpGenAddr & address );

   const Lum::Ptr< const AllTopoDbStatus > allTopoDbStatus_;
   Lum::Map< Kivnet::IpGenAddr, Entry > entries_;
   std::vector< Carrier > inTopology_;  // of the last call
   std::uint64_t changes_ = 0;
   std::uint64_t sourceChanges_ = 0;
};

/// The routers that a path passes, and the changes that were seen of them. While none of them has
/// changed since, nor the source of computations, neither have their links, addresses and prefixes,
/// nor which links the path's hops are, whatever happened elsewhere.
class PathRouters {
 public:
   PathRouters() = default;
   PathRouters( const CspfGraph & graph, const HopAddressMemory & memory,
                std::vector< CspfVertex > routers );
   /// REQUIRES: there are hops, and all are known.
   PathRouters( const CspfGraph & graph, const HopAddressMemory & memory,
                std::span< const CspfPathHop > hops );
   /// Of a run's path. REQUIRES: it is unchanged.
   PathRouters( const HopAddressMemory & memory, Lum::CopyOnWrite< CspfPathRouters > path )
      : path_( std::move( path ) ),
        sourceChanges_( memory.sourceChanges() ) {}

   /// False where no path was seen. O(hops).
   bool unchanged( const CspfGraph & graph, const HopAddressMemory & memory ) const;
   /// Empty where no path was seen.
   std::span< const CspfVertex > inOrder() const noexcept { return path_->routers; }

 private:
   Lum::CopyOnWrite< CspfPathRouters > path_;
   std::uint64_t sourceChanges_ = 0;
};

/// Likewise, of a run's path. O(hops).
bool unchanged( const CspfGraph & graph, const CspfPathRouters & path );

/// Which metrics count for the view's paths: TE metrics, of the direction that its runs go.
CspfRunOptions runOptions( const AllTopoDbView & view );

/// Why the view's constraint, or the TE metric, refuses a hop: its link, its user's own
/// reservations on it included, and the step from a LAN; none where nothing does. `filter`: of the
/// view's constraint, without its user. REQUIRES: the hop is known.
CspfRefusal refusalForUser( const AllTopoDbView & view, const CspfLinkFilter & filter,
                            const CspfPathHop & hop );

/// Translates hop addresses into links of the topology. A hop address is that of the receiving end;
/// what is looked for is the link that the packet takes, so the link that carries the address is
/// turned round.
class HopToTopoDbLinkMapper {
 public:
   using Hops = PathArray::Hops;

   /// A hop that could be several links (parallel ones that share the address, those of a router
   /// that stands on the LAN several times) is one that the constraint allows, where one is; of
   /// those the one that `known` has for this hop (null: has none); else the first by key.
   /// `filter`: of the constraint. All outlive this object.
   HopToTopoDbLinkMapper( const AllTopoDbView & view, HopAddressMemory & memory,
                          const CspfLinkFilter & filter, const PathAsTopoDbLinks * known = nullptr )
      : view_( view ),
        memory_( memory ),
        filter_( filter ),
        known_( known ) {}
   /// For one path on its own: `hops` from `sourceNode`. The view outlives this object.
   HopToTopoDbLinkMapper( const PathArray & hops, const NodeId & sourceNode,
                          const AllTopoDbView & view );

   /// Maps the hops of a path that starts at `sourceNode`, one element of `links` a hop. A hop that
   /// cannot be mapped is left out (not known) and traced; `failure` keeps the first such reason.
   /// O(hops).
   void handleNew( CspfVertex sourceNode, const Hops & hops, std::vector< CspfPathHop > & links );
   const std::string & failure() const noexcept { return failure_; }
   /// The same of the one path that it was made for, and what that gave.
   void handleNew();
   Lum::Ptr< PathAsTopoDbLinks > pathAsTopoDbLinks() const;

   // Single steps, by key. What is not found is empty.

   /// The link that carries the address: the first by key, of those of one router.
   AllTopoNeighborKey linkWithHop( const Kivnet::IpGenAddr & hop );
   /// The link by which a packet comes to `hop`, which `link` carries.
   AllTopoNeighborKey doReverseP2pLink( const AllTopoNeighborKey & link,
                                        const Kivnet::IpGenAddr & hop );
   /// ... over a LAN: of the router that the last hop that was mapped ends at, else of the source.
   /// REQUIRES: handleNew was called.
   AllTopoNeighborKey doReverseLanLink( const AllTopoNeighborKey & link,
                                        const Kivnet::IpGenAddr & hop );

 private:
   using Carrier = HopAddressMemory::Carrier;
   struct OnePath {
      Hops hops;
      NodeId sourceNode;
      Lum::Ptr< HopAddressMemory > memory;
      CspfLinkFilter filter;
      std::vector< CspfPathHop > links;
   };

   HopToTopoDbLinkMapper( const AllTopoDbView & view, std::unique_ptr< OnePath > onePath );
   CspfPathHop mapHop( const Kivnet::IpGenAddr & hop );
   // The same steps in numbers, for all carriers of an address.
   /// Those in the constraint's topology; none unless they belong to one router.
   void linkWithHop( const Kivnet::IpGenAddr & hop, std::span< const Carrier > & carriers );
   CspfPathHop doReverseP2pLink( const Carrier & carrier, const Kivnet::IpGenAddr & hop );
   CspfPathHop doReverseLanLink( const Carrier & carrier, const Kivnet::IpGenAddr & hop );
   bool better( const CspfPathHop & candidate, const CspfPathHop & best ) const;
   AllTopoNeighborKey neighborKey( CspfEdge link ) const;
   bool isKnown( const CspfPathHop & hop ) const;
   /// `operation`: the one for which, as traces begin.
   void fail( const char * operation, const char * reason, const Kivnet::IpGenAddr & hop,
              const std::string & more = {} );

   const std::unique_ptr< OnePath > onePath_;  // that it was made for; null: for several
   const AllTopoDbView & view_;
   HopAddressMemory & memory_;
   const CspfLinkFilter & filter_;
   const PathAsTopoDbLinks * const known_;
   std::size_t hopIndex_ = 0;
   CspfVertex previous_ = noVertex;  // where the hop before ended
   std::string failure_;
};

/// The hops as records: which link each one is, and the router inside of a LAN that it crosses.
Lum::Ptr< PathAsTopoDbLinks > pathAsTopoDbLinks( const TopoGraph & topoGraph,
                                                 std::span< const CspfPathHop > hops );
/// One hop of these records; not known where its link, or the router's place on the LAN, is none
/// of the graph.
CspfPathHop pathHop( const TopoGraph & topoGraph, const PathAsTopoDbLinks & links, HopIndex hop );

}
