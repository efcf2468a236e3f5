// Hops of one path out of a run's tree, in the words of its client.
//
// The records that a result is made of are shared with the path's cache, and with other paths, and
// never change. Most runs find most paths as they were, so what a path holds is compared hop by hop
// first, and another record is looked for only where it differs. The lists of numbers that this
// takes are the run's own and serve all of its paths.
//
// Equal-cost choices are made from the destination backwards, as the tree is walked. They keep to
// the path in use, so that paths stay where they are while they are among the best, and are random
// otherwise, so that new paths spread.

#include "Cspf/Graph/HopList.h"
#include "Cspf/Hops/HopLinks.h"
#include "Cspf/Runs/Run.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <cstdlib>

namespace Cspf {

namespace {

constexpr std::uint32_t mostHops = HopIndex::max + 1;

/// Puts another record in place of one that holds other elements: `make( hop )` for each hop, where
/// `same( element, hop )` tells whether a present one is that. `last`: most likely the right one.
template< class List, class Record, class Hops, class Same, class Make >
void
renew( Lum::Ptr< const Record > & record, const List & ( Record::*list )() const noexcept,
       const Hops & hops, Same same, Make make, Lum::Ptr< const Record > * last = nullptr ) {
   const auto isRight = [ & ]( const Lum::Ptr< const Record > & some ) {
      return some && std::ranges::equal( ( *some.*list )(), hops, same );
   };
   if ( isRight( record ) ) {
      return;
   }
   if ( last && isRight( *last ) ) {
      record = *last;
      return;
   }
   List renewed;
   renewed.reserve( hops.size() );
   for ( const auto & hop : hops ) {
      renewed.push( make( hop ) );
   }
   record = sharedRecord< Record >( renewed );
   if ( last ) {
      *last = record;
   }
}

}

bool
CspfData::fillHopByHopPathForTep( const Kivnet::IpGenAddr & tep, const CspfOldPathOf & oldPath,
                                  CspfPathResult & result ) const {
   LUM_ASSERT( routerWithTepHas( tep ) );
   const CspfVertex router = vertexWithTep( tep );
   {
      const auto routerWithTep = [ & ]( const auto & ) { return router; };  // without its name
      LUM_ASSERT( shortestPathHas( routerWithTep( tep ) ) );
   }
   const bool toSource = router == sourceVertex();
   if ( !walkBack( router, tep, oldPath, __PRETTY_FUNCTION__ ) ) {
      result.clear();
      return false;
   }
   TRACE9( "creating path with " << work_->hops.size() << " hops for tep " << tep );
   if ( toSource ) {
      LUM_ASSERT( routerWithTep( tep ) == source() );
      if ( !result.path || !result.path->isPathFromSourceToSource() ) {
         result.path = Lum::make< const PathArray >( PathArray::Hops(), true );
      }
   } else {
      const auto nexthop = [ this ]( const Hop & hop ) { return nexthopOnLink( hop.arrival ); };
      renew(
         result.path, &PathArray::path, work_->hops,
         [ & ]( const auto & old, const Hop & hop ) { return old == nexthop( hop ); }, nexthop );
   }
   fillAttributes( result );
   return true;
}

bool
CspfData::fillHopByHopPathForTep( const Kivnet::IpGenAddr & tep,
                                  const Lum::Ptr< const PathArray > & oldPath,
                                  const Lum::Ptr< PathArray > & path,
                                  const Lum::Ptr< PathSrlg > & pathSrlg,
                                  const Lum::Ptr< PathTeRouterId > & pathTeRouterId,
                                  const Lum::Ptr< IncludeIps > & includeIps ) const {
   std::vector< Kivnet::IpGenAddr > routers;
   const auto old = [ & ]() -> CspfOldPath {
      if ( !oldPath ) {
         return {};
      }
      routers.clear();
      for ( const Kivnet::IpGenAddr & hop : oldPath->path() ) {
         routers.push_back( work_->view->teRouterIdOfNodeWithTep( hop ) );
      }
      return { oldPath->path(), routers };
   };
   CspfPathResult result;
   const bool found = fillHopByHopPathForTep( tep, old, result );
   path->path_ = result.path->path();
   path->isPathFromSourceToSourceIs( result.path->isPathFromSourceToSource() );
   pathSrlg->pathSrlg_ = result.pathSrlg->pathSrlg();
   pathTeRouterId->pathTeRouterId_ = result.pathTeRouterId->pathTeRouterId();
   includeIps->includeIp_ = result.includeIps->includeIp();
   return found;
}

void
CspfData::fillAttributes( CspfPathResult & result ) const {
   const auto srlgs = [ this ]( const Hop & hop ) {
      return work_->view->graph().srlgs( hop.link );
   };
   renew(
      result.pathSrlg, &PathSrlg::pathSrlg, work_->hops,
      [ & ]( const SrlgOfHop & old, const Hop & hop ) {
         return std::ranges::equal( old.srlgList(), srlgs( hop ) );
      },
      [ & ]( const Hop & hop ) {
         SrlgOfHop ofHop;
         for ( const TrafficEngineering::SrlgId srlg : srlgs( hop ) ) {
            ofHop.srlgIs( SrlgIndex( ofHop.srlgs() ), srlg );
         }
         return ofHop;
      },
      &result.path->lastSrlg );
   const auto router = [ this ]( const Hop & hop ) {
      return teRouterIdOfNexthopOnLink( hop.arrival );
   };
   renew(
      result.pathTeRouterId, &PathTeRouterId::pathTeRouterId, work_->hops,
      [ & ]( const auto & old, const Hop & hop ) { return old == router( hop ); }, router,
      &result.path->lastTeRouterId );
   result.clearIncludeIps();
   fillLinks( result );
}

void
CspfData::fillLinks( CspfPathResult & result ) const {
   if ( work_->view->constraint().bandwidth() == 0 ) {
      result.pathAsTopoDbLinks = nullptr;
      return;
   }
   std::vector< CspfPathHop > hops;
   for ( const Hop & hop : work_->hops ) {
      hops.push_back( { hop.link, hop.arrival == hop.link ? noEdge : hop.arrival,
                        teRouterIdOfNexthopOnLink( hop.arrival ) } );
   }
   const auto links = pathAsTopoDbLinks( work_->view->topoGraph(), hops );
   if ( !result.pathAsTopoDbLinks || !( *result.pathAsTopoDbLinks == *links ) ) {
      result.pathAsTopoDbLinks = links;
   }
}

CspfPathRouters
CspfData::pathRouters() const {
   const CspfGraph & graph = work_->view->graph();
   CspfPathRouters way;
   if ( work_->hops.empty() || buildReverseSpt() ) {
      return way;
   }
   way.change = graph.lastChange();
   way.routers.reserve( work_->hops.size() + 1 );
   way.routers.push_back( graph.from( work_->hops.front().link ) );
   for ( const Hop & hop : work_->hops ) {
      way.routers.push_back( graph.to( hop.arrival ) );
   }
   return way;
}

/// The hops to the router, in `work_->hops`. Gives false where there are too many.
bool
CspfData::walkBack( CspfVertex router, const Kivnet::IpGenAddr & tep, const CspfOldPathOf & oldPath,
                    const char * operation ) const {
   const CspfGraph & graph = work_->view->graph();
   work_->chose = work_->drew = false;
   const auto status = withTree( [ & ]( const auto & tree ) {
      return hopList(
         graph, tree, router, mostHops,
         [ & ]( CspfVertex, std::span< const CspfEdge > links ) {
            return choose( links, tep, oldPath(), operation );
         },
         work_->edges );
   } );
   work_->hops.clear();
   for ( const CspfEdge edge : work_->edges ) {
      if ( graph.kind( edge ) == CspfEdgeKind::networkToRouter ) {
         work_->hops.back().arrival = edge;
      } else {
         work_->hops.push_back( { edge, edge } );
      }
   }
   return status == CspfHopListStatus::found;
}

std::size_t
CspfData::choose( std::span< const CspfEdge > links, const Kivnet::IpGenAddr & tep,
                  const CspfOldPath & oldPath, const char * operation ) const {
   work_->chose = true;
   const auto old =
      std::ranges::find_if( links, [ & ]( CspfEdge link ) { return uses( oldPath, link ); } );
   if ( old != links.end() ) {
      TRACE9_FOR( operation, "Retained old hop " << work_->view->topoGraph().neighborKey( *old )
                                                 << " for TEP " << tep );
      return static_cast< std::size_t >( old - links.begin() );
   }
   work_->drew = true;
   if ( !work_->mayDraw ) {
      return 0;
   }
   const std::size_t index = static_cast< std::size_t >( std::rand() ) % links.size();
   TRACE9_FOR( operation, "Selecting index " << index << " among " << links.size() << " links for "
                                             << nodeText( work_->view->topoGraph(),
                                                          work_->view->graph().to( links[ 0 ] ) )
                                             << " for TEP " << tep );
   return index;
}

/// A link into a router is known by its address there. A link into a LAN is used when its router is
/// on the path and the hop after it, which is chosen by now, follows.
bool
CspfData::uses( const CspfOldPath & oldPath, CspfEdge link ) const {
   const CspfGraph & graph = work_->view->graph();
   if ( graph.kind( link ) != CspfEdgeKind::routerToNetwork ) {
      return std::ranges::count( oldPath.path, nexthopOnLink( link ) ) > 0;
   }
   const auto next = std::ranges::find( oldPath.path, nexthopOnLink( work_->edges.back() ) );
   if ( next == oldPath.path.end() ) {
      return false;
   }
   const auto hop = static_cast< std::size_t >( next - oldPath.path.begin() );
   const NodeId & near = work_->view->topoGraph().nodeId( graph.from( link ) );
   return hop == 0 ? graph.from( link ) == sourceVertex()
                   : hop <= oldPath.pathTeRouterId.size()
                        && oldPath.pathTeRouterId[ hop - 1 ] == near.ipAddress();
}

CspfData::Ground
CspfData::ground( const Kivnet::IpGenAddr & tep, const CspfOldPathOf & oldPath ) const {
   const CspfGraph & graph = work_->view->graph();
   const Tep * found = findTep( tep );
   Ground ground;
   if ( !found || !hasTree() ) {
      return ground;
   }
   ground.vertices = found->routers;
   if ( found->router == noVertex ) {
      ground.settled = true;
      return ground;
   }
   for ( const CspfEdge edge : work_->edges ) {
      ground.vertices.push_back( graph.to( edge ) );
   }
   const bool isCut = work_->edges.empty() && found->router != sourceVertex();
   if ( work_->chose && !isCut ) {
      const std::vector< CspfEdge > edges = work_->edges;
      work_->mayDraw = false;
      walkBack( found->router, tep, oldPath, __PRETTY_FUNCTION__ );
      work_->mayDraw = true;
      ground.settled = !work_->drew && edges == work_->edges;
   } else {
      ground.settled = !isCut;
   }
   return ground;
}

/// The far router's address on the link or LAN by which the path enters it.
Kivnet::IpGenAddr
CspfData::nexthopOnLink( CspfEdge arrival ) const {
   return work_->view->topoGraph().nextHop( arrival );
}

Kivnet::IpGenAddr
CspfData::teRouterIdOfNexthopOnLink( CspfEdge arrival ) const {
   const TopoGraph & topology = work_->view->topoGraph();
   return topology.nodeId( topology.graph().to( arrival ) ).ipAddress();
}

}
