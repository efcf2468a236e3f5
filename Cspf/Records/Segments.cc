// How a path with include hops is cut into segments.
//
// Every include hop ends a segment, loose or strict. A loose segment is computed as a path of its
// own, from the hop before it, under the parent's constraint without the include hops; the agent
// keeps it as an internal child path. A strict segment is a single link, which is chosen when the
// path is stitched, so it needs no child. The path's machine makes the children by this list, and
// the stitching reads them back by it, so that both agree on what segment n is.

#include "Cspf/Records/Segments.h"

#include <algorithm>

namespace Cspf {

namespace {

void
addSegment( std::vector< PathSegment > & segments, const Kivnet::IpGenAddr & end, bool loose ) {
   PathSegment segment;
   segment.index = static_cast< std::uint8_t >( segments.size() );
   segment.loose = loose;
   segment.source = segments.empty() ? Kivnet::IpGenAddr() : segments.back().end;
   segment.end = end;
   segment.repeats =
      static_cast< std::uint32_t >( std::ranges::count_if( segments, [ & ]( const auto & earlier ) {
         return earlier.source == segment.source && earlier.end == end;
      } ) );
   segments.push_back( segment );
}

/// The hop after a segment that begins with hop `first`, and ends where the path first comes to
/// the router of its include hop; nothing where it does not.
std::optional< std::size_t >
hopAfter( const PathStatus & published, const Kivnet::IpGenAddr & source, std::size_t first,
          const IncludeIp & end ) {
   const auto & routers = published.pathTeRouterIdList();
   if ( end.teRouterId() == ( first == 0 ? source : routers[ first - 1 ] ) ) {
      return first;
   }
   for ( std::size_t hop = first; hop < routers.size(); ++hop ) {
      if ( routers[ hop ] == end.teRouterId() ) {
         return hop + 1;
      }
   }
   return std::nullopt;
}

}

bool
hasExplicitHops( const PathConstraint & constraint ) {
   return constraint.includeHops() > 0 || constraint.includeHopAllExplicit();
}

std::vector< PathSegment >
pathSegments( const PathConstraint & constraint, const Destination & destination ) {
   std::vector< PathSegment > segments;
   for ( const IncludeHop & hop : constraint.includeHopList() ) {
      addSegment( segments, hop.addr(), hop.loose() );
   }
   const Kivnet::IpGenAddr end = destination.ipAddress();
   if ( !segments.empty() && !constraint.includeHopAllExplicit() && segments.back().end != end ) {
      addSegment( segments, end, true );
      segments.back().isIncludeHop = false;
   }
   return segments;
}

std::optional< HopRange >
publishedSegment( const PathStatus & published, const Kivnet::IpGenAddr & source,
                  const PathInfoKey & child ) {
   const auto & ends = published.includeIpList();
   const std::size_t paths = published.pathTeRouterIds();
   const Kivnet::IpGenAddr destination = child.pathKey().dst().ipAddress();
   Kivnet::IpGenAddr from;
   std::uint32_t repeats = 0;
   std::size_t first = 0;
   for ( std::size_t i = 0; i <= ends.size(); ++i ) {
      const auto next =
         i < ends.size() ? hopAfter( published, source, first, ends[ i ] ) : std::optional( paths );
      const Kivnet::IpGenAddr & to = i < ends.size() ? ends[ i ].addr() : destination;
      if ( !next ) {
         break;
      }
      if ( from == child.pathSegmentSourceNodeAddr() && to == destination
           && repeats++ == child.pathKey().id() ) {
         return HopRange{ first, *next - first };
      }
      from = to;
      first = *next;
   }
   return std::nullopt;
}

PathInfoKey
childPathInfoKey( const PathInfoKey & parent, const PathSegment & segment ) {
   PathInfoKey child;
   child.clientNameIs( parent.sharedClientName() );
   child.pathKeyIs( { Destination( segment.end ), segment.repeats } );
   child.internalIs( true );
   child.constraintModifierIs( ConstraintModifier::spfForPathSegment );
   child.parentPathKeyIs( parent.pathKey() );
   child.pathSegmentSourceNodeAddrIs( segment.source );
   return child;
}

}
