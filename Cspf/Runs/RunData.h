#pragma once

#include "Cspf/Graph/LabelTree.h"
#include "Cspf/Graph/Tree.h"
#include "Cspf/Records/PathRecords.h"
#include "Cspf/Records/RunInfo.h"

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Cspf {

class AllTopoDbView;
class CspfRun;
class CspfRunMemory;
/// Asked at a choice only: most paths have none.
using CspfOldPathOf = std::function< CspfOldPath() >;

/// Cost of a path. SRLG avoidance outranks the metric: costs compare by `srlgExcludeInfo`, then
/// `srlgIncludeInfo`, then `metricCost`.
struct CspfPathCost {
   LUM_VALUE_OF_OWN_ORDER( Cspf, CspfPathCost );
   LUM_FIELD( metricCost, std::uint32_t );
   LUM_FIELD( srlgExcludeInfo, SrlgExcludeInfo );
   LUM_FIELD( srlgIncludeInfo, SrlgIncludeInfo );

   std::strong_ordering operator<=>( const CspfPathCost & other ) const;
   /// "30|SE-1|SI-0", as traces tell a cost.
   std::string stringValue() const;
};

}

namespace Lum {

/// The tagged form is for traces only.
template<>
inline std::string
valueString( const Cspf::CspfPathCost & cost ) {
   return Detail::describedString( cost );
}

}

namespace Cspf {

/// A link by which paths end, and the cost of these paths. Compares by cost; at equal cost LANs,
/// then links to routers, both by link, then routers inside of LANs by node.
struct CspfLinkInfoKey {
   LUM_VALUE_OF_OWN_ORDER( Cspf, CspfLinkInfoKey );
   LUM_FIELD( allTopoNeighborKey, AllTopoNeighborKey );
   LUM_FIELD( routerInNetwork, NodeId );  ///< the router reached inside of the LAN it leads to
   LUM_FIELD( cost, CspfPathCost );

   CspfLinkInfoKey() = default;
   /// Throws std::invalid_argument where there is a router inside of a LAN, but no LAN.
   CspfLinkInfoKey( const AllTopoNeighborKey & link, const NodeId & router,
                    const CspfPathCost & pathCost );
   /// Whether paths that end so end at a router, not at a LAN.
   bool routerLink() const { return !allTopoNeighborKey_.isLan() || routerInNetwork_; }
   /// Throws std::invalid_argument unless both are links to routers.
   bool equalCost( const CspfLinkInfoKey & other ) const;
   std::strong_ordering operator<=>( const CspfLinkInfoKey & other ) const;
};

/// One last link of a node, and the local interface by which its path leaves this router.
struct CspfLinkInfo {
   LUM_VALUE( Cspf, CspfLinkInfo );
   LUM_FIELD( cspfLinkInfoKey, CspfLinkInfoKey );
   LUM_FIELD( intfId, Kivnet::IntfId );

   const AllTopoNeighborKey & allTopoNeighborKey() const {
      return cspfLinkInfoKey_.allTopoNeighborKey();
   }
   const NodeId & routerInNetwork() const { return cspfLinkInfoKey_.routerInNetwork(); }
   const CspfPathCost & cost() const { return cspfLinkInfoKey_.cost(); }
};

/// How a node is reached: by more than one last link where paths are equal, by none at the source.
struct CspfPath {
   LUM_VALUE( Cspf, CspfPath );
   LUM_FIELD( nodeId, NodeId );
   LUM_SET( lastLink, CspfLinkInfo );
   CspfPath() = default;
   LUM_NO_STRING_CONSTRUCTOR( CspfPath );

   CspfPathCost pathCost() const {
      return lastLink_.empty() ? CspfPathCost() : lastLink_.begin()->cost();
   }
   std::uint32_t metricCost() const { return pathCost().metricCost(); }
};

/// One run: where it starts, how it counts, what it looks for, and what it found. The tree that it
/// found is large; whoever ran it gives it back (CspfRunMemory::reclaim) when all results that are
/// wanted were taken out, and then only the run's identity is left. A tree that stays holds
/// numbers of the graph that it was run on, so that it answers until the topology changes.
class CspfData : public CspfRunInfo {
   LUM_ENTITY( Cspf, CspfData );
   CspfData();
   ~CspfData() override;
   LUM_ATTRIBUTE( useTeMetric, bool );            ///< of links that have one
   LUM_ATTRIBUTE( useLinksWithMaxMetric, bool );  ///< do not skip them
   LUM_ATTRIBUTE( buildReverseSpt, bool );        ///< paths towards the source
   LUM_ATTRIBUTE( singleHopCountLimit, bool );    ///< routers beyond the source are not crossed

   /// Adds a destination to find. REQUIRES: the run is still to come.
   void tepIs( const Kivnet::IpGenAddr & tep ) { work_->teps.push_back( { tep, noVertex } ); }
   /// Whether the destination is one to find. O(destinations).
   bool tepHas( const Kivnet::IpGenAddr & tep ) const;
   std::size_t teps() const noexcept { return work_ ? work_->teps.size() : 0; }

   /// Whether there is a tree and the topology is still the one that it was run on.
   bool hasTree() const;
   /// REQUIRES: hasTree().
   const CspfTree & tree() const { return work_->tree; }
   /// The topology as the run saw it. REQUIRES: a tree is there.
   const AllTopoDbView & view() const { return *work_->view; }

   // What it found. REQUIRES: hasTree().

   /// The router with the destination, empty where none was found: of several, the one that was
   /// made final first. O(log destinations).
   NodeId routerWithTep( const Kivnet::IpGenAddr & tep ) const;
   bool routerWithTepHas( const Kivnet::IpGenAddr & tep ) const;
   std::size_t routerWithTeps() const;
   /// How a router is reached; without last links where it is not, and at the source.
   CspfPath shortestPath( const NodeId & router ) const;
   bool shortestPathHas( const NodeId & router ) const;
   std::size_t shortestPaths() const;
   /// The same of a LAN; its node is the LAN's vertex.
   CspfPath shortestPathForNetwork( const AllTopoNetworkId & network ) const;
   bool shortestPathForNetworkHas( const AllTopoNetworkId & network ) const;
   std::size_t shortestPathForNetworks() const;

   // What it counts, in the metrics of this run; 0 where there is no such link.

   std::uint32_t getLinkMetric( const AllTopoNeighborKey & link ) const;
   /// Of the opposite direction; 0 for a link to a LAN.
   std::uint32_t getReverseLinkMetric( const AllTopoNeighborKey & link ) const;
   /// From the router to the LAN; the least, where it is on it with several interfaces.
   std::uint32_t getReverseMetricNetwork( const AllTopoNetworkId & network,
                                          const NodeId & router ) const;
   /// Address, and TE router id, of the router at which a path that ends so arrives.
   Kivnet::IpGenAddr nexthopOnLink( const CspfLinkInfoKey & link ) const;
   Kivnet::IpGenAddr teRouterIdOfNexthopOnLink( const CspfLinkInfoKey & link ) const;

   /// The hops from the source to the destination, and what is known of them: into `result`, which
   /// holds the path's last result; records that stay right are left as they are, the others are
   /// replaced. Paths with hops to pass are not found by one run, so no such hop is among what is
   /// known. At a choice among equal links one that `oldPath` uses wins, else std::rand decides.
   /// A path with more hops than a result can hold leaves it empty, and gives false. REQUIRES:
   /// hasTree(), routerWithTepHas( tep ). O(hops), without allocation where nothing changed.
   bool fillHopByHopPathForTep( const Kivnet::IpGenAddr & tep, const CspfOldPathOf & oldPath,
                                CspfPathResult & result ) const;
   /// The same into records of the caller's own. `oldPath`: the hops in use; may be null.
   bool fillHopByHopPathForTep( const Kivnet::IpGenAddr & tep,
                                const Lum::Ptr< const PathArray > & oldPath,
                                const Lum::Ptr< PathArray > & path,
                                const Lum::Ptr< PathSrlg > & pathSrlg,
                                const Lum::Ptr< PathTeRouterId > & pathTeRouterId,
                                const Lum::Ptr< IncludeIps > & includeIps ) const;

   /// The routers of the answer that was filled in last.
   CspfPathRouters pathRouters() const;

   /// What the answer for a destination rests on, after it was filled in from labels.
   struct Ground {
      std::vector< CspfVertex > vertices;  ///< of the way, but the source; routers to choose from
      bool settled = false;                ///< the next run finds the same way where they stay
   };
   /// `oldPath`: what the next run will find in use. REQUIRES: the tree is answered from labels.
   Ground ground( const Kivnet::IpGenAddr & tep, const CspfOldPathOf & oldPath ) const;

 private:
   friend class CspfRun;
   friend class CspfRunMemory;
   struct Tep {
      Kivnet::IpGenAddr tep;
      CspfVertex router;                       // noVertex: not found
      std::vector< CspfVertex > routers = {};  // all that have it; noted for labels alone
   };
   /// From one router to the next: a link, and the edge that enters the far router, which is the
   /// same or, across a LAN, the step from the LAN.
   struct Hop {
      CspfEdge link;
      CspfEdge arrival;
   };

   /// Until the run is given back.
   struct Work {
      std::vector< Tep > teps;  // sorted and unique once the run is over
      CspfTree tree;
      const CspfLabelTree * labelTree = nullptr;  // in its place, while answers are handed out
      Lum::Ptr< const AllTopoDbView > view;
      std::vector< CspfEdge > edges;  // of the path at hand
      std::vector< Hop > hops;
      bool chose = false;  // there were equal links to choose from
      bool drew = false;   // ... none of them in use
      bool mayDraw = true;
   };

   /// The run's own tree, or what answers as one.
   template< class Ask >
   auto withTree( Ask && ask ) const {
      return work_->labelTree ? ask( *work_->labelTree ) : ask( work_->tree );
   }
   std::size_t tents() const { return work_->tree.tentative(); }
   /// noVertex: not found.
   CspfVertex vertexWithTep( const Kivnet::IpGenAddr & tep ) const;
   CspfPath shortestPathTo( CspfVertex vertex, const NodeId & node ) const;
   bool shortestPathHas( CspfVertex router ) const {
      return withTree( [ & ]( const auto & tree ) { return tree.reached( router ); } );
   }
   CspfVertex sourceVertex() const {
      return withTree( []( const auto & tree ) { return tree.source(); } );
   }
   const Tep * findTep( const Kivnet::IpGenAddr & tep ) const;
   void fillAttributes( CspfPathResult & result ) const;
   void fillLinks( CspfPathResult & result ) const;
   // `operation`: the one for which, as traces begin.
   bool walkBack( CspfVertex router, const Kivnet::IpGenAddr & tep, const CspfOldPathOf & oldPath,
                  const char * operation ) const;
   std::size_t choose( std::span< const CspfEdge > links, const Kivnet::IpGenAddr & tep,
                       const CspfOldPath & oldPath, const char * operation ) const;
   bool uses( const CspfOldPath & oldPath, CspfEdge link ) const;
   Kivnet::IpGenAddr nexthopOnLink( CspfEdge arrival ) const;
   Kivnet::IpGenAddr teRouterIdOfNexthopOnLink( CspfEdge arrival ) const;

   std::unique_ptr< Work > work_;
};

/// A run for repair paths. It keeps its tree.
class LfaCspfData : public CspfData {
   LUM_ENTITY( Cspf, LfaCspfData );
   LUM_ATTRIBUTE( sourceOverloaded, bool );  ///< nothing but the source's own traffic crosses it
};

}
