// How a path with explicit hops is put together.
//
// The stitcher holds the router that the path has come to; each operation appends hops that leave
// that router and moves it on. Loose segments were computed before, by runs of their own. A strict
// hop is one link, and is chosen here, from the links between the two routers, by the order in
// which a run that is limited to a single hop would rank them.
//
// An operator who writes the address of an interface means that link, so parallel links do not
// stand in for it, neither when they cost less nor when that link is not to be had.

#include "Cspf/Hops/PathStitcher.h"

#include "Cspf/Graph/Arcs.h"
#include "platform/Trace/Trace.h"

#include <algorithm>

namespace Cspf {

PathStitcher::PathStitcher( const AllTopoDbView & view, PathValidationMemory & memory,
                            const PathInfoKey & pathInfoKey, const PathStatus & published )
   : view_( view ),
     memory_( memory ),
     pathInfoKey_( pathInfoKey ),
     published_( published ),
     end_( view.spfRoot().ipAddress() ) {}

bool
PathStitcher::checkAndUpdatePathForSelfPath( const Destination & destination,
                                             const PathConstraint & constraint ) {
   const auto isHere = [ & ]( const auto & address ) { return view_.hasTep( end_, address ); };
   if ( !isHere( destination.ipAddress() )
        || !std::ranges::all_of( constraint.includeHopList(), isHere, &IncludeHop::addr ) ) {
      return false;
   }
   for ( const IncludeHop & hop : constraint.includeHopList() ) {
      includeIps_.push_back( { hop.addr(), end_ } );
   }
   isPathFromSourceToSource_ = true;
   return true;
}

std::string
PathStitcher::checkAndUpdateAllExplicitPath( const PathConstraint & constraint ) {
   PathStatus explicitPath;
   for ( const IncludeHop & hop : constraint.includeHopList() ) {
      explicitPath.path_.push( hop.addr() );
   }
   RsvpPathValidator validator( pathInfoKey_, explicitPath, false, view_, memory_ );
   validator.validatePathAndUpdateMetadata();
   if ( !validator.valid() ) {
      return "The specified explicit path is not valid: "
             + ( explicitPath.paths() > 0 ? validator.reason() : "it has no hops" );
   }
   [[maybe_unused]] const RsvpPathValidator * pathValidator = &validator;
   LUM_ASSERT( pathValidator->pathTeRouterIdChanged() );
   for ( std::size_t i = 0; i < explicitPath.paths(); ++i ) {
      addHop( validator.links()[ i ], explicitPath.pathList()[ i ] );
      includeIps_.push_back( { explicitPath.pathList()[ i ], end_ } );
   }
   return {};
}

std::string
PathStitcher::doUpdatePathForStrictHop( const PathSegment & segment ) {
   if ( view_.topoGraph().vertex( NodeId( end_ ) ) == noVertex ) {
      return "Source with TE router ID " + end_.stringValue() + " not found";
   }
   const auto destinations = view_.allTopoDbStatus()->teRouterIdsOfTep( segment.end );
   if ( destinations.empty() ) {
      return "Destination TE router id not found for includeHop " + segment.end.stringValue();
   }
   std::string reason = "Destination " + segment.end.stringValue()
                        + " is not found as an immediate neighbor from source "
                        + end_.stringValue();
   for ( const Kivnet::IpGenAddr & destination : destinations ) {
      const auto best = bestStrictHop( end_, destination, segment.end );
      if ( best && best->refusal == CspfRefusal::none ) {
         addHop( best->hop, best->nexthop );
         addIncludeIp( segment );
         return {};
      }
      if ( best ) {
         reason += ": link to " + best->nexthop.stringValue() + ": "
                   + std::string( text( best->refusal ) );
      }
   }
   return reason;
}

std::string
PathStitcher::doUpdatePathForLooseHop( const PathSegment & segment,
                                       const PathStatusCache & child ) {
   const std::string index = std::to_string( segment.index );
   const auto & path = child.path();
   if ( !child.runInfo() || !path
        || ( path->hopCount() == 0 && !path->isPathFromSourceToSource() ) ) {
      return "No path for pathSegmentIndex " + index;
   }
   const NodeId & source = child.runInfo()->source();
   if ( source != NodeId( end_ ) ) {
      return "pathSegmentIndex " + index + " starts at " + source.stringValue() + ", not at "
             + end_.stringValue();
   }
   for ( std::size_t i = 0; i < path->hopCount(); ++i ) {
      end_ = child.pathTeRouterId()->pathTeRouterId()[ i ];
      const auto & links = child.pathAsTopoDbLinks();
      hops_.push_back( { path->path()[ i ], end_, child.pathSrlg()->pathSrlg()[ i ],
                         links ? links->path( HopIndex( i ) ) : AllTopoNeighborKey() } );
   }
   addIncludeIp( segment );
   return {};
}

Kivnet::IpGenAddr
PathStitcher::findOldNexthopForStrictHop( const Kivnet::IpGenAddr & strictHop ) const {
   const auto & routers = published_.pathTeRouterIdList();
   Kivnet::IpGenAddr previous = view_.spfRoot().ipAddress();
   Kivnet::IpGenAddr found;
   for ( std::size_t i = 0; i < routers.size() && i < published_.paths(); ++i ) {
      const bool sameStep = previous == end_ && view_.hasTep( routers[ i ], strictHop );
      if ( sameStep && ( !found || i == hops_.size() ) ) {
         found = published_.pathList()[ i ];
      }
      previous = routers[ i ];
   }
   if ( found ) {
      TRACE8_FOR( "Kivnet::IpGenAddr Cspf::RsvpPathStitchSm::findOldNexthopForStrictHop("
                  "const Kivnet::IpGenAddr&)",
                  "Found old nexthop " << found << " for node " << strictHop );
   }
   return found;
}

Kivnet::IpGenAddr
PathStitcher::findBestNexthopForStrictHop( const Kivnet::IpGenAddr & source,
                                           const Kivnet::IpGenAddr & destination,
                                           const Kivnet::IpGenAddr & strictHop ) const {
   const auto best = bestStrictHop( source, destination, strictHop );
   return best ? best->nexthop : Kivnet::IpGenAddr();
}

std::optional< PathStitcher::StrictHop >
PathStitcher::bestStrictHop( const Kivnet::IpGenAddr & source,
                             const Kivnet::IpGenAddr & destination,
                             const Kivnet::IpGenAddr & strictHop ) const {
   const CspfLinkFilter & filter = memory_.filter( view_, view_.spfRoot() );  // renumbers
   const TopoGraph & topoGraph = view_.topoGraph();
   const CspfVertex from = topoGraph.vertex( NodeId( source ) );
   const CspfVertex to = topoGraph.vertex( NodeId( destination ) );
   auto candidates = singleHops( filter, from, to );
   const auto isMeant = [ & ]( const StrictHop & hop ) { return arrivesAt( hop.hop, strictHop ); };
   if ( std::ranges::any_of( candidates, isMeant ) || meansLink( from, to, strictHop ) ) {
      std::erase_if( candidates, std::not_fn( isMeant ) );
   }
   const auto old = findOldNexthopForStrictHop( destination );
   const auto rank = [ & ]( const StrictHop & hop ) {
      return std::tuple( hop.refusal != CspfRefusal::none, hop.nexthop != old, hop.cost,
                         hop.hop.membership != noEdge, topoGraph.graph().keyRank( hop.hop.link ) );
   };
   const auto best = std::ranges::min_element( candidates, {}, rank );
   return best == candidates.end() ? std::nullopt : std::optional( *best );
}

/// All links between the two routers, allowed or not.
std::vector< PathStitcher::StrictHop >
PathStitcher::singleHops( const CspfLinkFilter & filter, CspfVertex from, CspfVertex to ) const {
   const CspfGraph & graph = view_.graph();
   std::vector< StrictHop > found;
   if ( from == to || from == noVertex || to == noVertex ) {
      return found;  // though a LAN leads back to its routers
   }
   const Kivnet::IpGenAddr teRouterId = view_.topoGraph().nodeId( to ).ipAddress();
   for ( const std::uint32_t e : graph.out( from ) ) {
      const CspfEdge link{ e };
      if ( graph.to( link ) == to ) {
         found.push_back( strictHop( filter, { link, noEdge, teRouterId } ) );
      } else if ( graph.isNetwork( graph.to( link ) ) ) {
         for ( const std::uint32_t m : graph.out( graph.to( link ) ) ) {
            if ( graph.to( CspfEdge{ m } ) == to ) {
               found.push_back( strictHop( filter, { link, CspfEdge{ m }, teRouterId } ) );
            }
         }
      }
   }
   return found;
}

PathStitcher::StrictHop
PathStitcher::strictHop( const CspfLinkFilter & filter, const CspfPathHop & hop ) const {
   const TopoGraph & topoGraph = view_.topoGraph();
   const CspfGraph & graph = view_.graph();
   const AllTopoNeighborKey key = topoGraph.neighborKey( hop.link );
   const CspfRunOptions options = runOptions( view_ );
   std::uint32_t metric = CspfArcs::stepMetric( graph, hop.link, options );
   if ( hop.membership != noEdge ) {
      metric += CspfArcs::stepMetric( graph, hop.membership, options );
   }
   StrictHop strictHop{ hop, {}, {}, refusalForUser( view_, filter, hop ) };
   strictHop.nexthop = topoGraph.nextHop( hop.membership == noEdge ? hop.link : hop.membership );
   strictHop.cost = { view_.srlgExcludeInfo( key ), view_.srlgIncludeInfo( key ), metric };
   return strictHop;
}

bool
PathStitcher::arrivesAt( const CspfPathHop & hop, const Kivnet::IpGenAddr & address ) const {
   const CspfEdge farEnd =
      hop.membership != noEdge ? hop.membership : view_.graph().reverse( hop.link );
   return farEnd != noEdge
          && neighborHasInterfaceAddr( view_.topoGraph().neighbor( farEnd ), address );
}

/// Whether it is the address of `to` on a link to the other one, or on a LAN that this one is on:
/// there may be nothing left of the link but what its far end lists. The TE router id of `to` means
/// the router, also where an interface borrows it.
bool
PathStitcher::meansLink( CspfVertex from, CspfVertex to, const Kivnet::IpGenAddr & address ) const {
   const CspfGraph & graph = view_.graph();
   const auto leads = [ & ]( CspfVertex start, CspfVertex end ) {
      return std::ranges::any_of( graph.out( start ), [ & ]( std::uint32_t e ) {
         return graph.to( CspfEdge{ e } ) == end;
      } );
   };
   if ( from == noVertex || to == noVertex
        || view_.topoGraph().nodeId( to ).ipAddress() == address ) {
      return false;
   }
   return std::ranges::any_of( graph.out( to ), [ & ]( std::uint32_t e ) {
      const CspfVertex end = graph.to( CspfEdge{ e } );
      const bool isBetween =
         end == from || ( graph.isNetwork( end ) && ( leads( from, end ) || leads( end, from ) ) );
      return isBetween
             && neighborHasInterfaceAddr( view_.topoGraph().neighbor( CspfEdge{ e } ), address );
   } );
}

void
PathStitcher::addHop( const CspfPathHop & hop, const Kivnet::IpGenAddr & nexthop ) {
   const TopoGraph & topoGraph = view_.topoGraph();
   end_ = hop.teRouterId;
   hops_.push_back( { nexthop,
                      end_,
                      { topoGraph.neighbor( hop.link ).srlgList() },
                      topoGraph.neighborKey( hop.link ) } );
}

/// The destination's own segment ends at no include hop.
void
PathStitcher::addIncludeIp( const PathSegment & segment ) {
   if ( !segment.isIncludeHop ) {
      return;
   }
   const IncludeIp includeIp{ segment.end, end_ };
   [[maybe_unused]] const Kivnet::IpGenAddr expectedTeRouterId =
      hops_.empty() ? view_.spfRoot().ipAddress() : hops_.back().teRouterId;
   LUM_ASSERT( includeIp.teRouterId() == expectedTeRouterId );
   includeIps_.push_back( includeIp );
}

bool
PathStitcher::isValid() const {
   const auto stitched = result();
   if ( !stitched ) {
      return true;  // too long, whatever the topology
   }
   PathStatus path;
   path.path_ = stitched->path->path();
   path.pathTeRouterId_ = stitched->pathTeRouterId->pathTeRouterId();
   RsvpPathValidator validator( pathInfoKey_, path, isPathFromSourceToSource_ || hops_.empty(),
                                view_, memory_, stitched->pathAsTopoDbLinks.ptr() );
   validator.validatePathAndUpdateMetadata();
   return validator.valid();
}

Lum::Ptr< const PathAsTopoDbLinks >
PathStitcher::links() const {
   if ( view_.constraint().bandwidth() == 0 ) {
      return nullptr;
   }
   auto links = Lum::make< PathAsTopoDbLinks >();
   for ( std::size_t i = 0; i < hops_.size(); ++i ) {
      links->pathIs( HopIndex( i ), hops_[ i ].link );
      if ( hops_[ i ].link.isLan() ) {
         links->routerInNetworkForHopIs( HopIndex( i ), hops_[ i ].teRouterId );
      }
   }
   return links;
}

std::optional< CspfPathResult >
PathStitcher::result() const {
   if ( hops_.size() > HopIndex::max + 1u ) {
      return std::nullopt;
   }
   PathArray::Hops path;
   PathSrlg::Hops srlgs;
   PathTeRouterId::Hops teRouterIds;
   IncludeIps::List includeIps;
   for ( const Hop & hop : hops_ ) {
      path.push( hop.nexthop );
      srlgs.push( hop.srlgs );
      teRouterIds.push( hop.teRouterId );
   }
   for ( const IncludeIp & includeIp : includeIps_ ) {
      includeIps.push( includeIp );
   }
   return CspfPathResult{ isPathFromSourceToSource_ ? Lum::make< const PathArray >( path, true )
                                                    : sharedRecord< PathArray >( path ),
                          sharedRecord< PathSrlg >( srlgs ),
                          sharedRecord< PathTeRouterId >( teRouterIds ),
                          sharedRecord< IncludeIps >( includeIps ), links() };
}

}
