// From the addresses of a published path back to links of the topology.
//
// A path names each hop by an address of its receiving end. The table of interface addresses says
// which link of the receiving router carries it; the packet comes by that link's reverse, or, on a
// LAN, by the previous router's own link to it. Both are edges of the graph, so that after the one
// look-up of an address everything is numbers.
//
// The look-up is remembered for each address. Validation runs for thousands of paths after one
// change of the topology, their hops are mostly the same, and a change makes old only what is known
// of the links of the routers that changed.

#include "Cspf/Hops/HopLinks.h"

#include "Cspf/Graph/Arcs.h"
#include "platform/Trace/Trace.h"

#include <algorithm>
#include <tuple>

namespace Cspf {

void
HopAddressMemory::handleInitialized() {
   LUM_WATCH_KEYS( allTopoDbStatus_->intfIpToNeighborTable(), intfIpToNeighbor, handleIntfIp );
   LUM_WATCH_KEYS( allTopoDbStatus_->vrfSourceId(), vrfClientSourceId, handleSourceId );
}

namespace {

/// Those links that name their router. Of a router that has no TE router id in one topology a link
/// there is but one more way to name it where it has one in another topology.
std::vector< AllTopoNeighborKey >
withoutRepeats( std::vector< AllTopoNeighborKey > links ) {
   std::set< IgpRouterId > named;
   for ( const AllTopoNeighborKey & key : links ) {
      if ( key.teNeighborOf() ) {
         named.insert( key.neighborKey().routerId() );
      }
   }
   std::erase_if( links, [ & ]( const AllTopoNeighborKey & key ) {
      return !key.teNeighborOf() && named.contains( key.neighborKey().routerId() );
   } );
   return links;
}

}

HopAddressMemory::Carrier
HopAddressMemory::carrier( const AllTopoNeighborKey & key ) const {
   const TopoGraph & topoGraph = allTopoDbStatus_->teGraph();
   const CspfGraph & graph = topoGraph.graph();
   Carrier carrier;
   carrier.topology = topoGraph.topologyNumber( key.topoId() ).value_or( CspfGraph::anyTopology );
   carrier.lan = key.isLan();
   carrier.router = topoGraph.router( key.topoId(), key.neighborKey().routerId() );
   carrier.link = topoGraph.edge( key );
   carrier.arrival = carrier.link == noEdge ? noEdge : graph.reverse( carrier.link );
   if ( carrier.arrival != noEdge ) {
      [[maybe_unused]] const auto linkInReverse = topoGraph.neighborKey( carrier.arrival );
      LUM_ASSERT( !!linkInReverse.teNeighborOf() );
      carrier.teRouterId = topoGraph.nodeId( carrier.router ).ipAddress();
   }
   return carrier;
}

/// A link of a router, and the pair that it is in, change with the router.
bool
HopAddressMemory::holds( const Entry & entry ) const {
   const CspfGraph & graph = allTopoDbStatus_->teGraph().graph();
   return !entry.carriers.empty()
          && std::ranges::all_of( entry.carriers, [ & ]( const Carrier & carrier ) {
                return graph.changedAt( carrier.router ) <= entry.change;
             } );
}

std::span< const HopAddressMemory::Carrier >
HopAddressMemory::carriers( const Kivnet::IpGenAddr & address, const TopoId & topoId ) {
   const auto all = allCarriers( address );
   if ( !topoId ) {
      return all;
   }
   const auto topology = allTopoDbStatus_->teGraph().topologyNumber( topoId );
   inTopology_.clear();
   std::ranges::copy_if( all, std::back_inserter( inTopology_ ),
                         [ & ]( const Carrier & c ) { return topology == c.topology; } );
   return inTopology_;
}

const HopAddressMemory::Carrier *
HopAddressMemory::another( std::span< const Carrier > carriers ) {
   for ( const Carrier & carrier : carriers ) {
      if ( &carrier != carriers.data()
           && ( carrier.router != carriers.front().router || carrier.router == noVertex ) ) {
         return &carrier;
      }
   }
   return nullptr;
}

std::span< const HopAddressMemory::Carrier >
HopAddressMemory::allCarriers( const Kivnet::IpGenAddr & address ) {
   Entry & entry = entries_[ address ];
   if ( !holds( entry ) ) {
      entry.change = allTopoDbStatus_->teGraph().graph().lastChange();
      entry.carriers.clear();
      const auto * found =
         allTopoDbStatus_->intfIpToNeighborTable()->intfIpToNeighborFind( address );
      if ( found ) {
         for ( const AllTopoNeighborKey & key : withoutRepeats( found->neighborSet() ) ) {
            entry.carriers.push_back( carrier( key ) );
         }
      }
   }
   if ( entry.carriers.empty() ) {
      entries_.erase( address );
      return {};
   }
   return entry.carriers;
}

CspfRunOptions
runOptions( const AllTopoDbView & view ) {
   CspfRunOptions options;
   options.useTeMetric = true;
   options.reverse = view.constraint().reversePath();
   return options;
}

CspfRefusal
refusalForUser( const AllTopoDbView & view, const CspfLinkFilter & filter,
                const CspfPathHop & hop ) {
   const CspfGraph & graph = view.graph();
   const CspfRunOptions options = runOptions( view );
   CspfRefusal refusal = filter.reason( graph, hop.link );
   if ( refusal == CspfRefusal::bandwidth
        && view.bandwidthCheckPassed( view.topoGraph().neighborKey( hop.link ) ) ) {
      refusal = CspfRefusal::none;  // with what its user holds already
   }
   if ( refusal == CspfRefusal::none ) {
      refusal = CspfArcs::metricRefusal( graph, hop.link, options );
   }
   if ( refusal == CspfRefusal::none && hop.membership != noEdge ) {
      refusal = CspfArcs::refusal( graph, filter, hop.membership, options );
   }
   return refusal;
}

HopToTopoDbLinkMapper::HopToTopoDbLinkMapper( const PathArray & hops, const NodeId & sourceNode,
                                              const AllTopoDbView & view )
   : HopToTopoDbLinkMapper( view, std::make_unique< OnePath >( OnePath{
                                     hops.path(),
                                     sourceNode,
                                     Lum::make< HopAddressMemory >( view.allTopoDbStatus() ),
                                     {},
                                     {} } ) ) {
   onePath_->filter.constraintIs( view.linkConstraint( sourceNode ) );
}

HopToTopoDbLinkMapper::HopToTopoDbLinkMapper( const AllTopoDbView & view,
                                              std::unique_ptr< OnePath > onePath )
   : onePath_( std::move( onePath ) ),
     view_( view ),
     memory_( *onePath_->memory ),
     filter_( onePath_->filter ),
     known_( nullptr ) {}

void
HopToTopoDbLinkMapper::handleNew() {
   LUM_ASSERT( onePath_ );
   handleNew( view_.topoGraph().vertex( onePath_->sourceNode ), onePath_->hops, onePath_->links );
}

Lum::Ptr< PathAsTopoDbLinks >
HopToTopoDbLinkMapper::pathAsTopoDbLinks() const {
   LUM_ASSERT( onePath_ );
   return Cspf::pathAsTopoDbLinks( view_.topoGraph(), onePath_->links );
}

void
HopToTopoDbLinkMapper::handleNew( CspfVertex sourceNode, const Hops & hops,
                                  std::vector< CspfPathHop > & links ) {
   const CspfGraph & graph = view_.graph();
   failure_.clear();
   links.clear();
   previous_ = sourceNode;
   for ( const Kivnet::IpGenAddr & hop : hops ) {
      hopIndex_ = links.size();
      links.push_back( mapHop( hop ) );
      CspfPathHop & link = links.back();
      if ( links.size() == 1 && link.known() && graph.from( link.link ) != sourceNode ) {
         TRACE8( "Skipping hop0, sourceNode "
                 << view_.topoGraph().nodeId( sourceNode ) << " doesn't match with "
                 << view_.topoGraph().nodeId( graph.from( link.link ) ) );
         failure_ = "hop " + hop.stringValue() + " is not behind a link of the source";
         link = CspfPathHop();
      }
      previous_ = link.known() ? link.end( graph ) : noVertex;
   }
}

CspfPathHop
HopToTopoDbLinkMapper::mapHop( const Kivnet::IpGenAddr & hop ) {
   const bool failedBefore = !failure_.empty();
   CspfPathHop best;
   std::span< const Carrier > carriers;
   linkWithHop( hop, carriers );
   for ( const Carrier & carrier : carriers ) {
      const CspfPathHop candidate =
         carrier.lan ? doReverseLanLink( carrier, hop ) : doReverseP2pLink( carrier, hop );
      if ( better( candidate, best ) ) {
         best = candidate;
      }
   }
   if ( best.known() && !failedBefore ) {
      failure_.clear();  // of another link with that address
   }
   return best;
}

bool
HopToTopoDbLinkMapper::better( const CspfPathHop & candidate, const CspfPathHop & best ) const {
   if ( !candidate.known() || !best.known() ) {
      return candidate.known();
   }
   const CspfGraph & graph = view_.graph();
   const auto rank = [ & ]( const CspfPathHop & hop ) {
      const bool continues = graph.from( hop.link ) == previous_;
      const bool allowed = refusalForUser( view_, filter_, hop ) == CspfRefusal::none;
      return std::tuple( continues, allowed, isKnown( hop ), ~graph.keyRank( hop.link ) );
   };
   return rank( candidate ) > rank( best );
}

bool
HopToTopoDbLinkMapper::isKnown( const CspfPathHop & hop ) const {
   const AllTopoNeighborKey * known = known_ ? known_->pathFind( HopIndex( hopIndex_ ) ) : nullptr;
   return known && view_.topoGraph().edge( *known ) == hop.link;
}

void
HopToTopoDbLinkMapper::linkWithHop( const Kivnet::IpGenAddr & hop,
                                    std::span< const Carrier > & carriers ) {
   carriers = memory_.carriers( hop, view_.constraint().topoId() );
   if ( carriers.empty() ) {
      fail( __PRETTY_FUNCTION__, "Hop not found: ", hop );
   } else if ( const Carrier * other = HopAddressMemory::another( carriers ) ) {
      const auto name = [ & ]( const Carrier & c ) {
         return c.router == noVertex ? std::string()
                                     : view_.topoGraph().nodeId( c.router ).stringValue();
      };
      fail( __PRETTY_FUNCTION__, "Duplicate IP exists for hop: ", hop,
            ", teRouterId1 " + name( carriers.front() ) + " teRouterId2: " + name( *other ) );
      carriers = {};
   }
}

CspfPathHop
HopToTopoDbLinkMapper::doReverseP2pLink( const Carrier & carrier, const Kivnet::IpGenAddr & hop ) {
   if ( carrier.router == noVertex ) {
      fail( __PRETTY_FUNCTION__, "Cannot find TE router id for ", hop );
      return {};
   }
   if ( carrier.arrival == noEdge ) {
      fail( __PRETTY_FUNCTION__, "Cannot find matching reverse link for hop ", hop );
      return {};
   }
   return { carrier.arrival, noEdge, carrier.teRouterId };
}

CspfPathHop
HopToTopoDbLinkMapper::doReverseLanLink( const Carrier & carrier, const Kivnet::IpGenAddr & hop ) {
   if ( carrier.router == noVertex ) {
      fail( __PRETTY_FUNCTION__, "Cannot find IGP router id for destination router ", hop );
      return {};
   }
   if ( carrier.arrival == noEdge ) {
      fail( __PRETTY_FUNCTION__,
            carrier.link != noEdge ? "Destination router in LAN is empty for "
                                   : "Cannot find Neighbor object for ",
            hop );
      return {};
   }
   if ( carrier.router == previous_ ) {
      fail( __PRETTY_FUNCTION__,
            "Both the end point of the link is expected on the same router for ", hop );
      return {};
   }
   const CspfGraph & graph = view_.graph();
   const CspfVertex network = graph.from( carrier.arrival );
   CspfPathHop best;
   if ( previous_ != noVertex ) {
      for ( const std::uint32_t e : graph.out( previous_ ) ) {
         const CspfPathHop candidate{ CspfEdge{ e }, carrier.arrival, carrier.teRouterId };
         if ( graph.to( candidate.link ) == network && better( candidate, best ) ) {
            best = candidate;
         }
      }
   }
   if ( !best.known() ) {
      fail( __PRETTY_FUNCTION__, "Cannot find reference from router to LAN for ", hop );
   }
   return best;
}

AllTopoNeighborKey
HopToTopoDbLinkMapper::neighborKey( CspfEdge link ) const {
   return link == noEdge ? AllTopoNeighborKey() : view_.topoGraph().neighborKey( link );
}

AllTopoNeighborKey
HopToTopoDbLinkMapper::linkWithHop( const Kivnet::IpGenAddr & hop ) {
   std::span< const Carrier > carriers;
   linkWithHop( hop, carriers );
   return neighborKey( carriers.empty() ? noEdge : carriers.front().link );
}

AllTopoNeighborKey
HopToTopoDbLinkMapper::doReverseP2pLink( const AllTopoNeighborKey & link,
                                         const Kivnet::IpGenAddr & hop ) {
   return neighborKey( doReverseP2pLink( memory_.carrier( link ), hop ).link );
}

AllTopoNeighborKey
HopToTopoDbLinkMapper::doReverseLanLink( const AllTopoNeighborKey & link,
                                         const Kivnet::IpGenAddr & hop ) {
   return neighborKey( doReverseLanLink( memory_.carrier( link ), hop ).link );
}

void
HopToTopoDbLinkMapper::fail( const char * operation, const char * reason,
                             const Kivnet::IpGenAddr & hop, const std::string & more ) {
   TRACE8_FOR( operation, reason << hop << more );
   if ( failure_.empty() ) {
      failure_ = reason + hop.stringValue() + more;
   }
}

namespace {

std::vector< CspfVertex >
routersOf( const CspfGraph & graph, std::span< const CspfPathHop > hops ) {
   std::vector< CspfVertex > routers{ graph.from( hops.front().link ) };
   for ( const CspfPathHop & hop : hops ) {
      routers.push_back( hop.end( graph ) );
   }
   return routers;
}

}

PathRouters::PathRouters( const CspfGraph & graph, const HopAddressMemory & memory,
                          std::vector< CspfVertex > routers )
   : sourceChanges_( memory.sourceChanges() ) {
   path_.own() = { std::move( routers ), graph.lastChange() };
}

PathRouters::PathRouters( const CspfGraph & graph, const HopAddressMemory & memory,
                          std::span< const CspfPathHop > hops )
   : PathRouters( graph, memory, routersOf( graph, hops ) ) {}

bool
PathRouters::unchanged( const CspfGraph & graph, const HopAddressMemory & memory ) const {
   return !path_->routers.empty() && sourceChanges_ == memory.sourceChanges()
          && Cspf::unchanged( graph, *path_ );
}

bool
unchanged( const CspfGraph & graph, const CspfPathRouters & path ) {
   return std::ranges::all_of( path.routers, [ & ]( CspfVertex router ) {
      return graph.changedAt( router ) <= path.change;
   } );
}

Lum::Ptr< PathAsTopoDbLinks >
pathAsTopoDbLinks( const TopoGraph & topoGraph, std::span< const CspfPathHop > hops ) {
   auto links = Lum::make< PathAsTopoDbLinks >();
   for ( std::size_t i = 0; i < hops.size(); ++i ) {
      if ( hops[ i ].known() ) {
         links->pathIs( HopIndex( i ), topoGraph.neighborKey( hops[ i ].link ) );
      }
      if ( hops[ i ].membership != noEdge ) {
         links->routerInNetworkForHopIs( HopIndex( i ), hops[ i ].teRouterId );
      }
   }
   return links;
}

CspfPathHop
pathHop( const TopoGraph & topoGraph, const PathAsTopoDbLinks & links, HopIndex hop ) {
   const AllTopoNeighborKey * key = links.pathFind( hop );
   const CspfEdge link = key ? topoGraph.edge( *key ) : noEdge;
   if ( link == noEdge ) {
      return {};
   }
   const CspfGraph & graph = topoGraph.graph();
   const CspfVertex end = graph.to( link );
   if ( !graph.isNetwork( end ) ) {
      return { link, noEdge, topoGraph.nodeId( end ).ipAddress() };
   }
   const Kivnet::IpGenAddr & router = links.routerInNetworkForHop( hop );
   for ( const std::uint32_t e : graph.out( end ) ) {
      if ( topoGraph.nodeId( graph.to( CspfEdge{ e } ) ).ipAddress() == router ) {
         return { link, CspfEdge{ e }, router };
      }
   }
   return {};
}

}
